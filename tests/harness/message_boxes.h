// While a MessageBoxes lives (made after the library is loaded), the boxes
// setuputils.dll shows through MessageBoxW are recorded instead, answered IDOK.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include <windows.h>

#include "import_redirect.h"

namespace harness {

// "<owner> '<text>' '<caption>' <style>", one message box call.
inline std::wstring BoxCall(HWND owner, const std::wstring& text, const std::wstring& caption, UINT style) {
    return std::to_wstring(reinterpret_cast<std::uintptr_t>(owner)) + L" '" + text + L"' '" + caption +
           L"' " + std::to_wstring(style);
}

class MessageBoxes {
public:
    MessageBoxes() { calls().clear(); }
    static std::vector<std::wstring>& calls() {
        static std::vector<std::wstring> recorded;
        return recorded;
    }

private:
    static int WINAPI Record(HWND owner, LPCWSTR text, LPCWSTR caption, UINT style) {
        calls().push_back(BoxCall(owner, text, caption, style));
        return IDOK;
    }
    ImportRedirect redirect_{GetModuleHandleW(L"setuputils.dll"), "user32.dll", "MessageBoxW",
                             reinterpret_cast<void*>(&Record)};
};

// A visible window of a class, such as an installer's dialog ("#32770", the
// system's dialog class, or a class registered here), destroyed with this.
using StandInWindow = std::unique_ptr<HWND__, decltype(&DestroyWindow)>;
inline StandInWindow MakeStandInWindow(const wchar_t* windowClass, const std::wstring& title) {
    const WNDCLASSW registration{0,       DefWindowProcW, 0,       0,       GetModuleHandleW(nullptr),
                                 nullptr, nullptr,        nullptr, nullptr, windowClass};
    if (windowClass[0] != L'#') {
        RegisterClassW(&registration); // once; later calls fail harmlessly
    }
    return {CreateWindowExW(0, windowClass, title.c_str(), WS_OVERLAPPEDWINDOW | WS_VISIBLE, 0, 0, 320, 120,
                            nullptr, nullptr, GetModuleHandleW(nullptr), nullptr),
            &DestroyWindow};
}

} // namespace harness
