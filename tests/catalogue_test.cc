#include "mcp/catalogue.h"

#include "mcp/scanning.h"

#include <gtest/gtest.h>

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
}

TEST(Catalogue, CompletesItsRepliesAndListsTheToolsInOrder) {
    for (const std::string_view text : {InitializeResultText, ToolListResultText}) {
        std::size_t position = 0;
        EXPECT_TRUE(SkipJsonValue(R"({"id":1)" + std::string(text), position)) << text;
        EXPECT_EQ(position, text.size() + 7);
        for (const char* wrong : {",}", ",]", "}{", "\"\""}) EXPECT_EQ(text.find(wrong), text.npos) << wrong;
    }
    std::string names, name;
    for (std::size_t tool = 0; (tool = ToolListResultText.find(R"({"name":)", tool)) != std::string::npos; ++tool) {
        if (FindJsonString(ToolListResultText.substr(tool), "name", name)) names += name + " ";
    }
    EXPECT_EQ(names,
              "list_commands get_board_state select_component select_pin select_net find_components "
              "get_component_info get_net_info update_component bulk_update_components update_net export_orv "
              "list_components get_diagnostic_hints search_indexed_content get_pdf_page_context "
              "extract_pdfium_text render_pdf_page_image search_files ");
}
