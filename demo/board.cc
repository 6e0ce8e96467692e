#include "board.h"

/// Gives a record the texts and the box that its file left out. Throws a json::exception when one is of another type.
static void Complete(json& record, std::initializer_list<const char*> texts, const char* box = nullptr) {
    for (const char* key : texts) record[key] = record.value(key, "");
    if (box) record[box] = record.value(box, Box{});
}

json LoadBoard(const std::filesystem::path& path) {
    const std::string bytes = LoadBytes(path);
    try {
        json board = json::parse(bytes);
        Complete(board, {"name", "schematic"});
        board["outline"] = board.value("outline", std::vector<Box>());
        for (json& net : board["nets"]) Complete(net, {"name", "info", "note", "no_connect"});
        for (json& part : board["components"]) {
            Complete(part, {"name", "side", "package", "info", "display_info", "note"}, "body");
            for (json& pin : part["pins"]) Complete(pin, {"number", "name", "net"}, "pad");
        }
        return board;
    } catch (const json::exception&) {
        throw Refusal(PathText(path) + " is not a board file.");
    }
}

const std::string& Text(const json& record, const char* key) {
    return record.at(key).get_ref<const std::string&>();
}

bool SameName(std::string_view one, std::string_view other) {
    return Lower(one) == Lower(other);
}

json* Find(json& list, std::string_view name) {
    for (json& record : list) {
        if (!name.empty() && SameName(Text(record, "name"), name)) return &record;
    }
    return nullptr;
}
