// Watches for the message box an action shows, reads it and presses OK.
//
//     MessageBoxWatcher watcher;                  // before the action runs
//     session.Run("StrengthenedKeyWarning");      // blocks until the watcher presses OK
//     std::optional<MessageBoxSeen> box = watcher.Wait();
//     ASSERT_TRUE(box) << "no message box";
//     EXPECT_EQ(box->text, L"...");
//
// A message box is a real window, so the test program needs a display: give
// its ctest entry the DISPLAY option of add_wine_test (an Xvfb server of its
// own). A thread started by the constructor looks for the first top-level
// dialog window (class "#32770") that was not there when the watcher was made
// (so stand-in owner dialogs made before are never taken for the box), reads
// it, and sends it IDOK. It keeps looking until it finds one or the watcher
// goes away, so a box shown after Wait gave up is still closed and cannot hang
// the test. The watcher does not pump messages: the box must belong to
// another thread (normally the test's own, blocked inside the action).
// SETUPUTILS_MESSAGE_BOX_HOLD_MS=<ms> leaves each box up that long before OK
// is pressed, e.g. to take a picture of the screen: run-in-prefix.sh passes
// SETUPUTILS_XVFB_OPTIONS to Xvfb, and "-fbdir <folder>" makes it keep the
// screen there as an XWD file.
#pragma once

#include <chrono>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include <windows.h>

#include "import_redirect.h"

namespace harness {

struct MessageBoxSeen {
    std::wstring text;    // the text control (id 0xFFFF)
    std::wstring caption; // the window title
    HWND owner = nullptr; // GetWindow(GW_OWNER)
    LONG style = 0;       // GWL_STYLE of the box window
    LONG exStyle = 0;     // GWL_EXSTYLE
    // The MessageBoxW flags that show on the window: the button set (MB_OK,
    // MB_OKCANCEL, ...), the icon (MB_ICONHAND/QUESTION/EXCLAMATION/ASTERISK)
    // and MB_TOPMOST (WS_EX_TOPMOST). Wine 8 makes only system- and task-modal
    // boxes topmost and gives every box the foreground, so MB_TOPMOST and
    // MB_SETFOREGROUND cannot be read off a window there: MessageBoxCallRecorder
    // sees the style argument itself.
    UINT flags = 0;
};

class MessageBoxWatcher {
public:
    MessageBoxWatcher();
    ~MessageBoxWatcher();
    MessageBoxWatcher(const MessageBoxWatcher&) = delete;
    MessageBoxWatcher& operator=(const MessageBoxWatcher&) = delete;

    // The box seen, or nothing when none appeared within `limit`. Also after
    // the action returned: a box that never came is a failed test, not a hang.
    std::optional<MessageBoxSeen> Wait(std::chrono::milliseconds limit = std::chrono::seconds(10));

    struct State;

private:
    std::shared_ptr<State> state_;
    HANDLE thread_ = nullptr;
};

// The arguments of one MessageBoxW call.
struct MessageBoxCall {
    HWND owner = nullptr;
    std::wstring text;
    std::wstring caption;
    UINT style = 0;
};

// Records the MessageBoxW calls that `module` (e.g. the loaded setuputils.dll)
// makes, by pointing its import of user32!MessageBoxW at a recorder for its
// lifetime. Each call goes on to the real MessageBoxW, so the box still shows
// for a MessageBoxWatcher to read and close. One recorder at a time.
class MessageBoxCallRecorder {
public:
    explicit MessageBoxCallRecorder(HMODULE module);
    ~MessageBoxCallRecorder();
    MessageBoxCallRecorder(const MessageBoxCallRecorder&) = delete;
    MessageBoxCallRecorder& operator=(const MessageBoxCallRecorder&) = delete;

    std::vector<MessageBoxCall> calls() const;

private:
    static int WINAPI Record(HWND owner, LPCWSTR text, LPCWSTR caption, UINT style);

    ImportRedirect redirect_;
    mutable std::mutex mutex_;
    std::vector<MessageBoxCall> calls_;
};

// Visible stand-in windows of a class (such as an installer's dialogs), made
// before a watcher so that it never takes them for the box; destroyed with this.
class StandInWindows {
public:
    // "#32770", the dialog class, is the system's and is not registered here:
    // a class of that name registered here would be taken for the box's own.
    explicit StandInWindows(const wchar_t* windowClass);
    ~StandInWindows();
    StandInWindows(const StandInWindows&) = delete;
    StandInWindows& operator=(const StandInWindows&) = delete;

    // Cascaded so that every title is in sight.
    HWND Add(const std::wstring& title);

private:
    const wchar_t* class_;
    std::vector<HWND> windows_;
};

} // namespace harness
