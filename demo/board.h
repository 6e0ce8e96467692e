/// A board and its file, which is JSON with the names of these members.
#pragma once

#include "text.h"

#include <array>
#include <nlohmann/json.hpp>

/// In millimetres on the board or in points on a page; x to the right, y downwards.
using Box = std::array<double, 4>;
enum { Left, Top, Right, Bottom };

struct Pin {
    std::string number, name, net;
    Box pad{};
};

struct Component {
    static constexpr char Kind[] = "component";
    std::string name, side, package, description, displayInfo, note;
    Box body{};
    std::vector<Pin> pins;
};

struct Net {
    static constexpr char Kind[] = "net";
    std::string name, description, note;
    std::string noConnect;  ///< "1" for a net that connects nothing
};

struct Board {
    std::string name;
    std::string schematic;     ///< file name of the drawing set beside the board; empty for none
    std::vector<Box> outline;  ///< boxes that make its shape together
    std::vector<Component> components;
    std::vector<Net> nets;
};

NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE_WITH_DEFAULT(Pin, number, name, net, pad)
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE_WITH_DEFAULT(Component, name, side, package, description, displayInfo, note, body,
                                                pins)
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE_WITH_DEFAULT(Net, name, description, note, noConnect)
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE_WITH_DEFAULT(Board, name, schematic, outline, components, nets)

/// Throws a Refusal when the file can't be read or is not a board.
Board LoadBoard(const std::filesystem::path& path);

/// The record of this name, in any case; null when there is none. Valid until the vector changes.
template <typename Record>
Record* Find(std::vector<Record>& records, std::string_view name) {
    for (Record& record : records) {
        if (!name.empty() && Lower(record.name) == Lower(name)) return &record;
    }
    return nullptr;
}
