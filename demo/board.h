/// The board that the viewer shows, its drawing set, and their files.
#pragma once

#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

/// A place, in millimetres on the board or in points on a page; x to the right, y downwards.
struct Point {
    double x = 0, y = 0;
};

struct Box {
    double left = 0, top = 0, right = 0, bottom = 0;
};

/// The box with its edges moved outwards.
Box Grown(const Box& box, double by);

struct Pin {
    std::string number, name, net;
    Point at;
};

struct Component {
    std::string refdes, side, package, info, displayInfo, note;
    Point at, size;
    std::vector<Pin> pins;
};

struct Net {
    std::string name, description, note;
    bool noConnect = false;
};

struct Board {
    std::string name;
    std::string schematic;  ///< path of the drawing set, relative to the board's file; empty for none
    std::vector<Point> outline;
    std::vector<Component> components;
    std::vector<Net> nets;
};

struct PageText {
    Point at;
    double size = 0;  ///< height of a letter in points
    std::string text;
};

/// One page of a drawing set. The parts of one side of the board are drawn on it, `scale` points to a millimetre.
struct Page {
    Point size;
    std::string side, title;
    Point boardAt;
    double scale = 1;
    std::vector<PageText> texts;
};

struct Schematic {
    std::filesystem::path path;
    std::vector<Page> pages;
};

/// A word as it stands on a page. `line` is the same for words of one line of text.
struct PageWord {
    std::string text;
    Box box;
    int line = 0;
    const Component* label = nullptr;  ///< the part that the word names, for the labels of parts
};

/// Read a file of the demo's own text formats. Throw a Refusal with the file and the line that is wrong.
Board LoadBoard(const std::filesystem::path& path);
Schematic LoadSchematic(const std::filesystem::path& path);

/// Writes what LoadBoard reads. Throws a Refusal when the file can't be written.
void SaveBoard(const Board& board, const std::filesystem::path& path);

/// Null when there is none. Names are compared without case. The pointer lives until the board is edited.
Component* FindComponent(Board& board, std::string_view refdes);
Net* FindNet(Board& board, std::string_view name);
const Pin* FindPin(const Component& component, std::string_view pin);

/// The names of a component's nets, each once, in the order of its pins.
std::vector<std::string> NetsOf(const Component& component);

/// Renames the net itself and at every pin; gives the number of pins.
int RenameNet(Board& board, Net& net, const std::string& newName);

/// Where a place of the board stands on a page: the bottom side is seen from below, so it is mirrored.
Point OnPage(const Board& board, const Page& page, Point place);
Box OnPage(const Board& board, const Page& page, const Component& component);

/// All words of a page: its texts, then the labels of the parts that are drawn on it.
std::vector<PageWord> WordsOf(const Board& board, const Page& page);
