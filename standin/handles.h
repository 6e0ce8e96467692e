/// The table behind every HANDLE and HKEY: values are handed out once and never again, so that a closed handle is
/// always told from an open one.
#pragma once

#include "platform/platform.h"

#include <memory>
#include <variant>

struct PipeEnd;
struct Stream;
struct ProcessObject;
struct ProcessSnapshot;
struct RegistryKey;

using HandleObject =
    std::variant<std::monostate, std::shared_ptr<PipeEnd>, std::shared_ptr<Stream>, std::shared_ptr<ProcessObject>,
                 std::shared_ptr<ProcessSnapshot>, std::shared_ptr<RegistryKey>>;

HANDLE AddHandle(HandleObject object);

/// What stands behind `handle`; std::monostate for a closed or unknown one.
HandleObject FindObject(HANDLE handle);

/// The object behind `handle` when it is of this kind; else null, with ERROR_INVALID_HANDLE.
template <typename Object>
std::shared_ptr<Object> FindHandle(HANDLE handle) {
    const HandleObject object = FindObject(handle);
    const auto* found = std::get_if<std::shared_ptr<Object>>(&object);
    if (found != nullptr) return *found;
    SetLastError(ERROR_INVALID_HANDLE);
    return nullptr;
}

/// Takes `handle` out of the table; calls under way keep what stands behind it.
HandleObject RemoveHandle(HANDLE handle);

/// Sets the last error and gives FALSE, or TRUE for ERROR_SUCCESS, which sets nothing.
BOOL Outcome(DWORD error);
