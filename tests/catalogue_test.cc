#include "mcp/catalogue.h"

#include <gtest/gtest.h>

TEST(Catalogue, KeepsItsWording) {
    // Agents are steered by these texts, so a change of one must be meant: here is its 64-bit FNV-1a checksum.
    const std::tuple<std::string_view, std::size_t, std::uint64_t> rows[] = {
        {InitializeResultText, 6891, 0xd4976d4c48e007ca},
        {ToolListResultText, 14738, 0x8fdbd9ff1f845a9b},
        {SampleUsageText, 593, 0xe7cc0d4833da9253},
    };
    for (const auto& [text, size, expected] : rows) {
        std::uint64_t checksum = 0xcbf29ce484222325;
        for (const char byte : text) checksum = (checksum ^ static_cast<unsigned char>(byte)) * 0x100000001b3;
        EXPECT_EQ(std::pair(text.size(), checksum), std::pair(size, expected)) << text;
    }
    EXPECT_NE(InitializeResultText.find(R"("version":")" ORVANE_VERSION "\""), std::string_view::npos)
        << "the project's version is " ORVANE_VERSION;
}
