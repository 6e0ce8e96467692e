#include "commands.h"

#include "documents.h"
#include "platform/platform.h"
#include "text.h"

#include <algorithm>
#include <charconv>
#include <map>

namespace {

constexpr std::size_t MostMatches = 25;
constexpr std::size_t ConsoleTextLength = 48;

// ---- Selecting -----------------------------------------------------------------------------------------------------

Component& TheComponent(Viewer& viewer, const std::string& refdes) {
    if (Component* component = FindComponent(viewer.board, refdes)) return *component;
    throw Refusal("There is no component '" + refdes + "' on this board.");
}

Net& TheNet(Viewer& viewer, const std::string& name) {
    if (Net* net = FindNet(viewer.board, name)) return *net;
    throw Refusal("There is no net '" + name + "' on this board.");
}

void Select(Viewer& viewer, const std::string& refdes, const std::string& pin, const std::string& net) {
    viewer.selectedRefdes = refdes;
    viewer.selectedPin = pin;
    viewer.selectedNet = net;
}

std::string SelectionEntries(Viewer& viewer) {
    const Component* component = FindComponent(viewer.board, viewer.selectedRefdes);
    return Entry("selected_refdes", viewer.selectedRefdes) + Entry("selected_info", component ? component->info : "") +
           Entry("selected_pin", viewer.selectedPin) + Entry("selected_net", viewer.selectedNet);
}

/// The words by which an agent knows that it has nothing more to do.
std::string FinalReply(Viewer& viewer, const std::string& details) {
    return "ORVANE_FINAL selected=true stop=true no_followup_tools=true\n" + SelectionEntries(viewer) + details +
           "STOP NOW: it is selected and centred on the board. Answer from this result.";
}

std::string SelectComponent(Viewer& viewer, const Fields& fields) {
    const Component& component = TheComponent(viewer, fields[0]);
    Select(viewer, component.refdes, "", "");
    return FinalReply(viewer, Entry("side", component.side) + Entry("pins", component.pins.size()));
}

std::string SelectPin(Viewer& viewer, const Fields& fields) {
    const Component& component = TheComponent(viewer, fields[0]);
    const Pin* pin = FindPin(component, fields[1]);
    if (!pin) throw Refusal(component.refdes + " has no pin '" + fields[1] + "'.");
    Select(viewer, component.refdes, pin->number, pin->net);
    return FinalReply(viewer, Entry("pin_name", pin->name));
}

/// Each pin of the net as "PU2.1".
std::vector<std::string> PinsOn(const Board& board, const Net& net) {
    std::vector<std::string> pins;
    for (const Component& component : board.components) {
        for (const Pin& pin : component.pins) {
            if (SameName(pin.net, net.name)) pins.push_back(component.refdes + "." + pin.number);
        }
    }
    return pins;
}

std::string Joined(const std::vector<std::string>& parts) {
    std::string text;
    for (const std::string& part : parts) text += (text.empty() ? "" : " ") + part;
    return text;
}

std::string SelectNet(Viewer& viewer, const Fields& fields) {
    const Net& net = TheNet(viewer, fields[0]);
    Select(viewer, "", "", net.name);
    return FinalReply(viewer, Entry("net_description", net.description) +
                                  Entry("highlighted_pins", PinsOn(viewer.board, net).size()));
}

// ---- Looking -------------------------------------------------------------------------------------------------------

std::string GetBoardState(Viewer& viewer, const Fields&) {
    std::size_t pins = 0;
    for (const Component& component : viewer.board.components) pins += component.pins.size();
    return Entry("board", viewer.board.name) + Entry("board_path", PathText(viewer.boardPath)) +
           Entry("attached_pdf_path", viewer.schematic ? PathText(viewer.schematic->path) : "") +
           Entry("components", viewer.board.components.size()) + Entry("pins", pins) +
           Entry("nets", viewer.board.nets.size()) +
           Entry("unsaved_edits", static_cast<std::size_t>(viewer.unsavedEdits)) + SelectionEntries(viewer) +
           Entry("find_parts", Joined(viewer.findParts));
}

std::string DescribeComponent(const Component& component) {
    std::string text = Entry("refdes", component.refdes) + Entry("Info", component.info) +
                       Entry("display_info", component.displayInfo) + Entry("note", component.note) +
                       Entry("side", component.side) + Entry("package", component.package) +
                       Entry("pins", component.pins.size());
    for (const Pin& pin : component.pins) text += "pin " + pin.number + "\t" + pin.name + "\t" + pin.net + "\n";
    return text;
}

std::string GetComponent(Viewer& viewer, const Fields& fields) {
    return DescribeComponent(TheComponent(viewer, fields[0]));
}

std::string DescribeNet(const Board& board, const Net& net) {
    const std::vector<std::string> pins = PinsOn(board, net);
    return Entry("net", net.name) + Entry("description", net.description) + Entry("note", net.note) +
           Entry("no_connect", net.noConnect) + Entry("pin_count", pins.size()) + Entry("pins", Joined(pins));
}

std::string GetNet(Viewer& viewer, const Fields& fields) {
    return DescribeNet(viewer.board, TheNet(viewer, fields[0]));
}

std::string TextOf(const Component& component) {
    return component.refdes + " " + component.info + " " + component.displayInfo + " " + component.note + " " +
           component.package + " " + std::to_string(component.pins.size()) + "-pin";
}

std::string CatalogueRow(const Component& component, bool withNets) {
    return component.refdes + "\t" + OneLine(component.info) + "\t" + component.side + "\t" +
           std::to_string(component.pins.size()) + " pins" + (withNets ? "\t" + Joined(NetsOf(component)) : "") + "\n";
}

/// Fields: offset, limit, include_nets, query.
std::string ListComponents(Viewer& viewer, const Fields& fields) {
    const int offset = NumberField(fields, 0, "offset"), limit = NumberField(fields, 1, "limit");
    const bool withNets = FlagField(fields, 2, "include_nets");
    const TextQuery query = MakeTextQuery(fields[3], false, false, false);
    std::string rows;
    int total = 0, listed = 0;
    for (const Component& component : viewer.board.components) {
        if (!Fits(query, TextOf(component) + " " + Joined(NetsOf(component)))) continue;
        if (total++ < offset || listed >= limit) continue;
        rows += CatalogueRow(component, withNets);
        ++listed;
    }
    std::string head =
        "total=" + std::to_string(total) + " offset=" + std::to_string(offset) + " count=" + std::to_string(listed);
    if (offset < total && listed < total - offset) head += " next_offset=" + std::to_string(offset + listed);
    return head + "\n" + rows;
}

/// How well a part answers to the words: its own texts count more than its pins and nets.
int Score(const Component& component, const std::vector<std::string>& words) {
    const std::string own = TextOf(component);
    std::string wiring = Joined(NetsOf(component));
    for (const Pin& pin : component.pins) wiring += " " + pin.name;
    int score = 0;
    for (const std::string& word : words) {
        score += HasWord(own, word) ? 5 : HasWord(wiring, word) ? 2 : 0;
    }
    return score;
}

std::vector<std::string> TellingWords(const std::string& query) {
    const std::string idle =
        " find select show highlight locate where what which is are the a an all on of in to me "
        "board component components part parts chip ";
    std::vector<std::string> words = LowerWords(query);
    std::erase_if(words, [&](const std::string& word) { return idle.find(" " + word + " ") != std::string::npos; });
    return words;
}

/// Fields: the query, with "SHOW_UI" in front of it when the matches are to show in Find parts.
std::string FindComponents(Viewer& viewer, const Fields& fields) {
    const bool show = fields[0] == "SHOW_UI" && fields.size() > 1;
    const std::vector<std::string> words = TellingWords(fields[show ? 1 : 0]);
    std::vector<std::pair<int, const Component*>> matches;
    for (const Component& component : viewer.board.components) {
        if (const int score = Score(component, words)) matches.emplace_back(score, &component);
    }
    std::stable_sort(matches.begin(), matches.end(), [](const auto& left, const auto& right) {
        return std::pair(left.first, left.second->pins.size()) > std::pair(right.first, right.second->pins.size());
    });
    viewer.findParts.clear();
    if (matches.empty()) {
        return "ORVANE_NO_LOCAL_CANDIDATE\nNothing on this board answers to '" + fields[show ? 1 : 0] +
               "'. Go on with list_components, then with the schematic.";
    }
    const int enough = matches.front().first / 2;
    std::erase_if(matches, [&](const auto& match) { return match.first <= enough; });

    Select(viewer, matches.front().second->refdes, "", "");
    std::string rows = Entry("matches", matches.size());
    for (std::size_t i = 0; i < matches.size(); ++i) {
        if (show) viewer.findParts.push_back(matches[i].second->refdes);
        if (i < MostMatches) rows += CatalogueRow(*matches[i].second, false);
    }
    return FinalReply(viewer, Entry("shown_in_find_parts", viewer.findParts.size()) + rows);
}

// ---- Editing -------------------------------------------------------------------------------------------------------

/// The pairs behind the first field, each key one of `known`. Nothing may be changed before this has passed.
std::map<std::string, std::string> EditPairs(const Fields& fields, const std::vector<std::string>& known) {
    std::map<std::string, std::string> pairs;
    for (std::size_t i = 1; i + 1 < fields.size(); i += 2) {
        if (std::find(known.begin(), known.end(), fields[i]) == known.end()) {
            throw Refusal("There is no edit field '" + fields[i] + "'.");
        }
        pairs[fields[i]] = fields[i + 1];
    }
    if (fields.size() % 2 == 0) throw Refusal("The edit field '" + fields.back() + "' has no value.");
    return pairs;
}

/// Fields: refdes, then pairs of new_refdes, description, display_info, note.
std::string UpdateComponent(Viewer& viewer, const Fields& fields) {
    Component& component = TheComponent(viewer, fields[0]);
    const auto pairs = EditPairs(fields, {"new_refdes", "description", "display_info", "note"});
    if (const auto name = pairs.find("new_refdes"); name != pairs.end()) {
        const Component* other = FindComponent(viewer.board, name->second);
        if (name->second.empty()) throw Refusal("A component needs a reference designator.");
        if (other && other != &component) throw Refusal("There is a component '" + other->refdes + "' already.");
        if (viewer.selectedRefdes == component.refdes) viewer.selectedRefdes = name->second;
    }
    const std::map<std::string, std::string Component::*> members = {{"new_refdes", &Component::refdes},
                                                                     {"description", &Component::info},
                                                                     {"display_info", &Component::displayInfo},
                                                                     {"note", &Component::note}};
    for (const auto& [key, value] : pairs) component.*members.at(key) = value;
    ++viewer.unsavedEdits;
    return "COMPONENT_UPDATED\n" + DescribeComponent(component);
}

/// Fields: net, then pairs of new_name, description, note, no_connect.
std::string UpdateNet(Viewer& viewer, const Fields& fields) {
    Net& net = TheNet(viewer, fields[0]);
    const auto pairs = EditPairs(fields, {"new_name", "description", "note", "no_connect"});
    const auto name = pairs.find("new_name");
    if (name != pairs.end()) {
        const Net* other = FindNet(viewer.board, name->second);
        if (name->second.empty()) throw Refusal("A net needs a name.");
        if (other && other != &net) throw Refusal("There is a net '" + other->name + "' already; nets are not joined.");
    }
    if (const auto flag = pairs.find("no_connect"); flag != pairs.end()) {
        net.noConnect = FlagField({flag->second}, 0, "no_connect");
    }
    if (pairs.contains("description")) net.description = pairs.at("description");
    if (pairs.contains("note")) net.note = pairs.at("note");
    int renamed = 0;
    if (name != pairs.end()) {
        if (viewer.selectedNet == net.name) viewer.selectedNet = name->second;
        renamed = RenameNet(viewer.board, net, name->second);
    }
    ++viewer.unsavedEdits;
    return "NET_UPDATED\n" + Entry("pins_renamed", static_cast<std::size_t>(renamed)) + DescribeNet(viewer.board, net);
}

/// Fields: field, skip_missing, dry_run, updates, updates_path. The updates themselves go before a file of them.
/// All of them are made or none.
std::string BulkUpdateComponents(Viewer& viewer, const Fields& fields) {
    std::map<std::string, std::string Component::*> members = {{"description", &Component::info},
                                                               {"info", &Component::info},
                                                               {"display_info", &Component::displayInfo},
                                                               {"note", &Component::note}};
    // The place of an update's plain "value"; a board has no field of that name but the description.
    const std::string field = fields[0].empty() || fields[0] == "value" ? "description" : fields[0];
    if (!members.contains(field)) throw Refusal("There is no field '" + field + "'.");
    members["value"] = members.at(field);
    const bool skipMissing = FlagField(fields, 1, "skip_missing"), dryRun = FlagField(fields, 2, "dry_run");
    if (fields[3].empty() && fields[4].empty()) throw Refusal("There are no updates and no file of them.");
    const auto updates = ReadJsonRecords(fields[3].empty() ? LoadBytes(PathOf(fields[4])) : fields[3]);

    std::vector<Component> edited = viewer.board.components;
    std::vector<std::string> missing;
    std::size_t changed = 0, unchanged = 0;
    for (const auto& update : updates) {
        const auto refdes = update.find("refdes");
        if (refdes == update.end()) throw Refusal("An update has no refdes.");
        const Component* target = FindComponent(viewer.board, refdes->second);
        if (!target) {
            missing.push_back(refdes->second);
            continue;
        }
        Component& component = edited[static_cast<std::size_t>(target - viewer.board.components.data())];
        bool differs = false;
        for (const auto& [key, value] : update) {
            const auto member = members.find(key);
            if (member == members.end() || component.*member->second == OneLine(value)) continue;
            component.*member->second = OneLine(value);
            differs = true;
        }
        ++(differs ? changed : unchanged);
    }
    if (!missing.empty() && !skipMissing) throw Refusal("Nothing was changed: not on this board: " + Joined(missing));
    if (!dryRun) {
        viewer.board.components = std::move(edited);
        viewer.unsavedEdits += static_cast<int>(changed);
    }
    return (dryRun ? "BULK_UPDATE dry_run=true\n" : "BULK_UPDATE dry_run=false\n") + Entry("updates", updates.size()) +
           Entry("updated", changed) + Entry("unchanged", unchanged) + Entry("missing", missing.size()) +
           Entry("missing_refdes", Joined(missing));
}

std::string ExportOrv(Viewer& viewer, const Fields& fields) {
    const std::filesystem::path path = Absolute(PathOf(fields[0]));
    Board board = viewer.board;
    // The drawing set is named relative to the board's file, and this file may stand elsewhere.
    board.schematic.clear();
    if (viewer.schematic) board.schematic = PathText(proximate(viewer.schematic->path, path.parent_path()));
    SaveBoard(board, path);
    viewer.unsavedEdits = 0;
    return "ORV_EXPORTED\n" + Entry("exported_path", PathText(path)) + Entry("components", board.components.size()) +
           Entry("nets", board.nets.size());
}

// ---- The table -----------------------------------------------------------------------------------------------------

struct CommandRow {
    HostCommandId id;
    const char* name;
    std::size_t fields;  ///< as many at least
    CommandHandler run;
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

std::string RunCommand(Viewer& viewer, const CommandRow* row, const std::string& text) {
    if (!row) throw Refusal("This viewer doesn't know that command.");
    const Fields fields = SplitAt(text, '\t');
    if (fields.size() < row->fields) {
        throw Refusal(std::string(row->name) + " needs " + std::to_string(row->fields) + " fields and got " +
                      std::to_string(fields.size()) + ".");
    }
    return row->run(viewer, fields);
}

/// Into Reply when the text fits there with its NUL, else into a block that the library takes over.
void PutReply(HostCommand& command, const std::string& text) {
    const auto wide = ToWide(text);
    if (wide.size() < std::size(command.Reply)) {
        command.Reply[wide.copy(command.Reply, wide.size())] = 0;
        return;
    }
    const std::size_t bytes = wide.size() * sizeof(OrvaneMcpChar);
    command.LongReply = static_cast<OrvaneMcpChar*>(CoTaskMemAlloc(bytes));
    if (!command.LongReply) throw std::bad_alloc();
    wide.copy(command.LongReply, wide.size());
    command.LongReplyLength = static_cast<std::uint32_t>(wide.size());
}

}  // namespace

std::string AnswerCommand(Viewer& viewer, HostCommand& command) {
    const auto row = std::find_if(std::begin(Commands), std::end(Commands),
                                  [&](const CommandRow& candidate) { return candidate.id == command.CommandId; });
    const bool known = row != std::end(Commands);
    std::string text, reply;
    // An exception must not leave the window procedure: its caller is the system.
    try {
        text = FromWide(command.LongText, command.LongTextLength);
        reply = RunCommand(viewer, known ? row : nullptr, text);
        while (reply.ends_with('\n')) reply.pop_back();
        PutReply(command, reply);
        command.Success = 1;
    } catch (const std::exception& failure) {
        reply = failure.what();
        command.Success = 0;
        PutReply(command, reply.substr(0, 1000));
    }
    return std::to_string(command.CommandId) + " " + (known ? row->name : "?") + " '" +
           OneLine(text.substr(0, ConsoleTextLength)) + (text.size() > ConsoleTextLength ? "..." : "") + "' " +
           (command.Success ? "done: " : "refused: ") + OneLine(reply.substr(0, reply.find('\n'))).substr(0, 80);
}

void OpenBoard(Viewer& viewer, const std::filesystem::path& file) {
    const std::filesystem::path path = Absolute(file);
    Board board = LoadBoard(path);
    std::optional<Schematic> schematic;
    const std::filesystem::path drawing = path.parent_path() / PathOf(board.schematic);
    std::error_code failure;
    if (!board.schematic.empty() && std::filesystem::exists(drawing, failure)) schematic = LoadSchematic(drawing);
    viewer.boardPath = path;
    viewer.board = std::move(board);
    viewer.schematic = std::move(schematic);
    viewer.findParts.clear();
    viewer.unsavedEdits = 0;
    Select(viewer, "", "", "");
}

std::filesystem::path FindData(const Viewer& viewer, const std::string& fileName) {
    for (const std::filesystem::path& folder : viewer.dataFolders) {
        std::error_code failure;
        if (std::filesystem::exists(folder / fileName, failure)) return folder / fileName;
    }
    throw Refusal("There is no " + fileName + " beside the viewer or in ./demo.");
}

int NumberField(const Fields& fields, std::size_t index, const char* name) {
    const std::string& text = fields[index];
    int value = 0;
    const auto [end, failure] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (failure != std::errc{} || end != text.data() + text.size() || value < 0) {
        throw Refusal(std::string(name) + " is no number: '" + text + "'.");
    }
    return value;
}

bool FlagField(const Fields& fields, std::size_t index, const char* name) {
    if (fields[index] != "0" && fields[index] != "1") {
        throw Refusal(std::string(name) + " must be 0 or 1, not '" + fields[index] + "'.");
    }
    return fields[index] == "1";
}

std::string Entry(const char* key, const std::string& value) {
    return std::string(key) + "=" + OneLine(value) + "\n";
}

std::string Entry(const char* key, std::size_t value) {
    return Entry(key, std::to_string(value));
}
