// One owner per Win32 or installer handle: closes it exactly once.
#pragma once

#include <cstdint>
#include <type_traits>
#include <utility>

#include <windows.h>

namespace setuputils {

// Null (or 0) and INVALID_HANDLE_VALUE both mean "no handle", whichever of the
// two the call that made the handle signals failure with: neither is closed.
template <typename Handle>
bool IsNoHandle(Handle handle) {
    if constexpr (std::is_pointer_v<Handle>) {
        return handle == nullptr || reinterpret_cast<std::uintptr_t>(handle) ==
                                        reinterpret_cast<std::uintptr_t>(INVALID_HANDLE_VALUE);
    } else {
        return handle == 0;
    }
}

// `Close` is a function object that closes a `Handle`.
template <typename HandleType, typename Close>
class UniqueHandle {
public:
    using Handle = HandleType;

    UniqueHandle() = default;
    explicit UniqueHandle(Handle handle) : handle_(handle) {}
    UniqueHandle(const UniqueHandle&) = delete;
    UniqueHandle& operator=(const UniqueHandle&) = delete;
    UniqueHandle(UniqueHandle&& other) noexcept : handle_(other.release()) {}
    UniqueHandle& operator=(UniqueHandle&& other) noexcept {
        reset(other.release());
        return *this;
    }
    ~UniqueHandle() { reset(); }

    // The handle as stored, a failure value included.
    Handle get() const { return handle_; }
    explicit operator bool() const { return !IsNoHandle(handle_); }

    Handle release() { return std::exchange(handle_, Handle{}); }

    void reset(Handle handle = Handle{}) {
        Handle old = std::exchange(handle_, handle);
        if (!IsNoHandle(old)) {
            Close{}(old);
        }
    }

    // For functions that return a new handle through a pointer.
    Handle* put() {
        reset();
        return &handle_;
    }

private:
    Handle handle_{};
};

} // namespace setuputils
