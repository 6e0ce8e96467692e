#include "viewer.h"

#include <map>
#include <random>
#include <set>

namespace {

/// A command's fields by name. Updates have the same form.
using Fields = std::map<std::string, std::string>;

/// A line of a reply. Every line begins with a word of the viewer's own: boards are written by strangers, and a line
/// that began with their text could pass for one that the bridge or the agent acts on.
std::string Entry(const std::string& key, const json& value) {
    return key + "=" + (value.is_string() ? OneLine(value) : value.dump()) + "\n";
}

/// A field that is a number, or a flag as 1 or 0.
std::size_t Number(const Fields& fields, const char* name) {
    const std::string& text = fields.at(name);
    if (text.empty() || text.size() > 10 || text.find_first_not_of("0123456789") != text.npos)
        throw Refusal(std::string(name) + " must be a number, 0 or more.");
    return std::stoull(text);
}

/// The file that an argument names. An agent's arguments may come from a hostile document, so commands reach only files
/// with this extension directly in the board's folder, and never overwrite one.
fs::path FileBesideBoard(const Viewer& viewer, const std::string& name, std::string extension, bool isNew = false) {
    const fs::path folder = viewer.boardPath.parent_path(), path = (folder / PathOf(name)).lexically_normal();
    // A colon would name a stream of another file.
    if (path.parent_path() != folder || path.extension() != extension || OneLine(name) != name ||
        PathText(path.filename()).find(':') != std::string::npos)
        throw Refusal("Name a " + extension + " file in the board's folder, " + PathText(folder) + ". '" + name +
                      "' is out of bounds.");
    std::error_code failure;
    const fs::file_type type = fs::symlink_status(path, failure).type();  // a link is neither of these two
    if (type != (isNew ? fs::file_type::not_found : fs::file_type::regular))
        throw Refusal("'" + name + (isNew ? "' is taken or too long." : "' is missing or not a plain file."));
    return path;
}

/// The record with this name in a list; null if there is none.
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
    return Entry("selected_refdes", viewer.selectedRefdes) + Entry("selected_info", part ? (*part)["info"] : json("")) +
           Entry("selected_pin", viewer.selectedPin) + Entry("selected_net", viewer.selectedNet);
}

/// Selects, and replies with the words that tell an agent to stop.
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
    return Entry("board", viewer.board["name"]) + Entry("components", viewer.board["components"].size()) +
           Entry("nets", viewer.board["nets"].size()) + Entry("board_path", PathText(viewer.boardPath)) +
           Entry("attached_pdf_path", PathText(viewer.schematicPath)) + SelectionEntries(viewer);
}

std::string GetComponent(Viewer& viewer, Fields& fields) {
    json& part = Get(viewer, "component", fields["refdes"]);
    std::string reply = Entry("refdes", part["name"]) + Entry("Info", part["info"]);
    for (const char* key : {"display_info", "note", "side", "package"}) reply += Entry(key, part[key]);
    for (json& pin : part["pins"]) reply += Entry("pin", Joined({pin["number"], pin["name"], pin["net"]}));
    return reply;
}

std::string GetNet(Viewer& viewer, Fields& fields) {
    json& net = Get(viewer, "net", fields["net"]);
    Strings pins;
    for (json& part : viewer.board["components"])
        for (json& pin : part["pins"])
            if (Is(pin, "net", net["name"])) pins.push_back(Joined({part["name"], pin["number"]}, "."));
    return Entry("net", net["name"]) + Entry("description", net["info"]) + Entry("note", net["note"]) +
           Entry("no_connect", net["no_connect"]) + Entry("pin_count", pins.size()) + Entry("pins", Joined(pins, " "));
}

/// The parts that have all these words somewhere in their record.
std::vector<json*> FindParts(json& board, const std::string& words) {
    std::vector<json*> found;
    for (json& part : board["components"])
        if (HasWords(part.dump() + " " + std::to_string(part["pins"].size()) + "-pin", words)) found.push_back(&part);
    return found;
}

std::string ListComponents(Viewer& viewer, Fields& fields) {
    const std::vector<json*> found = FindParts(viewer.board, fields["query"]);
    const std::size_t begin = Number(fields, "offset"), end = begin + Number(fields, "limit");
    std::string reply = Entry("total", found.size()) + (end < found.size() ? Entry("next_offset", end) : "");
    for (std::size_t i = begin; i < std::min(end, found.size()); ++i) {
        json& part = *found[i];
        Strings cells{part["name"], part["info"], part["side"], std::to_string(part["pins"].size()) + "-pin"};
        std::set<std::string> nets;
        for (json& pin : part["pins"]) nets.insert(std::string(pin["net"]));
        if (Number(fields, "include_nets")) cells.push_back(Joined({nets.begin(), nets.end()}, " "));
        reply += Entry("component", Joined(cells));
    }
    return reply;
}

std::string FindComponents(Viewer& viewer, Fields& fields) {
    const std::string idle = " find select show highlight where what which is the a an all on of board components ";
    Strings words = SplitAt(Lower(fields["query"]), ' ');
    std::erase_if(words, [&](const std::string& word) { return idle.find(" " + word + " ") != idle.npos; });
    fields.merge(Fields{{"offset", "0"}, {"limit", "80"}, {"include_nets", "0"}});
    fields["query"] = Joined(words, " ");
    const std::vector<json*> found = FindParts(viewer.board, fields["query"]);
    if (found.empty()) return "ORVANE_NO_LOCAL_CANDIDATE\n" + Entry("nothing_matches", fields["query"]);
    // The charger is the chip, not the coil beside it.
    json& best = **std::ranges::max_element(found, {}, [](json* part) { return (*part)["pins"].size(); });
    return Select(viewer, best["name"], "", "",
                  Entry("shown_in_find_parts", fields.contains("SHOW_UI")) + ListComponents(viewer, fields));
}

/// Makes the edits in a part or a net, all or none. A new name must be free; the selection and the pins take it on.
std::string Update(Viewer& viewer, Fields& fields) {
    // The tools' names for the texts of a record, where they differ from the record's own.
    static const Fields keys{{"new_refdes", "name"}, {"new_name", "name"}, {"description", "info"}, {"value", "info"}};
    const bool isNet = fields.contains("net");
    const std::string kind = isNet ? "net" : "component", idField = isNet ? "net" : "refdes", id = fields[idField];
    json &record = Get(viewer, kind, id), edited = record;
    fields.erase(idField);
    for (const auto& [field, value] : fields) {
        const std::string key = keys.contains(field) ? keys.at(field) : field;
        if (!record.contains(key) || !record[key].is_string()) throw Refusal("There is no field '" + field + "'.");
        edited[key] = OneLine(value);
    }
    const std::string name = fields[idField] = edited["name"];
    const json* holder = Find(viewer.board[kind + "s"], name);
    if (name.empty() || (holder && holder != &record)) throw Refusal("The new name is empty or taken.");
    record = edited;
    std::string& selected = isNet ? viewer.selectedNet : viewer.selectedRefdes;
    if (Lower(selected) == Lower(id)) selected = name;
    for (json& part : viewer.board["components"])
        for (json& pin : part["pins"])
            if (isNet && Is(pin, "net", id)) pin["net"] = name;
    return isNet ? "NET_UPDATED\n" + GetNet(viewer, fields) : "COMPONENT_UPDATED\n" + GetComponent(viewer, fields);
}

/// Reads the file only if the command itself has no updates. Makes all updates or none.
std::string BulkUpdateComponents(Viewer& viewer, Fields& fields) try {
    json updates = json::parse(fields["updates"].empty() ? "null" : fields["updates"]);
    if (updates.empty() && !fields["updates_path"].empty())
        updates = json::parse(LoadBytes(FileBesideBoard(viewer, fields["updates_path"], ".json")));
    Viewer edited = viewer;
    Strings missing;
    for (Fields& update : updates.get<std::vector<Fields>>()) {
        if (auto value = update.extract("value")) update[fields["field"]] = value.mapped();
        const std::string refdes = update["refdes"];
        const bool isThere = Find(edited.board["components"], refdes);
        if (isThere) Update(edited, update);
        if (!isThere) missing.push_back(refdes.empty() ? "(no refdes)" : refdes);
    }
    if (!missing.empty() && !Number(fields, "skip_missing")) throw Refusal("Not on this board: " + Joined(missing));
    const bool dryRun = Number(fields, "dry_run");
    if (!dryRun) viewer = std::move(edited);
    return "BULK_UPDATE\n" + Entry("dry_run", dryRun) + Entry("updated", updates.size() - missing.size()) +
           Entry("missing_refdes", Joined(missing));
} catch (const json::exception&) {
    throw Refusal("The updates must be a JSON array of objects whose values are strings.");
}

std::string ExportOrv(Viewer& viewer, Fields& fields) {
    const fs::path path = FileBesideBoard(viewer, fields["path"], ".orv", true);
    viewer.board["schematic"] = PathText(viewer.schematicPath.filename());
    StoreBytes(path, viewer.board.dump(1, ' ', false, json::error_handler_t::replace));
    return "ORV_EXPORTED\n" + Entry("exported_path", PathText(path));
}

/// Searches the board and drawing files beside the board: their names or, if the command has a file type, their
/// contents: the parts of a board, the lines of a drawing set. The tools call a drawing set a PDF.
std::string Search(Viewer& viewer, Fields& fields) {
    const bool inside = fields.contains("file_type");
    const std::string file = PathText(PathOf(fields["file_path"]).filename()), query = fields["query"];
    const Strings filter{file, fields["path_filter"], fields["file_name_contains"], fields["file_type"]};
    std::map<std::string, fs::path> files;
    for (const auto& entry : fs::directory_iterator(viewer.boardPath.parent_path())) {
        const std::string name = PathText(entry.path().filename());
        const std::string kind = name.ends_with(".orv") ? "boardview" : name.ends_with(".sch") ? "pdf" : "";
        const bool isFile = !kind.empty() && entry.symlink_status().type() == fs::file_type::regular;
        if (isFile && HasWords(name + " " + kind + " all", inside ? Joined(filter, " ") : query)) files[name] = entry;
    }
    Strings finds;
    for (const auto& [name, path] : files) {
        if (!inside) finds.push_back(Entry("file", PathText(path)));
        try {
            const bool isBoard = path.extension() == ".orv";
            for (const std::string& line : inside && !isBoard ? SplitAt(LoadBytes(path), '\n') : Strings())
                if (HasWords(line, query)) finds.push_back(Entry("hit", name + ": " + line));
            json other = inside && isBoard ? OpenBoard(path).board : json();
            for (json* part : FindParts(other, query))
                finds.push_back(Entry("hit", name + ": " + Joined({(*part)["name"], (*part)["info"]})));
        } catch (const Refusal&) {  // one damaged file doesn't spoil the search
        }
    }
    std::string reply = Entry("found", finds.size());
    finds.resize(std::min(finds.size(), Number(fields, "limit")));
    reply += Joined(finds, "");
    if (inside || files.empty() || !Number(fields, "open_first")) return reply;
    const fs::path first = files.begin()->second;
    if (first.extension() == ".orv") viewer = OpenBoard(first);
    if (first.extension() == ".sch" && fields["open_mode"] != "standalone") viewer.schematicPath = first;
    return "ORVANE_FILE_OPENED\n" + Entry("opened_path", PathText(first)) + reply;
}

/// In the file, each entry has its phrases after "match: " and its notes after dashes. It fits a question that has all
/// words of one of its phrases.
std::string GetDiagnosticHints(Viewer& viewer, Fields& fields) {
    const auto asked = [&](const std::string& phrase) { return HasWords(fields["query"], phrase); };
    std::string notes;
    bool fits = false;
    for (std::string line : SplitAt(LoadBytes(FileBesideBoard(viewer, "diagnostic_hints.yaml", ".yaml")), '\n')) {
        line.erase(0, line.find_first_not_of(' '));
        if (line.starts_with("match: ")) fits = std::ranges::any_of(SplitAt(line.substr(7), ','), asked);
        if (fits && line.starts_with("- ")) notes += Entry("note", line.substr(2));
    }
    return notes.empty() ? "DIAGNOSTIC_NOTES status=none" : "DIAGNOSTIC_NOTES status=match\n" + notes;
}

/// Pages of the drawing set that the command names, or else of the attached one. A `last` of 0 means the end. A drawing
/// set is plain text with form feeds between the pages, which show the two sides of the board in turn.
std::vector<Page> LoadPages(const Viewer& viewer, Fields& fields, std::size_t first, std::size_t last) {
    std::string& name = fields["pdf_path"];
    if (name.empty()) name = PathText(viewer.schematicPath);
    if (name.empty()) throw Refusal("No schematic is attached to this board.");
    const Strings texts = SplitAt(LoadBytes(FileBesideBoard(viewer, name, ".sch")), '\f');
    last = std::max(first, last == 0 ? texts.size() : last);
    if (first < 1 || last > texts.size() || last - first >= 100)
        throw Refusal("Ask for pages from 1 to " + std::to_string(texts.size()) + ", no more than 100 at once.");
    std::vector<Page> pages;
    for (; first <= last; ++first) pages.push_back({first % 2 == 1 ? "top" : "bottom", texts[first - 1]});
    return pages;
}

std::string Base64(const std::string& bytes) {
    constexpr auto digits = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    const auto byte = [&](std::size_t i) { return i < bytes.size() ? static_cast<unsigned char>(bytes[i]) : 0U; };
    std::string text;
    for (std::size_t bit = 0; bit < bytes.size() * 8; bit += 6)
        text += digits[(byte(bit / 8) << 8 | byte(bit / 8 + 1)) >> (10 - bit % 8) & 63];
    return text.append((4 - text.size() % 4) % 4, '=');
}

std::string GetPdfPageContext(Viewer& viewer, Fields& fields) {
    const std::string& query = fields["query"];
    const Page page = LoadPages(viewer, fields, Number(fields, "page"), Number(fields, "page"))[0];
    const double radius = std::clamp(double(Number(fields, "radius")), 40.0, 500.0);
    const std::vector<Word> words = WordsOf(viewer.board, page);
    std::size_t rest = Number(fields, "limit");
    std::vector<Box> hits;
    for (const Word& word : words)
        if (!query.empty() && hits.size() < rest && HasWords(word.text, query)) hits.push_back(word.box);
    std::string reply =
        Entry("pdf_path", fields["pdf_path"]) + Entry("page_size", WholePage) + Entry("hits", hits.size());
    for (const auto& [box, text] : words) {
        const auto isNear = [&box = box, radius](const Box& hit) {
            return std::abs(hit[Left] - box[Left]) <= radius && std::abs(hit[Top] - box[Top]) <= radius;
        };
        if (!hits.empty() && std::ranges::none_of(hits, isNear)) continue;
        if (rest > 0 && rest--) reply += Entry("word", text + " " + json(box).dump());
    }
    if (!Number(fields, "include_image")) return reply;
    const std::string chosen = Find(viewer.board["components"], query) ? query : viewer.selectedRefdes;
    const Box area = fields["image_mode"] == "page" || hits.empty() ? WholePage : Grown(hits[0], radius);
    const std::string png = DrawPage(viewer, page, area, chosen, Number(fields, "byte_limit"));
    // In a folder of this viewer's own, with a name that no one can guess and take first.
    static const fs::path folder = fs::temp_directory_path() / ("orvane_" + std::to_string(std::random_device()()));
    static const bool isOurs = fs::create_directory(folder);
    if (!isOurs) throw Refusal("There is no folder for pictures.");
    StoreBytes(folder / "page.png", png);
    return "ORVANE_DISPLAY_IMAGE_REQUIRED\n" + reply + Entry("image_path", PathText(folder / "page.png")) +
           "ORVANE_MCP_IMAGE mime_type=image/png data=" + Base64(png);
}

std::string PdfiumExtractText(Viewer& viewer, Fields& fields) {
    std::size_t number = Number(fields, "page_start");
    json pages = json::array();
    for (const Page& page : LoadPages(viewer, fields, number, Number(fields, "page_end"))) {
        json& entry = pages.emplace_back(json{{"page", number++}, {"rotation", 0}, {"box", WholePage}});
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
    {HostCommandId_SearchFiles, "SearchFiles", Search, "open_first limit _ open_mode _ _ query _ _ _"},
    {HostCommandId_GetDiagnosticHints, "GetDiagnosticHints", GetDiagnosticHints, "query"},
    {HostCommandId_SearchIndexedContent, "SearchIndexedContent", Search,
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

/// The fields of a command's text: the positional ones, then pairs of a name and a value.
Fields ReadFields(const CommandRow& row, const std::string& text) {
    Strings names = SplitAt(row.fields, ' '), values = SplitAt(text, '\t');
    if (row.run == FindComponents && values.size() > 1) names.insert(names.begin(), "SHOW_UI");  // before the query
    if (values.size() < names.size()) throw Refusal("The command needs more fields.");
    Fields fields;
    for (std::size_t i = 0; i < names.size(); ++i) fields[names[i]] = values[i];
    for (std::size_t i = names.size(); i + 1 < values.size(); i += 2) fields[values[i]] = values[i + 1];
    return fields;
}

}  // namespace

std::string AnswerCommand(Viewer& viewer, HostCommand& command) try {
    const auto row = std::ranges::find(Commands, command.CommandId, &CommandRow::id);
    if (row == std::end(Commands)) return "refused an unknown command";
    const std::string text = FromWide({command.LongText, command.LongTextLength});
    const std::string title = OneLine(text.empty() ? row->name : row->name + (" " + text)).substr(0, 80);
    std::string reply;
    try {
        Fields fields = ReadFields(*row, text);
        reply = row->run(viewer, fields);
        command.Success = 1;
    } catch (const std::exception& failure) {
        reply = OneLine(failure.what()).substr(0, 1000);
    }
    // UTF-16 takes no more units than UTF-8 takes bytes.
    const int size = int(reply.size());
    command.LongReply = static_cast<OrvaneMcpChar*>(CoTaskMemAlloc(reply.size() * sizeof(OrvaneMcpChar)));
    if (!command.LongReply) throw std::bad_alloc();
    command.LongReplyLength = MultiByteToWideChar(CP_UTF8, 0, reply.data(), size, command.LongReply, size);
    return command.Success ? "answered " + title : "refused " + title + ": " + reply;
} catch (const std::bad_alloc&) {
    command.Success = 0;
    return "refused a command: out of memory";  // nothing may be thrown through the window procedure
}
