#include "commands.h"

#include "picture.h"
#include "platform/platform.h"

#include <algorithm>
#include <charconv>
#include <map>
#include <set>

namespace {

namespace fs = std::filesystem;
using nlohmann::json;

/// The tab-separated fields of a command's text. A handler gets at least as many as its row in the table asks for.
using Fields = std::vector<std::string>;

/// Words of a question that describe no part.
constexpr std::string_view IdleWords =
    " find select show highlight where what which is the a an all on of board components ";

/// A field as a number that is not negative, flags too.
std::size_t Number(const Fields& fields, std::size_t index) {
    const std::string& text = fields[index];
    unsigned value = 0;
    const auto [end, failure] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (failure == std::errc{} && end == text.data() + text.size()) return value;
    throw Refusal("Field " + std::to_string(index + 1) + " must be a number, not '" + text + "'.");
}

/// The file that an argument names, which must exist, or must not when it is to be written. An agent may have read its
/// arguments in a hostile document, so commands reach nothing but files with this extension that lie directly in the
/// board's folder.
enum class Expect { File, NoFile };
fs::path FileBesideBoard(const Viewer& viewer, const std::string& name, const char* extension,
                         Expect expect = Expect::File) {
    const fs::path folder = viewer.boardPath.parent_path(), path = fs::weakly_canonical(folder / PathOf(name));
    const fs::file_type type = fs::symlink_status(path).type();  // a link that is left here leads nowhere yet
    const bool fits = path.parent_path() == folder && path.extension() == extension && OneLine(name) == name &&
                      PathText(path.filename()).find(':') == std::string::npos;  // a stream of another file
    if (!fits || (type != fs::file_type::regular && type != fs::file_type::not_found)) {
        throw Refusal("'" + name + "' is out of bounds. Name a file *" + extension + " in the board's folder, " +
                      PathText(folder) + ".");
    }
    if ((type == fs::file_type::regular) == (expect == Expect::File)) return path;
    throw Refusal("'" + name +
                  (expect == Expect::File ? "' doesn't exist." : "' exists already. Choose another name."));
}

template <typename Record>
Record& Get(std::vector<Record>& records, const std::string& name) {
    if (Record* record = Find(records, name)) return *record;
    throw Refusal("There is no " + std::string(Record::Kind) + " '" + name + "' on this board.");
}

std::string SelectionEntries(Viewer& viewer) {
    const Component* part = Find(viewer.board.components, viewer.selectedRefdes);
    return Entry("selected_refdes", viewer.selectedRefdes) + Entry("selected_info", part ? part->description : "") +
           Entry("selected_pin", viewer.selectedPin) + Entry("selected_net", viewer.selectedNet);
}

/// Selects, and replies in the words that tell an agent that it has nothing more to do.
std::string Select(Viewer& viewer, const std::string& refdes, const std::string& pin, const std::string& net,
                   const std::string& details) {
    viewer.selectedRefdes = refdes;
    viewer.selectedPin = pin;
    viewer.selectedNet = net;
    return "ORVANE_FINAL selected=true stop=true no_followup_tools=true\n" + SelectionEntries(viewer) + details +
           "STOP NOW: the selection is highlighted and centred on the board. Answer from this result.";
}

std::string SelectComponent(Viewer& viewer, const Fields& fields) {
    const Component& part = Get(viewer.board.components, fields[0]);
    return Select(viewer, part.name, "", "", Entry("side", part.side));
}

std::string SelectPin(Viewer& viewer, const Fields& fields) {
    const Component& part = Get(viewer.board.components, fields[0]);
    for (const auto member : {&Pin::number, &Pin::name}) {
        for (const Pin& pin : part.pins) {
            if (Lower(pin.*member) != Lower(fields[1])) continue;
            return Select(viewer, part.name, pin.number, pin.net, Entry("pin_name", pin.name));
        }
    }
    throw Refusal("There is no pin '" + fields[1] + "' on " + part.name + ".");
}

std::string SelectNet(Viewer& viewer, const Fields& fields) {
    const Net& net = Get(viewer.board.nets, fields[0]);
    return Select(viewer, "", "", net.name, Entry("net_description", net.description));
}

std::string GetBoardState(Viewer& viewer, const Fields&) {
    return Entry("board", viewer.board.name) + Entry("board_path", PathText(viewer.boardPath)) +
           Entry("attached_pdf_path", PathText(viewer.schematicPath)) +
           Entry("components", viewer.board.components.size()) + Entry("nets", viewer.board.nets.size()) +
           SelectionEntries(viewer);
}

std::string GetComponent(Viewer& viewer, const Fields& fields) {
    const Component& part = Get(viewer.board.components, fields[0]);
    std::string reply = Entry("refdes", part.name) + Entry("Info", part.description) +
                        Entry("display_info", part.displayInfo) + Entry("note", part.note) + Entry("side", part.side) +
                        Entry("package", part.package) + Entry("pins", part.pins.size());
    for (const Pin& pin : part.pins) reply += Row("pin", {pin.number, pin.name, pin.net});
    return reply;
}

std::string GetNet(Viewer& viewer, const Fields& fields) {
    const Net& net = Get(viewer.board.nets, fields[0]);
    Fields pins;
    for (const Component& part : viewer.board.components) {
        for (const Pin& pin : part.pins) {
            if (Lower(pin.net) == Lower(net.name)) pins.push_back(part.name + "." + pin.number);
        }
    }
    return Entry("net", net.name) + Entry("description", net.description) + Entry("note", net.note) +
           Entry("no_connect", net.noConnect == "1") + Entry("pin_count", pins.size()) + Entry("pins", Joined(pins));
}

std::string CatalogueRow(const Component& part, bool withNets) {
    std::set<std::string> nets;
    for (const Pin& pin : part.pins) nets.insert(pin.net);
    Fields cells = {part.name, part.description, part.side, std::to_string(part.pins.size()) + " pins"};
    if (withNets) cells.push_back(Joined({nets.begin(), nets.end()}));
    return Row("component", cells);
}

/// What searches look through.
std::string SearchText(const Component& part) {
    Fields words = {part.name, part.description, part.displayInfo, part.note, part.package};
    words.push_back(std::to_string(part.pins.size()) + "-pin");
    for (const Pin& pin : part.pins) words.insert(words.end(), {pin.name, pin.net});
    return Joined(words);
}

/// Fields: offset, limit, include_nets, query.
std::string ListComponents(Viewer& viewer, const Fields& fields) {
    const std::size_t offset = Number(fields, 0), end = offset + Number(fields, 1), withNets = Number(fields, 2);
    std::string rows;
    std::size_t total = 0;
    for (const Component& part : viewer.board.components) {
        if (!HasWords(SearchText(part), fields[3])) continue;
        if (total >= offset && total < end) rows += CatalogueRow(part, withNets != 0);
        ++total;
    }
    return Entry("total", total) + (total > end ? Entry("next_offset", end) : "") + rows;
}

/// Fields: the query; before it "SHOW_UI" when the matches are to be shown in Find parts.
std::string FindComponents(Viewer& viewer, const Fields& fields) {
    const bool show = fields[0] == "SHOW_UI" && fields.size() > 1;
    Fields words = SplitAt(Lower(fields[show ? 1 : 0]), ' ');
    std::erase_if(words, [](const std::string& word) { return IdleWords.find(" " + word + " ") != IdleWords.npos; });
    const std::string wanted = Joined(words);
    std::string rows;
    std::size_t matches = 0;
    const Component* best = nullptr;
    for (const Component& part : viewer.board.components) {
        if (wanted.empty() || !HasWords(SearchText(part), wanted)) continue;
        ++matches;
        rows += CatalogueRow(part, false);
        // Whoever asks for a charger means the chip, not the coil beside it.
        if (!best || part.pins.size() > best->pins.size()) best = &part;
    }
    if (!best) return "ORVANE_NO_LOCAL_CANDIDATE\n" + Entry("nothing_matches", wanted);
    return Select(viewer, best->name, "", "", Entry(show ? "shown_in_find_parts" : "matches", matches) + rows);
}

/// Sets a field of a part or a net by the name that the update tools have for it.
template <typename Record>
void SetField(Record& record, const std::string& field, const std::string& value) {
    static const std::map<std::string, std::string> members = {
        {"new_refdes", "name"},   {"description", "description"},  {"note", "note"},     {"info", "description"},
        {"value", "description"}, {"display_info", "displayInfo"}, {"new_name", "name"}, {"no_connect", "noConnect"}};
    json edited = record;
    const auto member = members.find(field);
    if (member == members.end() || !edited.contains(member->second))
        throw Refusal("There is no field '" + field + "'.");
    edited[member->second] = OneLine(value);
    record = edited.get<Record>();
}

/// Makes the edits in the pairs after the first field, all or none, and returns the record. A new name must be free.
template <typename Record>
Record& Edit(std::vector<Record>& records, const Fields& fields) {
    Record &record = Get(records, fields[0]), edited = record;
    for (std::size_t i = 1; i + 1 < fields.size(); i += 2) SetField(edited, fields[i], fields[i + 1]);
    const Record* holder = Find(records, edited.name);
    if (edited.name.empty() || (holder && holder != &record)) throw Refusal("The new name is empty or taken.");
    return record = std::move(edited);
}

/// Fields: refdes, then pairs of new_refdes, description, display_info, note.
std::string UpdateComponent(Viewer& viewer, const Fields& fields) {
    const Component& part = Edit(viewer.board.components, fields);
    if (Lower(viewer.selectedRefdes) == Lower(fields[0])) viewer.selectedRefdes = part.name;
    return "COMPONENT_UPDATED\n" + GetComponent(viewer, {part.name});
}

/// Fields: net, then pairs of new_name, description, note, no_connect.
std::string UpdateNet(Viewer& viewer, const Fields& fields) {
    const Net& net = Edit(viewer.board.nets, fields);
    for (Component& part : viewer.board.components) {
        for (Pin& pin : part.pins) {
            if (Lower(pin.net) == Lower(fields[0])) pin.net = net.name;
        }
    }
    if (Lower(viewer.selectedNet) == Lower(fields[0])) viewer.selectedNet = net.name;
    return "NET_UPDATED\n" + GetNet(viewer, {net.name});
}

using Updates = std::vector<std::map<std::string, std::string>>;

Updates ReadUpdates(const std::string& text) try {
    const json updates = json::parse(text);
    return updates.is_null() ? Updates() : updates.get<Updates>();
} catch (const json::exception&) {
    throw Refusal("The updates must be a JSON array of objects, with a text for each field.");
}

/// Fields: field, skip_missing, dry_run, updates, updates_path. The file counts when no updates come with the command.
/// All updates are made or none.
std::string BulkUpdateComponents(Viewer& viewer, const Fields& fields) {
    const bool skipMissing = Number(fields, 1) != 0, dryRun = Number(fields, 2) != 0;
    Updates updates = fields[3].empty() ? Updates() : ReadUpdates(fields[3]);
    if (updates.empty() && !fields[4].empty()) {
        updates = ReadUpdates(LoadBytes(FileBesideBoard(viewer, fields[4], ".json")));
    }
    std::vector<Component> edited = viewer.board.components;
    Fields missing;
    for (auto& update : updates) {
        const std::string refdes = update["refdes"];
        Component* const part = Find(edited, refdes);
        if (!part) missing.push_back(refdes.empty() ? "(no refdes)" : refdes);
        update.erase("refdes");
        Component unused;
        unused.name = refdes;
        Component& target = part ? *part : unused;
        for (const auto& [key, value] : update) SetField(target, key == "value" ? fields[0] : key, value);
        if (Lower(target.name) != Lower(refdes)) throw Refusal("Rename a component with update_component.");
    }
    if (!missing.empty() && !skipMissing) throw Refusal("Nothing was changed. Not on this board: " + Joined(missing));
    if (!dryRun) viewer.board.components = std::move(edited);
    return "BULK_UPDATE\n" + Entry("dry_run", dryRun ? "true" : "false") +
           Entry("updated", updates.size() - missing.size()) + Entry("missing_refdes", Joined(missing));
}

std::string ExportOrv(Viewer& viewer, const Fields& fields) {
    const fs::path path = FileBesideBoard(viewer, fields[0], ".orv", Expect::NoFile);
    viewer.board.schematic = PathText(viewer.schematicPath.filename());
    StoreBytes(path, json(viewer.board).dump(1, ' ', false, json::error_handler_t::replace));
    return "ORV_EXPORTED\n" + Entry("exported_path", PathText(path));
}

/// "boardview" or "pdf", in the words of the tools; empty for a file that is neither. Drawing sets stand for PDFs.
std::string KindOf(const fs::path& path) {
    return path.extension() == ".orv" ? "boardview" : path.extension() == ".sch" ? "pdf" : "";
}

/// The board and drawing files in the board's folder whose names have all these words, in order. Links don't count.
std::set<fs::path> FilesBesideBoard(const Viewer& viewer, const std::string& words) {
    std::set<fs::path> files;
    for (const auto& entry : fs::directory_iterator(viewer.boardPath.parent_path())) {
        const std::string kind = KindOf(entry.path());
        const bool wanted = HasWords(PathText(entry.path().filename()) + " " + kind, words);
        if (wanted && !kind.empty() && entry.symlink_status().type() == fs::file_type::regular) files.insert(entry);
    }
    return files;
}

/// Fields: open_first, limit, show_window, open_mode, highlight_whole_word, highlight_text, query, whole_word, regex,
/// extended_search.
std::string SearchFiles(Viewer& viewer, const Fields& fields) {
    const std::size_t openFirst = Number(fields, 0), limit = Number(fields, 1);
    const std::set<fs::path> files = FilesBesideBoard(viewer, fields[6]);
    std::string opened, rows;
    std::size_t listed = 0;
    for (const fs::path& path : files) {
        if (listed++ < limit) rows += Row("file", {KindOf(path), PathText(path)});
    }
    if (openFirst != 0 && !files.empty()) {
        const fs::path& path = *files.begin();
        if (KindOf(path) == "boardview") OpenBoard(viewer, path);
        if (KindOf(path) == "pdf" && fields[3] != "standalone") viewer.schematicPath = path;
        opened = "ORVANE_FILE_OPENED\n" + Entry("opened_path", PathText(path));
    }
    return opened + Entry("found", files.size()) + rows;
}

/// What a search looks through in a file: a line for each part and net of a board, the lines of a drawing set.
Fields LinesOf(const fs::path& path) try {
    if (KindOf(path) != "boardview") return SplitAt(LoadBytes(path), '\n');
    Fields lines;
    const Board board = LoadBoard(path);
    for (const Net& net : board.nets) lines.push_back(Joined({"net", net.name, net.description, net.note}));
    for (const Component& part : board.components) lines.push_back("component " + SearchText(part));
    return lines;
} catch (const Refusal&) {
    return {};  // one damaged file doesn't spoil the search
}

/// Fields: limit, whole_word, regex, extended_search, file_type, file_path, path_filter, file_name_contains, query,
/// show_window.
std::string SearchIndexedContent(Viewer& viewer, const Fields& fields) {
    const std::size_t limit = Number(fields, 0);
    const std::string name = PathText(PathOf(fields[5]).filename()) + " " + fields[6] + " " + fields[7];
    std::string rows;
    std::size_t hits = 0;
    for (const fs::path& path : FilesBesideBoard(viewer, name + (fields[4] == "all" ? "" : " " + fields[4]))) {
        for (const std::string& line : LinesOf(path)) {
            if (HasWords(line, fields[8]) && hits++ < limit) rows += Row("hit", {PathText(path.filename()), line});
        }
    }
    return Entry("hits", hits) + rows;
}

/// In the notes' file each entry's "match:" has its phrases, and the lines with a dash are its notes. An entry fits a
/// question that has all words of one of its phrases.
std::string GetDiagnosticHints(Viewer& viewer, const Fields& fields) {
    std::string notes;
    bool fits = false;
    for (const std::string& whole :
         SplitAt(LoadBytes(FileBesideBoard(viewer, "diagnostic_hints.yaml", ".yaml")), '\n')) {
        const std::string line = OneLine(whole).substr(std::min(whole.find_first_not_of(' '), whole.size()));
        if (line.starts_with("match: ")) {
            const Fields phrases = SplitAt(line.substr(7), ',');
            fits = std::ranges::any_of(phrases, [&](const std::string& words) { return HasWords(fields[0], words); });
        }
        if (fits && line.starts_with("- ")) notes += line + "\n";
    }
    return notes.empty() ? "DIAGNOSTIC_NOTES status=none" : "DIAGNOSTIC_NOTES status=match\n" + notes;
}

/// The drawing set that a command means: the one it names, or the one attached to the board.
fs::path DrawingPath(const Viewer& viewer, const std::string& name) {
    if (name.empty() && viewer.schematicPath.empty()) throw Refusal("No schematic is attached to this board.");
    return FileBesideBoard(viewer, name.empty() ? PathText(viewer.schematicPath) : name, ".sch");
}

/// The pages of a drawing set: plain text with form feeds between pages; the sides take turns.
std::vector<Page> LoadPages(const fs::path& path) {
    std::vector<Page> pages;
    for (const std::string& text : SplitAt(LoadBytes(path), '\f')) {
        pages.push_back({pages.size() % 2 == 0 ? "top" : "bottom", text});
    }
    return pages;
}

const Page& PageOf(const std::vector<Page>& pages, std::size_t number) {
    if (number >= 1 && number <= pages.size()) return pages[number - 1];
    throw Refusal("There is no page " + std::to_string(number) + ": the pages are 1 to " +
                  std::to_string(pages.size()) + ".");
}

Box Shared(const Box& a, const Box& b) {
    return {std::max(a[Left], b[Left]), std::max(a[Top], b[Top]), std::min(a[Right], b[Right]),
            std::min(a[Bottom], b[Bottom])};
}

bool HasInside(const Box& box) {
    return box[Left] < box[Right] && box[Top] < box[Bottom];
}

std::string BoxText(const Box& box) {
    return json(box).dump();
}

/// Fields: page, radius, limit, include_image, image_mode, query, pdf_path, image byte limit (0 for none).
std::string GetPdfPageContext(Viewer& viewer, const Fields& fields) {
    const std::size_t limit = Number(fields, 2), byteLimit = Number(fields, 7);
    const double radius = std::clamp(static_cast<double>(Number(fields, 1)), 40.0, 500.0);
    const fs::path path = DrawingPath(viewer, fields[6]);
    const std::vector<Page> pages = LoadPages(path);
    const Page& page = PageOf(pages, Number(fields, 0));
    const std::vector<Word> words = WordsOf(viewer.board, page);
    std::vector<Box> areas;  // around the hits
    std::string hits, nearby;
    for (const Word& word : words) {
        if (fields[5].empty() || !HasWords(word.text, fields[5])) continue;
        hits += Entry("hit", BoxText(word.box));
        areas.push_back(Shared(Grown(word.box, radius), WholePage));
    }
    if (areas.empty()) areas.push_back(WholePage);
    std::size_t listed = 0;
    for (const Word& word : words) {
        const auto holds = [&](const Box& area) { return HasInside(Shared(word.box, area)); };
        if (!std::ranges::any_of(areas, holds) || listed++ >= limit) continue;
        nearby += Row("word", {word.text, BoxText(word.box)});
    }
    const std::string reply = Entry("pdf_path", PathText(path)) + Entry("pages", pages.size()) +
                              Entry("page_size", BoxText(WholePage)) + Entry("hits", hits.empty() ? 0 : areas.size()) +
                              hits + nearby;
    if (Number(fields, 3) == 0) return reply;

    const Component* chosen = Find(viewer.board.components, fields[5]);
    if (!chosen) chosen = Find(viewer.board.components, viewer.selectedRefdes);
    const std::string png =
        DrawPage(viewer.board, page, fields[4] == "page" || !HasInside(areas[0]) ? WholePage : areas[0], chosen,
                 viewer.selectedNet, byteLimit);
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
std::string PdfiumExtractText(Viewer& viewer, const Fields& fields) {
    const std::vector<Page> pages = LoadPages(DrawingPath(viewer, fields[5]));
    const std::size_t first = Number(fields, 0), last = Number(fields, 1) == 0 ? pages.size() : Number(fields, 1);
    const std::size_t mostWords = Number(fields, 3) != 0 ? Number(fields, 4) : 0;
    json list = json::array();
    for (std::size_t number = first; number <= std::max(first, last); ++number) {
        const Page& page = PageOf(pages, number);
        json& entry = list.emplace_back(json{{"page", number}, {"rotation", 0}, {"box", WholePage}});
        if (Number(fields, 2) != 0) entry["text"] = page.text;
        for (std::vector<Word> words = WordsOf(viewer.board, page); const Word& word : words) {
            if (static_cast<std::size_t>(&word - words.data()) < mostWords)
                entry["words"].push_back({{"text", word.text}, {"box", word.box}});
        }
    }
    const std::string text = json{{"pages", list}}.dump(-1, ' ', false, json::error_handler_t::replace);
    if (fields[6].empty()) return text;
    const fs::path path = FileBesideBoard(viewer, fields[6], ".json", Expect::NoFile);
    StoreBytes(path, text);
    return Entry("json_path", PathText(path)) + Entry("pages", list.size());
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

std::string AnswerCommand(Viewer& viewer, HostCommand& command) try {
    constexpr std::size_t longestRefusal = 1000, longestTitle = 80;
    const std::string text = FromWide({command.LongText, command.LongTextLength});
    const Fields fields = SplitAt(text, '\t');
    const auto row = std::ranges::find(Commands, command.CommandId, &CommandRow::id);
    if (row == std::end(Commands)) throw Refusal("This viewer doesn't know the command.");
    const std::string title = OneLine(row->name + (" " + text)).substr(0, longestTitle);
    try {
        if (fields.size() < row->fields) throw Refusal("The command needs more fields.");
        PutReply(command, row->run(viewer, fields));
        command.Success = 1;
        return "answered " + title;
    } catch (const std::exception& failure) {
        const std::string reason = OneLine(failure.what()).substr(0, longestRefusal);
        PutReply(command, reason);
        return "refused " + title + ": " + reason;
    }
} catch (const std::exception& failure) {
    return std::string("refused a command: ") + failure.what();  // nothing may be thrown through the window procedure
}

void OpenBoard(Viewer& viewer, const fs::path& file) {
    Viewer opened;
    opened.boardPath = fs::canonical(fs::absolute(file).parent_path()) / file.filename();
    opened.board = LoadBoard(opened.boardPath);
    if (!opened.board.schematic.empty()) try {
            opened.schematicPath = FileBesideBoard(opened, opened.board.schematic, ".sch");
        } catch (const std::exception&) {
            // A board whose drawing set is missing is still worth showing.
        }
    viewer = std::move(opened);
}
