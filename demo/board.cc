#include "board.h"

#include <cmath>
#include <cstdio>

namespace {

constexpr std::size_t MostColumns = 8;
constexpr double FarthestPlace = 5000;  ///< keeps the numbers of a damaged file out of the pictures
constexpr double BoardMargin = 30, PointsPerMillimetre = 5, TextTop = 425, LineAdvance = 12;

Box BoxOf(const std::string& text) {
    Box box;
    const int read = std::sscanf(text.c_str(), "%lf,%lf,%lf,%lf", &box.left, &box.top, &box.right, &box.bottom);
    for (const double place : {box.left, box.top, box.right, box.bottom}) {
        if (read != 4 || !(std::abs(place) < FarthestPlace)) throw Refusal("No box of the board: '" + text + "'");
    }
    return box;
}

double WidthOf(std::string_view text) {
    return static_cast<double>(text.size()) * LetterAdvance;
}

Word WordAt(double left, double top, const std::string& text) {
    return {{left, top, left + WidthOf(text), top + LetterRows}, text};
}

}  // namespace

Board LoadBoard(const std::filesystem::path& path) {
    Board board;
    for (const std::string& line : SplitAt(LoadBytes(path), '\n')) {
        std::vector<std::string> row = SplitAt(line, '\t');
        row.resize(MostColumns);
        if (row[0] == "board") {
            board.schematic = row[1];
            board.name = row[2];
        } else if (row[0] == "outline") {
            board.outline.push_back(BoxOf(row[1]));
        } else if (row[0] == "net") {
            board.nets.push_back({row[1], row[2], row[3], row[4]});
        } else if (row[0] == "part") {
            board.components.push_back({row[1], row[2], row[3], row[4], row[5], row[6], BoxOf(row[7]), {}});
        } else if (row[0] == "pin" && !board.components.empty()) {
            board.components.back().pins.push_back({row[1], row[2], row[3], BoxOf(row[4])});
        } else if (!line.empty() && line[0] != '#') {
            throw Refusal(PathText(path) + " has a line that can't be read: " + line);
        }
    }
    return board;
}

void SaveBoard(const Board& board, const std::filesystem::path& path) {
    std::string text;
    const auto put = [&](const std::vector<std::string>& row) { text += Joined(row, "\t") + "\n"; };
    put({"board", board.schematic, board.name});
    for (const Box& box : board.outline) put({"outline", BoxText(box)});
    for (const Net& net : board.nets) put({"net", net.name, net.description, net.note, net.noConnect});
    for (const Component& part : board.components) {
        put({"part", part.refdes, part.side, part.package, part.info, part.displayInfo, part.note, BoxText(part.body)});
        for (const Pin& pin : part.pins) put({"pin", pin.number, pin.name, pin.net, BoxText(pin.pad)});
    }
    StoreBytes(path, text);
}

std::vector<Page> LoadPages(const std::filesystem::path& path) {
    std::vector<Page> pages;
    for (const std::string& text : SplitAt(LoadBytes(path), '\f')) {
        pages.push_back({pages.size() % 2 == 0 ? "top" : "bottom", text});
    }
    return pages;
}

std::string BoxText(const Box& box) {
    char text[96];
    std::snprintf(text, sizeof text, "%g,%g,%g,%g", box.left, box.top, box.right, box.bottom);
    return text;
}

Box Grown(const Box& box, double by) {
    return {box.left - by, box.top - by, box.right + by, box.bottom + by};
}

Box OnPage(const Box& box) {
    return {BoardMargin + box.left * PointsPerMillimetre, BoardMargin + box.top * PointsPerMillimetre,
            BoardMargin + box.right * PointsPerMillimetre, BoardMargin + box.bottom * PointsPerMillimetre};
}

Word LabelOf(const Component& component) {
    const Box body = OnPage(component.body);
    return WordAt((body.left + body.right - WidthOf(component.refdes)) / 2, (body.top + body.bottom - LetterRows) / 2,
                  component.refdes);
}

std::vector<Word> WordsOf(const Board& board, const Page& page) {
    std::vector<Word> words;
    for (const Component& part : board.components) {
        if (part.side == page.side) words.push_back(LabelOf(part));
    }
    double top = TextTop;
    for (const std::string& line : SplitAt(page.text, '\n')) {
        double left = BoardMargin;
        for (const std::string& word : SplitAt(OneLine(line), ' ')) {
            if (!word.empty()) words.push_back(WordAt(left, top, word));
            left += WidthOf(word) + LetterAdvance;
        }
        top += LineAdvance;
    }
    return words;
}
