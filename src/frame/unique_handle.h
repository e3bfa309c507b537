// One owner per Win32 or installer handle: closes it exactly once.
#pragma once

#include <utility>

namespace setuputils {

// Traits: `Handle` type, `Invalid()` value and `Close(handle)`.
template <typename Traits>
class UniqueHandle {
public:
    using Handle = typename Traits::Handle;

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

    Handle get() const { return handle_; }
    explicit operator bool() const { return handle_ != Traits::Invalid(); }

    Handle release() { return std::exchange(handle_, Traits::Invalid()); }

    void reset(Handle handle = Traits::Invalid()) {
        Handle old = std::exchange(handle_, handle);
        if (old != Traits::Invalid()) {
            Traits::Close(old);
        }
    }

    // For functions that return a new handle through a pointer.
    Handle* put() {
        reset();
        return &handle_;
    }

private:
    Handle handle_ = Traits::Invalid();
};

} // namespace setuputils
