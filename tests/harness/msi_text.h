// Reads a text from an installer call that reports the size it needs.
#pragma once

#include <string>

#include <windows.h>

namespace harness {

// `read(buffer, &size)` is an Msi*W call taking a buffer and its size in characters.
template <typename Read>
std::wstring ReadMsiText(Read read) {
    wchar_t empty[1] = L"";
    DWORD size = 0;
    read(empty, &size);
    std::wstring text(size + 1, L'\0');
    size = static_cast<DWORD>(text.size());
    read(text.data(), &size);
    text.resize(size);
    return text;
}

} // namespace harness
