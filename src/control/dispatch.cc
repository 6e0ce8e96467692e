#include "control/dispatch.h"

#include "control/clients.h"
#include "control/host_command.h"
#include "protocol/control_protocol.h"
#include "protocol/verbs.h"
#include "text/trim.h"

#include <string>

namespace {

std::string RenameClient(const ClientSession& session, std::string_view name) {
    UpdateClientName(session.ClientId, session.ServerRun, Utf8ToWide(name));
    return OkReply("Client name updated.");
}

/// The reply line for a request that is not empty.
std::string AnswerLine(const ClientSession& session, std::string_view line) {
    for (const HostVerb& verb : HostVerbs) {
        if (verb.HasPayload() ? !line.starts_with(verb.Literal) : line != verb.Literal) continue;
        const std::string_view payload = line.substr(verb.Literal.size());
        return SendHostCommand(verb.CommandId, std::string(verb.TextPrefix).append(payload), session.ServerRun);
    }
    if (line.starts_with(Verb::ClientName)) return RenameClient(session, line.substr(Verb::ClientName.size()));
    return ErrorReply("Unknown Orvane MCP command.");
}

}  // namespace

void DispatchControlLine(const ClientSession& session, std::string_view line) {
    line = WithoutLineEnd(line);
    if (!line.empty()) WriteReplyLine(*session.Pipe, AnswerLine(session, line));
}
