#include "hostlink/client_identity.h"

#include "control/protocol.h"
#include "hostlink/connection.h"
#include "platform/owned.h"

#include <algorithm>
#include <cctype>
#include <optional>

namespace {

/// The entry of `processId` in a snapshot of the process table.
std::optional<PROCESSENTRY32W> FindProcessEntry(HANDLE snapshot, DWORD processId) {
    PROCESSENTRY32W entry{};
    entry.dwSize = sizeof entry;
    for (BOOL more = Process32FirstW(snapshot, &entry); more; more = Process32NextW(snapshot, &entry)) {
        if (entry.th32ProcessID == processId) return entry;
    }
    return std::nullopt;
}

/// The image name of this process's parent; empty when the parent has gone or the table can't be had.
WideString ParentImageName() {
    const OwnedHandle snapshot(CreateToolhelp32Snapshot(TH32CS_SNAPPROCESS, 0));
    if (!snapshot) return {};
    const auto own = FindProcessEntry(snapshot.Get(), GetCurrentProcessId());
    if (!own || own->th32ParentProcessID == 0) return {};
    const auto parent = FindProcessEntry(snapshot.Get(), own->th32ParentProcessID);
    return parent ? WideString(parent->szExeFile) : WideString();
}

/// What the client is called, by its lower-cased image name. The first row that fits decides.
std::string ClientLabel(const WideString& lowerName) {
    if (lowerName.find(TEXT("codex")) != WideString::npos) return "Codex MCP client";
    if (lowerName.find(TEXT("claude")) != WideString::npos) return "Claude MCP client";
    if (lowerName == TEXT("code.exe")) return "VS Code MCP client";
    return "MCP client";
}

}  // namespace

std::string BuildClientName() {
    return FormatClientName(GetCurrentProcessId(), ParentImageName());
}

std::string FormatClientName(DWORD processId, const WideString& parentName) {
    std::string name = ClientLabel(ToLowerWide(parentName)) + BridgeSuffixStart + std::to_string(processId);
    if (!parentName.empty()) name += ", parent " + WideToAsciiLossy(parentName);
    return name + ")";
}

std::string WideToAsciiLossy(const WideString& text) {
    std::string ascii;
    for (const WCHAR unit : text) ascii += unit < 128 ? static_cast<char>(unit) : '?';
    return ascii;
}

std::uint32_t ClientImageByteLimit() {
    constexpr std::uint32_t claudeLimit = 600 * 1024;
    std::string name = LastClientName();
    if (name.empty()) name = BuildClientName();
    std::transform(name.begin(), name.end(), name.begin(),
                   [](unsigned char byte) { return static_cast<char>(std::tolower(byte)); });
    return name.find("claude") != std::string::npos ? claudeLimit : 0;
}
