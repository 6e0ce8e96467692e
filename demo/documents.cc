#include "commands.h"
#include "picture.h"

#include <algorithm>
#include <iomanip>
#include <set>
#include <sstream>

namespace {

namespace fs = std::filesystem;

constexpr double SmallestRadius = 40, LargestRadius = 500;  ///< of what a picture shows around a hit, in points

/// "boardview" or "pdf", in the words of the tools; empty for a file that is neither. Drawing sets stand for PDFs.
std::string KindOf(const fs::path& path) {
    return path.extension() == ".orv" ? "boardview" : path.extension() == ".sch" ? "pdf" : "";
}

/// Board and drawing files in the folder of the active board, in the order of their names.
std::set<fs::path> FilesBesideBoard(const Viewer& viewer) {
    std::set<fs::path> files;
    for (const auto& entry : fs::directory_iterator(viewer.boardPath.parent_path())) {
        if (!KindOf(entry.path()).empty()) files.insert(entry.path());
    }
    return files;
}

/// The drawing set that a command means: the one it names, as it stands or beside the board, else the attached one.
fs::path ThePath(const Viewer& viewer, const std::string& named) {
    if (named.empty() && viewer.schematicPath.empty()) throw Refusal("No schematic is attached to this board.");
    const fs::path beside = viewer.boardPath.parent_path() / PathOf(named);
    return named.empty() ? viewer.schematicPath : fs::exists(beside) ? beside : PathOf(named);
}

bool Touch(const Box& a, const Box& b) {
    return a.left <= b.right && b.left <= a.right && a.top <= b.bottom && b.top <= a.bottom;
}

const Page& PageOf(const std::vector<Page>& pages, std::size_t number) {
    if (number >= 1 && number <= pages.size()) return pages[number - 1];
    throw Refusal("The pages are 1 to " + std::to_string(pages.size()) + ".");
}

std::string JsonString(const std::string& text) {
    std::ostringstream out;
    out << std::quoted(OneLine(text));
    return out.str();
}

}  // namespace

/// Fields: open_first, limit, show_window, open_mode, highlight_whole_word, highlight_text, query, whole_word, regex,
/// extended_search.
std::string SearchFiles(Viewer& viewer, const Fields& fields) {
    const std::size_t openFirst = Number(fields, 0), limit = Number(fields, 1);
    std::string opened, rows;
    std::size_t found = 0;
    for (const fs::path& path : FilesBesideBoard(viewer)) {
        const std::string kind = KindOf(path);
        if (!HasWords(PathText(path.filename()) + " " + kind, fields[6])) continue;
        if (found++ < limit) rows += kind + "\t" + PathText(path) + "\n";
        if (openFirst == 0 || found > 1) continue;
        opened = "ORVANE_FILE_OPENED\n" + Entry("opened_path", PathText(path));
        if (kind == "boardview") OpenBoard(viewer, path);
        if (kind == "pdf" && fields[3] != "standalone") viewer.schematicPath = path;
    }
    return opened + Entry("found", found) + rows;
}

/// Fields: limit, whole_word, regex, extended_search, file_type, file_path, path_filter, file_name_contains, query,
/// show_window.
std::string SearchIndexedContent(Viewer& viewer, const Fields& fields) {
    const std::size_t limit = Number(fields, 0);
    std::string rows;
    std::size_t hits = 0;
    for (const fs::path& path : FilesBesideBoard(viewer)) {
        const std::string name = PathText(path.filename());
        const bool wanted =
            (fields[4] == "all" || fields[4] == KindOf(path)) &&
            HasWords(PathText(path), Joined({PathText(PathOf(fields[5]).filename()), fields[6], fields[7]}));
        for (const std::string& line : wanted ? SplitAt(LoadBytes(path), '\n') : Fields{}) {
            if (HasWords(line, fields[8]) && hits++ < limit) rows += name + "\t" + OneLine(line) + "\n";
        }
    }
    return Entry("hits", hits) + rows;
}

/// In the notes' file each entry's "match:" has its phrases and the lines with a dash its notes. An entry fits a
/// question that has all words of one of its phrases.
std::string GetDiagnosticHints(Viewer& viewer, const Fields& fields) {
    const fs::path path = viewer.boardPath.parent_path() / "diagnostic_hints.yaml";
    std::string notes;
    bool fits = false;
    for (const std::string& whole : SplitAt(LoadBytes(path), '\n')) {
        const std::string line = OneLine(whole).substr(std::min(whole.find_first_not_of(' '), whole.size()));
        if (line.starts_with("match:")) {
            fits = false;
            for (const std::string& phrase : SplitAt(line.substr(6), ',')) fits = fits || HasWords(fields[0], phrase);
        }
        if (fits && line.starts_with("- ")) notes += line + "\n";
    }
    return notes.empty() ? "DIAGNOSTIC_NOTES status=none" : "DIAGNOSTIC_NOTES status=match\n" + notes;
}

/// Fields: page, radius, limit, include_image, image_mode, query, pdf_path, image byte limit (0 for none).
std::string GetPdfPageContext(Viewer& viewer, const Fields& fields) {
    const std::size_t number = Number(fields, 0), limit = Number(fields, 2), byteLimit = Number(fields, 7);
    const double radius = std::clamp(static_cast<double>(Number(fields, 1)), SmallestRadius, LargestRadius);
    const fs::path path = ThePath(viewer, fields[6]);
    const std::vector<Page> pages = LoadPages(path);
    const Page& page = PageOf(pages, number);
    const std::vector<Word> words = WordsOf(viewer.board, page);
    std::vector<Box> hits;
    for (const Word& word : words) {
        if (!fields[5].empty() && HasWords(word.text, fields[5])) hits.push_back(word.box);
    }
    std::string reply = Entry("pdf_path", PathText(path)) + Entry("pages", pages.size()) +
                        Entry("page_size", BoxText(WholePage)) + Entry("hits", hits.size());
    for (const Box& hit : hits) reply += Entry("hit", BoxText(hit));
    std::size_t listed = 0;
    for (const Word& word : words) {
        const bool nearby =
            std::any_of(hits.begin(), hits.end(), [&](const Box& hit) { return Touch(word.box, Grown(hit, radius)); });
        if ((nearby || hits.empty()) && listed++ < limit) reply += word.text + "\t" + BoxText(word.box) + "\n";
    }
    if (Number(fields, 3) == 0) return reply;

    const Component* chosen = Find(viewer.board.components, &Component::refdes, fields[5]);
    if (!chosen) chosen = Find(viewer.board.components, &Component::refdes, viewer.selectedRefdes);
    const Box area = fields[4] == "page" || hits.empty() ? WholePage : Grown(hits[0], radius);
    const std::string png = DrawPage(viewer.board, page, area, chosen, byteLimit);
    if (png.empty()) return reply + "No picture: it does not fit into " + fields[7] + " bytes.";
    const fs::path picture = fs::temp_directory_path() / ("orvane_page_" + std::to_string(number) + ".png");
    StoreBytes(picture, png);
    return "ORVANE_DISPLAY_IMAGE_REQUIRED\n" + reply + Entry("image_path", PathText(picture)) +
           "ORVANE_MCP_IMAGE mime_type=image/png data=" + Base64(png);
}

/// Fields: page_start, page_end (0 for the last), include_text, include_words, max_words_per_page, pdf_path,
/// output_path. Pages are short here, so they always come whole.
std::string PdfiumExtractText(Viewer& viewer, const Fields& fields) {
    const std::vector<Page> pages = LoadPages(ThePath(viewer, fields[5]));
    const std::size_t first = Number(fields, 0), last = Number(fields, 1) == 0 ? pages.size() : Number(fields, 1);
    std::vector<std::string> texts;
    for (std::size_t number = first; number <= std::max(first, last); ++number) {
        const Page& page = PageOf(pages, number);
        std::vector<std::string> words;
        for (const Word& word : WordsOf(viewer.board, page)) {
            words.push_back("{\"text\":" + JsonString(word.text) + ",\"box\":[" + BoxText(word.box) + "]}");
        }
        texts.push_back("{\"page\":" + std::to_string(number) + ",\"rotation\":0,\"box\":[" + BoxText(WholePage) +
                        "],\"text\":" + JsonString(page.text) + ",\"words\":[" + Joined(words, ",") + "]}");
    }
    const std::string json = "{\"pages\":[\n" + Joined(texts, ",\n") + "\n]}";
    if (fields[6].empty()) return json;
    StoreBytes(PathOf(fields[6]), json);
    return Entry("json_path", PathText(fs::absolute(PathOf(fields[6])))) + Entry("pages", texts.size());
}
