/// The table behind every HANDLE and HKEY. A value is given out once, so a closed handle never means another object.
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

/// Takes the entry out of the table. Calls under way keep its object alive.
HandleEntry RemoveEntry(HANDLE handle);

template <typename Object>
HANDLE AddHandle(std::shared_ptr<Object> object) {
    return AddEntry({std::move(object), &typeid(Object)});
}

/// The object behind `entry` when it is of this kind, else null.
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

/// Sets the last error and returns FALSE; returns TRUE for ERROR_SUCCESS, which sets nothing.
BOOL Outcome(DWORD error);

/// Sets the last error and returns INVALID_HANDLE_VALUE.
HANDLE NoHandle(DWORD error);
