/// The table behind every HANDLE and HKEY. Values are never reused, so a closed handle never means another object.
#pragma once

#include "standin/windows.h"

#include <memory>
#include <typeinfo>

struct HandleEntry {
    std::shared_ptr<void> Object;
    const std::type_info* Type = nullptr;
};

HANDLE AddEntry(HandleEntry entry);
HandleEntry FindEntry(HANDLE handle);

/// Removes the entry from the table. Calls in progress keep its object alive.
HandleEntry RemoveEntry(HANDLE handle);

template <typename Object>
HANDLE AddHandle(std::shared_ptr<Object> object) {
    return AddEntry({std::move(object), &typeid(Object)});
}

/// The object behind `entry` if it is of this type, else null.
template <typename Object>
std::shared_ptr<Object> ObjectOf(const HandleEntry& entry) {
    return entry.Type != nullptr && *entry.Type == typeid(Object) ? std::static_pointer_cast<Object>(entry.Object)
                                                                  : nullptr;
}

/// The same for a handle. Sets ERROR_INVALID_HANDLE when it returns null.
template <typename Object>
std::shared_ptr<Object> FindHandle(HANDLE handle) {
    std::shared_ptr<Object> object = ObjectOf<Object>(FindEntry(handle));
    if (!object) SetLastError(ERROR_INVALID_HANDLE);
    return object;
}

/// Returns TRUE for ERROR_SUCCESS; for any other error, sets the last error and returns FALSE.
BOOL Outcome(DWORD error);

/// Sets the last error and returns INVALID_HANDLE_VALUE.
HANDLE NoHandle(DWORD error);
