#include "mcp/catalogue.h"

#include "tools/tool_calls.h"

#include <gtest/gtest.h>
#include <regex>

TEST(Catalogue, KeepsItsAsciiWording) {
    // Agents are steered by these texts, so a change of one must be meant: here is its 64-bit FNV-1a checksum.
    const std::tuple<std::string_view, std::size_t, std::uint64_t> rows[] = {
        {InitializeResultText, 6891, 0xd4976d4c48e007ca},
        {ToolListResultText, 14738, 0x8fdbd9ff1f845a9b},
        {SampleUsageText, 593, 0xe7cc0d4833da9253},
    };
    for (const auto& [text, size, expected] : rows) {
        std::uint64_t checksum = 0xcbf29ce484222325;
        for (const char byte : text) {
            EXPECT_TRUE(byte == '\n' ? text == SampleUsageText : byte >= 0x20 && byte < 0x7F && byte != '\\') << text;
            checksum = (checksum ^ static_cast<unsigned char>(byte)) * 0x100000001b3;
        }
        EXPECT_EQ(std::pair(text.size(), checksum), std::pair(size, expected)) << text;
    }
    EXPECT_NE(InitializeResultText.find(R"("version":")" ORVANE_VERSION "\""), std::string_view::npos)
        << "the project's version is " ORVANE_VERSION;
}

TEST(ToolNames, AreTheCataloguesInItsOrder) {
    const std::string list(ToolListResultText);
    const std::regex name(R"re(\{"name":"([a-z_]+)")re");
    const std::vector<std::string> offered(std::sregex_token_iterator(list.begin(), list.end(), name, 1), {});
    const std::vector<std::string_view> names = ToolNames();
    EXPECT_EQ(std::vector<std::string>(names.begin(), names.end()), offered);
}
