/// The board that the viewer shows, its drawing set, and their files.
#pragma once

#include "text.h"

/// In millimetres on the board or in points on a page; x to the right, y downwards.
struct Box {
    double left = 0, top = 0, right = 0, bottom = 0;
};

struct Pin {
    std::string number, name, net;
    Box pad;
};

struct Component {
    std::string refdes, side, package, info, displayInfo, note;
    Box body;
    std::vector<Pin> pins;
};

struct Net {
    std::string name, description, note;
    std::string noConnect;  ///< "0" or "1"
};

struct Board {
    std::string name;
    std::string schematic;     ///< path of the drawing set, relative to the board's file; empty for none
    std::vector<Box> outline;  ///< boxes that make its shape together
    std::vector<Component> components;
    std::vector<Net> nets;
};

/// One page of a drawing set: the parts of one side of the board, the bottom as seen through it, and text below them.
struct Page {
    std::string side, text;
};

struct Word {
    Box box;
    std::string text;
};

constexpr Box WholePage{0, 0, 660, 720};
constexpr int LetterColumns = 5, LetterRows = 7, LetterAdvance = 6;  ///< a letter's dots, each a point wide and high

/// A board's file has a line for each record and tabs between its columns. Loading throws a Refusal with the line that
/// can't be read, storing when the file can't be written.
Board LoadBoard(const std::filesystem::path& path);
void SaveBoard(const Board& board, const std::filesystem::path& path);

/// The pages of a drawing set: plain text, parted by form feeds; the sides take turns. Throws a Refusal.
std::vector<Page> LoadPages(const std::filesystem::path& path);

/// The record whose member has this text, in any case; null when there is none. Valid until the vector changes.
template <typename Record>
Record* Find(std::vector<Record>& records, std::string Record::*member, std::string_view text) {
    for (Record& record : records) {
        if (Lower(record.*member) == Lower(text)) return &record;
    }
    return nullptr;
}

/// "left,top,right,bottom".
std::string BoxText(const Box& box);

/// The box with its edges moved outwards.
Box Grown(const Box& box, double by);

/// Where a box of the board and a part's label stand on a page.
Box OnPage(const Box& box);
Word LabelOf(const Component& component);

/// All words of a page: first the labels of its parts, then its text.
std::vector<Word> WordsOf(const Board& board, const Page& page);
