#include "control/announcement.h"

#include "control/state.h"
#include "platform/owned.h"
#include "protocol/control_protocol.h"

namespace {

OwnedRegistryKey OpenAnnouncement(REGSAM access) {
    HKEY key = nullptr;
    if (RegCreateKeyExW(HKEY_CURRENT_USER, Announcement::Key, 0, nullptr, REG_OPTION_NON_VOLATILE, access, nullptr,
                        &key, nullptr) != ERROR_SUCCESS) {
        return {};
    }
    return OwnedRegistryKey(key);
}

void SetNumber(HKEY key, LPCWSTR name, DWORD number) {
    RegSetValueExW(key, name, 0, REG_DWORD, reinterpret_cast<const BYTE*>(&number), sizeof number);
}

void Withdraw(HKEY key) {
    SetNumber(key, Announcement::ControlServerEnabled, 0);
    RegDeleteValueW(key, Announcement::ProcessId);
    RegDeleteValueW(key, Announcement::PipeName);
}

}  // namespace

void AnnounceControlServer(bool enabled) {
    const OwnedRegistryKey key = OpenAnnouncement(KEY_SET_VALUE);
    if (!key) return;
    if (!enabled) return Withdraw(key.get());
    const WideString& pipeName = ServerState().PipeName;
    SetNumber(key.get(), Announcement::ControlServerEnabled, 1);
    SetNumber(key.get(), Announcement::ProcessId, GetCurrentProcessId());
    RegSetValueExW(key.get(), Announcement::PipeName, 0, REG_SZ, reinterpret_cast<const BYTE*>(pipeName.c_str()),
                   static_cast<DWORD>((pipeName.size() + 1) * sizeof(WCHAR)));
}

void WithdrawAtProcessEnd() {
    if (!ServerState().Running) return;
    const OwnedRegistryKey key = OpenAnnouncement(KEY_QUERY_VALUE | KEY_SET_VALUE);
    DWORD type = 0;
    DWORD processId = 0;
    DWORD size = sizeof processId;
    if (key &&
        RegQueryValueExW(key.get(), Announcement::ProcessId, nullptr, &type, reinterpret_cast<BYTE*>(&processId),
                         &size) == ERROR_SUCCESS &&
        type == REG_DWORD && processId == GetCurrentProcessId()) {
        Withdraw(key.get());
    }
}
