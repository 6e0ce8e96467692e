/// Pictures of a drawing set's pages, and PNG and base64 to send them with.
#pragma once

#include "board.h"

/// A part of a page as a PNG file, with the chosen part highlighted, if any. It is drawn smaller until its base64 text
/// has no more than `byteLimit` bytes; 0 is no limit. Empty when even the smallest picture is too large.
std::string DrawPage(const Board& board, const Page& page, const Box& area, const Component* chosen,
                     std::size_t byteLimit);

std::string Base64(std::string_view bytes);
