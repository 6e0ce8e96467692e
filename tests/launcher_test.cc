#include "child_process.h"
#include "control/announcement.h"
#include "host_window.h"
#include "hostlink/discovery.h"
#include "platform/module.h"

#include <regex>

static const WideString LauncherFile = TEXT("./orvane_mcp.exe");

/// Plays one agent that starts the launcher and shares its output with it, until it is killed. share: shares its input
/// too. pass: passes its input on.
int RunAgent(const std::string& mode) {
    int input[2];
    if (mode == "share" && Spawn(LauncherFile, {}, 0, 1, true) != -1) Sleep(INFINITE);
    if (!MakePipe(input) || Spawn(LauncherFile, {}, input[0], 1, true) == -1) return 1;
    close(input[0]);
    char piece[4096];
    for (long count; (count = read(0, piece, sizeof piece)) > 0;) {
        if (write(input[1], piece, static_cast<unsigned>(count)) != count) return 1;
    }
    return 0;
}

struct Launcher : ServerTest {};

TEST_F(Launcher, TheLauncherAnswersEachMessageInItsOwnFramingUntilItsInputEnds) {
    const std::string ping = R"({"method":"ping","id":7})", framedPing = "Content-Length: 24\r\n\r\n" + ping;
    const std::string head = R"({"jsonrpc":"2.0","id":)";
    const std::string refused = head + R"(7,"error":{"code":-32601,"message":"Method not found"}})";
    const std::string framedRefused = "Content-Length: 77\r\n\r\n" + refused;
    const std::pair<std::string, std::string> rows[] = {
        {"", ""},
        {framedPing + "\r\n" + ping + "\n" + framedPing, framedRefused + refused + "\n" + framedRefused},
        {"Content-Length: 33554432\r\n\r\n" + ping + "\n", ""},
        {R"({"id":null,"method":"tools/call","params":{"name":"get_net_info","arguments":{"net":"GND"}}})",
         head + R"(null,"result":{"content":[{"type":"text","text":"7:GND"}],"isError":false}})" + "\n"},
    };
    HostWindow host;
    Start(host.Handle);
    for (const auto& [input, output] : rows) {
        ChildProcess bridge(LauncherFile);
        bridge.Send(input);
        bridge.Input.reset();
        EXPECT_EQ(bridge.Read("<no mark>"), output + "<end>") << input;
        EXPECT_EQ(bridge.WaitForExitCode(), 0u) << input;
    }
    EXPECT_TRUE(IsControlServerAnnounced()) << "whatever launchers end";
}

TEST_F(Launcher, TheBridgeFindsAViewerByItselfAndAgainAfterItWasKilled) {
    ChildProcess bridge(LauncherFile);
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

TEST_F(Launcher, AnIdleBridgeFollowsTheViewersAnnouncementAndCutsItsNameToFitTheGreeting) {
    const std::string parent = "./claude" + std::string(234, 'p') + ".exe";
    std::filesystem::remove(parent);
    std::filesystem::copy_file(ModulePath(nullptr), parent);
    HostWindow host;
    Start(host.Handle);
    ChildProcess agent(Utf8ToWide(parent), {"--agent", "pass"});
    agent.Send(R"({"method":"tools/call","params":{"name":"render_pdf_page_image","page":1}})"
               "\n");
    EXPECT_THAT(agent.Read("\n"), testing::HasSubstr("614400")) << "the client's image limit, before it is connected";
    for (const bool announced : {true, false, true}) {
        AnnounceControlServer(announced);
        EXPECT_TRUE(Eventually([&] { return OrvaneMcp_GetClientCount() == announced; })) << announced;
    }
    EXPECT_EQ(ServerState().Clients.at(0).DisplayName.size(), 254 - std::string("HELLO ").size());
    agent.Kill();
    std::filesystem::remove(parent);
}

TEST_F(Launcher, TheLauncherGoesWithItsClientWhateverTheViewerDoes) {
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
    ChildProcess killed = startAgent("pass");
    // More than fits before its first call is answered, so that something stays unread.
    std::thread sender([&] { killed.Send(call + R"({"ids":")" + std::string(200000, 'x') + "\"}\n" + call); });
    EXPECT_TRUE(Eventually([&] { return host.Commands == 1; }));
    ChildProcess piped(LauncherFile), left = startAgent("share");
    piped.Send(call);
    piped.Input.reset();
    left.Send(call);
    EXPECT_TRUE(Eventually([&] { return OrvaneMcp_GetClientCount() == 3; }));
    left.Kill();
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

TEST_F(Launcher, TracesWhatItDoesOnItsErrorOutput) {
    HostWindow host([&host](HostCommand& command) {
        if (host.Commands == 1) OrvaneMcp_DisconnectClients();
        return Echo(command);
    });
    Start(host.Handle);
    AskForTrace();
    ChildProcess bridge(LauncherFile);
    // Contents are cut after 500 bytes, but not inside a character.
    const std::string call = R"({"method":"tools/call","id":1,"params":{"name":"get_net_info","arguments":{"net":")" +
                             std::string(491, 'n') + "\xE2\x82\xAC" + std::string(200, 'x') + "\"}}}";
    bridge.Send(call + "\nContent-Length: " + std::to_string(call.size()) + "\n\n" + call);
    bridge.Input.reset();
    const std::string trace = TraceIn(bridge.Read("<no mark>"), bridge.Id);
    // The listener may take a moment between two clients, and the watcher may connect again while the process ends.
    EXPECT_THAT(std::regex_replace(trace, std::regex(".* did not open.*\n"), ""),
                testing::StartsWith(FileText(ORVANE_TRACES "launcher")));
}

TEST_F(Launcher, TheCheckTellsHowFarAnAgentsCallsGet) {
    const auto check = [](const char* option = "--check") {
        ChildProcess program(LauncherFile, {option});
        const std::string told = program.Read("<no mark>");
        return told + std::to_string(program.WaitForExitCode());
    };
    using testing::AllOf, testing::EndsWith, testing::HasSubstr;
    EXPECT_THAT(check(), AllOf(HasSubstr("No Orvane is announced"), HasSubstr("Start Orvane."), EndsWith("<end>1")));
    HostWindow host(
        [](HostCommand& command) { return SetLongReply(command, TEXT("board=\nno net\x1B")), command.Success = 1; });
    Start(host.Handle);
    const std::string pipe = WideToUtf8(RawClient::OwnPipe());
    EXPECT_THAT(check(),
                AllOf(HasSubstr("announced in the registry, with the pipe " + pipe), HasSubstr(pipe + " opened"),
                      HasSubstr("greeting accepted after "), HasSubstr("sending a line of 15 bytes\n"),
                      HasSubstr("    no net\\x1B"), EndsWith("<end>0")));
    EXPECT_THAT(check("--chek"), AllOf(HasSubstr("unknown argument \"--chek\""), EndsWith("<end>2")));
}
