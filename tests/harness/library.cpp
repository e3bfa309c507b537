#include "library.h"

#include "machine.h"

namespace harness {
namespace {

template <typename Function>
Function Required(FARPROC address, const char* name) {
    if (address == nullptr) {
        throw std::runtime_error(std::string("setuputils.dll does not export ") + name);
    }
    return reinterpret_cast<Function>(reinterpret_cast<void*>(address));
}

} // namespace

SetupUtilsLibrary::SetupUtilsLibrary() : module_(LoadLibraryW(Path().c_str())) {
    if (module_ == nullptr) {
        throw std::runtime_error("cannot load setuputils.dll: " + std::to_string(GetLastError()));
    }
}

SetupUtilsLibrary::~SetupUtilsLibrary() {
    FreeLibrary(module_);
}

std::wstring SetupUtilsLibrary::Path() {
    return TestProgramPath(L"setuputils.dll");
}

CustomAction SetupUtilsLibrary::Action(const char* name) const {
    return Required<CustomAction>(GetProcAddress(module_, name), name);
}

RunDllEntry SetupUtilsLibrary::CommandLineEntry(const char* name) const {
    return Required<RunDllEntry>(GetProcAddress(module_, name), name);
}

} // namespace harness
