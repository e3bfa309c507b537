/* For the ARM64 test build under Wine only (build-toolchain.sh --wine-test).
 *
 * Wine 8's ARM64 C runtime reads a va_list passed by ARM64 code with the Linux
 * layout, so its printf family crashes there. The test build formats with
 * mingw-w64's own printf instead, but that one still hands each string it writes
 * to a file to the runtime's fwprintf, as "%[-]*.*s" (a wide string) or
 * "%[-]*.*S" (a narrow one). This writes those strings itself. */
#include <stdarg.h>
#include <stdio.h>
#include <string.h>
#include <wchar.h>

static int pad(FILE* file, int count) {
    int written = 0;
    for (; written < count; ++written) {
        if (fputwc(L' ', file) == WEOF) {
            return -1;
        }
    }
    return written;
}

int __cdecl __ms_fwprintf(FILE* file, const wchar_t* format, ...) {
    va_list args;
    int left = 0, width = 0, precision = -1, length = 0, written, i;
    wchar_t text[512];
    const wchar_t* wide = text;
    const wchar_t* p = format;

    va_start(args, format);
    if (*p++ != L'%') {
        va_end(args);
        return -1;
    }
    if (*p == L'-') {
        left = 1;
        ++p;
    }
    if (*p == L'*') {
        width = va_arg(args, int);
        ++p;
    }
    if (p[0] == L'.' && p[1] == L'*') {
        precision = va_arg(args, int);
        p += 2;
    }
    if (*p == L's') {
        wide = va_arg(args, const wchar_t*);
        length = (int)(precision < 0 ? wcslen(wide) : wcsnlen(wide, (size_t)precision));
    } else if (*p == L'S') {
        const char* narrow = va_arg(args, const char*);
        size_t bytes = precision < 0 ? strlen(narrow) : strnlen(narrow, (size_t)precision);
        mbstate_t state;
        memset(&state, 0, sizeof state);
        while (bytes > 0 && length < (int)(sizeof text / sizeof text[0])) {
            size_t used = mbrtowc(&text[length], narrow, bytes, &state);
            if (used == 0 || used > bytes) {
                break;
            }
            narrow += used;
            bytes -= used;
            ++length;
        }
    } else {
        va_end(args);
        return -1;
    }
    va_end(args);

    written = left ? 0 : pad(file, width - length);
    for (i = 0; written >= 0 && i < length; ++i, ++written) {
        if (fputwc(wide[i], file) == WEOF) {
            return -1;
        }
    }
    if (written >= 0 && left) {
        int padding = pad(file, width - length);
        written = padding < 0 ? -1 : written + padding;
    }
    return written;
}
