#include "hostlink/discovery.h"

#include "platform/module.h"
#include "platform/process_table.h"
#include "protocol/control_protocol.h"
#include "text/paths.h"

#include <algorithm>

namespace {

constexpr DWORD LongestRegistryString = 1024;  // bytes

OwnedRegistryKey OpenForReading(HKEY root, LPCWSTR subKey) {
    HKEY key = nullptr;
    if (RegOpenKeyExW(root, subKey, 0, KEY_QUERY_VALUE, &key) != ERROR_SUCCESS) return {};
    return OwnedRegistryKey(key);
}

/// A REG_DWORD value of the announcement; 0 if it is missing or has the wrong type or size.
DWORD ReadAnnouncedNumber(LPCWSTR valueName) {
    const OwnedRegistryKey key = OpenForReading(HKEY_CURRENT_USER, Announcement::Key);
    if (!key) return 0;
    DWORD type = 0;
    DWORD number = 0;
    DWORD size = sizeof number;
    const LSTATUS status =
        RegQueryValueExW(key.get(), valueName, nullptr, &type, reinterpret_cast<BYTE*>(&number), &size);
    return status == ERROR_SUCCESS && type == REG_DWORD && size == sizeof number ? number : 0;
}

/// True if the process's image is directly in `directory`, which is lower-cased. Always true for an empty one.
bool LiesIn(const WideString& directory, DWORD processId) {
    if (directory.empty()) return true;
    return ToLowerWide(ParentDirectory(GetProcessImagePath(processId))) == directory;
}

}  // namespace

std::vector<WideString> FindControlPipes() {
    std::vector<WideString> names;
    if (IsControlServerAnnounced()) {
        WideString announced = ReadRegistryString(HKEY_CURRENT_USER, Announcement::Key, Announcement::PipeName);
        if (!announced.empty()) names.push_back(std::move(announced));
    }

    const WideString ownDirectory = ToLowerWide(GetExecutableDirectory());
    const OwnedHandle snapshot = TakeProcessSnapshot();
    if (!snapshot) return names;
    VisitProcesses(snapshot, [&](const PROCESSENTRY32W& entry) {
        // Test the name first: every other process then costs one comparison.
        if (_wcsicmp(entry.szExeFile, ViewerImageName) != 0 || !IsProcessAlive(entry.th32ProcessID)) return;
        if (!LiesIn(ownDirectory, entry.th32ProcessID)) return;
        WideString name = ControlPipeName(entry.th32ProcessID);
        if (std::find(names.begin(), names.end(), name) == names.end()) names.push_back(std::move(name));
    });
    return names;
}

bool IsControlServerAnnounced() {
    if (ReadAnnouncedNumber(Announcement::ControlServerEnabled) == 0) return false;
    const DWORD processId = ReadAnnouncedNumber(Announcement::ProcessId);
    if (processId == 0) return false;
    if (ReadRegistryString(HKEY_CURRENT_USER, Announcement::Key, Announcement::PipeName).empty()) return false;
    return IsProcessAlive(processId);
}

WideString ReadRegistryString(HKEY root, LPCWSTR subKey, LPCWSTR valueName) {
    const OwnedRegistryKey key = OpenForReading(root, subKey);
    if (!key) return {};
    // One unit more than the value may fill, so that a NUL always follows.
    WCHAR text[LongestRegistryString / sizeof(WCHAR) + 1] = {};
    DWORD type = 0;
    DWORD size = LongestRegistryString;
    const LSTATUS status = RegQueryValueExW(key.get(), valueName, nullptr, &type, reinterpret_cast<BYTE*>(text), &size);
    if (status != ERROR_SUCCESS || (type != REG_SZ && type != REG_EXPAND_SZ)) return {};
    // An odd last byte is dropped.
    text[size / sizeof(WCHAR)] = 0;
    return text;
}

bool IsProcessAlive(DWORD processId) {
    if (processId == 0) return false;
    const OwnedHandle process(OpenProcess(SYNCHRONIZE | PROCESS_QUERY_LIMITED_INFORMATION, FALSE, processId));
    DWORD exitCode = 0;
    // Wait as well: a process can exit with code 259, which also means still running.
    return process && GetExitCodeProcess(process.Get(), &exitCode) != 0 && exitCode == STILL_ACTIVE &&
           WaitForSingleObject(process.Get(), 0) == WAIT_TIMEOUT;
}

WideString GetProcessImagePath(DWORD processId) {
    const OwnedHandle process(OpenProcess(PROCESS_QUERY_LIMITED_INFORMATION, FALSE, processId));
    if (!process) return {};
    return ReadGrowingPath([&process](WCHAR* buffer, DWORD& length) {
        if (QueryFullProcessImageNameW(process.Get(), 0, buffer, &length) != 0) return PathRead::Complete;
        return GetLastError() == ERROR_INSUFFICIENT_BUFFER ? PathRead::BufferTooSmall : PathRead::Failed;
    });
}

WideString GetExecutableDirectory() {
    return ParentDirectory(ModulePath(nullptr));
}
