/// The bridge without a pipe: this program's own connection records what the bridge does and answers by a script.

#include "bridge/message_loop.h"
#include "hostlink/connection.h"
#include "limited_memory.h"
#include "mcp/catalogue.h"
#include "tools/results.h"
#include "tools/tool_calls.h"

#include <fstream>
#include <functional>
#include <gtest/gtest.h>

using Strings = std::vector<std::string>;

struct ScriptedLink {
    /// Each line, and each attempt to connect as its time-out in milliseconds and whether it came after a reply.
    Strings Calls;
    bool CanConnect = true;
    std::string ClientName = "Claude MCP client";
    std::function<std::optional<std::string>()> Answer = [] { return "OK\t"; };
};
static ScriptedLink Link;

bool EnsureControlConnection(DWORD timeoutMs) {
    Link.Calls.push_back(std::to_string(timeoutMs) + (std::ftell(stdout) > 0 ? " after" : " before"));
    return Link.CanConnect;
}

std::optional<std::string> SendControlLine(std::string_view line) {
    Link.Calls.emplace_back(line);
    return Link.Answer();
}

std::string LastClientName() {
    return Link.ClientName;
}

/// Runs `write`, with no allocation larger than `largest`, and returns the body of the one framed message that it
/// writes; its header is checked here. On Windows the output goes through a text file, which leaves it unchanged.
template <typename Write>
static std::string WrittenBody(Write write, std::size_t largest = SIZE_MAX) {
    testing::internal::CaptureStdout();
    {
        const LargestAllocation limit(largest);
        write();
    }
    const std::string output = testing::internal::GetCapturedStdout();
    const std::string body = output.substr(std::min(output.find('{'), output.size()));
    EXPECT_EQ(output, "Content-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body);
    return body;
}

/// The body of the one reply that the bridge writes when framed messages with these bodies are its standard input.
static std::string Reply(std::initializer_list<std::string> bodies, std::size_t largestAllocation = SIZE_MAX) {
    Link = {};
    const std::string path = testing::TempDir() + "orvane_bridge_input";
    std::ofstream input(path, std::ios::binary);
    for (const std::string& body : bodies) input << "Content-Length: " << body.size() << "\r\n\r\n" << body;
    input.close();
    EXPECT_NE(std::freopen(path.c_str(), "rb", stdin), nullptr);
    return WrittenBody(RunMessageLoop, largestAllocation);
}

static std::string Result(const std::string& text, bool isError) {
    return R"({"jsonrpc":"2.0","id":7,"result":{"content":[{"type":"text","text":")" + text + R"("}],"isError":)" +
           (isError ? "true}}" : "false}}");
}

static std::string Call(const std::string& tool, const std::string& arguments, std::size_t largest = SIZE_MAX) {
    const std::string message = R"({"params":{"name":")" + tool + R"(","arguments":{)" + arguments + "}}}";
    return WrittenBody([&] { HandleToolCall("7", message); }, largest);
}

TEST(RunMessageLoop, ConnectsAfterTheRepliesOfTheHandshakeAreWritten) {
    const std::string head = R"({"jsonrpc":"2.0","id":1)";
    EXPECT_EQ(Reply({R"({"id":1,"method":"initialize"})"}), std::string(head).append(InitializeResultText));
    EXPECT_EQ(Link.Calls, Strings{"2000 after"});
    EXPECT_EQ(Reply({R"({"id":1,"method":"tools/list"})"}), std::string(head).append(ToolListResultText));
    EXPECT_EQ(Link.Calls, Strings{"2000 after"});
}

TEST(RunMessageLoop, EndsAtAMessageLargerThanMemory) {
    const std::string refused = R"({"jsonrpc":"2.0","id":2,"error":{"code":-32601,"message":"Method not found"}})";
    const std::string initialized = R"({"id":1,"method":"notifications/initialized"})", other = R"({"id":2})";
    EXPECT_EQ(Reply({initialized, other, std::string(3 << 20, 'x'), other}, 1 << 20), refused);
    EXPECT_EQ(Link.Calls, Strings{});
}

TEST(HandleToolCall, SendsOneControlLineOrTellsWhatItNeeds) {
    std::ifstream rows(ORVANE_TOOL_CALLS);
    EXPECT_TRUE(rows.is_open());
    for (std::string row; std::getline(rows, row);) {
        if (row.starts_with('#')) continue;
        const std::size_t space = row.find(' '), sends = row.find(" -> "), end = std::min(sends, row.find(" ! "));
        std::string line = sends != row.npos ? row.substr(end + 4) : "";
        std::replace(line.begin(), line.end(), '|', '\t');
        const std::string text = line.empty() ? row.substr(end + 3) : "";
        Link = {};
        EXPECT_EQ(Call(row.substr(0, space), row.substr(space + 1, end - space - 1)), Result(text, line.empty()))
            << row;
        EXPECT_EQ(Link.Calls, line.empty() ? Strings{} : Strings{line}) << row;
    }
    EXPECT_EQ(Call(R"(a\"b)", ""), Result(R"(Unknown Orvane MCP tool: a\"b)", true));
    EXPECT_EQ(WrittenBody([] { HandleToolCall("7", R"({"name":7})"); }),
              Result("MCP tool call is missing the tool name.", true));
    EXPECT_EQ(Call("select_net", R"("net":")" + std::string(1 << 20, 'x') + '"', 1 << 16),
              Result("Failed to send command to Orvane.", true));
    Link = {};
    for (const std::string client : {"Codex MCP client", "MCP client (bridge pid 1, parent CLAUDE.EXE)"}) {
        Link.ClientName = client;
        Call("render_pdf_page_image", R"("page":2)");
    }
    const std::string line = "GET_PDF_PAGE_CONTEXT\t2\t180\t80\t1\tcrop\t\t\t";
    EXPECT_EQ(Link.Calls, (Strings{line + "0", line + "614400"})) << "the largest image that the client takes";
}

TEST(HandleToolCall, AnswersListCommandsAfterAnAttemptToConnect) {
    Link = {};
    std::string text(SampleUsageText);
    for (std::size_t at = 0; (at = text.find('\n', at)) != text.npos;) text.replace(at, 1, "\\n");
    EXPECT_EQ(Call("list_commands", ""), Result(text, false));
    EXPECT_EQ(Link.Calls, Strings{"2000 before"});
}

TEST(RunControlCommand, SendsALineAgainOnlyWhenItWasNotAnswered) {
    const auto expect = [](const std::string& text, bool isError, const Strings& calls, ScriptedLink link) {
        Link = link;
        EXPECT_EQ(WrittenBody([] { RunControlCommand("7", "GET_NET\tN"); }), Result(text, isError));
        EXPECT_EQ(Link.Calls, calls) << text;
    };
    const auto none = []() -> std::optional<std::string> { return std::nullopt; };
    const auto later = [] { return Link.Calls.size() < 3 ? std::nullopt : std::optional("OK\tagain"); };
    const auto tooLarge = []() -> std::optional<std::string> { throw std::bad_alloc(); };
    const std::string line = "GET_NET\tN", connect = "2000 before", failure = "Failed to send command to Orvane.";
    expect("once", false, {line}, {{}, true, "", [] { return "OK\tonce"; }});
    expect("again", false, {line, connect, line}, {{}, true, "", later});
    expect(failure, true, {line, connect, line}, {{}, true, "", none});
    expect(failure, true, {line, connect}, {{}, false, "", none});
    expect("Orvane answered, but its reply is too large to pass on.", true, {line}, {{}, true, "", tooLarge});
}

TEST(RenderControlReply, NeedsNoMemoryForTheResult) {
    std::string reply = "OK\t" + std::string(3 << 20, '"') + "\\nORVANE_MCP_IMAGE mime_type=a data=b";
    EXPECT_GT(WrittenBody([&] { RenderControlReply("7", std::move(reply)); }, 1 << 16).size(), 6u << 20);
}
