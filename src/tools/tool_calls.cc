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
#include <string>

namespace {

// ---- Reading arguments ---------------------------------------------------------------------------------------------

/// One call: the client's id and the whole message, in which every argument is looked up by its name.
struct ToolCall {
    std::string_view IdText;
    std::string_view Message;
};

/// The text of an argument, empty when it is absent or no string.
std::string TextArgument(const ToolCall& call, std::string_view name) {
    std::string text;
    FindJsonString(call.Message, name, text);
    return text;
}

bool FlagArgument(const ToolCall& call, std::string_view name, bool whenAbsent) {
    FindJsonBool(call.Message, name, whenAbsent);
    return whenAbsent;
}

std::int32_t NumberArgument(const ToolCall& call, std::string_view name, std::int32_t whenAbsent) {
    FindJsonInt(call.Message, name, whenAbsent);
    return whenAbsent;
}

/// A count of results: what makes no sense as one falls back to the tool's default, never to 1.
std::int32_t LimitArgument(const ToolCall& call, std::int32_t standard, std::int32_t largest) {
    const std::int32_t limit = NumberArgument(call, "limit", standard);
    return limit <= 0 ? standard : std::min(limit, largest);
}

/// A number from 0 to `largest`; what lies outside is moved to the nearer end.
std::int32_t ClampedArgument(const ToolCall& call, std::string_view name, std::int32_t whenAbsent,
                             std::int32_t largest) {
    return std::clamp(NumberArgument(call, name, whenAbsent), 0, largest);
}

/// One of a few words; any other text, and none, gives `standard`.
std::string ChoiceArgument(const ToolCall& call, std::string_view name, std::initializer_list<std::string_view> words,
                           std::string_view standard) {
    const std::string choice = TextArgument(call, name);
    return std::string(std::find(words.begin(), words.end(), choice) != words.end() ? choice : standard);
}

void FailCall(const ToolCall& call, std::string_view reason) {
    WriteTextResult(call.IdText, reason, true);
}

void Send(const ToolCall& call, const ControlLine& line) {
    RunControlCommand(call.IdText, line.Line());
}

/// The tools whose one argument is a required text.
void SendOneText(const ToolCall& call, std::string_view verb, std::string_view argument, std::string_view whenMissing) {
    const std::string text = TextArgument(call, argument);
    if (text.empty()) return FailCall(call, whenMissing);
    Send(call, ControlLine(verb).Text(text));
}

/// Appends the edits among `names` that the call has; an empty text is an edit too. True when there was one.
bool AppendTextEdits(const ToolCall& call, std::string& line, std::initializer_list<std::string_view> names) {
    bool any = false;
    for (const std::string_view name : names) {
        std::string value;
        if (!FindJsonString(call.Message, name, value)) continue;
        AppendEditField(line, name, value);
        any = true;
    }
    return any;
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
    const std::string refdes = TextArgument(call, "refdes");
    const std::string pin = TextArgument(call, "pin");
    if (refdes.empty() || pin.empty()) return FailCall(call, "select_pin requires non-empty refdes and pin arguments.");
    Send(call, ControlLine(Verb::SelectPin).Text(refdes).Text(pin));
}

void SelectNet(const ToolCall& call) {
    SendOneText(call, Verb::SelectNet, "net", "select_net requires a non-empty net argument.");
}

void FindComponents(const ToolCall& call) {
    const bool showUi = FlagArgument(call, "show_in_find_parts", false);
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
    const std::string refdes = TextArgument(call, "refdes");
    if (refdes.empty()) return FailCall(call, "update_component requires a non-empty refdes argument.");
    std::string line = ControlLine(Verb::UpdateComponent).Text(refdes).Line();
    if (!AppendTextEdits(call, line, {"new_refdes", "description", "display_info", "note"})) {
        return FailCall(call,
                        "update_component requires at least one edit field: new_refdes, "
                        "description/display_info, or note.");
    }
    RunControlCommand(call.IdText, line);
}

void BulkUpdateComponents(const ToolCall& call) {
    const std::string updatesPath = TextArgument(call, "updates_path");
    std::string updates;
    if (!FindJsonRawValue(call.Message, "updates", updates)) updates = TextArgument(call, "updates_json");
    if (updates.empty() && updatesPath.empty()) {
        return FailCall(call, "bulk_update_components requires updates array, updates_json string, or updates_path.");
    }
    // An empty field was said by the client and goes out empty; only an absent one has the default.
    std::string field;
    if (!FindJsonString(call.Message, "field", field)) field = "description";
    Send(call, ControlLine(Verb::BulkUpdateComponents)
                   .Text(field)
                   .Flag(FlagArgument(call, "skip_missing", true))
                   .Flag(FlagArgument(call, "dry_run", false))
                   .Text(updates)
                   .Text(updatesPath));
}

void UpdateNet(const ToolCall& call) {
    const std::string net = TextArgument(call, "net");
    if (net.empty()) return FailCall(call, "update_net requires a non-empty net argument.");
    std::string line = ControlLine(Verb::UpdateNet).Text(net).Line();
    bool any = AppendTextEdits(call, line, {"new_name", "description", "note"});
    bool noConnect = false;
    if (FindJsonBool(call.Message, "no_connect", noConnect)) {
        AppendEditField(line, "no_connect", noConnect ? "1" : "0");
        any = true;
    }
    if (!any) {
        return FailCall(call,
                        "update_net requires at least one edit field: new_name, description, note, or no_connect.");
    }
    RunControlCommand(call.IdText, line);
}

void ExportOrv(const ToolCall& call) {
    SendOneText(call, Verb::ExportOrv, "path", "export_orv requires a non-empty path argument.");
}

void ListComponents(const ToolCall& call) {
    Send(call, ControlLine(Verb::ListComponents)
                   .Number(std::max(NumberArgument(call, "offset", 0), 0))
                   .Number(LimitArgument(call, 25, 80))
                   .Flag(FlagArgument(call, "include_nets", true))
                   .Text(TextArgument(call, "query")));
}

void GetDiagnosticHints(const ToolCall& call) {
    SendOneText(call, Verb::GetDiagnosticHints, "query", "get_diagnostic_hints requires a non-empty query argument.");
}

void SearchIndexedContent(const ToolCall& call) {
    const std::string query = TextArgument(call, "query");
    if (query.empty()) return FailCall(call, "search_indexed_content requires a non-empty query argument.");
    Send(call, ControlLine(Verb::SearchIndexedContent)
                   .Number(LimitArgument(call, 25, 100))
                   .Flag(FlagArgument(call, "whole_word", false))
                   .Flag(FlagArgument(call, "regex", false))
                   .Flag(FlagArgument(call, "extended_search", false))
                   .Text(ChoiceArgument(call, "file_type", {"pdf", "boardview"}, "all"))
                   .Text(TextArgument(call, "file_path"))
                   .Text(TextArgument(call, "path_filter"))
                   .Text(TextArgument(call, "file_name_contains"))
                   .Text(query)
                   .Flag(FlagArgument(call, "show_window", false)));
}

constexpr std::int32_t LargestRadius = 2000;

void GetPdfPageContext(const ToolCall& call) {
    const std::int32_t page = NumberArgument(call, "page", 0);
    if (page <= 0) return FailCall(call, "get_pdf_page_context requires a 1-based page argument.");
    const bool includeImage = FlagArgument(call, "include_image", false);
    Send(call, ControlLine(Verb::GetPdfPageContext)
                   .Number(page)
                   .Number(ClampedArgument(call, "radius", 160, LargestRadius))
                   .Number(LimitArgument(call, 80, 300))
                   .Flag(includeImage)
                   .Text(ChoiceArgument(call, "image_mode", {"page"}, "crop"))
                   .Text(TextArgument(call, "query"))
                   .Text(TextArgument(call, "pdf_path"))
                   .Number(includeImage ? ClientImageByteLimit() : 0));
}

void ExtractPdfiumText(const ToolCall& call) {
    const std::int32_t pageStart = NumberArgument(call, "page_start", 1);
    Send(call, ControlLine(Verb::PdfiumExtractText)
                   .Number(std::max(pageStart, 1))
                   .Number(std::max(NumberArgument(call, "page_end", 0), 0))
                   .Flag(FlagArgument(call, "include_text", true))
                   .Flag(FlagArgument(call, "include_words", true))
                   .Number(ClampedArgument(call, "max_words_per_page", 6000, 20000))
                   .Text(TextArgument(call, "pdf_path"))
                   .Text(TextArgument(call, "output_path")));
}

void RenderPdfPageImage(const ToolCall& call) {
    const std::int32_t page = NumberArgument(call, "page", 0);
    if (page <= 0) return FailCall(call, "render_pdf_page_image requires a 1-based page argument.");
    // An image is the point of this tool: the number of hits and the image flag are not the agent's to choose.
    constexpr std::int32_t limit = 80;
    constexpr bool includeImage = true;
    Send(call, ControlLine(Verb::GetPdfPageContext)
                   .Number(page)
                   .Number(ClampedArgument(call, "radius", 180, LargestRadius))
                   .Number(limit)
                   .Flag(includeImage)
                   .Text(ChoiceArgument(call, "image_mode", {"page"}, "crop"))
                   .Text(TextArgument(call, "query"))
                   .Text(TextArgument(call, "pdf_path"))
                   .Number(ClientImageByteLimit()));
}

void SearchFiles(const ToolCall& call) {
    const std::string query = TextArgument(call, "query");
    if (query.empty()) return FailCall(call, "search_files requires a non-empty query argument.");
    Send(call, ControlLine(Verb::SearchFiles)
                   .Flag(FlagArgument(call, "open_first", false))
                   .Number(LimitArgument(call, 10, 25))
                   .Flag(FlagArgument(call, "show_window", false))
                   .Text(ChoiceArgument(call, "open_mode", {"standalone", "attach_to_current_board"}, "default"))
                   .Flag(FlagArgument(call, "highlight_whole_word", false))
                   .Text(TextArgument(call, "highlight_text"))
                   .Text(query)
                   .Flag(FlagArgument(call, "whole_word", false))
                   .Flag(FlagArgument(call, "regex", false))
                   .Flag(FlagArgument(call, "extended_search", false)));
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

void HandleToolCall(std::string_view idText, std::string_view message) try {
    const ToolCall call{idText, message};
    std::string name;
    if (!FindJsonString(message, "name", name)) return FailCall(call, "MCP tool call is missing the tool name.");
    const auto tool = std::find_if(std::begin(Tools), std::end(Tools), [&](const Tool& t) { return t.Name == name; });
    if (tool == std::end(Tools)) return FailCall(call, "Unknown Orvane MCP tool: " + name);
    tool->Run(call);
} catch (const std::bad_alloc&) {
    // The call outgrew memory before its command was sent. A result is written last, so none has been written yet.
    WriteTextResult(idText, SendFailureText, true);
}
