#include "hostlink/client_identity.h"

#include "control/protocol.h"
#include "hostlink/connection.h"
#include "platform/process_table.h"

#include <algorithm>
#include <cctype>

namespace {

/// The image name of this process's parent; empty when the parent has gone or the table can't be had.
WideString ParentImageName() {
    const OwnedHandle snapshot = TakeProcessSnapshot();
    if (!snapshot) return {};
    const DWORD parent = FindProcessEntry(snapshot, GetCurrentProcessId()).th32ParentProcessID;
    return parent == 0 ? WideString() : WideString(FindProcessEntry(snapshot, parent).szExeFile);
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
