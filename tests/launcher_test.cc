#include "child_process.h"
#include "control/announcement.h"
#include "host_window.h"
#include "hostlink/discovery.h"
#include "mcp/catalogue.h"
#include "platform/module.h"
#include "protocol/control_protocol.h"

TEST_F(ServerTest, TheLauncherAnswersEachMessageInItsOwnFramingUntilItsInputEnds) {
    const auto framed = [](std::string body) {
        return "Content-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body;
    };
    const std::string head = R"({"jsonrpc":"2.0","id":)";
    const std::string ping = R"({"method":"ping","id":7})";
    const std::string unknown = R"(,"error":{"code":-32601,"message":"Method not found"}})";
    const std::string refused = head + "7" + unknown;
    const std::pair<std::string, std::string> rows[] = {
        {"", ""},
        {"\n \n" + ping + "\r\n", refused + "\n"},
        {framed(ping) + "\r\n" + ping + "\n" + framed(ping), framed(refused) + refused + "\n" + framed(refused)},
        {"X: y\r\nCONTENT-LENGTH:\t+24 ; x\nContent-Length: 1\nX: y\n\n" + ping, framed(refused)},
        {"Content-Length: 33554433\r\n\r\n" + ping, refused + "\n"},
        {"Content-Length: 33554432\r\n\r\n" + ping + "\n", ""},
        {framed("{\n\"method\": \"x\",\n\"id\": 7\n}"), framed(head + "7\n" + unknown)},
        {R"({"method":"ping"})", ""},
        {R"({"id":"a,\"b","result":{}})", head + R"("a,\"b")" + unknown + "\n"},
        {R"({"id":1,"method":"notifications/initialized"})", ""},
        {R"({"method":"initialize"})", (head + "null").append(InitializeResultText) + "\n"},
        {R"({"id":1.5,"method": "tools/list"})", (head + "1.5").append(ToolListResultText) + "\n"},
        {R"({"id":null,"method":"tools/call","params":{"name":"get_net_info","arguments":{"net":"GND"}}})",
         head + R"(null,"result":{"content":[{"type":"text","text":"7:GND"}],"isError":false}})" + "\n"},
    };
    HostWindow host;
    Start(host.Handle);
    for (const auto& [input, output] : rows) {
        ChildProcess bridge(TEXT("./orvane_mcp.exe"));
        bridge.Send(input);
        bridge.Input.reset();
        EXPECT_EQ(bridge.Read("<no mark>"), output + "<end>") << input;
        EXPECT_EQ(bridge.WaitForExitCode(), 0u) << input;
    }
    EXPECT_TRUE(IsControlServerAnnounced()) << "whatever launchers end";
}

TEST_F(ServerTest, TheBridgeFindsAViewerByItselfAndAgainAfterItWasKilled) {
    ChildProcess bridge(TEXT("./orvane_mcp.exe"));
    for (const bool announced : {true, false}) {
        ChildProcess viewer(TEXT("./Orvane.exe"), {ORVANE_DEMO_BOARD});
        viewer.Read("serving");
        if (!announced) {
            AnnounceControlServer(false);
            EXPECT_TRUE(FindControlPipes().empty()) << "it stands beside the bridge, but not beside this program";
        }
        EXPECT_TRUE(!announced || viewer.Read("pid " + std::to_string(bridge.Id)).find("<end>") == std::string::npos);
        EXPECT_TRUE(Eventually([&] {
            bridge.Send(R"({"id":1,"method":"tools/call","params":{"name":"get_board_state"}})" + std::string("\n"));
            return bridge.Read("\n").find("demo_board.orv") != std::string::npos;
        }));
    }
}

TEST_F(ServerTest, AnIdleBridgeFollowsTheViewersAnnouncement) {
    Start();
    ChildProcess bridge(TEXT("./orvane_mcp.exe"));
    for (const bool announced : {true, false, true}) {
        AnnounceControlServer(announced);
        EXPECT_TRUE(Eventually([&] { return OrvaneMcp_GetClientCount() == announced; })) << announced;
    }
}

TEST_F(ServerTest, TheLauncherGoesWithItsClientWhateverTheViewerDoes) {
    std::promise<void> goOn;
    HostWindow host([hung = goOn.get_future().share()](HostCommand& command) {
        hung.wait();
        return Echo(command);
    });
    Start(host.Handle);
    const std::string call = R"({"id":1,"method":"tools/call","params":{"name":"get_net_info","net":"GND"}})"
                             "\n";
    const std::string answer =
        R"({"jsonrpc":"2.0","id":1,"result":{"content":[{"type":"text","text":"7:GND"}],"isError":false}})";
    const auto startAgent = [](const char* mode) { return ChildProcess(ModulePath(nullptr), {"--agent", mode}); };
    ChildProcess killed = startAgent("kill");
    // More than fits before its first call is answered, so that something stays unread.
    std::thread sender([&] { killed.Send(call + R"({"ids":")" + std::string(200000, 'x') + "\"}\n" + call); });
    EXPECT_TRUE(Eventually([&] { return host.Commands == 1; }));
    ChildProcess piped(TEXT("./orvane_mcp.exe")), left = startAgent("leave");
    piped.Send(call);
    piped.Input.reset();
    left.Send(call);
    EXPECT_EQ(left.WaitForExitCode(), 0u);
    killed.Kill();
    sender.join();
    EXPECT_EQ(killed.Read("<no mark>"), "<end>") << "the launcher has left its output";
    // As long as that took, the others were as alone: one with a parent that lives, one with a client that isn't it.
    goOn.set_value();
    EXPECT_EQ(piped.Read("<no mark>"), answer + "\n<end>");
    EXPECT_EQ(left.Read("\n"), answer);
    left.Input.reset();
    EXPECT_EQ(left.Read("<no mark>"), "<end>");
}

TEST_F(ServerTest, TheCheckTellsHowFarAnAgentsCallsGet) {
    const auto check = [] {
        ChildProcess program(TEXT("./orvane_mcp.exe"), {"--check"});
        const std::string told = program.Read("<no mark>");
        return told + std::to_string(program.WaitForExitCode());
    };
    using testing::AllOf, testing::EndsWith, testing::HasSubstr;
    EXPECT_THAT(check(), AllOf(HasSubstr("No Orvane is announced"), HasSubstr("Start Orvane."), EndsWith("<end>1")));
    HostWindow host([](HostCommand& command) -> LRESULT {
        SetLongReply(command, TEXT("board=\nno net\x1B"));
        return command.Success = 1;
    });
    Start(host.Handle);
    const std::string pipe = WideToUtf8(RawClient::OwnPipe());
    EXPECT_THAT(check(),
                AllOf(HasSubstr("announced in the registry, with the pipe " + pipe), HasSubstr(pipe + " opened"),
                      HasSubstr("greeting accepted after "), HasSubstr("    no net\\x1B"), EndsWith("<end>0")));
    OrvaneMcp_StopControlServer();
    Start();
    EXPECT_THAT(check(),
                AllOf(HasSubstr("failure"), HasSubstr("Orvane main window is not available."), EndsWith("<end>1")));
    ServerState().PipeName = ControlPipeName(4242);
    AnnounceControlServer(true);
    EXPECT_THAT(check(), AllOf(HasSubstr(WideToUtf8(ControlPipeName(4242)) + " did not open: Windows error 2. "),
                               EndsWith("<end>1")));
    ChildProcess unknown(TEXT("./orvane_mcp.exe"), {"--chek"});
    EXPECT_EQ(unknown.Read("<no mark>") + std::to_string(unknown.WaitForExitCode()), "<end>2") << "no silent server";
}
