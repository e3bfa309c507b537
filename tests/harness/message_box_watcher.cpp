#include "message_box_watcher.h"

#include <atomic>
#include <cstring>
#include <cwchar>
#include <set>
#include <stdexcept>
#include <vector>

namespace harness {

// Shared by the test thread and the watcher thread.
struct MessageBoxWatcher::State {
    std::set<HWND> present; // dialogs that were there before the watcher
    std::atomic<bool> stop{false};
    HANDLE found = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    MessageBoxSeen seen; // written before `found` is set

    ~State() { CloseHandle(found); }
};

namespace {

constexpr wchar_t kDialogClass[] = L"#32770";
// The text control of a message box: 0xFFFF in Wine 8 and Windows, 100 in later Wine.
constexpr int kTextControls[] = {0xFFFF, 100};
constexpr DWORD kPollMilliseconds = 20;

std::wstring ClassOf(HWND window) {
    wchar_t name[64] = L"";
    GetClassNameW(window, name, 64);
    return name;
}

std::wstring TextOf(HWND window) {
    std::wstring text(static_cast<size_t>(GetWindowTextLengthW(window)) + 1, L'\0');
    text.resize(static_cast<size_t>(GetWindowTextW(window, text.data(), static_cast<int>(text.size()))));
    return text;
}

std::vector<HWND> TopLevelDialogs() {
    std::vector<HWND> dialogs;
    EnumWindows(
        [](HWND window, LPARAM list) -> BOOL {
            if (ClassOf(window) == kDialogClass) {
                reinterpret_cast<std::vector<HWND>*>(list)->push_back(window);
            }
            return TRUE;
        },
        reinterpret_cast<LPARAM>(&dialogs));
    return dialogs;
}

std::vector<HWND> Children(HWND window) {
    std::vector<HWND> children;
    EnumChildWindows(
        window,
        [](HWND child, LPARAM list) -> BOOL {
            reinterpret_cast<std::vector<HWND>*>(list)->push_back(child);
            return TRUE;
        },
        reinterpret_cast<LPARAM>(&children));
    return children;
}

// MB_OK and its kin from the ids of the buttons shown.
UINT ButtonFlags(const std::set<int>& ids) {
    const struct {
        std::set<int> ids;
        UINT flags;
    } sets[] = {{{IDOK}, MB_OK},
                {{IDOK, IDCANCEL}, MB_OKCANCEL},
                {{IDABORT, IDRETRY, IDIGNORE}, MB_ABORTRETRYIGNORE},
                {{IDYES, IDNO, IDCANCEL}, MB_YESNOCANCEL},
                {{IDYES, IDNO}, MB_YESNO},
                {{IDRETRY, IDCANCEL}, MB_RETRYCANCEL},
                {{IDCANCEL, IDTRYAGAIN, IDCONTINUE}, MB_CANCELTRYCONTINUE}};
    for (const auto& set : sets) {
        if (set.ids == ids) {
            return set.flags;
        }
    }
    return 0xF; // no button set of MessageBoxW
}

UINT IconFlags(HICON icon) {
    const struct {
        const wchar_t* id;
        UINT flags;
    } icons[] = {{IDI_HAND, MB_ICONHAND},
                 {IDI_QUESTION, MB_ICONQUESTION},
                 {IDI_EXCLAMATION, MB_ICONEXCLAMATION},
                 {IDI_ASTERISK, MB_ICONASTERISK}};
    for (const auto& candidate : icons) {
        if (icon != nullptr && icon == LoadIconW(nullptr, candidate.id)) {
            return candidate.flags;
        }
    }
    return 0;
}

MessageBoxSeen Read(HWND box) {
    MessageBoxSeen seen;
    seen.caption = TextOf(box);
    seen.owner = GetWindow(box, GW_OWNER);
    seen.style = GetWindowLongW(box, GWL_STYLE);
    seen.exStyle = GetWindowLongW(box, GWL_EXSTYLE);
    std::set<int> buttons;
    HICON icon = nullptr;
    for (HWND child : Children(box)) {
        const int id = GetDlgCtrlID(child);
        const std::wstring childClass = ClassOf(child);
        const bool isStatic = lstrcmpiW(childClass.c_str(), L"Static") == 0;
        const bool isIcon = isStatic && (GetWindowLongW(child, GWL_STYLE) & SS_TYPEMASK) == SS_ICON;
        if (isStatic && !isIcon && (id == kTextControls[0] || id == kTextControls[1])) {
            seen.text = TextOf(child);
        } else if (lstrcmpiW(childClass.c_str(), L"Button") == 0 && IsWindowVisible(child)) {
            buttons.insert(id);
        } else if (isIcon) {
            icon = reinterpret_cast<HICON>(SendMessageW(child, STM_GETICON, 0, 0));
        }
    }
    seen.flags = ButtonFlags(buttons) | IconFlags(icon);
    if ((seen.exStyle & WS_EX_TOPMOST) != 0) {
        seen.flags |= MB_TOPMOST;
    }
    return seen;
}

// SETUPUTILS_MESSAGE_BOX_HOLD_MS leaves each box up that long before it is
// closed, to look at it or take a picture of the screen.
void HoldForALook() {
    wchar_t hold[16] = L"";
    if (GetEnvironmentVariableW(L"SETUPUTILS_MESSAGE_BOX_HOLD_MS", hold, 16) > 0) {
        Sleep(wcstoul(hold, nullptr, 10));
    }
}

DWORD WINAPI Watch(void* parameter) {
    auto* shared = static_cast<std::shared_ptr<MessageBoxWatcher::State>*>(parameter);
    std::shared_ptr<MessageBoxWatcher::State> state = *shared;
    delete shared;
    while (!state->stop) {
        for (HWND dialog : TopLevelDialogs()) {
            if (state->present.count(dialog) != 0 || !IsWindowVisible(dialog)) {
                continue;
            }
            state->seen = Read(dialog);
            SetEvent(state->found);
            HoldForALook();
            PostMessageW(dialog, WM_COMMAND, MAKEWPARAM(IDOK, BN_CLICKED),
                         reinterpret_cast<LPARAM>(GetDlgItem(dialog, IDOK)));
            return 0;
        }
        Sleep(kPollMilliseconds);
    }
    return 0;
}

} // namespace

MessageBoxWatcher::MessageBoxWatcher() : state_(std::make_shared<State>()) {
    for (HWND dialog : TopLevelDialogs()) {
        state_->present.insert(dialog);
    }
    thread_ = CreateThread(nullptr, 0, Watch, new std::shared_ptr<State>(state_), 0, nullptr);
}

MessageBoxWatcher::~MessageBoxWatcher() {
    state_->stop = true;
    WaitForSingleObject(thread_, INFINITE);
    CloseHandle(thread_);
}

std::optional<MessageBoxSeen> MessageBoxWatcher::Wait(std::chrono::milliseconds limit) {
    if (WaitForSingleObject(state_->found, static_cast<DWORD>(limit.count())) != WAIT_OBJECT_0) {
        return std::nullopt;
    }
    return state_->seen;
}

namespace {

MessageBoxCallRecorder* g_recorder = nullptr;

} // namespace

MessageBoxCallRecorder::MessageBoxCallRecorder(HMODULE module)
    : redirect_(module, "user32.dll", "MessageBoxW",
                reinterpret_cast<void*>(&MessageBoxCallRecorder::Record)) {
    g_recorder = this;
}

MessageBoxCallRecorder::~MessageBoxCallRecorder() {
    g_recorder = nullptr;
}

std::vector<MessageBoxCall> MessageBoxCallRecorder::calls() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return calls_;
}

int WINAPI MessageBoxCallRecorder::Record(HWND owner, LPCWSTR text, LPCWSTR caption, UINT style) {
    MessageBoxCallRecorder* self = g_recorder;
    {
        std::lock_guard<std::mutex> lock(self->mutex_);
        self->calls_.push_back(
            {owner, text != nullptr ? text : L"", caption != nullptr ? caption : L"", style});
    }
    return self->redirect_.original<int(WINAPI*)(HWND, LPCWSTR, LPCWSTR, UINT)>()(owner, text, caption,
                                                                                  style);
}

StandInWindows::StandInWindows(const wchar_t* windowClass) : class_(windowClass) {
    if (windowClass[0] != L'#') {
        WNDCLASSW registration{};
        registration.lpfnWndProc = DefWindowProcW;
        registration.hInstance = GetModuleHandleW(nullptr);
        registration.lpszClassName = windowClass;
        RegisterClassW(&registration);
    }
}

StandInWindows::~StandInWindows() {
    for (HWND window : windows_) {
        DestroyWindow(window);
    }
}

HWND StandInWindows::Add(const std::wstring& title) {
    const int offset = 10 + 40 * static_cast<int>(windows_.size());
    windows_.push_back(CreateWindowExW(0, class_, title.c_str(), WS_OVERLAPPEDWINDOW | WS_VISIBLE, offset,
                                       offset, 320, 120, nullptr, nullptr, GetModuleHandleW(nullptr),
                                       nullptr));
    return windows_.back();
}

} // namespace harness
