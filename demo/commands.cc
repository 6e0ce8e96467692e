#include "commands.h"

#include <map>
#include <random>
#include <set>

namespace {

namespace fs = std::filesystem;

/// A command's fields by name. Updates have the same form.
using Fields = std::map<std::string, std::string>;

/// The two kinds of reply line: "key=value", and a word followed by tab-separated cells. Every line begins with a word
/// of the viewer's own. Boards are written by strangers: a line that began with their text could pass for one that the
/// bridge or the agent acts on.
std::string Entry(const std::string& key, const json& value) {
    return key + "=" + (value.is_string() ? OneLine(value) : value.dump()) + "\n";
}

std::string Row(std::string word, const Strings& cells) {
    for (const std::string& cell : cells) word += "\t" + OneLine(cell);
    return word + "\n";
}

/// A field that is a number or a flag.
std::size_t Number(const Fields& fields, const char* name) {
    std::istringstream text(fields.at(name));
    if (unsigned value = 0; text >> value) return value;
    throw Refusal(std::string(name) + " must be a number.");
}

/// The file that an argument names. An agent may have read its arguments in a hostile document, so commands reach
/// nothing but files with this extension that lie directly in the board's folder, and write none that exists already.
fs::path FileBesideBoard(const Viewer& viewer, const std::string& name, const char* extension, bool isNew = false) {
    const fs::path folder = viewer.boardPath.parent_path(), path = fs::weakly_canonical(folder / PathOf(name));
    const fs::file_type type = fs::symlink_status(path).type();  // a link that is left here leads nowhere yet
    const bool isFile = type == fs::file_type::regular, isFree = type == fs::file_type::not_found;
    // A colon would name a stream of another file.
    if (path.parent_path() != folder || path.extension() != extension || (!isFile && !isFree) ||
        OneLine(name) != name || PathText(path.filename()).find(':') != std::string::npos) {
        throw Refusal("'" + name + "' is out of bounds. Name a file *" + extension + " in the board's folder, " +
                      PathText(folder) + ".");
    }
    if (isNew && isFile) throw Refusal("'" + name + "' exists already. Choose another name.");
    if (!isNew && isFree) throw Refusal("'" + name + "' doesn't exist.");
    return path;
}

/// The record of a list with this name; null when there is none.
json* Find(json& list, const std::string& name) {
    const auto record = std::ranges::find_if(list, [&](const json& some) { return Is(some, "name", name); });
    return record == list.end() ? nullptr : &*record;
}

/// A record of the board; `kind` is "component" or "net".
json& Get(Viewer& viewer, const std::string& kind, const std::string& name) {
    if (json* record = Find(viewer.board[kind + "s"], name)) return *record;
    throw Refusal("There is no " + kind + " '" + name + "' on this board.");
}

std::string SelectionEntries(Viewer& viewer) {
    json* const part = Find(viewer.board["components"], viewer.selectedRefdes);
    const std::string info = part ? (*part)["info"] : json("");
    return Entry("selected_refdes", viewer.selectedRefdes) + Entry("selected_info", info) +
           Entry("selected_pin", viewer.selectedPin) + Entry("selected_net", viewer.selectedNet);
}

/// Selects, and replies in the words that tell an agent that it has nothing more to do.
std::string Select(Viewer& viewer, json refdes, json pin, json net, const std::string& details = {}) {
    viewer.selectedRefdes = refdes, viewer.selectedPin = pin, viewer.selectedNet = net;
    return "ORVANE_FINAL selected=true stop=true no_followup_tools=true\n" + SelectionEntries(viewer) + details +
           "STOP NOW: the selection is highlighted and centred on the board. Answer from this result.";
}

/// Selects what the fields name: a component, a pin of it, or a net.
std::string SelectNamed(Viewer& viewer, Fields& fields) {
    if (fields.contains("net")) return Select(viewer, "", "", Get(viewer, "net", fields["net"])["name"]);
    json& part = Get(viewer, "component", fields["refdes"]);
    if (!fields.contains("pin")) return Select(viewer, part["name"], "", "");
    for (const char* key : {"number", "name"})
        for (json& pin : part["pins"])
            if (Is(pin, key, fields["pin"])) return Select(viewer, part["name"], pin["number"], pin["net"]);
    throw Refusal("There is no pin '" + fields["pin"] + "' on " + std::string(part["name"]) + ".");
}

std::string GetBoardState(Viewer& viewer, Fields&) {
    return Entry("board", viewer.board["name"]) + Entry("board_path", PathText(viewer.boardPath)) +
           Entry("attached_pdf_path", PathText(viewer.schematicPath)) +
           Entry("components", viewer.board["components"].size()) + Entry("nets", viewer.board["nets"].size()) +
           SelectionEntries(viewer);
}

std::string GetComponent(Viewer& viewer, Fields& fields) {
    json& part = Get(viewer, "component", fields["refdes"]);
    std::string reply = Entry("refdes", part["name"]) + Entry("Info", part["info"]);
    for (const char* key : {"display_info", "note", "side", "package"}) reply += Entry(key, part[key]);
    for (json& pin : part["pins"]) reply += Row("pin", {pin["number"], pin["name"], pin["net"]});
    return reply;
}

std::string GetNet(Viewer& viewer, Fields& fields) {
    json& net = Get(viewer, "net", fields["net"]);
    Strings pins;
    for (json& part : viewer.board["components"])
        for (json& pin : part["pins"])
            if (Is(pin, "net", net["name"])) pins.push_back(Joined({part["name"], pin["number"]}, "."));
    return Entry("net", net["name"]) + Entry("description", net["info"]) + Entry("note", net["note"]) +
           Entry("no_connect", net["no_connect"]) + Entry("pin_count", pins.size()) + Entry("pins", Joined(pins));
}

/// The parts that have all these words somewhere in their record.
std::vector<json*> FindParts(Viewer& viewer, const std::string& words) {
    std::vector<json*> found;
    for (json& part : viewer.board["components"])
        if (HasWords(part.dump() + " " + std::to_string(part["pins"].size()) + "-pin", words)) found.push_back(&part);
    return found;
}

std::string PartRow(json& part, bool withNets) {
    std::set<std::string> nets;
    for (json& pin : part["pins"]) nets.insert(std::string(pin["net"]));
    return Row("component", {part["name"], part["info"], part["side"], std::to_string(part["pins"].size()) + " pins",
                             withNets ? Joined({nets.begin(), nets.end()}) : ""});
}

std::string ListComponents(Viewer& viewer, Fields& fields) {
    const std::vector<json*> found = FindParts(viewer, fields["query"]);
    const std::size_t begin = Number(fields, "offset"), end = begin + Number(fields, "limit");
    std::string reply = Entry("total", found.size()) + (end < found.size() ? Entry("next_offset", end) : "");
    for (std::size_t i = begin; i < std::min(end, found.size()); ++i)
        reply += PartRow(*found[i], Number(fields, "include_nets"));
    return reply;
}

std::string FindComponents(Viewer& viewer, Fields& fields) {
    static constexpr std::string_view idleWords =
        " find select show highlight where what which is the a an all on of board components ";
    Strings words = SplitAt(Lower(fields["query"]), ' ');
    std::erase_if(words, [](const std::string& word) { return idleWords.find(" " + word + " ") != idleWords.npos; });
    const std::vector<json*> found = FindParts(viewer, Joined(words));
    if (found.empty()) return "ORVANE_NO_LOCAL_CANDIDATE\n" + Entry("nothing_matches", Joined(words));
    std::string rows = Entry(fields.contains("SHOW_UI") ? "shown_in_find_parts" : "matches", found.size());
    for (json* part : found) rows += PartRow(*part, false);
    // Whoever asks for a charger means the chip, not the coil beside it.
    json& best = **std::ranges::max_element(found, {}, [](json* part) { return (*part)["pins"].size(); });
    return Select(viewer, best["name"], "", "", rows);
}

/// Sets a text of a part or a net by the name that the update tools have for it.
void SetText(json& record, const std::string& field, const std::string& value) {
    static const Fields keys = {
        {"new_refdes", "name"}, {"new_name", "name"}, {"description", "info"},          {"value", "info"},
        {"info", "info"},       {"note", "note"},     {"display_info", "display_info"}, {"no_connect", "no_connect"}};
    const std::string key = keys.contains(field) ? keys.at(field) : "";
    if (!record.contains(key)) throw Refusal("There is no field '" + field + "' to edit.");
    record[key] = OneLine(value);
}

/// Makes the edits in a part or a net, all or none. A new name must be free; the selection and the pins follow it.
std::string Update(Viewer& viewer, Fields& fields) {
    const std::string kind = fields.contains("net") ? "net" : "component", idField = kind == "net" ? kind : "refdes";
    json &record = Get(viewer, kind, fields[idField]), edited = record;
    for (const auto& [field, value] : fields)
        if (field != idField) SetText(edited, field, value);
    const std::string name = edited["name"];
    const json* holder = Find(viewer.board[kind + "s"], name);
    if (name.empty() || (holder && holder != &record)) throw Refusal("The new name is empty or taken.");
    record = edited;
    std::string& selected = kind == "net" ? viewer.selectedNet : viewer.selectedRefdes;
    if (Lower(selected) == Lower(fields[idField])) selected = name;
    for (json& part : viewer.board["components"])
        for (json& pin : part["pins"])
            if (kind == "net" && Is(pin, "net", fields["net"])) pin["net"] = name;
    fields[idField] = name;
    return kind == "net" ? "NET_UPDATED\n" + GetNet(viewer, fields)
                         : "COMPONENT_UPDATED\n" + GetComponent(viewer, fields);
}

std::vector<Fields> ReadUpdates(const std::string& text) try {
    const json updates = text.empty() ? json() : json::parse(text);
    return updates.is_null() ? std::vector<Fields>() : updates.get<std::vector<Fields>>();
} catch (const json::exception&) {
    throw Refusal("The updates must be a JSON array of objects, with a text for each field.");
}

/// The file counts when no updates come with the command. All updates are made or none.
std::string BulkUpdateComponents(Viewer& viewer, Fields& fields) {
    std::vector<Fields> updates = ReadUpdates(fields["updates"]);
    if (updates.empty() && !fields["updates_path"].empty())
        updates = ReadUpdates(LoadBytes(FileBesideBoard(viewer, fields["updates_path"], ".json")));
    json edited = viewer.board["components"];
    Strings missing;
    for (Fields& update : updates) {
        json* const part = Find(edited, update["refdes"]);
        if (!part) missing.push_back(update["refdes"].empty() ? "(no refdes)" : update["refdes"]);
        for (const auto& [key, value] : update) {
            if (key == "new_refdes") throw Refusal("Rename components with update_component.");
            if (part && key != "refdes") SetText(*part, key == "value" ? fields["field"] : key, value);
        }
    }
    if (!missing.empty() && !Number(fields, "skip_missing"))
        throw Refusal("Nothing was changed. Missing: " + Joined(missing));
    if (!Number(fields, "dry_run")) viewer.board["components"] = edited;
    return "BULK_UPDATE\n" + Entry("dry_run", Number(fields, "dry_run") ? "true" : "false") +
           Entry("updated", updates.size() - missing.size()) + Entry("missing_refdes", Joined(missing));
}

std::string ExportOrv(Viewer& viewer, Fields& fields) {
    const fs::path path = FileBesideBoard(viewer, fields["path"], ".orv", true);
    viewer.board["schematic"] = PathText(viewer.schematicPath.filename());
    StoreBytes(path, viewer.board.dump(1, ' ', false, json::error_handler_t::replace));
    return "ORV_EXPORTED\n" + Entry("exported_path", PathText(path));
}

/// The board and drawing files in the board's folder whose names and kinds have all these words, in order, with their
/// kinds in the words of the tools. Drawing sets stand for PDFs. No links.
std::map<fs::path, std::string> FindFiles(const Viewer& viewer, const std::string& words) {
    std::map<fs::path, std::string> files;
    for (const auto& entry : fs::directory_iterator(viewer.boardPath.parent_path())) {
        const std::string name = PathText(entry.path().filename());
        const std::string kind = name.ends_with(".orv") ? "boardview" : name.ends_with(".sch") ? "pdf" : "";
        const bool isFile = entry.symlink_status().type() == fs::file_type::regular;
        if (isFile && !kind.empty() && HasWords(name + " " + kind, words)) files[entry] = kind;
    }
    return files;
}

std::string SearchFiles(Viewer& viewer, Fields& fields) {
    const std::map<fs::path, std::string> files = FindFiles(viewer, fields["query"]);
    std::string reply = Entry("found", files.size());
    std::size_t rest = Number(fields, "limit");
    for (const auto& [path, kind] : files)
        if (rest > 0 && rest--) reply += Row("file", {kind, PathText(path)});
    if (!Number(fields, "open_first") || files.empty()) return reply;
    const auto& [path, kind] = *files.begin();
    if (kind == "boardview") OpenBoard(viewer, path);
    if (kind == "pdf" && fields["open_mode"] != "standalone") viewer.schematicPath = path;
    return "ORVANE_FILE_OPENED\n" + Entry("opened_path", PathText(path)) + reply;
}

/// What a search looks through: a line for each net and part of a board, the lines of a drawing set.
Strings LinesOf(const fs::path& path, const std::string& kind) try {
    if (kind == "pdf") return SplitAt(LoadBytes(path), '\n');
    Strings lines;
    json board = LoadBoard(path);
    for (const json& net : board["nets"]) lines.push_back("net " + net.dump());
    for (const json& part : board["components"]) lines.push_back("component " + part.dump());
    return lines;
} catch (const Refusal&) {
    return {};  // one damaged file doesn't spoil the search
}

std::string SearchIndexedContent(Viewer& viewer, Fields& fields) {
    const std::string name = PathText(PathOf(fields["file_path"]).filename());
    if (fields["file_type"] == "all") fields["file_type"].clear();
    const Strings words{name, fields["path_filter"], fields["file_name_contains"], fields["file_type"]};
    std::string rows;
    std::size_t hits = 0;
    for (const auto& [path, kind] : FindFiles(viewer, Joined(words))) {
        for (const std::string& line : LinesOf(path, kind)) {
            if (!HasWords(line, fields["query"]) || hits++ >= Number(fields, "limit")) continue;
            rows += Row("hit", {PathText(path.filename()), line});
        }
    }
    return Entry("hits", hits) + rows;
}

/// In the notes' file each entry's "match: " has its phrases, and the lines with a dash are its notes. An entry fits a
/// question that has all words of one of its phrases.
std::string GetDiagnosticHints(Viewer& viewer, Fields& fields) {
    const auto asked = [&](const std::string& phrase) { return HasWords(fields["query"], phrase); };
    std::string notes;
    bool fits = false;
    for (std::string line : SplitAt(LoadBytes(FileBesideBoard(viewer, "diagnostic_hints.yaml", ".yaml")), '\n')) {
        line.erase(0, line.find_first_not_of(' '));
        if (line.starts_with("match: ")) fits = std::ranges::any_of(SplitAt(line.substr(7), ','), asked);
        if (fits && line.starts_with("- ")) notes += Row("note", {line.substr(2)});
    }
    return notes.empty() ? "DIAGNOSTIC_NOTES status=none" : "DIAGNOSTIC_NOTES status=match\n" + notes;
}

/// The drawing set that a command means: the one it names, or the one attached to the board.
fs::path DrawingPath(const Viewer& viewer, Fields& fields) {
    const std::string& name = fields["pdf_path"];
    if (name.empty() && viewer.schematicPath.empty()) throw Refusal("No schematic is attached to this board.");
    return FileBesideBoard(viewer, name.empty() ? PathText(viewer.schematicPath) : name, ".sch");
}

/// A page of a drawing set, which is plain text with form feeds between pages; the sides take turns.
Page LoadPage(const fs::path& path, std::size_t number) {
    const Strings pages = SplitAt(LoadBytes(path), '\f');
    if (number >= 1 && number <= pages.size()) return {number % 2 == 1 ? "top" : "bottom", pages[number - 1]};
    throw Refusal("There is no page " + std::to_string(number) + " of " + std::to_string(pages.size()) + ".");
}

/// Stores a picture in a folder that this viewer made for itself, under a name that nobody could know and take before.
fs::path StorePicture(const std::string& png) {
    static fs::path folder;
    while (folder.empty()) {
        const fs::path path = fs::temp_directory_path() / ("orvane_" + std::to_string(std::random_device()()));
        if (fs::create_directory(path)) folder = path;
    }
    StoreBytes(folder / "page.png", png);
    return folder / "page.png";
}

bool Touch(const Box& a, const Box& b) {
    return a[Left] <= b[Right] && b[Left] <= a[Right] && a[Top] <= b[Bottom] && b[Top] <= a[Bottom];
}

std::string GetPdfPageContext(Viewer& viewer, Fields& fields) {
    const fs::path path = DrawingPath(viewer, fields);
    const Page page = LoadPage(path, Number(fields, "page"));
    const double radius = std::clamp(static_cast<double>(Number(fields, "radius")), 40.0, 500.0);
    const std::vector<Word> words = WordsOf(viewer.board, page);
    std::vector<Box> areas;  // around the hits
    std::string hits, nearby;
    for (const Word& word : words) {
        if (fields["query"].empty() || !HasWords(word.text, fields["query"])) continue;
        hits += Entry("hit", word.box);
        areas.push_back(Grown(word.box, radius));
    }
    std::size_t rest = Number(fields, "limit");
    for (const Word& word : words) {
        const auto touches = [&](const Box& area) { return Touch(word.box, area); };
        if (!areas.empty() && std::ranges::none_of(areas, touches)) continue;
        if (rest > 0 && rest--) nearby += Row("word", {word.text, json(word.box).dump()});
    }
    const std::string reply =
        Entry("pdf_path", PathText(path)) + Entry("page_size", WholePage) + Entry("hits", areas.size()) + hits + nearby;
    if (!Number(fields, "include_image")) return reply;
    const json* chosen = Find(viewer.board["components"], fields["query"]);
    if (!chosen) chosen = Find(viewer.board["components"], viewer.selectedRefdes);
    const Box area = fields["image_mode"] == "page" || areas.empty() ? WholePage : areas[0];
    const std::size_t limit = Number(fields, "byte_limit");
    const std::string png = DrawPage(viewer.board, page, area, chosen, viewer.selectedNet, limit);
    if (png.empty()) return reply + Entry("no_image", "it would be larger than " + fields["byte_limit"] + " bytes");
    return "ORVANE_DISPLAY_IMAGE_REQUIRED\n" + reply + Entry("image_path", PathText(StorePicture(png))) +
           "ORVANE_MCP_IMAGE mime_type=image/png data=" + Base64(png);
}

std::string PdfiumExtractText(Viewer& viewer, Fields& fields) {
    const fs::path drawing = DrawingPath(viewer, fields);
    const std::size_t first = Number(fields, "page_start"), end = Number(fields, "page_end");
    const std::size_t last = end == 0 ? SplitAt(LoadBytes(drawing), '\f').size() : end;
    json pages = json::array();
    for (std::size_t number = first; number <= std::max(first, last); ++number) {
        const Page page = LoadPage(drawing, number);
        json& entry = pages.emplace_back(json{{"page", number}, {"rotation", 0}, {"box", WholePage}});
        if (Number(fields, "include_text")) entry["text"] = page.text;
        std::size_t rest = Number(fields, "include_words") ? Number(fields, "max_words_per_page") : 0;
        for (const Word& word : WordsOf(viewer.board, page))
            if (rest > 0 && rest--) entry["words"].push_back({{"text", word.text}, {"box", word.box}});
    }
    const std::string text = json{{"pages", pages}}.dump(-1, ' ', false, json::error_handler_t::replace);
    if (fields["output_path"].empty()) return text;
    const fs::path path = FileBesideBoard(viewer, fields["output_path"], ".json", true);
    StoreBytes(path, text);
    return Entry("json_path", PathText(path)) + Entry("pages", pages.size());
}

struct CommandRow {
    HostCommandId id;
    const char* name;
    std::string (*run)(Viewer& viewer, Fields& fields);
    const char* fields;  ///< their names, in order
};

constexpr CommandRow Commands[] = {
    {HostCommandId_SelectNet, "SelectNet", SelectNamed, "net"},
    {HostCommandId_GetBoardState, "GetBoardState", GetBoardState, ""},
    {HostCommandId_SelectComponent, "SelectComponent", SelectNamed, "refdes"},
    {HostCommandId_SelectPin, "SelectPin", SelectNamed, "refdes pin"},
    {HostCommandId_FindComponents, "FindComponents", FindComponents, "query"},
    {HostCommandId_GetComponent, "GetComponent", GetComponent, "refdes"},
    {HostCommandId_GetNet, "GetNet", GetNet, "net"},
    {HostCommandId_ListComponents, "ListComponents", ListComponents, "offset limit include_nets query"},
    {HostCommandId_SearchFiles, "SearchFiles", SearchFiles, "open_first limit _ open_mode _ _ query _ _ _"},
    {HostCommandId_GetDiagnosticHints, "GetDiagnosticHints", GetDiagnosticHints, "query"},
    {HostCommandId_SearchIndexedContent, "SearchIndexedContent", SearchIndexedContent,
     "limit _ _ _ file_type file_path path_filter file_name_contains query _"},
    {HostCommandId_GetPdfPageContext, "GetPdfPageContext", GetPdfPageContext,
     "page radius limit include_image image_mode query pdf_path byte_limit"},
    {HostCommandId_UpdateComponent, "UpdateComponent", Update, "refdes"},
    {HostCommandId_UpdateNet, "UpdateNet", Update, "net"},
    {HostCommandId_ExportOrv, "ExportOrv", ExportOrv, "path"},
    {HostCommandId_PdfiumExtractText, "PdfiumExtractText", PdfiumExtractText,
     "page_start page_end include_text include_words max_words_per_page pdf_path output_path"},
    {HostCommandId_BulkUpdateComponents, "BulkUpdateComponents", BulkUpdateComponents,
     "field skip_missing dry_run updates updates_path"},
};

/// The fields of a command's text: those with a place, then pairs of a name and a value.
Fields ReadFields(const CommandRow& row, const std::string& text) {
    const Strings names = SplitAt(row.fields, ' ');
    Strings values = SplitAt(text, '\t');
    // The one mark that may precede the fields becomes a pair.
    if (row.run == FindComponents && values.size() > 1) values = {values[1], values[0], ""};
    if (values.size() < names.size()) throw Refusal("The command needs more fields.");
    Fields fields;
    for (std::size_t i = 0; i < names.size(); ++i) fields[names[i]] = values[i];
    for (std::size_t i = names.size(); i + 1 < values.size(); i += 2) fields[values[i]] = values[i + 1];
    return fields;
}

/// Into Reply when the text fits there with its NUL, else into a block that the library takes over.
void PutReply(HostCommand& command, const std::string& text) {
    const WideString wide = ToWide(text);
    if (wide.size() < std::size(command.Reply)) {
        command.Reply[wide.copy(command.Reply, wide.size())] = 0;
    } else if (void* block = CoTaskMemAlloc(wide.size() * sizeof(OrvaneMcpChar))) {
        command.LongReply = static_cast<OrvaneMcpChar*>(block);
        command.LongReplyLength = static_cast<std::uint32_t>(wide.copy(command.LongReply, wide.size()));
    } else {
        throw std::bad_alloc();
    }
}

}  // namespace

std::string AnswerCommand(Viewer& viewer, HostCommand& command) try {
    constexpr std::size_t longestRefusal = 1000, longestTitle = 80;
    const auto row = std::ranges::find(Commands, command.CommandId, &CommandRow::id);
    if (row == std::end(Commands)) return "refused an unknown command";
    const std::string text = FromWide({command.LongText, command.LongTextLength});
    const std::string title = OneLine(row->name + (" " + text)).substr(0, longestTitle);
    try {
        Fields fields = ReadFields(*row, text);
        PutReply(command, row->run(viewer, fields));
        command.Success = 1;
        return "answered " + title;
    } catch (const std::exception& failure) {
        const std::string reason = OneLine(failure.what()).substr(0, longestRefusal);
        PutReply(command, reason);
        return "refused " + title + ": " + reason;
    }
} catch (const std::bad_alloc&) {
    return "refused a command: out of memory";  // nothing may be thrown through the window procedure
}

void OpenBoard(Viewer& viewer, const fs::path& file) {
    Viewer opened;
    opened.boardPath = fs::canonical(fs::absolute(file).parent_path()) / file.filename();
    opened.board = LoadBoard(opened.boardPath);
    const std::string drawing = opened.board["schematic"];
    try {
        if (!drawing.empty()) opened.schematicPath = FileBesideBoard(opened, drawing, ".sch");
    } catch (const std::exception&) {
        // A board whose drawing set is missing is still worth showing.
    }
    viewer = std::move(opened);
}
