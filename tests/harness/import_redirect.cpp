#include "import_redirect.h"

#include <stdexcept>
#include <string>

namespace harness {
namespace {

// The import address table entry of `module` that holds `address`.
void** FindImportSlot(HMODULE module, void* address) {
    auto* base = reinterpret_cast<BYTE*>(module);
    const auto* nt = reinterpret_cast<const IMAGE_NT_HEADERS*>(
        base + reinterpret_cast<const IMAGE_DOS_HEADER*>(base)->e_lfanew);
    const IMAGE_DATA_DIRECTORY& directory = nt->OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_IMPORT];
    if (directory.VirtualAddress == 0) {
        return nullptr;
    }
    for (auto* dll = reinterpret_cast<IMAGE_IMPORT_DESCRIPTOR*>(base + directory.VirtualAddress);
         dll->Name != 0; ++dll) {
        for (auto* entry = reinterpret_cast<IMAGE_THUNK_DATA*>(base + dll->FirstThunk);
             entry->u1.Function != 0; ++entry) {
            if (entry->u1.Function == reinterpret_cast<ULONG_PTR>(address)) {
                return reinterpret_cast<void**>(&entry->u1.Function);
            }
        }
    }
    return nullptr;
}

void WriteSlot(void** slot, void* value) {
    DWORD protection = 0;
    VirtualProtect(slot, sizeof(void*), PAGE_READWRITE, &protection);
    *slot = value;
    VirtualProtect(slot, sizeof(void*), protection, &protection);
}

} // namespace

ImportRedirect::ImportRedirect(HMODULE module, const char* dll, const char* function, void* replacement) {
    HMODULE exporter = GetModuleHandleA(dll);
    original_ = exporter != nullptr ? reinterpret_cast<void*>(GetProcAddress(exporter, function)) : nullptr;
    slot_ = original_ != nullptr ? FindImportSlot(module, original_) : nullptr;
    if (slot_ == nullptr) {
        throw std::runtime_error(std::string("the module does not import ") + dll + "!" + function);
    }
    WriteSlot(slot_, replacement);
}

ImportRedirect::~ImportRedirect() {
    WriteSlot(slot_, original_);
}

} // namespace harness
