#include "board.h"

#include "text.h"

#include <algorithm>
#include <cmath>
#include <functional>
#include <iomanip>
#include <sstream>

namespace {

// What a file may ask for. It keeps a damaged file from asking for an endless picture.
constexpr double FarthestPlace = 5000, SmallestPage = 72, LargestScale = 50, LargestLetter = 200;
constexpr double LetterGap = 1.0 / 7.0;
constexpr double LetterAdvance = 6.0 / 7.0;  ///< of a letter's height: letters have 7 rows and 5 columns and a gap
constexpr double LabelStep = 3.5;            ///< points: in the usual pictures a letter's dots are whole pixels then
constexpr double LargestLabel = 10.5;

using std::quoted;

std::istream& operator>>(std::istream& in, Point& point) {
    in >> point.x >> point.y;
    if (std::max(std::abs(point.x), std::abs(point.y)) > FarthestPlace) in.setstate(std::ios::failbit);
    return in;
}

std::ostream& operator<<(std::ostream& out, const Point& point) {
    return out << point.x << ' ' << point.y;
}

/// Gives each line's first word and the rest of it to `read`, which fails by the state that it leaves the rest in.
void ReadLines(const std::filesystem::path& path, const std::function<void(const std::string&, std::istream&)>& read) {
    int number = 0;
    for (const std::string& line : SplitAt(LoadBytes(path), '\n')) {
        ++number;
        std::istringstream rest(line);
        std::string kind;
        if (!(rest >> kind) || kind.starts_with('#')) continue;
        read(kind, rest);
        if (!rest) {
            throw Refusal(PathText(path) + " line " + std::to_string(number) + " can't be read: " + OneLine(line));
        }
    }
}

double BoardWidth(const Board& board) {
    double width = 0;
    for (const Point& corner : board.outline) width = std::max(width, corner.x);
    return width;
}

/// How far along its line a text of this length takes the next letter.
double Advance(std::size_t letters, double size) {
    return static_cast<double>(letters) * size * LetterAdvance;
}

}  // namespace

Board LoadBoard(const std::filesystem::path& path) {
    Board board;
    int version = 0;
    ReadLines(path, [&](const std::string& kind, std::istream& in) {
        if (kind == "board") {
            in >> version >> quoted(board.name);
        } else if (kind == "schematic") {
            in >> quoted(board.schematic);
        } else if (kind == "outline") {
            for (Point corner; in >> std::ws && !in.eof() && in >> corner;) board.outline.push_back(corner);
            if (in.eof()) in.clear();
        } else if (kind == "net") {
            Net& net = board.nets.emplace_back();
            in >> quoted(net.name) >> net.noConnect >> quoted(net.description) >> quoted(net.note);
        } else if (kind == "part") {
            Component& part = board.components.emplace_back();
            in >> quoted(part.refdes) >> part.side >> part.at >> part.size >> quoted(part.package) >>
                quoted(part.info) >> quoted(part.displayInfo) >> quoted(part.note);
        } else if (kind == "pin" && !board.components.empty()) {
            Pin& pin = board.components.back().pins.emplace_back();
            in >> quoted(pin.number) >> quoted(pin.name) >> quoted(pin.net) >> pin.at;
            if (!FindNet(board, pin.net)) board.nets.push_back({pin.net, "", "", false});
        } else {
            in.setstate(std::ios::failbit);
        }
    });
    if (version != 1) throw Refusal(PathText(path) + " is no board file of this viewer.");
    return board;
}

Schematic LoadSchematic(const std::filesystem::path& path) {
    Schematic schematic{path, {}};
    ReadLines(path, [&](const std::string& kind, std::istream& in) {
        bool sound = false;
        if (kind == "page") {
            Page& page = schematic.pages.emplace_back();
            in >> page.size >> page.side >> page.boardAt >> page.scale >> quoted(page.title);
            sound = std::min(page.size.x, page.size.y) >= SmallestPage && page.scale > 0 && page.scale <= LargestScale;
        } else if (kind == "text" && !schematic.pages.empty()) {
            PageText& text = schematic.pages.back().texts.emplace_back();
            in >> text.at >> text.size >> quoted(text.text);
            sound = text.size >= 1 && text.size <= LargestLetter;
        }
        if (!sound) in.setstate(std::ios::failbit);
    });
    if (schematic.pages.empty()) throw Refusal(PathText(path) + " has no page that this viewer can read.");
    return schematic;
}

void SaveBoard(const Board& board, const std::filesystem::path& path) {
    std::ostringstream out;
    out << "board 1 " << quoted(board.name) << '\n';
    if (!board.schematic.empty()) out << "schematic " << quoted(board.schematic) << '\n';
    out << "outline";
    for (const Point& corner : board.outline) out << ' ' << corner;
    out << "\n\n";
    for (const Net& net : board.nets) {
        out << "net " << quoted(net.name) << ' ' << net.noConnect << ' ' << quoted(net.description) << ' '
            << quoted(net.note) << '\n';
    }
    for (const Component& part : board.components) {
        out << "\npart " << quoted(part.refdes) << ' ' << part.side << ' ' << part.at << ' ' << part.size << ' '
            << quoted(part.package) << ' ' << quoted(part.info) << ' ' << quoted(part.displayInfo) << ' '
            << quoted(part.note) << '\n';
        for (const Pin& pin : part.pins) {
            out << "pin " << quoted(pin.number) << ' ' << quoted(pin.name) << ' ' << quoted(pin.net) << ' ' << pin.at
                << '\n';
        }
    }
    StoreBytes(path, out.str());
}

Component* FindComponent(Board& board, std::string_view refdes) {
    for (Component& component : board.components) {
        if (SameName(component.refdes, refdes)) return &component;
    }
    return nullptr;
}

Net* FindNet(Board& board, std::string_view name) {
    for (Net& net : board.nets) {
        if (SameName(net.name, name)) return &net;
    }
    return nullptr;
}

const Pin* FindPin(const Component& component, std::string_view pin) {
    // A pin's number goes before another pin's name.
    for (const auto field : {&Pin::number, &Pin::name}) {
        for (const Pin& candidate : component.pins) {
            if (SameName(candidate.*field, pin)) return &candidate;
        }
    }
    return nullptr;
}

std::vector<std::string> NetsOf(const Component& component) {
    std::vector<std::string> nets;
    for (const Pin& pin : component.pins) {
        if (std::find(nets.begin(), nets.end(), pin.net) == nets.end()) nets.push_back(pin.net);
    }
    return nets;
}

int RenameNet(Board& board, Net& net, const std::string& newName) {
    int pins = 0;
    for (Component& component : board.components) {
        for (Pin& pin : component.pins) {
            if (!SameName(pin.net, net.name)) continue;
            pin.net = newName;
            ++pins;
        }
    }
    net.name = newName;
    return pins;
}

Point OnPage(const Board& board, const Page& page, Point place) {
    if (page.side == "bottom") place.x = BoardWidth(board) - place.x;
    return {page.boardAt.x + place.x * page.scale, page.boardAt.y + place.y * page.scale};
}

Box OnPage(const Board& board, const Page& page, const Component& component) {
    const Point centre = OnPage(board, page, component.at);
    const double x = component.size.x * page.scale / 2, y = component.size.y * page.scale / 2;
    return {centre.x - x, centre.y - y, centre.x + x, centre.y + y};
}

Box Grown(const Box& box, double by) {
    return {box.left - by, box.top - by, box.right + by, box.bottom + by};
}

std::vector<PageWord> WordsOf(const Board& board, const Page& page) {
    std::vector<PageWord> words;
    int line = 0;
    for (const PageText& text : page.texts) {
        double x = text.at.x;
        for (const std::string& word : SplitAt(text.text, ' ')) {
            const double end = x + Advance(word.size(), text.size) - text.size * LetterGap;
            if (!word.empty()) words.push_back({word, {x, text.at.y, end, text.at.y + text.size}, line, nullptr});
            x += Advance(word.size() + 1, text.size);
        }
        ++line;
    }
    for (const Component& part : board.components) {
        if (part.side != page.side || part.refdes.empty()) continue;
        const double fitting = std::min(part.size.x * 0.75 / Advance(part.refdes.size(), 1), part.size.y * 0.75);
        const double size =
            std::clamp(std::floor(fitting * page.scale / LabelStep) * LabelStep, LabelStep, LargestLabel);
        const Point centre = OnPage(board, page, part.at);
        const double x = (Advance(part.refdes.size(), size) - size * LetterGap) / 2, y = size / 2;
        words.push_back({part.refdes, {centre.x - x, centre.y - y, centre.x + x, centre.y + y}, line++, &part});
    }
    return words;
}
