/// What the documents say of commands and tools, held against the product's own tables.
#include "mcp/catalogue.h"
#include "protocol/verbs.h"

#include <fstream>
#include <gtest/gtest.h>
#include <regex>
#include <sstream>

static std::string Document(const char* name) {
    std::ostringstream text;
    text << std::ifstream(std::string(ORVANE_DOCS) + name, std::ios::binary).rdbuf();
    return text.str();
}

/// What matches the pattern's one group, or the whole of a pattern without a group.
static std::vector<std::string> All(const std::string& text, const std::string& pattern) {
    const std::regex regex(pattern);
    return {std::sregex_token_iterator(text.begin(), text.end(), regex, static_cast<int>(regex.mark_count())), {}};
}

TEST(Documents, TellAHostTheIdOfEachVerb) {
    const std::string guide = Document("host-integration.md"), protocol = Document("control-protocol.md");
    const std::string commands = guide.substr(guide.find("## The commands"));
    for (const HostVerb& verb : HostVerbs) {
        const std::string name = "`" + std::string(verb.Literal.substr(0, verb.Literal.find('\t'))) + "`";
        const std::string row = "\n\\| " + std::to_string(verb.CommandId) + " \\|[^|]*" + name;
        EXPECT_EQ(All(commands, row).size(), 1u) << row;
        EXPECT_NE(protocol.find("\n| " + name + " |"), protocol.npos) << name;
    }
}

TEST(Documents, DescribeEachToolOfTheCatalogue) {
    const std::string document = Document("tools.md"), catalogue(ToolListResultText);
    const std::vector<std::string> tools = All(catalogue, "\\{\"name\":\"([a-z_]+)\"");
    EXPECT_EQ(All(document, "\n### ([a-z_]+)"), tools);
    EXPECT_EQ(All(document, "\n\\| \\[`([a-z_]+)`\\]"), tools);
    for (const std::string& argument : All(catalogue, "\"([a-z_]+)\":\\{\"type\"")) {
        EXPECT_TRUE(argument == "items" || document.find(argument + "` |") != document.npos) << argument;
    }
}
