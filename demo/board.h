/// A board, and the pages of its drawing set as words and as pictures.
#pragma once

#include "text.h"

#include <array>
#include <nlohmann/json.hpp>

using nlohmann::json;

/// In millimetres on the board or in points on a page; x to the right, y downwards.
using Box = std::array<double, 4>;
enum { Left, Top, Right, Bottom };
constexpr Box WholePage{0, 0, 660, 700};

/// A page shows the parts on one side of the board, the bottom as seen through it, and text below them.
struct Page {
    std::string side, text;
};

struct Word {
    Box box;
    std::string text;
};

/// A board is JSON, in memory as in its file. "outline" is a list of boxes that make its shape together, "nets" and
/// "components" are lists of records, and a component has a list of "pins". A record's texts and boxes are always
/// there. Throws a Refusal when the file can't be read or is not a board.
json LoadBoard(const std::filesystem::path& path);

/// Whether a text of a record is this one; the case of letters doesn't count, and an empty text is none.
bool Is(const json& record, const char* key, const std::string& text);

/// All words of a page: first the labels of its parts, then its text.
std::vector<Word> WordsOf(const json& board, const Page& page);

/// The box with its edges moved outwards.
Box Grown(const Box& box, double by);

/// An area of a page as a PNG file, with a part (not if null) and the pads of a net (not if empty) highlighted. It is
/// drawn smaller until its base64 text has no more than `byteLimit` bytes, 0 for no limit. Empty when none is small
/// enough.
std::string DrawPage(const json& board, const Page& page, const Box& area, const json* chosen, const std::string& net,
                     std::size_t byteLimit);
