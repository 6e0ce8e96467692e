#include "board.h"

Board LoadBoard(const std::filesystem::path& path) {
    const std::string bytes = LoadBytes(path);
    try {
        return nlohmann::json::parse(bytes).get<Board>();
    } catch (const std::exception& failure) {
        throw Refusal(PathText(path) + " is not a board file: " + failure.what());
    }
}
