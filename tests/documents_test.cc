/// What the documents say of commands and tools, held against the product's own tables.
#include "mcp/catalogue.h"
#include "protocol/verbs.h"
#include "raw_client.h"
#include "tools/tool_calls.h"

#include <gtest/gtest.h>
#include <regex>

/// What matches the pattern's one group, or the whole of a pattern without a group.
static std::vector<std::string> All(const std::string& text, const std::string& pattern) {
    const std::regex regex(pattern);
    return {std::sregex_token_iterator(text.begin(), text.end(), regex, static_cast<int>(regex.mark_count())), {}};
}

TEST(Documents, TellAHostTheIdOfEachVerbAndTheWordsThatAgentsAreToldToExpect) {
    const std::string guide = FileText(ORVANE_DOCS "host-integration.md"),
                      protocol = FileText(ORVANE_DOCS "control-protocol.md");
    const std::string commands = guide.substr(guide.find("## The commands"));
    for (const HostVerb& verb : HostVerbs) {
        const std::string name = "`" + std::string(verb.Literal.substr(0, verb.Literal.find('\t'))) + "`";
        EXPECT_EQ(All(commands, "\n\\| " + std::to_string(verb.CommandId) + " \\|[^|]*" + name).size(), 1u) << name;
        EXPECT_NE(protocol.find("\n| " + name + " |"), protocol.npos) << name;
    }
    const std::string promises =
        "ORVANE_[A-Z_]+|DIAGNOSTIC_NOTES status=match|STOP NOW|\\b(?:stop|selected|no_followup_tools)=true|"
        "\\b(?:selected_refdes|selected_info|opened_path|image_path|json_path|attached_pdf_path)\\b";
    for (const std::string& word : All(std::string(ToolListResultText).append(InitializeResultText), promises)) {
        EXPECT_NE(commands.find(word), commands.npos) << word;
    }
}

TEST(Documents, DescribeEachToolOfTheCatalogue) {
    const std::string document = FileText(ORVANE_DOCS "tools.md"), catalogue(ToolListResultText);
    const std::vector<std::string> tools = All(catalogue, "\\{\"name\":\"([a-z_]+)\"");
    const std::vector<std::string_view> names = ToolNames();
    EXPECT_EQ(std::vector<std::string>(names.begin(), names.end()), tools) << "of the bridge";
    EXPECT_EQ(All(document, "\n### ([a-z_]+)"), tools);
    EXPECT_EQ(All(document, "\n\\| \\[`([a-z_]+)`\\]"), tools);
    for (const std::string& argument : All(catalogue, "\"([a-z_]+)\":\\{\"type\"")) {
        EXPECT_TRUE(argument == "items" || document.find(argument + "` |") != document.npos) << argument;
    }
}
