/// Pictures of a drawing set's pages, and PNG and base64 to send them with.
#pragma once

#include "board.h"

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

/// What a picture brings out.
struct Highlights {
    std::string refdes, net;
    std::vector<Box> boxes;  ///< on the page, in points: the places that a query hit
};

/// A part of a page as a PNG file of `width` pixels, as high as the part's shape wants. Letters that would be too
/// small to read are left out.
std::string DrawPage(const Board& board, const Page& page, const Box& part, const Highlights& highlights, int width);

/// Draws as DrawPage, at most `width` pixels wide and smaller until the base64 text of the file has no more than
/// `byteLimit` bytes; 0 is no limit. Nothing when even the smallest picture is too large.
std::optional<std::string> DrawWithin(const Board& board, const Page& page, const Box& part,
                                      const Highlights& highlights, int width, std::size_t byteLimit);

std::string Base64(std::string_view bytes);
