/// The pages of a drawing set: the words on them, and pictures of them as PNG files.
#pragma once

#include "board.h"

/// The parts on one side of the board, the bottom as seen through it, and text below them.
struct Page {
    std::string side, text;
};

struct Word {
    Box box;
    std::string text;
};

constexpr Box WholePage{0, 0, 660, 700};

/// All words of a page: first the labels of its parts, then its text.
std::vector<Word> WordsOf(const json& board, const Page& page);

/// The box with its edges moved outwards.
Box Grown(const Box& box, double by);

/// An area of a page as a PNG file, with a part (not if null) and the pads of a net (not if empty) highlighted. It is
/// drawn smaller until its base64 text has no more than `byteLimit` bytes, 0 for no limit. Empty when none is small
/// enough.
std::string DrawPage(const json& board, const Page& page, const Box& area, const json* chosen, std::string_view net,
                     std::size_t byteLimit);

std::string Base64(std::string_view bytes);
