#include "bridge/message_loop.h"

#include "bridge/scripted_link.h"
#include "mcp/catalogue.h"

#include <fstream>

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

TEST(RunMessageLoop, ConnectsAfterTheRepliesOfTheHandshakeAreWritten) {
    using Row = std::pair<std::string, std::string_view>;
    for (const auto& [method, tail] :
         {Row("initialize", InitializeResultText), Row("tools/list", ToolListResultText)}) {
        const std::string reply = Reply({R"({"id":1,"method":")" + method + "\"}"});
        EXPECT_EQ(reply, R"({"jsonrpc":"2.0","id":1)" + std::string(tail)) << method;
        EXPECT_EQ(Link.Calls, std::vector<std::string>{"2000"}) << method;
        EXPECT_GT(Link.WrittenBeforeConnecting, static_cast<long>(reply.size())) << method;
    }
}

TEST(RunMessageLoop, EndsAtAMessageLargerThanMemory) {
    const std::string refused = R"({"jsonrpc":"2.0","id":2,"error":{"code":-32601,"message":"Method not found"}})";
    const std::string initialized = R"({"id":1,"method":"notifications/initialized"})", other = R"({"id":2})";
    EXPECT_EQ(Reply({initialized, other, std::string(3 << 20, 'x'), other}, 1 << 20), refused);
    EXPECT_TRUE(Link.Calls.empty());
}
