// The warning boxes the provider's actions show over the installer's windows.
#pragma once

#include <string>

#include <windows.h>

namespace setuputils {

// The window class of dialogs, the installer's own included.
inline constexpr wchar_t kDialogClass[] = L"#32770";

// An exclamation box in the foreground and on top: MB_ICONEXCLAMATION |
// MB_SETFOREGROUND | MB_TOPMOST (0x50030).
inline constexpr UINT kWarningBoxStyle = MB_ICONEXCLAMATION | MB_SETFOREGROUND | MB_TOPMOST;

// Shows `text` under `caption`, owned by `owner` (none when null), and waits
// for the user.
inline void ShowWarning(HWND owner, const std::wstring& text, const std::wstring& caption) {
    MessageBoxW(owner, text.c_str(), caption.c_str(), kWarningBoxStyle);
}

} // namespace setuputils
