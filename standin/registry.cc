// A key is a directory below "registry" in the shared directory, a value is a file in it: its type in four bytes and
// then its data. A value is written beside its place and moved there whole.
#include "standin/directory.h"
#include "standin/handles.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <optional>
#include <string>
#include <string_view>
#include <sys/stat.h>

struct RegistryKey {
    std::string Path;  // below the shared directory
    REGSAM Access = 0;
};

namespace {

LSTATUS Status(DWORD error) {
    return static_cast<LSTATUS>(error);
}

/// The open key behind `handle`, HKEY_CURRENT_USER included; null for any other.
std::shared_ptr<RegistryKey> FindKey(HKEY handle) {
    if (handle != HKEY_CURRENT_USER) return FindHandle<RegistryKey>(handle);
    return std::make_shared<RegistryKey>(RegistryKey{"registry", KEY_QUERY_VALUE | KEY_SET_VALUE});
}

/// The path of `subKey` under `key`; its parts are separated by backslashes.
std::string SubKeyPath(const RegistryKey& key, LPCWSTR subKey) {
    std::string path = key.Path;
    std::u16string_view rest(subKey == nullptr ? u"" : subKey);
    while (!rest.empty()) {
        const std::size_t end = std::min(rest.find(u'\\'), rest.size());
        if (end > 0) path += "/key." + FileNameFor(rest.substr(0, end));
        rest.remove_prefix(std::min(end + 1, rest.size()));
    }
    return path;
}

std::string ValuePath(const RegistryKey& key, LPCWSTR valueName) {
    return key.Path + "/value." + FileNameFor(valueName == nullptr ? u"" : valueName);
}

LSTATUS OpenKey(const std::string& path, REGSAM access, HKEY* key) {
    *key = static_cast<HKEY>(AddHandle(std::make_shared<RegistryKey>(RegistryKey{path, access})));
    return ERROR_SUCCESS;
}

std::optional<std::string> ReadAll(const Descriptor& file) {
    std::string content;
    char bytes[4096];
    ssize_t count = 0;
    while ((count = read(file.Get(), bytes, sizeof(bytes))) > 0) content.append(bytes, static_cast<std::size_t>(count));
    if (count < 0) return std::nullopt;
    return content;
}

bool WriteAll(const Descriptor& file, std::string_view content) {
    while (!content.empty()) {
        const ssize_t count = write(file.Get(), content.data(), content.size());
        if (count < 0) return false;
        content.remove_prefix(static_cast<std::size_t>(count));
    }
    return true;
}

}  // namespace

LSTATUS RegOpenKeyExW(HKEY root, LPCWSTR subKey, DWORD, REGSAM access, HKEY* key) {
    const std::shared_ptr<RegistryKey> parent = FindKey(root);
    if (!parent) return Status(ERROR_INVALID_HANDLE);
    const Descriptor directory = OpenSharedDirectory();
    if (!directory) return Status(ERROR_ACCESS_DENIED);
    const std::string path = SubKeyPath(*parent, subKey);
    // The root itself is there even before anything has been written below it.
    const bool isRoot = path.find('/') == std::string::npos;
    if (!isRoot && faccessat(directory.Get(), path.c_str(), F_OK, 0) != 0) return Status(ERROR_FILE_NOT_FOUND);
    return OpenKey(path, access, key);
}

LSTATUS RegCreateKeyExW(HKEY root, LPCWSTR subKey, DWORD, LPWSTR, DWORD, REGSAM access, const SECURITY_ATTRIBUTES*,
                        HKEY* key, LPDWORD disposition) {
    constexpr DWORD createdNewKey = 1;
    constexpr DWORD openedExistingKey = 2;
    const std::shared_ptr<RegistryKey> parent = FindKey(root);
    if (!parent) return Status(ERROR_INVALID_HANDLE);
    const Descriptor directory = OpenSharedDirectory();
    if (!directory) return Status(ERROR_ACCESS_DENIED);
    const std::string path = SubKeyPath(*parent, subKey);
    DWORD found = openedExistingKey;
    for (std::size_t end = 0; end != std::string::npos;) {
        end = path.find('/', end + 1);
        const bool created = mkdirat(directory.Get(), path.substr(0, end).c_str(), 0700) == 0;
        if (!created && errno != EEXIST) return Status(ERROR_ACCESS_DENIED);
        found = created ? createdNewKey : openedExistingKey;
    }
    if (disposition != nullptr) *disposition = found;
    return OpenKey(path, access, key);
}

LSTATUS RegQueryValueExW(HKEY handle, LPCWSTR valueName, LPDWORD reserved, LPDWORD type, BYTE* data, LPDWORD size) {
    const std::shared_ptr<RegistryKey> key = FindKey(handle);
    if (!key) return Status(ERROR_INVALID_HANDLE);
    if ((key->Access & KEY_QUERY_VALUE) == 0) return Status(ERROR_ACCESS_DENIED);
    if (reserved != nullptr || (data != nullptr && size == nullptr)) return Status(ERROR_INVALID_PARAMETER);
    const Descriptor directory = OpenSharedDirectory();
    if (!directory) return Status(ERROR_ACCESS_DENIED);
    const Descriptor file(openat(directory.Get(), ValuePath(*key, valueName).c_str(), O_RDONLY | O_CLOEXEC));
    const std::optional<std::string> content = file ? ReadAll(file) : std::nullopt;
    if (!content || content->size() < sizeof(DWORD)) return Status(ERROR_FILE_NOT_FOUND);
    if (type != nullptr) std::memcpy(type, content->data(), sizeof(DWORD));
    const auto needed = static_cast<DWORD>(content->size() - sizeof(DWORD));
    const bool fits = data == nullptr || *size >= needed;
    if (data != nullptr && fits && needed > 0) std::memcpy(data, content->data() + sizeof(DWORD), needed);
    if (size != nullptr) *size = needed;
    return fits ? ERROR_SUCCESS : Status(ERROR_MORE_DATA);
}

LSTATUS RegSetValueExW(HKEY handle, LPCWSTR valueName, DWORD, DWORD type, const BYTE* data, DWORD size) {
    const std::shared_ptr<RegistryKey> key = FindKey(handle);
    if (!key) return Status(ERROR_INVALID_HANDLE);
    if ((key->Access & KEY_SET_VALUE) == 0) return Status(ERROR_ACCESS_DENIED);
    // The lock keeps those who clear up after dead processes from working with half of this.
    const DirectoryLock lock = LockSharedDirectory();
    if (!lock) return Status(ERROR_ACCESS_DENIED);
    std::string content(reinterpret_cast<const char*>(&type), sizeof(type));
    if (size > 0) content.append(reinterpret_cast<const char*>(data), size);
    const int root = lock.Directory.Get();
    const std::string draft = NewFileStamp('t');
    const Descriptor file(openat(root, draft.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
    if (file && WriteAll(file, content) &&
        renameat(root, draft.c_str(), root, ValuePath(*key, valueName).c_str()) == 0) {
        return ERROR_SUCCESS;
    }
    unlinkat(root, draft.c_str(), 0);
    return Status(ERROR_ACCESS_DENIED);
}

LSTATUS RegDeleteValueW(HKEY handle, LPCWSTR valueName) {
    const std::shared_ptr<RegistryKey> key = FindKey(handle);
    if (!key) return Status(ERROR_INVALID_HANDLE);
    if ((key->Access & KEY_SET_VALUE) == 0) return Status(ERROR_ACCESS_DENIED);
    const Descriptor directory = OpenSharedDirectory();
    if (!directory) return Status(ERROR_ACCESS_DENIED);
    const bool deleted = unlinkat(directory.Get(), ValuePath(*key, valueName).c_str(), 0) == 0;
    return deleted ? ERROR_SUCCESS : Status(ERROR_FILE_NOT_FOUND);
}

LSTATUS RegCloseKey(HKEY key) {
    if (key == HKEY_CURRENT_USER) return ERROR_SUCCESS;
    if (!FindHandle<RegistryKey>(key)) return Status(ERROR_INVALID_HANDLE);
    RemoveHandle(key);
    return ERROR_SUCCESS;
}
