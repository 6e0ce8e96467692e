#include "documents.h"

#include "picture.h"
#include "text.h"

#include <algorithm>
#include <cmath>
#include <set>
#include <system_error>

namespace {

namespace fs = std::filesystem;

constexpr double PictureWidth = 1200;  ///< pixels that a picture should have at least
constexpr double SmallestCrop = 40;    ///< around a hit, in points

// ---- Files beside the board ----------------------------------------------------------------------------------------

/// "boardview" or "pdf", in the words of the tools; empty for a file that is neither. Drawing sets count as PDFs.
std::string TypeOf(const fs::path& path) {
    const std::string extension = Lower(PathText(path.extension()));
    return extension == ".orv" ? "boardview" : extension == ".sch" || extension == ".pdf" ? "pdf" : "";
}

/// Board and drawing files in the folder of the active board, in the order of their names.
std::set<fs::path> FilesBesideBoard(const Viewer& viewer) {
    std::set<fs::path> files;
    const fs::path folder = viewer.boardPath.parent_path();
    for (const auto& entry : fs::directory_iterator(folder.empty() ? "." : folder)) {
        if (!TypeOf(entry.path()).empty()) files.insert(folder / entry.path().filename());
    }
    return files;
}

/// The drawing set that a command means: the one it names, as it stands or beside the board, else the attached one.
Schematic TheSchematic(const Viewer& viewer, const std::string& path) {
    if (path.empty()) {
        if (viewer.schematic) return *viewer.schematic;
        throw Refusal("No schematic is attached to this board.");
    }
    std::error_code failure;
    const fs::path beside = viewer.boardPath.parent_path() / PathOf(path);
    return LoadSchematic(fs::exists(beside, failure) ? beside : PathOf(path));
}

std::size_t CountWords(const Viewer& viewer, const Schematic& schematic, const TextQuery& query) {
    std::size_t count = 0;
    for (const Page& page : schematic.pages) {
        for (const PageWord& word : WordsOf(viewer.board, page)) count += Fits(query, word.text) ? 1 : 0;
    }
    return count;
}

/// Opens a found file: a board takes the place of the active one, a drawing set is attached or only looked at.
std::string OpenFound(Viewer& viewer, const fs::path& path, bool standalone, const TextQuery& highlight) {
    const std::string head = "ORVANE_FILE_OPENED\n" + Entry("opened_path", PathText(path));
    if (TypeOf(path) == "boardview") {
        const auto lost = static_cast<std::size_t>(viewer.unsavedEdits);
        OpenBoard(viewer, path);
        return head + Entry("opened_as", std::string("active board")) + Entry("discarded_edits", lost);
    }
    Schematic schematic = LoadSchematic(path);
    const std::size_t hits = highlight.words.empty() ? 0 : CountWords(viewer, schematic, highlight);
    if (!standalone) viewer.schematic = std::move(schematic);
    return head + Entry("opened_as", std::string(standalone ? "standalone" : "attached to the active board")) +
           Entry("highlighted_words", hits);
}

/// What the content search looks through: where it stands, and its text.
using ContentLine = std::pair<std::string, std::string>;

std::vector<ContentLine> ContentOf(const Board& board) {
    std::vector<ContentLine> lines;
    for (const Component& component : board.components) {
        lines.emplace_back("component " + component.refdes, component.refdes + " " + component.info + " " +
                                                                component.displayInfo + " " + component.note);
    }
    for (const Net& net : board.nets) {
        lines.emplace_back("net " + net.name, net.name + " " + net.description + " " + net.note);
    }
    for (const Component& component : board.components) {
        for (const Pin& pin : component.pins) {
            lines.emplace_back("pin " + component.refdes + "." + pin.number, pin.name + " " + pin.net);
        }
    }
    return lines;
}

std::vector<ContentLine> ContentOf(const Viewer& viewer, const fs::path& path) {
    std::error_code failure;
    if (fs::equivalent(path, viewer.boardPath, failure)) return ContentOf(viewer.board);  // with its edits
    if (TypeOf(path) == "boardview") return ContentOf(LoadBoard(path));
    std::vector<ContentLine> lines;
    int number = 0;
    for (const Page& page : LoadSchematic(path).pages) {
        ++number;
        for (const PageText& text : page.texts) lines.emplace_back("page " + std::to_string(number), text.text);
    }
    return lines;
}

// ---- Pages ---------------------------------------------------------------------------------------------------------

std::string BoxText(const Box& box) {
    char text[96];
    std::snprintf(text, sizeof text, "%.1f %.1f %.1f %.1f", box.left, box.top, box.right, box.bottom);
    return text;
}

bool Touch(const Box& a, const Box& b) {
    return a.left <= b.right && b.left <= a.right && a.top <= b.bottom && b.top <= a.bottom;
}

/// The words that answer to the query, of the lines that hold all of it.
std::vector<const PageWord*> Hits(const std::vector<PageWord>& words, const std::string& text) {
    const TextQuery query = MakeTextQuery(text, false, false, false);
    std::vector<const PageWord*> hits;
    std::vector<std::string> lines;
    for (const PageWord& word : words) {
        lines.resize(static_cast<std::size_t>(word.line) + 1);
        lines.back() += word.text + " ";
    }
    for (const PageWord& word : words) {
        const bool named = std::any_of(query.words.begin(), query.words.end(),
                                       [&](const std::string& wanted) { return HasWord(word.text, wanted); });
        if (named && Fits(query, lines[static_cast<std::size_t>(word.line)])) hits.push_back(&word);
    }
    return hits;
}

/// The part of the page to draw: around the best hit, else around the selected part, else the whole page.
Box PictureArea(Viewer& viewer, const Page& page, const std::vector<const PageWord*>& hits, double radius) {
    const Component* selected = FindComponent(viewer.board, viewer.selectedRefdes);
    const Box whole{0, 0, page.size.x, page.size.y};
    Box centre;
    if (!hits.empty()) {
        const auto label = std::find_if(hits.begin(), hits.end(), [](const PageWord* word) { return word->label; });
        centre = (label == hits.end() ? hits.front() : *label)->box;
    } else if (selected && selected->side == page.side) {
        centre = OnPage(viewer.board, page, *selected);
    } else {
        return whole;
    }
    const Box wanted = Grown(centre, std::max(radius, SmallestCrop));
    const Box area{std::max(wanted.left, 0.0), std::max(wanted.top, 0.0), std::min(wanted.right, page.size.x),
                   std::min(wanted.bottom, page.size.y)};
    // A word may stand outside its page.
    return std::min(area.right - area.left, area.bottom - area.top) < SmallestCrop ? whole : area;
}

/// A fresh folder of this viewer's own, so that nobody else's file can stand in the way.
fs::path MakePictureFolder() {
    for (int number = 1;; ++number) {
        const fs::path folder = fs::temp_directory_path() / ("orvane_demo_pictures_" + std::to_string(number));
        if (fs::create_directory(folder)) return folder;
    }
}

/// Stores the picture and gives the part of the reply that shows it, the marker line last.
std::string PictureReply(Viewer& viewer, const std::string& png) {
    if (viewer.pictureFolder.empty()) viewer.pictureFolder = MakePictureFolder();
    const fs::path path = viewer.pictureFolder / ("picture_" + std::to_string(++viewer.pictures) + ".png");
    StoreBytes(path, png);
    return Entry("image_path", PathText(path)) + "ORVANE_MCP_IMAGE mime_type=image/png data=" + Base64(png) + "\n";
}

std::string WordsJson(const std::vector<PageWord>& words, std::size_t most) {
    std::string json = ",\"words\":[";
    for (std::size_t i = 0; i < std::min(words.size(), most); ++i) {
        const Box& box = words[i].box;
        char place[160];
        std::snprintf(place, sizeof place, ",\"left\":%.1f,\"top\":%.1f,\"right\":%.1f,\"bottom\":%.1f}", box.left,
                      box.top, box.right, box.bottom);
        json += (i ? ",{\"text\":" : "{\"text\":") + JsonString(words[i].text) + place;
    }
    return json + "],\"words_cut\":" + (words.size() > most ? "true" : "false");
}

std::string PlainText(const std::vector<PageWord>& words) {
    std::string text;
    for (std::size_t i = 0; i < words.size(); ++i) {
        if (i) text += words[i].line == words[i - 1].line ? ' ' : '\n';
        text += words[i].text;
    }
    return text;
}

// ---- Diagnostic notes ----------------------------------------------------------------------------------------------

struct Hint {
    std::string id;
    std::vector<std::string> phrases, notes;
};

/// Reads the notes: "- id:" opens an entry, "match:" has its phrases, any other dash is a note of it.
std::vector<Hint> LoadHints(const fs::path& path) {
    std::vector<Hint> hints;
    for (const std::string& whole : SplitAt(LoadBytes(path), '\n')) {
        const std::string line = OneLine(whole).substr(std::min(whole.find_first_not_of(' '), whole.size()));
        if (line.starts_with("- id: ")) {
            hints.push_back({line.substr(6), {}, {}});
        } else if (line.starts_with("match: ") && !hints.empty()) {
            hints.back().phrases = SplitAt(line.substr(7), ',');
        } else if (line.starts_with("- ") && !hints.empty()) {
            hints.back().notes.push_back(line);
        }
    }
    return hints;
}

bool Answers(const Hint& hint, const std::string& question) {
    return std::any_of(hint.phrases.begin(), hint.phrases.end(), [&](const std::string& phrase) {
        return Fits(MakeTextQuery(phrase, true, false, false), question);
    });
}

}  // namespace

/// Fields: open_first, limit, show_window, open_mode, highlight_whole_word, highlight_text, query, whole_word, regex,
/// extended_search.
std::string SearchFiles(Viewer& viewer, const Fields& fields) {
    const bool openFirst = FlagField(fields, 0, "open_first"), showWindow = FlagField(fields, 2, "show_window");
    const auto limit = static_cast<std::size_t>(NumberField(fields, 1, "limit"));
    const TextQuery highlight =
        MakeTextQuery(fields[5], FlagField(fields, 4, "highlight_whole_word"), false, !fields[5].empty());
    TextQuery query = MakeTextQuery(fields[6], FlagField(fields, 7, "whole_word"), FlagField(fields, 8, "regex"),
                                    FlagField(fields, 9, "extended_search"));
    // "open the demo schematic" asks for a kind of file with one of its words.
    std::string type;
    std::erase_if(query.words, [&](const std::string& word) {
        if (word == "boardview") type = "boardview";
        if (word == "schematic" || word == "pdf") type = "pdf";
        return word == "boardview" || word == "schematic" || word == "pdf" || word == "open" || word == "the";
    });
    std::vector<fs::path> found;
    for (const fs::path& path : FilesBesideBoard(viewer)) {
        if ((type.empty() || type == TypeOf(path)) && Fits(query, PathText(path.filename()))) found.push_back(path);
    }
    std::string reply;
    if (openFirst && !found.empty()) reply = OpenFound(viewer, found[0], fields[3] == "standalone", highlight);
    reply += Entry("found", found.size());
    if (showWindow) reply += Entry("search_window", std::string("shown"));
    for (std::size_t i = 0; i < std::min(found.size(), limit); ++i) {
        reply += TypeOf(found[i]) + "\t" + PathText(found[i]) + "\n";
    }
    return reply;
}

/// Fields: limit, whole_word, regex, extended_search, file_type, file_path, path_filter, file_name_contains, query,
/// show_window.
std::string SearchIndexedContent(Viewer& viewer, const Fields& fields) {
    const auto limit = static_cast<std::size_t>(NumberField(fields, 0, "limit"));
    const TextQuery query = MakeTextQuery(fields[8], FlagField(fields, 1, "whole_word"), FlagField(fields, 2, "regex"),
                                          FlagField(fields, 3, "extended_search"));
    const bool showWindow = FlagField(fields, 9, "show_window");
    std::string rows, unreadable;
    std::size_t hits = 0;
    for (const fs::path& path : FilesBesideBoard(viewer)) {
        const std::string name = PathText(path.filename());
        const bool wanted = (fields[4] == "all" || fields[4] == TypeOf(path)) &&
                            (fields[5].empty() || SameName(name, PathText(PathOf(fields[5]).filename()))) &&
                            HasWord(PathText(path), Lower(PathText(PathOf(fields[6]))), false, true) &&
                            HasWord(name, Lower(fields[7]), false, true);
        if (!wanted) continue;
        try {
            for (const auto& [where, text] : ContentOf(viewer, path)) {
                if (Fits(query, text) && ++hits <= limit) rows += name + "\t" + where + "\t" + OneLine(text) + "\n";
            }
        } catch (const Refusal&) {
            unreadable += name + " ";
        }
    }
    return Entry("hits", hits) + (showWindow ? Entry("search_window", std::string("shown")) : "") + rows +
           (unreadable.empty() ? "" : Entry("unreadable", unreadable));
}

std::string GetDiagnosticHints(Viewer& viewer, const Fields& fields) {
    std::string notes;
    std::size_t count = 0;
    for (const Hint& hint : LoadHints(FindData(viewer, "diagnostic_hints.yaml"))) {
        if (!Answers(hint, fields[0])) continue;
        ++count;
        notes += hint.id + ":\n";
        for (const std::string& note : hint.notes) notes += note + "\n";
    }
    return count ? "DIAGNOSTIC_NOTES status=match\n" + Entry("entries", count) + notes : "DIAGNOSTIC_NOTES status=none";
}

/// Fields: page, radius, limit, include_image, image_mode, query, pdf_path, image byte limit (0 for none).
std::string GetPdfPageContext(Viewer& viewer, const Fields& fields) {
    const int number = NumberField(fields, 0, "page"), radius = NumberField(fields, 1, "radius");
    const auto limit = static_cast<std::size_t>(NumberField(fields, 2, "limit"));
    const bool withImage = FlagField(fields, 3, "include_image"), crop = fields[4] != "page";
    const auto byteLimit = static_cast<std::size_t>(NumberField(fields, 7, "the image byte limit"));
    const Schematic schematic = TheSchematic(viewer, fields[6]);
    if (number < 1 || static_cast<std::size_t>(number) > schematic.pages.size()) {
        throw Refusal("There is no page " + fields[0] + ": the pages are 1 to " +
                      std::to_string(schematic.pages.size()) + ".");
    }
    const Page& page = schematic.pages[static_cast<std::size_t>(number) - 1];
    const std::vector<PageWord> words = WordsOf(viewer.board, page);
    const std::vector<const PageWord*> hits = Hits(words, fields[5]);

    std::string reply = Entry("pdf_path", PathText(schematic.path)) +
                        Entry("page", fields[0] + " of " + std::to_string(schematic.pages.size())) +
                        Entry("title", page.title) + Entry("page_size", BoxText({0, 0, page.size.x, page.size.y})) +
                        "boxes are left top right bottom in points from the top left corner\n" +
                        Entry("hits", hits.size());
    Highlights highlights{viewer.selectedRefdes, viewer.selectedNet, {}};
    for (const PageWord* hit : hits) {
        if (highlights.boxes.size() < limit) reply += "hit\t" + hit->text + "\t" + BoxText(hit->box) + "\n";
        highlights.boxes.push_back(hit->box);
        if (hit->label) highlights.refdes = hit->label->refdes;
    }
    std::size_t listed = 0;
    for (const PageWord& word : words) {
        const bool nearby = fields[5].empty() || std::any_of(hits.begin(), hits.end(), [&](const PageWord* hit) {
                                return Touch(word.box, Grown(hit->box, radius));
                            });
        if (nearby && ++listed <= limit) reply += "word\t" + word.text + "\t" + BoxText(word.box) + "\n";
    }
    if (!withImage) return reply;

    const Box area = crop ? PictureArea(viewer, page, hits, radius) : Box{0, 0, page.size.x, page.size.y};
    // Whole pixels to a point keep the letters even.
    const double width = area.right - area.left, factor = std::max(2.0, std::floor(PictureWidth / width));
    const auto png = DrawWithin(viewer.board, page, area, highlights, static_cast<int>(width * factor), byteLimit);
    if (!png) return reply + "The picture does not fit into " + fields[7] + " bytes, so none is shown.\n";
    return "ORVANE_DISPLAY_IMAGE_REQUIRED\n" + reply + Entry("image_area", BoxText(area)) + PictureReply(viewer, *png);
}

/// Fields: page_start, page_end (0 for the last), include_text, include_words, max_words_per_page, pdf_path,
/// output_path.
std::string PdfiumExtractText(Viewer& viewer, const Fields& fields) {
    const Schematic schematic = TheSchematic(viewer, fields[5]);
    const int count = static_cast<int>(schematic.pages.size());
    const int first = NumberField(fields, 0, "page_start"), end = NumberField(fields, 1, "page_end");
    const int last = end == 0 ? count : std::min(end, count);
    const bool withText = FlagField(fields, 2, "include_text"), withWords = FlagField(fields, 3, "include_words");
    const auto most = static_cast<std::size_t>(NumberField(fields, 4, "max_words_per_page"));
    if (first < 1 || first > last) {
        throw Refusal("There are no pages " + fields[0] + " to " + fields[1] + ": the pages are 1 to " +
                      std::to_string(count) + ".");
    }
    std::string json = "{\"pdf_path\":" + JsonString(PathText(schematic.path)) +
                       ",\"page_count\":" + std::to_string(count) + ",\"origin\":\"top-left\",\"pages\":[";
    for (int number = first; number <= last; ++number) {
        const Page& page = schematic.pages[static_cast<std::size_t>(number) - 1];
        const std::vector<PageWord> words = WordsOf(viewer.board, page);
        char size[96];
        std::snprintf(size, sizeof size, ",\"width\":%.1f,\"height\":%.1f,\"rotation\":0", page.size.x, page.size.y);
        json += (number > first ? ",\n{\"page\":" : "\n{\"page\":") + std::to_string(number) + size;
        if (withText) json += ",\"text\":" + JsonString(PlainText(words));
        if (withWords) json += WordsJson(words, most);
        json += '}';
    }
    json += "\n]}\n";
    if (fields[6].empty()) return json;
    StoreBytes(PathOf(fields[6]), json);
    return Entry("json_path", PathText(Absolute(PathOf(fields[6])))) +
           Entry("pages", static_cast<std::size_t>(last - first + 1)) + Entry("bytes", json.size());
}
