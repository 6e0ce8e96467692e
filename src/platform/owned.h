/// Owners of system resources: each releases its resource when it goes out of scope.
#pragma once

#include "platform/platform.h"

#include <memory>
#include <utility>

/// Owns a handle that CloseHandle closes. Empty means INVALID_HANDLE_VALUE or null, since Windows reports failure with
/// either.
class OwnedHandle {
  public:
    OwnedHandle() = default;
    explicit OwnedHandle(HANDLE handle) : handle_(handle) {}
    OwnedHandle(OwnedHandle&& other) noexcept : handle_(other.Release()) {}
    OwnedHandle& operator=(OwnedHandle&& other) noexcept {
        const OwnedHandle closing(std::exchange(handle_, other.Release()));
        return *this;
    }
    ~OwnedHandle() {
        if (*this) CloseHandle(handle_);
    }

    explicit operator bool() const { return handle_ != INVALID_HANDLE_VALUE && handle_ != nullptr; }
    HANDLE Get() const { return handle_; }
    HANDLE Release() { return std::exchange(handle_, INVALID_HANDLE_VALUE); }

  private:
    HANDLE handle_ = INVALID_HANDLE_VALUE;
};

/// An open registry key, closed with RegCloseKey.
struct RegistryKeyCloser {
    using pointer = HKEY;
    void operator()(HKEY key) const { RegCloseKey(key); }
};
using OwnedRegistryKey = std::unique_ptr<HKEY, RegistryKeyCloser>;

/// A block from the COM task allocator.
struct TaskMemoryFreer {
    void operator()(WCHAR* block) const { CoTaskMemFree(block); }
};
using OwnedTaskText = std::unique_ptr<WCHAR, TaskMemoryFreer>;
