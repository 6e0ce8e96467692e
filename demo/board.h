/// A board: JSON, in memory as in its file. "outline" is a list of boxes that make its shape together, "nets" and
/// "components" are lists of records, and a component has a list of "pins". A record's texts and boxes are always
/// there.
#pragma once

#include "text.h"

#include <array>
#include <nlohmann/json.hpp>

using nlohmann::json;

/// In millimetres on the board or in points on a page; x to the right, y downwards.
using Box = std::array<double, 4>;
enum { Left, Top, Right, Bottom };

/// Throws a Refusal when the file can't be read or is not a board.
json LoadBoard(const std::filesystem::path& path);

/// A text of a record.
const std::string& Text(const json& record, const char* key);

/// Whether two names are the same; the case of letters doesn't count.
bool SameName(std::string_view one, std::string_view other);

/// The record of a list with this name; null when there is none. Valid until the list changes.
json* Find(json& list, std::string_view name);
