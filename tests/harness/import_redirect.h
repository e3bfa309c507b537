// Points one import of a loaded module at another function while it lives,
// so that a test can record or fail a system call the library makes.
#pragma once

#include <windows.h>

namespace harness {

class ImportRedirect {
public:
    // The import of `dll`!`function` by `module` (by name or by ordinal) calls
    // `replacement`; throws when the module does not import it.
    ImportRedirect(HMODULE module, const char* dll, const char* function, void* replacement);
    ~ImportRedirect();
    ImportRedirect(const ImportRedirect&) = delete;
    ImportRedirect& operator=(const ImportRedirect&) = delete;

private:
    void** slot_ = nullptr; // the import address table entry
    void* original_ = nullptr;
};

} // namespace harness
