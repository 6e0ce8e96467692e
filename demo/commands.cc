#include "commands.h"

#include "platform/platform.h"

#include <algorithm>
#include <charconv>
#include <map>
#include <set>

namespace {

/// What makes a sentence of a query and says nothing of a part.
constexpr std::string_view IdleWords =
    " find select show highlight where what which is the a an all on of board components ";
constexpr std::size_t ConsoleTextLength = 48, ConsoleReplyLength = 80, LongestRefusal = 1000;

template <typename Record>
Record& Get(std::vector<Record>& records, std::string Record::*name, const std::string& wanted) {
    if (Record* record = Find(records, name, wanted)) return *record;
    throw Refusal("There is no '" + wanted + "' on this board.");
}

std::string SelectionEntries(Viewer& viewer) {
    const Component* component = Find(viewer.board.components, &Component::refdes, viewer.selectedRefdes);
    return Entry("selected_refdes", viewer.selectedRefdes) + Entry("selected_info", component ? component->info : "") +
           Entry("selected_pin", viewer.selectedPin) + Entry("selected_net", viewer.selectedNet);
}

/// Selects, and replies in the words by which an agent knows that it has nothing more to do.
std::string Select(Viewer& viewer, const std::string& refdes, const std::string& pin, const std::string& net,
                   const std::string& details) {
    viewer.selectedRefdes = refdes;
    viewer.selectedPin = pin;
    viewer.selectedNet = net;
    return "ORVANE_FINAL selected=true stop=true no_followup_tools=true\n" + SelectionEntries(viewer) + details +
           "STOP NOW: it is selected and centred on the board. Answer from this result.";
}

std::string SelectComponent(Viewer& viewer, const Fields& fields) {
    const Component& component = Get(viewer.board.components, &Component::refdes, fields[0]);
    return Select(viewer, component.refdes, "", "", Entry("side", component.side));
}

std::string SelectPin(Viewer& viewer, const Fields& fields) {
    Component& component = Get(viewer.board.components, &Component::refdes, fields[0]);
    const Pin* pin = Find(component.pins, &Pin::number, fields[1]);
    if (!pin) pin = &Get(component.pins, &Pin::name, fields[1]);
    return Select(viewer, component.refdes, pin->number, pin->net, Entry("pin_name", pin->name));
}

std::string SelectNet(Viewer& viewer, const Fields& fields) {
    const Net& net = Get(viewer.board.nets, &Net::name, fields[0]);
    return Select(viewer, "", "", net.name, Entry("net_description", net.description));
}

std::string GetBoardState(Viewer& viewer, const Fields&) {
    return Entry("board", viewer.board.name) + Entry("board_path", PathText(viewer.boardPath)) +
           Entry("attached_pdf_path", PathText(viewer.schematicPath)) +
           Entry("components", viewer.board.components.size()) + Entry("nets", viewer.board.nets.size()) +
           SelectionEntries(viewer);
}

std::string GetComponent(Viewer& viewer, const Fields& fields) {
    const Component& component = Get(viewer.board.components, &Component::refdes, fields[0]);
    std::string text = Entry("refdes", component.refdes) + Entry("Info", component.info) +
                       Entry("display_info", component.displayInfo) + Entry("note", component.note) +
                       Entry("side", component.side) + Entry("package", component.package);
    for (const Pin& pin : component.pins) text += "pin " + pin.number + "\t" + pin.name + "\t" + pin.net + "\n";
    return text;
}

std::string GetNet(Viewer& viewer, const Fields& fields) {
    const Net& net = Get(viewer.board.nets, &Net::name, fields[0]);
    std::vector<std::string> pins;
    for (const Component& component : viewer.board.components) {
        for (const Pin& pin : component.pins) {
            if (Lower(pin.net) == Lower(net.name)) pins.push_back(component.refdes + "." + pin.number);
        }
    }
    return Entry("net", net.name) + Entry("description", net.description) + Entry("note", net.note) +
           Entry("no_connect", net.noConnect) + Entry("pin_count", pins.size()) + Entry("pins", Joined(pins));
}

std::string CatalogueRow(const Component& component, bool withNets) {
    std::set<std::string> nets;
    for (const Pin& pin : component.pins) nets.insert(pin.net);
    return component.refdes + "\t" + OneLine(component.info) + "\t" + component.side + "\t" +
           std::to_string(component.pins.size()) + " pins" +
           (withNets ? "\t" + Joined({nets.begin(), nets.end()}) : "") + "\n";
}

/// What searches look through.
std::string SearchText(const Component& component) {
    std::string text = Joined({component.refdes, component.info, component.displayInfo, component.note,
                               component.package, std::to_string(component.pins.size()) + "-pin"});
    for (const Pin& pin : component.pins) text += " " + pin.name + " " + pin.net;
    return text;
}

/// Fields: offset, limit, include_nets, query.
std::string ListComponents(Viewer& viewer, const Fields& fields) {
    const std::size_t offset = Number(fields, 0), limit = Number(fields, 1), withNets = Number(fields, 2);
    std::string rows;
    std::size_t total = 0;
    for (const Component& component : viewer.board.components) {
        if (!HasWords(SearchText(component), fields[3])) continue;
        if (total >= offset && total < offset + limit) rows += CatalogueRow(component, withNets != 0);
        ++total;
    }
    return Entry("total", total) + (total > offset + limit ? Entry("next_offset", offset + limit) : "") + rows;
}

/// Fields: the query, with "SHOW_UI" in front of it when the matches are to show in Find parts.
std::string FindComponents(Viewer& viewer, const Fields& fields) {
    const bool show = fields[0] == "SHOW_UI" && fields.size() > 1;
    std::vector<std::string> words = SplitAt(Lower(fields[show ? 1 : 0]), ' ');
    std::erase_if(words, [](const std::string& word) { return IdleWords.find(" " + word + " ") != IdleWords.npos; });
    std::string rows;
    std::size_t matches = 0;
    const Component* best = nullptr;
    for (const Component& component : viewer.board.components) {
        if (words.empty() || !HasWords(SearchText(component), Joined(words))) continue;
        ++matches;
        rows += CatalogueRow(component, false);
        // Whoever asks for a charger means the chip, not the coil beside it.
        if (!best || component.pins.size() > best->pins.size()) best = &component;
    }
    if (!best) return "ORVANE_NO_LOCAL_CANDIDATE\nNothing on this board has: " + Joined(words);
    return Select(viewer, best->refdes, "", "", Entry(show ? "shown_in_find_parts" : "matches", matches) + rows);
}

template <typename Record>
using Members = std::map<std::string, std::string Record::*>;

const Members<Component> ComponentEdits = {{"new_refdes", &Component::refdes},
                                           {"description", &Component::info},
                                           {"display_info", &Component::displayInfo},
                                           {"note", &Component::note}};
const Members<Net> NetEdits = {{"new_name", &Net::name},
                               {"description", &Net::description},
                               {"note", &Net::note},
                               {"no_connect", &Net::noConnect}};

/// Makes the edits that stand in pairs behind the first field, all or none. A new name must be free.
template <typename Record>
void Edit(std::vector<Record>& records, Record& record, std::string Record::*name, const Members<Record>& members,
          const Fields& fields) {
    Record edited = record;
    for (std::size_t i = 1; i < fields.size(); i += 2) {
        const auto member = members.find(fields[i]);
        if (member == members.end() || i + 1 == fields.size()) throw Refusal("Not to be edited: '" + fields[i] + "'.");
        edited.*member->second = fields[i + 1];
    }
    const Record* other = Find(records, name, edited.*name);
    if ((edited.*name).empty() || (other && other != &record)) throw Refusal("The new name is empty or taken.");
    record = std::move(edited);
}

/// Fields: refdes, then pairs of new_refdes, description, display_info, note.
std::string UpdateComponent(Viewer& viewer, const Fields& fields) {
    Component& component = Get(viewer.board.components, &Component::refdes, fields[0]);
    Edit(viewer.board.components, component, &Component::refdes, ComponentEdits, fields);
    if (Lower(viewer.selectedRefdes) == Lower(fields[0])) viewer.selectedRefdes = component.refdes;
    return "COMPONENT_UPDATED\n" + GetComponent(viewer, {component.refdes});
}

/// Fields: net, then pairs of new_name, description, note, no_connect.
std::string UpdateNet(Viewer& viewer, const Fields& fields) {
    Net& net = Get(viewer.board.nets, &Net::name, fields[0]);
    Edit(viewer.board.nets, net, &Net::name, NetEdits, fields);
    for (Component& component : viewer.board.components) {
        for (Pin& pin : component.pins) {
            if (Lower(pin.net) == Lower(fields[0])) pin.net = net.name;
        }
    }
    if (Lower(viewer.selectedNet) == Lower(fields[0])) viewer.selectedNet = net.name;
    return "NET_UPDATED\n" + GetNet(viewer, {net.name});
}

/// Fields: field, skip_missing, dry_run, updates, updates_path. The updates themselves go before a file of them.
/// All of them are made or none.
std::string BulkUpdateComponents(Viewer& viewer, const Fields& fields) {
    Members<Component> members = ComponentEdits;
    members.erase("new_refdes");
    members["info"] = &Component::info;
    // Where a plain "value" goes. A board has no field of that name but the description.
    const auto field = members.find(fields[0] == "value" ? "description" : fields[0]);
    if (field == members.end()) throw Refusal("There is no field '" + fields[0] + "'.");
    members["value"] = field->second;
    const bool skipMissing = Number(fields, 1) != 0, dryRun = Number(fields, 2) != 0;
    auto updates = ReadJsonRecords(fields[3].empty() ? LoadBytes(PathOf(fields[4])) : fields[3]);

    std::vector<Component> edited = viewer.board.components;
    std::vector<std::string> missing;
    for (auto& update : updates) {
        Component* component = Find(edited, &Component::refdes, update["refdes"]);
        if (!component) missing.push_back(update["refdes"]);
        for (const auto& [key, value] : update) {
            if (component && members.contains(key)) component->*members.at(key) = value;
        }
    }
    if (!missing.empty() && !skipMissing) throw Refusal("Nothing was changed: not on this board: " + Joined(missing));
    if (!dryRun) viewer.board.components = std::move(edited);
    return "BULK_UPDATE\n" + Entry("dry_run", dryRun ? "true" : "false") +
           Entry("updated", updates.size() - missing.size()) + Entry("missing_refdes", Joined(missing));
}

std::string ExportOrv(Viewer& viewer, const Fields& fields) {
    const std::filesystem::path path = std::filesystem::absolute(PathOf(fields[0])).lexically_normal();
    Board board = viewer.board;
    // The drawing set is named relative to the board's file, and this file may stand elsewhere.
    if (!viewer.schematicPath.empty()) board.schematic = PathText(proximate(viewer.schematicPath, path.parent_path()));
    SaveBoard(board, path);
    return "ORV_EXPORTED\n" + Entry("exported_path", PathText(path));
}

struct CommandRow {
    HostCommandId id;
    const char* name;
    std::size_t fields;  ///< as many at least
    std::string (*run)(Viewer& viewer, const Fields& fields);
};

constexpr CommandRow Commands[] = {
    {HostCommandId_SelectNet, "SelectNet", 1, SelectNet},
    {HostCommandId_GetBoardState, "GetBoardState", 0, GetBoardState},
    {HostCommandId_SelectComponent, "SelectComponent", 1, SelectComponent},
    {HostCommandId_SelectPin, "SelectPin", 2, SelectPin},
    {HostCommandId_FindComponents, "FindComponents", 1, FindComponents},
    {HostCommandId_GetComponent, "GetComponent", 1, GetComponent},
    {HostCommandId_GetNet, "GetNet", 1, GetNet},
    {HostCommandId_ListComponents, "ListComponents", 4, ListComponents},
    {HostCommandId_SearchFiles, "SearchFiles", 10, SearchFiles},
    {HostCommandId_GetDiagnosticHints, "GetDiagnosticHints", 1, GetDiagnosticHints},
    {HostCommandId_SearchIndexedContent, "SearchIndexedContent", 10, SearchIndexedContent},
    {HostCommandId_GetPdfPageContext, "GetPdfPageContext", 8, GetPdfPageContext},
    {HostCommandId_UpdateComponent, "UpdateComponent", 3, UpdateComponent},
    {HostCommandId_UpdateNet, "UpdateNet", 3, UpdateNet},
    {HostCommandId_ExportOrv, "ExportOrv", 1, ExportOrv},
    {HostCommandId_PdfiumExtractText, "PdfiumExtractText", 7, PdfiumExtractText},
    {HostCommandId_BulkUpdateComponents, "BulkUpdateComponents", 5, BulkUpdateComponents},
};

/// Into Reply when the text fits there with its NUL, else into a block that the library takes over.
void PutReply(HostCommand& command, const std::string& text) {
    const auto wide = ToWide(text);
    if (wide.size() < std::size(command.Reply)) {
        command.Reply[wide.copy(command.Reply, wide.size())] = 0;
        return;
    }
    command.LongReply = static_cast<OrvaneMcpChar*>(CoTaskMemAlloc(wide.size() * sizeof(OrvaneMcpChar)));
    if (!command.LongReply) throw std::bad_alloc();
    wide.copy(command.LongReply, wide.size());
    command.LongReplyLength = static_cast<std::uint32_t>(wide.size());
}

}  // namespace

std::string AnswerCommand(Viewer& viewer, HostCommand& command) {
    const auto row = std::find_if(std::begin(Commands), std::end(Commands),
                                  [&](const CommandRow& candidate) { return candidate.id == command.CommandId; });
    const std::string name = row == std::end(Commands) ? "command" : row->name;
    std::string text, reply;
    // An exception must not leave the window procedure: its caller is the system.
    try {
        text = FromWide({command.LongText, command.LongTextLength});
        const Fields fields = SplitAt(text, '\t');
        if (row == std::end(Commands)) throw Refusal("This viewer doesn't know that command.");
        if (fields.size() < row->fields) throw Refusal(name + " needs more fields than it got.");
        reply = row->run(viewer, fields);
        PutReply(command, reply);
        command.Success = 1;
    } catch (const std::exception& failure) {
        reply = failure.what();
        PutReply(command, reply.substr(0, LongestRefusal));
    }
    return std::to_string(command.CommandId) + " " + name + " '" + OneLine(text.substr(0, ConsoleTextLength)) + "' " +
           (command.Success ? "done: " : "refused: ") + reply.substr(0, std::min(reply.find('\n'), ConsoleReplyLength));
}

void OpenBoard(Viewer& viewer, const std::filesystem::path& file) {
    Viewer opened;
    opened.boardPath = std::filesystem::absolute(file).lexically_normal();
    opened.board = LoadBoard(opened.boardPath);
    const std::string& drawing = opened.board.schematic;
    if (!drawing.empty()) opened.schematicPath = opened.boardPath.parent_path() / PathOf(drawing);
    viewer = std::move(opened);
}

std::size_t Number(const Fields& fields, std::size_t index) {
    const std::string& text = fields[index];
    unsigned value = 0;
    const auto [end, failure] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (failure == std::errc{} && end == text.data() + text.size()) return value;
    throw Refusal("Field " + std::to_string(index + 1) + " must be a number, not '" + text + "'.");
}

std::string Entry(const char* key, const std::string& value) {
    return std::string(key) + "=" + OneLine(value) + "\n";
}

std::string Entry(const char* key, std::size_t value) {
    return Entry(key, std::to_string(value));
}
