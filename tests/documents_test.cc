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

/// The pieces of `text` that begin with `mark`, each without it.
static std::vector<std::string> Pieces(std::string_view text, std::string_view mark) {
    std::vector<std::string> pieces;
    for (std::size_t at = text.find(mark), next = 0; at != text.npos; at = next) {
        next = text.find(mark, at + 1);
        pieces.emplace_back(text.substr(at + mark.size(), next - at - mark.size()));
    }
    return pieces;
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

TEST(Documents, NameTheToolsOfTheCatalogueWithTheirArguments) {
    // A tool's name, then its arguments. What the items of an array have counts as arguments of their own.
    std::vector<std::vector<std::string>> expected, told;
    for (const std::string& tool : Pieces(ToolListResultText, "{\"name\":")) {
        expected.push_back(All(tool, "(?:^|[{,])\"([a-z_]+)\"(?=:\\{\"type\":|,\"description\":\".*inputSchema)"));
        std::erase(expected.back(), "items");
    }
    const std::string document = Document("tools.md");
    for (const std::string& section : Pieces(document, "\n### ")) {
        told.push_back(All(section, "(?:^|\n\\| `(?:updates\\[\\]\\.)?)([a-z_]+)(?=\n|` \\|)"));
    }
    EXPECT_EQ(told, expected);
    EXPECT_EQ(All(document, "\n\\| \\[`([a-z_]+)`\\]"), All(document, "\n### ([a-z_]+)"));
}
