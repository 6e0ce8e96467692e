#include "commands.h"

#include "picture.h"
#include "platform/platform.h"

#include <algorithm>
#include <charconv>
#include <map>
#include <set>

namespace {

namespace fs = std::filesystem;

/// A field as a number that is not negative, flags too.
std::size_t Number(const Strings& fields, std::size_t index) {
    const std::string& text = fields[index];
    unsigned value = 0;
    const auto [end, failure] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (failure == std::errc{} && end == text.data() + text.size()) return value;
    throw Refusal("Field " + std::to_string(index + 1) + " must be a number, not '" + text + "'.");
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

json& Get(json& list, const char* kind, const std::string& name) {
    if (json* record = Find(list, name)) return *record;
    throw Refusal("There is no " + std::string(kind) + " '" + name + "' on this board.");
}

json& GetPart(Viewer& viewer, const std::string& refdes) {
    return Get(viewer.board.at("components"), "component", refdes);
}

json& GetNet(Viewer& viewer, const std::string& name) {
    return Get(viewer.board.at("nets"), "net", name);
}

std::string SelectionEntries(Viewer& viewer) {
    const json* part = Find(viewer.board.at("components"), viewer.selectedRefdes);
    return Entry("selected_refdes", viewer.selectedRefdes) + Entry("selected_info", part ? Text(*part, "info") : "") +
           Entry("selected_pin", viewer.selectedPin) + Entry("selected_net", viewer.selectedNet);
}

/// Selects, and replies in the words that tell an agent that it has nothing more to do.
std::string Select(Viewer& viewer, const std::string& refdes, const std::string& pin, const std::string& net,
                   const std::string& details = {}) {
    viewer.selectedRefdes = refdes;
    viewer.selectedPin = pin;
    viewer.selectedNet = net;
    return "ORVANE_FINAL selected=true stop=true no_followup_tools=true\n" + SelectionEntries(viewer) + details +
           "STOP NOW: the selection is highlighted and centred on the board. Answer from this result.";
}

std::string SelectComponent(Viewer& viewer, const Strings& fields) {
    return Select(viewer, Text(GetPart(viewer, fields[0]), "name"), "", "");
}

std::string SelectPin(Viewer& viewer, const Strings& fields) {
    const json& part = GetPart(viewer, fields[0]);
    for (const char* key : {"number", "name"}) {
        for (const json& pin : part.at("pins")) {
            if (!SameName(Text(pin, key), fields[1])) continue;
            return Select(viewer, Text(part, "name"), Text(pin, "number"), Text(pin, "net"));
        }
    }
    throw Refusal("There is no pin '" + fields[1] + "' on " + Text(part, "name") + ".");
}

std::string SelectNet(Viewer& viewer, const Strings& fields) {
    return Select(viewer, "", "", Text(GetNet(viewer, fields[0]), "name"));
}

std::string GetBoardState(Viewer& viewer, const Strings&) {
    return Entry("board", Text(viewer.board, "name")) + Entry("board_path", PathText(viewer.boardPath)) +
           Entry("attached_pdf_path", PathText(viewer.schematicPath)) +
           Entry("components", viewer.board.at("components").size()) + Entry("nets", viewer.board.at("nets").size()) +
           SelectionEntries(viewer);
}

std::string GetComponentInfo(Viewer& viewer, const Strings& fields) {
    const json& part = GetPart(viewer, fields[0]);
    std::string reply = Entry("refdes", Text(part, "name")) + Entry("Info", Text(part, "info"));
    for (const char* key : {"display_info", "note", "side", "package"}) reply += Entry(key, Text(part, key));
    for (const json& pin : part.at("pins"))
        reply += Row("pin", {Text(pin, "number"), Text(pin, "name"), Text(pin, "net")});
    return reply;
}

std::string GetNetInfo(Viewer& viewer, const Strings& fields) {
    const json& net = GetNet(viewer, fields[0]);
    Strings pins;
    for (const json& part : viewer.board.at("components")) {
        for (const json& pin : part.at("pins")) {
            if (!SameName(Text(pin, "net"), Text(net, "name"))) continue;
            pins.push_back(Text(part, "name") + "." + Text(pin, "number"));
        }
    }
    return Entry("net", Text(net, "name")) + Entry("description", Text(net, "info")) +
           Entry("note", Text(net, "note")) + Entry("no_connect", Text(net, "no_connect")) +
           Entry("pin_count", pins.size()) + Entry("pins", Joined(pins));
}

std::string ComponentRow(const json& part, bool withNets) {
    std::set<std::string> nets;
    for (const json& pin : part.at("pins")) nets.insert(Text(pin, "net"));
    const std::string count = std::to_string(part.at("pins").size()) + " pins";
    return Row("component", {Text(part, "name"), Text(part, "info"), Text(part, "side"), count,
                             withNets ? Joined({nets.begin(), nets.end()}) : ""});
}

/// The parts that have all these words somewhere in their record.
std::vector<const json*> FindParts(const Viewer& viewer, const std::string& words) {
    std::vector<const json*> found;
    for (const json& part : viewer.board.at("components")) {
        const std::string pinCount = " " + std::to_string(part.at("pins").size()) + "-pin";
        if (HasWords(part.dump() + pinCount, words)) found.push_back(&part);
    }
    return found;
}

/// Fields: offset, limit, include_nets, query.
std::string ListComponents(Viewer& viewer, const Strings& fields) {
    const std::vector<const json*> found = FindParts(viewer, fields[3]);
    const std::size_t begin = Number(fields, 0), end = begin + Number(fields, 1);
    std::string reply = Entry("total", found.size()) + (end < found.size() ? Entry("next_offset", end) : "");
    for (std::size_t i = begin; i < std::min(end, found.size()); ++i) {
        reply += ComponentRow(*found[i], Number(fields, 2) != 0);
    }
    return reply;
}

/// Fields: the query; before it "SHOW_UI" when the matches are to be shown in Find parts.
std::string FindComponents(Viewer& viewer, const Strings& fields) {
    static constexpr std::string_view idleWords =
        " find select show highlight where what which is the a an all on of board components ";
    Strings words = SplitAt(Lower(fields.back()), ' ');
    std::erase_if(words, [](const std::string& word) { return idleWords.find(" " + word + " ") != idleWords.npos; });
    const std::vector<const json*> found = FindParts(viewer, Joined(words));
    if (found.empty()) return "ORVANE_NO_LOCAL_CANDIDATE\n" + Entry("nothing_matches", Joined(words));
    std::string rows = Entry(fields.size() > 1 ? "shown_in_find_parts" : "matches", found.size());
    for (const json* part : found) rows += ComponentRow(*part, false);
    // Whoever asks for a charger means the chip, not the coil beside it.
    const json& best = **std::ranges::max_element(found, {}, [](const json* part) { return part->at("pins").size(); });
    return Select(viewer, Text(best, "name"), "", "", rows);
}

/// Sets a text of a part or a net by the name that the update tools have for it.
void SetText(json& record, const std::string& field, const std::string& value) {
    static const std::map<std::string, std::string> keys = {
        {"new_refdes", "name"}, {"new_name", "name"}, {"description", "info"},          {"info", "info"},
        {"value", "info"},      {"note", "note"},     {"display_info", "display_info"}, {"no_connect", "no_connect"}};
    const auto key = keys.find(field);
    if (key == keys.end() || !record.contains(key->second)) throw Refusal("There is no field '" + field + "' to edit.");
    record[key->second] = OneLine(value);
}

/// Makes the edits in the pairs after the first field, all or none. A new name must be free. Returns the name.
std::string Edit(json& list, json& record, const Strings& fields) {
    json edited = record;
    for (std::size_t i = 1; i + 1 < fields.size(); i += 2) SetText(edited, fields[i], fields[i + 1]);
    const json* holder = Find(list, Text(edited, "name"));
    if (Text(edited, "name").empty() || (holder && holder != &record)) throw Refusal("The new name is empty or taken.");
    record = edited;
    return Text(record, "name");
}

/// Fields: refdes, then pairs of new_refdes, description, display_info, note.
std::string UpdateComponent(Viewer& viewer, const Strings& fields) {
    const std::string name = Edit(viewer.board.at("components"), GetPart(viewer, fields[0]), fields);
    if (SameName(viewer.selectedRefdes, fields[0])) viewer.selectedRefdes = name;
    return "COMPONENT_UPDATED\n" + GetComponentInfo(viewer, {name});
}

/// Fields: net, then pairs of new_name, description, note, no_connect.
std::string UpdateNet(Viewer& viewer, const Strings& fields) {
    const std::string name = Edit(viewer.board.at("nets"), GetNet(viewer, fields[0]), fields);
    for (json& part : viewer.board.at("components")) {
        for (json& pin : part.at("pins")) {
            if (SameName(Text(pin, "net"), fields[0])) pin["net"] = name;
        }
    }
    if (SameName(viewer.selectedNet, fields[0])) viewer.selectedNet = name;
    return "NET_UPDATED\n" + GetNetInfo(viewer, {name});
}

using Updates = std::vector<std::map<std::string, std::string>>;

Updates ReadUpdates(const std::string& text) try {
    const json updates = text.empty() ? json() : json::parse(text);
    return updates.is_null() ? Updates() : updates.get<Updates>();
} catch (const json::exception&) {
    throw Refusal("The updates must be a JSON array of objects, with a text for each field.");
}

/// Fields: field, skip_missing, dry_run, updates, updates_path. The file counts when no updates come with the command.
/// All updates are made or none.
std::string BulkUpdateComponents(Viewer& viewer, const Strings& fields) {
    Updates updates = ReadUpdates(fields[3]);
    if (updates.empty() && !fields[4].empty()) {
        updates = ReadUpdates(LoadBytes(FileBesideBoard(viewer, fields[4], ".json")));
    }
    json edited = viewer.board.at("components");
    Strings missing;
    for (auto& update : updates) {
        const std::string refdes = update["refdes"];
        json* const part = Find(edited, refdes);
        if (!part) missing.push_back(refdes.empty() ? "(no refdes)" : refdes);
        for (const auto& [key, value] : update) {
            if (key == "new_refdes") throw Refusal("Rename components with update_component.");
            if (part && key != "refdes") SetText(*part, key == "value" ? fields[0] : key, value);
        }
    }
    if (!missing.empty() && Number(fields, 1) == 0) throw Refusal("Nothing was changed. Missing: " + Joined(missing));
    const bool dryRun = Number(fields, 2) != 0;
    if (!dryRun) viewer.board["components"] = std::move(edited);
    return "BULK_UPDATE\n" + Entry("dry_run", dryRun ? "true" : "false") +
           Entry("updated", updates.size() - missing.size()) + Entry("missing_refdes", Joined(missing));
}

std::string ExportOrv(Viewer& viewer, const Strings& fields) {
    const fs::path path = FileBesideBoard(viewer, fields[0], ".orv", true);
    viewer.board["schematic"] = PathText(viewer.schematicPath.filename());
    StoreBytes(path, viewer.board.dump(1, ' ', false, json::error_handler_t::replace));
    return "ORV_EXPORTED\n" + Entry("exported_path", PathText(path));
}

/// "boardview" or "pdf", in the words of the tools; empty for a file that is neither. Drawing sets stand for PDFs.
std::string KindOf(const fs::path& path) {
    return path.extension() == ".orv" ? "boardview" : path.extension() == ".sch" ? "pdf" : "";
}

/// The board and drawing files in the board's folder whose names and kinds have all these words, in order. No links.
std::set<fs::path> FindFiles(const Viewer& viewer, const std::string& words) {
    std::set<fs::path> files;
    for (const auto& entry : fs::directory_iterator(viewer.boardPath.parent_path())) {
        const std::string kind = KindOf(entry.path()), name = PathText(entry.path().filename());
        if (kind.empty() || entry.symlink_status().type() != fs::file_type::regular) continue;
        if (HasWords(name + " " + kind, words)) files.insert(entry);
    }
    return files;
}

/// Fields: open_first, limit, show_window, open_mode, highlight_whole_word, highlight_text, query, whole_word, regex,
/// extended_search.
std::string SearchFiles(Viewer& viewer, const Strings& fields) {
    const std::set<fs::path> files = FindFiles(viewer, fields[6]);
    std::string reply = Entry("found", files.size());
    std::size_t rest = Number(fields, 1);
    for (const fs::path& path : files) {
        if (rest > 0 && rest--) reply += Row("file", {KindOf(path), PathText(path)});
    }
    if (Number(fields, 0) == 0 || files.empty()) return reply;
    const fs::path& path = *files.begin();
    if (KindOf(path) == "boardview") OpenBoard(viewer, path);
    if (KindOf(path) == "pdf" && fields[3] != "standalone") viewer.schematicPath = path;
    return "ORVANE_FILE_OPENED\n" + Entry("opened_path", PathText(path)) + reply;
}

/// What a search looks through: a line for each net and part of a board, the lines of a drawing set.
Strings LinesOf(const fs::path& path) try {
    if (KindOf(path) == "pdf") return SplitAt(LoadBytes(path), '\n');
    const json board = LoadBoard(path);
    Strings lines;
    for (const json& net : board.at("nets")) lines.push_back("net " + net.dump());
    for (const json& part : board.at("components")) lines.push_back("component " + part.dump());
    return lines;
} catch (const Refusal&) {
    return {};  // one damaged file doesn't spoil the search
}

/// Fields: limit, whole_word, regex, extended_search, file_type, file_path, path_filter, file_name_contains, query,
/// show_window.
std::string SearchIndexedContent(Viewer& viewer, const Strings& fields) {
    const std::string name = PathText(PathOf(fields[5]).filename()), kind = fields[4] == "all" ? "" : fields[4];
    std::string rows;
    std::size_t hits = 0;
    for (const fs::path& path : FindFiles(viewer, Joined({name, fields[6], fields[7], kind}))) {
        for (const std::string& line : LinesOf(path)) {
            if (!HasWords(line, fields[8]) || hits++ >= Number(fields, 0)) continue;
            rows += Row("hit", {PathText(path.filename()), line});
        }
    }
    return Entry("hits", hits) + rows;
}

/// In the notes' file each entry's "match: " has its phrases, and the lines with a dash are its notes. An entry fits a
/// question that has all words of one of its phrases.
std::string GetDiagnosticHints(Viewer& viewer, const Strings& fields) {
    std::string notes;
    bool fits = false;
    for (std::string line : SplitAt(LoadBytes(FileBesideBoard(viewer, "diagnostic_hints.yaml", ".yaml")), '\n')) {
        line.erase(0, line.find_first_not_of(' '));
        if (line.starts_with("match: ")) {
            const Strings phrases = SplitAt(line.substr(7), ',');
            fits = std::ranges::any_of(phrases, [&](const std::string& words) { return HasWords(fields[0], words); });
        }
        if (fits && line.starts_with("- ")) notes += Row("note", {line.substr(2)});
    }
    return notes.empty() ? "DIAGNOSTIC_NOTES status=none" : "DIAGNOSTIC_NOTES status=match\n" + notes;
}

/// The drawing set that a command means: the one it names, or the one attached to the board.
fs::path DrawingPath(const Viewer& viewer, const std::string& name) {
    if (name.empty() && viewer.schematicPath.empty()) throw Refusal("No schematic is attached to this board.");
    return FileBesideBoard(viewer, name.empty() ? PathText(viewer.schematicPath) : name, ".sch");
}

/// A page of a drawing set, which is plain text with form feeds between pages; the sides take turns.
Page LoadPage(const fs::path& path, std::size_t number) {
    const Strings pages = SplitAt(LoadBytes(path), '\f');
    if (number >= 1 && number <= pages.size()) return {number % 2 == 1 ? "top" : "bottom", pages[number - 1]};
    throw Refusal("There is no page " + std::to_string(number) + " of " + std::to_string(pages.size()) + ".");
}

bool Touch(const Box& a, const Box& b) {
    return a[Left] <= b[Right] && b[Left] <= a[Right] && a[Top] <= b[Bottom] && b[Top] <= a[Bottom];
}

/// Fields: page, radius, limit, include_image, image_mode, query, pdf_path, image byte limit (0 for none).
std::string GetPdfPageContext(Viewer& viewer, const Strings& fields) {
    const fs::path path = DrawingPath(viewer, fields[6]);
    const Page page = LoadPage(path, Number(fields, 0));
    const double radius = std::clamp(static_cast<double>(Number(fields, 1)), 40.0, 500.0);
    const std::vector<Word> words = WordsOf(viewer.board, page);
    std::vector<Box> areas;  // around the hits
    std::string hits, nearby;
    for (const Word& word : words) {
        if (fields[5].empty() || !HasWords(word.text, fields[5])) continue;
        hits += Entry("hit", json(word.box).dump());
        areas.push_back(Grown(word.box, radius));
    }
    std::size_t rest = Number(fields, 2);
    for (const Word& word : words) {
        const auto holds = [&](const Box& area) { return Touch(word.box, area); };
        if (rest == 0 || (!areas.empty() && std::ranges::none_of(areas, holds))) continue;
        nearby += Row("word", {word.text, json(word.box).dump()});
        --rest;
    }
    const std::string reply = Entry("pdf_path", PathText(path)) + Entry("page_size", json(WholePage).dump()) +
                              Entry("hits", areas.size()) + hits + nearby;
    if (Number(fields, 3) == 0) return reply;

    const json* chosen = Find(viewer.board.at("components"), fields[5]);
    if (!chosen) chosen = Find(viewer.board.at("components"), viewer.selectedRefdes);
    const Box area = fields[4] == "page" || areas.empty() ? WholePage : areas[0];
    const std::string png = DrawPage(viewer.board, page, area, chosen, viewer.selectedNet, Number(fields, 7));
    if (png.empty()) return reply + Entry("no_image", "it would be larger than " + fields[7] + " bytes");
    // The folder is the user's own; the process id keeps two viewers apart.
    const fs::path image =
        fs::temp_directory_path() / ("orvane_" + std::to_string(GetCurrentProcessId()) + "_page.png");
    StoreBytes(image, png);
    return "ORVANE_DISPLAY_IMAGE_REQUIRED\n" + reply + Entry("image_path", PathText(image)) +
           "ORVANE_MCP_IMAGE mime_type=image/png data=" + Base64(png);
}

/// Fields: page_start, page_end (0 for the last), include_text, include_words, max_words_per_page, pdf_path,
/// output_path.
std::string PdfiumExtractText(Viewer& viewer, const Strings& fields) {
    const fs::path drawing = DrawingPath(viewer, fields[5]);
    const std::size_t pageCount = SplitAt(LoadBytes(drawing), '\f').size();
    const std::size_t first = Number(fields, 0), last = Number(fields, 1) == 0 ? pageCount : Number(fields, 1);
    json pages = json::array();
    for (std::size_t number = first; number <= std::max(first, last); ++number) {
        const Page page = LoadPage(drawing, number);
        json& entry = pages.emplace_back(json{{"page", number}, {"rotation", 0}, {"box", WholePage}});
        if (Number(fields, 2) != 0) entry["text"] = page.text;
        std::size_t rest = Number(fields, 3) != 0 ? Number(fields, 4) : 0;
        for (const Word& word : WordsOf(viewer.board, page)) {
            if (rest > 0 && rest--) entry["words"].push_back({{"text", word.text}, {"box", word.box}});
        }
    }
    const std::string text = json{{"pages", pages}}.dump(-1, ' ', false, json::error_handler_t::replace);
    if (fields[6].empty()) return text;
    const fs::path path = FileBesideBoard(viewer, fields[6], ".json", true);
    StoreBytes(path, text);
    return Entry("json_path", PathText(path)) + Entry("pages", pages.size());
}

struct CommandRow {
    HostCommandId id;
    const char* name;
    std::size_t fields;  ///< as many at least
    std::string (*run)(Viewer& viewer, const Strings& fields);
};

constexpr CommandRow Commands[] = {
    {HostCommandId_SelectNet, "SelectNet", 1, SelectNet},
    {HostCommandId_GetBoardState, "GetBoardState", 0, GetBoardState},
    {HostCommandId_SelectComponent, "SelectComponent", 1, SelectComponent},
    {HostCommandId_SelectPin, "SelectPin", 2, SelectPin},
    {HostCommandId_FindComponents, "FindComponents", 1, FindComponents},
    {HostCommandId_GetComponent, "GetComponent", 1, GetComponentInfo},
    {HostCommandId_GetNet, "GetNet", 1, GetNetInfo},
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

std::string AnswerCommand(Viewer& viewer, HostCommand& command) try {
    constexpr std::size_t longestRefusal = 1000, longestTitle = 80;
    const auto row = std::ranges::find(Commands, command.CommandId, &CommandRow::id);
    if (row == std::end(Commands)) return "refused an unknown command";
    const std::string text = FromWide({command.LongText, command.LongTextLength});
    const std::string title = OneLine(row->name + (" " + text)).substr(0, longestTitle);
    try {
        const Strings fields = SplitAt(text, '\t');
        if (fields.size() < row->fields) throw Refusal("The command needs more fields.");
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
    const std::string& drawing = Text(opened.board, "schematic");
    try {
        if (!drawing.empty()) opened.schematicPath = FileBesideBoard(opened, drawing, ".sch");
    } catch (const std::exception&) {
        // A board whose drawing set is missing is still worth showing.
    }
    viewer = std::move(opened);
}
