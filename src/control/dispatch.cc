#include "control/dispatch.h"

#include "api/exports.h"
#include "control/clients.h"
#include "control/host_command.h"
#include "control/protocol.h"
#include "text/trim.h"

#include <cstdint>
#include <string>

namespace {

/// A verb with a payload, and the command that it becomes.
struct HostVerb {
    std::string_view Literal;
    HostCommandId CommandId;
    std::string_view TextInFront = {};
};

constexpr HostVerb HostVerbs[] = {
    {Verb::SelectNet, HostCommandId_SelectNet},
    {Verb::SelectComponent, HostCommandId_SelectComponent},
    {Verb::SelectPin, HostCommandId_SelectPin},
    {Verb::FindComponents, HostCommandId_FindComponents},
    {Verb::FindComponentsUi, HostCommandId_FindComponents, "SHOW_UI\t"},
    {Verb::GetComponent, HostCommandId_GetComponent},
    {Verb::GetNet, HostCommandId_GetNet},
    {Verb::UpdateComponent, HostCommandId_UpdateComponent},
    {Verb::BulkUpdateComponents, HostCommandId_BulkUpdateComponents},
    {Verb::UpdateNet, HostCommandId_UpdateNet},
    {Verb::ExportOrv, HostCommandId_ExportOrv},
    {Verb::ListComponents, HostCommandId_ListComponents},
    {Verb::SearchFiles, HostCommandId_SearchFiles},
    {Verb::SearchIndexedContent, HostCommandId_SearchIndexedContent},
    {Verb::GetPdfPageContext, HostCommandId_GetPdfPageContext},
    {Verb::PdfiumExtractText, HostCommandId_PdfiumExtractText},
    {Verb::GetDiagnosticHints, HostCommandId_GetDiagnosticHints},
};

std::string RenameClient(const ClientSession& session, std::string_view name) {
    UpdateClientName(session.ClientId, session.ServerRun, Utf8ToWide(name));
    return "OK\tClient name updated.";
}

/// The reply line for a request that is not empty.
std::string AnswerLine(const ClientSession& session, std::string_view line) {
    if (line == Verb::GetBoardState) return SendHostCommand(HostCommandId_GetBoardState, {}, session.ServerRun);
    for (const HostVerb& verb : HostVerbs) {
        if (!line.starts_with(verb.Literal)) continue;
        const std::string_view payload = line.substr(verb.Literal.size());
        return SendHostCommand(verb.CommandId, std::string(verb.TextInFront).append(payload), session.ServerRun);
    }
    if (line.starts_with(Verb::ClientName)) return RenameClient(session, line.substr(Verb::ClientName.size()));
    return "ERR\tUnknown Orvane MCP command.";
}

}  // namespace

void DispatchControlLine(const ClientSession& session, std::string_view line) {
    line = WithoutLineEnd(line);
    if (!line.empty()) WriteReplyLine(*session.Pipe, AnswerLine(session, line));
}
