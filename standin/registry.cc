// A key is a directory below "registry" in the shared directory, a value is a file in it: its type in four bytes, then
// its data. Values are read and written under the shared directory's lock.
#include "standin/directory.h"
#include "standin/handles.h"

#include <algorithm>
#include <fcntl.h>
#include <string>
#include <sys/stat.h>

struct RegistryKey {
    Descriptor Directory;
};

static LSTATUS Status(DWORD error) {
    return static_cast<LSTATUS>(error);
}

static Descriptor OpenBelow(const Descriptor& directory, const std::string& name, bool create) {
    if (create) mkdirat(directory.Get(), name.c_str(), 0700);
    return Descriptor(openat(directory.Get(), name.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
}

/// Opens a key below HKEY_CURRENT_USER; backslashes separate the parts of its path.
static LSTATUS OpenKey(LPCWSTR subKey, bool create, HKEY* key) {
    Descriptor directory = OpenBelow(OpenSharedDirectory(), "registry", create);
    for (std::u16string_view rest(subKey); directory && !rest.empty();) {
        const std::size_t end = std::min(rest.find(u'\\'), rest.size());
        directory = OpenBelow(directory, "key." + FileNameFor(rest.substr(0, end)), create);
        rest.remove_prefix(std::min(end + 1, rest.size()));
    }
    if (!directory) return Status(create ? ERROR_ACCESS_DENIED : ERROR_FILE_NOT_FOUND);
    const auto opened = std::make_shared<RegistryKey>();
    opened->Directory = std::move(directory);
    *key = static_cast<HKEY>(AddHandle(opened));
    return ERROR_SUCCESS;
}

static std::string ValueFile(LPCWSTR valueName) {
    return "value." + FileNameFor(valueName);
}

LSTATUS RegOpenKeyExW(HKEY, LPCWSTR subKey, DWORD, REGSAM, HKEY* key) {
    return OpenKey(subKey, false, key);
}

LSTATUS RegCreateKeyExW(HKEY, LPCWSTR subKey, DWORD, LPWSTR, DWORD, REGSAM, const SECURITY_ATTRIBUTES*, HKEY* key,
                        LPDWORD) {
    return OpenKey(subKey, true, key);
}

LSTATUS RegQueryValueExW(HKEY handle, LPCWSTR valueName, LPDWORD, LPDWORD type, BYTE* data, LPDWORD size) {
    const std::shared_ptr<RegistryKey> key = FindHandle<RegistryKey>(handle);
    if (!key) return Status(ERROR_INVALID_HANDLE);
    const Descriptor lock = LockSharedDirectory();
    const Descriptor file(openat(key->Directory.Get(), ValueFile(valueName).c_str(), O_RDONLY | O_CLOEXEC));
    struct stat status = {};
    if (!file || read(file.Get(), type, sizeof(*type)) != sizeof(*type)) return Status(ERROR_FILE_NOT_FOUND);
    fstat(file.Get(), &status);
    const auto needed = static_cast<DWORD>(static_cast<std::size_t>(status.st_size) - sizeof(*type));
    const bool fits = *size >= needed && read(file.Get(), data, needed) == needed;
    *size = needed;
    return fits ? ERROR_SUCCESS : Status(ERROR_MORE_DATA);
}

LSTATUS RegSetValueExW(HKEY handle, LPCWSTR valueName, DWORD, DWORD type, const BYTE* data, DWORD size) {
    const std::shared_ptr<RegistryKey> key = FindHandle<RegistryKey>(handle);
    if (!key) return Status(ERROR_INVALID_HANDLE);
    std::string content(reinterpret_cast<const char*>(&type), sizeof(type));
    content.append(reinterpret_cast<const char*>(data), size);
    const Descriptor lock = LockSharedDirectory();
    const Descriptor file(openat(key->Directory.Get(), ValueFile(valueName).c_str(),
                                 O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW | O_CLOEXEC, 0600));
    const bool written = file && write(file.Get(), content.data(), content.size()) == std::ssize(content);
    return written ? ERROR_SUCCESS : Status(ERROR_ACCESS_DENIED);
}

LSTATUS RegDeleteValueW(HKEY handle, LPCWSTR valueName) {
    const std::shared_ptr<RegistryKey> key = FindHandle<RegistryKey>(handle);
    const Descriptor lock = LockSharedDirectory();
    const bool deleted = key && unlinkat(key->Directory.Get(), ValueFile(valueName).c_str(), 0) == 0;
    return deleted ? ERROR_SUCCESS : Status(ERROR_FILE_NOT_FOUND);
}

LSTATUS RegCloseKey(HKEY key) {
    return RemoveEntry(key).Object ? ERROR_SUCCESS : Status(ERROR_INVALID_HANDLE);
}
