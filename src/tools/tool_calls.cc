#include "tools/tool_calls.h"

#include "hostlink/client_identity.h"
#include "hostlink/connection.h"
#include "mcp/catalogue.h"
#include "mcp/scanning.h"
#include "protocol/verbs.h"
#include "tools/control_line.h"
#include "tools/results.h"

#include <algorithm>
#include <cstdint>
#include <new>
#include <optional>
#include <string>

namespace {

// ---- Reading arguments ---------------------------------------------------------------------------------------------

/// One call: the client's id and the whole message, in which each argument is looked up by name. An argument of the
/// wrong type counts as absent.
struct ToolCall {
    std::string_view IdText;
    std::string_view Message;

    std::string Text(std::string_view name) const { return FindJsonString(Message, name).value_or(""); }
    bool Flag(std::string_view name, bool whenAbsent) const { return FindJsonBool(Message, name).value_or(whenAbsent); }
    std::int32_t Number(std::string_view name, std::int32_t whenAbsent) const {
        return FindJsonInt(Message, name).value_or(whenAbsent);
    }
    /// A number, clamped to the range from 0 to `largest`.
    std::int32_t Clamped(std::string_view name, std::int32_t whenAbsent, std::int32_t largest) const {
        return std::clamp(Number(name, whenAbsent), 0, largest);
    }
    /// The number of results wanted. Zero and negative numbers mean the tool's default, never 1.
    std::int32_t Limit(std::int32_t whenAbsent, std::int32_t largest) const {
        const std::int32_t limit = Number("limit", whenAbsent);
        return limit <= 0 ? whenAbsent : std::min(limit, largest);
    }
    /// One of a few words; `otherwise` for any other text.
    std::string_view Choice(std::string_view name, std::initializer_list<std::string_view> words,
                            std::string_view otherwise) const {
        const auto* const word = std::find(words.begin(), words.end(), Text(name));
        return word != words.end() ? *word : otherwise;
    }
};

void FailCall(const ToolCall& call, std::string_view reason) {
    WriteTextResult(call.IdText, reason, true);
}

void Send(const ToolCall& call, const ControlLine& line) {
    RunControlCommand(call.IdText, line.Line());
}

/// Runs a tool whose only argument is a required text.
void SendOneText(const ToolCall& call, std::string_view verb, std::string_view argument, std::string_view whenMissing) {
    const std::string text = call.Text(argument);
    if (text.empty()) return FailCall(call, whenMissing);
    Send(call, ControlLine(verb).Text(text));
}

/// Adds an edit for each of `names` that the call has. An empty text is an edit too.
void AddTextEdits(ControlLine& line, const ToolCall& call, std::initializer_list<std::string_view> names) {
    for (const std::string_view name : names) line.AppendEditField(name, FindJsonString(call.Message, name));
}

// ---- The tools, in the order of the catalogue ----------------------------------------------------------------------

void ListCommands(const ToolCall& call) {
    EnsureControlConnection(MainThreadConnectTimeOut);
    WriteTextResult(call.IdText, SampleUsageText, false);
}

void GetBoardState(const ToolCall& call) {
    Send(call, ControlLine(Verb::GetBoardState));
}

void SelectComponent(const ToolCall& call) {
    SendOneText(call, Verb::SelectComponent, "refdes", "select_component requires a non-empty refdes argument.");
}

void SelectPin(const ToolCall& call) {
    const std::string refdes = call.Text("refdes");
    const std::string pin = call.Text("pin");
    if (refdes.empty() || pin.empty()) return FailCall(call, "select_pin requires non-empty refdes and pin arguments.");
    Send(call, ControlLine(Verb::SelectPin).Text(refdes).Text(pin));
}

void SelectNet(const ToolCall& call) {
    SendOneText(call, Verb::SelectNet, "net", "select_net requires a non-empty net argument.");
}

void FindComponents(const ToolCall& call) {
    const bool showUi = call.Flag("show_in_find_parts", false);
    SendOneText(call, showUi ? Verb::FindComponentsUi : Verb::FindComponents, "query",
                "find_components requires a non-empty query argument.");
}

void GetComponentInfo(const ToolCall& call) {
    SendOneText(call, Verb::GetComponent, "refdes", "get_component_info requires a non-empty refdes argument.");
}

void GetNetInfo(const ToolCall& call) {
    SendOneText(call, Verb::GetNet, "net", "get_net_info requires a non-empty net argument.");
}

void UpdateComponent(const ToolCall& call) {
    const std::string refdes = call.Text("refdes");
    if (refdes.empty()) return FailCall(call, "update_component requires a non-empty refdes argument.");
    ControlLine line(Verb::UpdateComponent);
    line.Text(refdes);
    AddTextEdits(line, call, {"new_refdes", "description", "display_info", "note"});
    if (!line.HasEdits()) {
        return FailCall(call,
                        "update_component requires at least one edit field: new_refdes, "
                        "description/display_info, or note.");
    }
    Send(call, line);
}

/// The updates as the client wrote them, or else from the fallback string; empty if the call has neither.
std::string UpdatesArgument(const ToolCall& call) {
    if (const auto updates = FindJsonRawValue(call.Message, "updates")) return std::string(*updates);
    return call.Text("updates_json");
}

void BulkUpdateComponents(const ToolCall& call) {
    const std::string updates = UpdatesArgument(call);
    const std::string updatesPath = call.Text("updates_path");
    if (updates.empty() && updatesPath.empty()) {
        return FailCall(call, "bulk_update_components requires updates array, updates_json string, or updates_path.");
    }
    Send(call, ControlLine(Verb::BulkUpdateComponents)
                   .Text(FindJsonString(call.Message, "field").value_or("description"))  // an empty one stays empty
                   .Flag(call.Flag("skip_missing", true))
                   .Flag(call.Flag("dry_run", false))
                   .Text(updates)
                   .Text(updatesPath));
}

void UpdateNet(const ToolCall& call) {
    const std::string net = call.Text("net");
    if (net.empty()) return FailCall(call, "update_net requires a non-empty net argument.");
    ControlLine line(Verb::UpdateNet);
    line.Text(net);
    AddTextEdits(line, call, {"new_name", "description", "note"});
    line.AppendEditField("no_connect", FindJsonBool(call.Message, "no_connect"));
    if (!line.HasEdits()) {
        return FailCall(call,
                        "update_net requires at least one edit field: new_name, description, note, or no_connect.");
    }
    Send(call, line);
}

void ExportOrv(const ToolCall& call) {
    SendOneText(call, Verb::ExportOrv, "path", "export_orv requires a non-empty path argument.");
}

void ListComponents(const ToolCall& call) {
    Send(call, ControlLine(Verb::ListComponents)
                   .Number(std::max(call.Number("offset", 0), 0))
                   .Number(call.Limit(25, 80))
                   .Flag(call.Flag("include_nets", true))
                   .Text(call.Text("query")));
}

void GetDiagnosticHints(const ToolCall& call) {
    SendOneText(call, Verb::GetDiagnosticHints, "query", "get_diagnostic_hints requires a non-empty query argument.");
}

void SearchIndexedContent(const ToolCall& call) {
    const std::string query = call.Text("query");
    if (query.empty()) return FailCall(call, "search_indexed_content requires a non-empty query argument.");
    Send(call, ControlLine(Verb::SearchIndexedContent)
                   .Number(call.Limit(25, 100))
                   .Flag(call.Flag("whole_word", false))
                   .Flag(call.Flag("regex", false))
                   .Flag(call.Flag("extended_search", false))
                   .Text(call.Choice("file_type", {"pdf", "boardview"}, "all"))
                   .Text(call.Text("file_path"))
                   .Text(call.Text("path_filter"))
                   .Text(call.Text("file_name_contains"))
                   .Text(query)
                   .Flag(call.Flag("show_window", false)));
}

constexpr std::int32_t LargestRadius = 2000;

void GetPdfPageContext(const ToolCall& call) {
    const std::int32_t page = call.Number("page", 0);
    if (page <= 0) return FailCall(call, "get_pdf_page_context requires a 1-based page argument.");
    const bool includeImage = call.Flag("include_image", false);
    Send(call, ControlLine(Verb::GetPdfPageContext)
                   .Number(page)
                   .Number(call.Clamped("radius", 160, LargestRadius))
                   .Number(call.Limit(80, 300))
                   .Flag(includeImage)
                   .Text(call.Choice("image_mode", {"page"}, "crop"))
                   .Text(call.Text("query"))
                   .Text(call.Text("pdf_path"))
                   .Number(includeImage ? ClientImageByteLimit() : 0));
}

void ExtractPdfiumText(const ToolCall& call) {
    Send(call, ControlLine(Verb::PdfiumExtractText)
                   .Number(std::max(call.Number("page_start", 1), 1))
                   .Number(std::max(call.Number("page_end", 0), 0))
                   .Flag(call.Flag("include_text", true))
                   .Flag(call.Flag("include_words", true))
                   .Number(call.Clamped("max_words_per_page", 6000, 20000))
                   .Text(call.Text("pdf_path"))
                   .Text(call.Text("output_path")));
}

void RenderPdfPageImage(const ToolCall& call) {
    const std::int32_t page = call.Number("page", 0);
    if (page <= 0) return FailCall(call, "render_pdf_page_image requires a 1-based page argument.");
    // An image is the point of this tool, so the agent can set neither the number of text boxes nor the image flag.
    constexpr std::int32_t limit = 80;
    constexpr bool includeImage = true;
    Send(call, ControlLine(Verb::GetPdfPageContext)
                   .Number(page)
                   .Number(call.Clamped("radius", 180, LargestRadius))
                   .Number(limit)
                   .Flag(includeImage)
                   .Text(call.Choice("image_mode", {"page"}, "crop"))
                   .Text(call.Text("query"))
                   .Text(call.Text("pdf_path"))
                   .Number(ClientImageByteLimit()));
}

void SearchFiles(const ToolCall& call) {
    const std::string query = call.Text("query");
    if (query.empty()) return FailCall(call, "search_files requires a non-empty query argument.");
    Send(call, ControlLine(Verb::SearchFiles)
                   .Flag(call.Flag("open_first", false))
                   .Number(call.Limit(10, 25))
                   .Flag(call.Flag("show_window", false))
                   .Text(call.Choice("open_mode", {"standalone", "attach_to_current_board"}, "default"))
                   .Flag(call.Flag("highlight_whole_word", false))
                   .Text(call.Text("highlight_text"))
                   .Text(query)
                   .Flag(call.Flag("whole_word", false))
                   .Flag(call.Flag("regex", false))
                   .Flag(call.Flag("extended_search", false)));
}

struct Tool {
    std::string_view Name;
    void (*Run)(const ToolCall& call);
};

constexpr Tool Tools[] = {
    {"list_commands", ListCommands},
    {"get_board_state", GetBoardState},
    {"select_component", SelectComponent},
    {"select_pin", SelectPin},
    {"select_net", SelectNet},
    {"find_components", FindComponents},
    {"get_component_info", GetComponentInfo},
    {"get_net_info", GetNetInfo},
    {"update_component", UpdateComponent},
    {"bulk_update_components", BulkUpdateComponents},
    {"update_net", UpdateNet},
    {"export_orv", ExportOrv},
    {"list_components", ListComponents},
    {"get_diagnostic_hints", GetDiagnosticHints},
    {"search_indexed_content", SearchIndexedContent},
    {"get_pdf_page_context", GetPdfPageContext},
    {"extract_pdfium_text", ExtractPdfiumText},
    {"render_pdf_page_image", RenderPdfPageImage},
    {"search_files", SearchFiles},
};

}  // namespace

std::vector<std::string_view> ToolNames() {
    std::vector<std::string_view> names;
    for (const Tool& tool : Tools) names.push_back(tool.Name);
    return names;
}

void HandleToolCall(std::string_view idText, std::string_view message) try {
    const ToolCall call{idText, message};
    const std::optional<std::string> name = FindJsonString(message, "name");
    if (!name) return FailCall(call, "MCP tool call is missing the tool name.");
    const auto tool = std::find_if(std::begin(Tools), std::end(Tools), [&](const Tool& t) { return t.Name == *name; });
    if (tool == std::end(Tools)) return FailCall(call, "Unknown Orvane MCP tool: " + *name);
    tool->Run(call);
} catch (const std::bad_alloc&) {
    // Memory ran out while the line was built: nothing has been sent, and no result has been written.
    WriteTextResult(idText, SendFailureText, true);
}
