#include "hostlink/client_identity.h"

#include "hostlink/connection.h"
#include "platform/process_table.h"
#include "protocol/client_labels.h"
#include "protocol/control_protocol.h"

#include <algorithm>
#include <cctype>

namespace {

/// The image name of this process's parent; empty when the parent is gone or the table can't be read.
WideString ParentImageName() {
    const OwnedHandle snapshot = TakeProcessSnapshot();
    if (!snapshot) return {};
    const DWORD parent = FindProcessEntry(snapshot, GetCurrentProcessId()).th32ParentProcessID;
    return parent == 0 ? WideString() : WideString(FindProcessEntry(snapshot, parent).szExeFile);
}

/// What to call the client whose image has this lower-cased name.
std::string ClientLabel(const WideString& lowerName) {
    for (const KnownClient& client : KnownClients) {
        if (client.ImageName.Holds(lowerName)) return std::string(client.Label);
    }
    return std::string(UnnamedClient);
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

std::uint32_t ClientImageByteLimit() {
    constexpr std::uint32_t claudeLimit = 600 * 1024;
    std::string name = LastClientName();
    if (name.empty()) name = BuildClientName();
    std::transform(name.begin(), name.end(), name.begin(),
                   [](unsigned char byte) { return static_cast<char>(std::tolower(byte)); });
    return name.find("claude") != std::string::npos ? claudeLimit : 0;
}
