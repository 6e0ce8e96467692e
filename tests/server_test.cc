#include "control/clients.h"
#include "host_window.h"
#include "hostlink/discovery.h"
#include "protocol/control_protocol.h"
#include "protocol/verbs.h"

#include <ctime>

using testing::ElementsAre, testing::IsEmpty;

// Each leaves no server behind.
using ServerStart = ServerTest;
using Getters = ServerTest;
using ClientList = ServerTest;
using ClientSession = ServerTest;
using DisconnectClients = ServerTest;

/// What a getter returns, and the text that it leaves in the buffer.
static std::pair<int, std::string> Get(std::int32_t (*getter)(OrvaneMcpChar*, std::int32_t), int capacity = 1024) {
    WCHAR text[1024] = TEXT("untouched");
    const int result = getter(text, capacity);
    return {result, WideToUtf8(text)};
}

/// The type and all the bytes of a value of the announcement; type 0 when there is no such value.
static std::pair<DWORD, std::string> Stored(LPCWSTR value) {
    HKEY key = nullptr;
    DWORD type = 0, size = 512;
    std::string bytes(size, '?');
    RegOpenKeyExW(HKEY_CURRENT_USER, Announcement::Key, 0, KEY_QUERY_VALUE, &key);
    const OwnedRegistryKey closing(key);
    const auto error = RegQueryValueExW(key, value, nullptr, &type, reinterpret_cast<BYTE*>(bytes.data()), &size);
    if (error != ERROR_SUCCESS) return {};
    return {type, bytes.substr(0, size)};
}

static std::pair<DWORD, std::string> Number(DWORD number) {
    return {REG_DWORD, std::string(reinterpret_cast<const char*>(&number), sizeof number)};
}

TEST_F(ServerStart, NamesThePipeAndTheLauncherAndAnnouncesThePipeUntilTheStop) {
    const std::string ownId = std::to_string(GetCurrentProcessId());
    const struct {
        DWORD ProcessIdOverride;
        WideView Directory;
        std::string PipeNumber, LauncherPath;
    } rows[] = {
        {0, TEXT("C:\\Orvane"), ownId, "C:\\Orvane\\orvane_mcp.exe"},
        {4294967295, TEXT("C:/Orvane/"), "4294967295", "C:/Orvane/orvane_mcp.exe"},
        {0, TEXT(""), ownId, WideToUtf8(GetExecutableDirectory()) + "\\orvane_mcp.exe"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.LauncherPath);
        const std::string pipe = "\\\\.\\pipe\\orvane_mcp_control_" + row.PipeNumber;
        const WideString name = Utf8ToWide(pipe);
        EXPECT_EQ(Start(nullptr, row.ProcessIdOverride, row.Directory), 1);
        EXPECT_EQ(Start(nullptr, 4242, TEXT("C:\\Other")), 1) << "it runs already, and nothing changes";
        EXPECT_EQ(Get(OrvaneMcp_GetServerPath), std::pair(1, row.LauncherPath));
        EXPECT_THAT(FindControlPipes(), ElementsAre(name));
        EXPECT_EQ(Stored(Announcement::ControlServerEnabled), Number(1));
        EXPECT_EQ(Stored(Announcement::ProcessId), Number(GetCurrentProcessId()));
        const std::string bytes(reinterpret_cast<const char*>(name.c_str()), (name.size() + 1) * sizeof(WCHAR));
        EXPECT_EQ(Stored(Announcement::PipeName), std::pair(DWORD{REG_SZ}, bytes)) << "the terminating NUL included";
        OrvaneMcp_StopControlServer();
        EXPECT_EQ(Stored(Announcement::ControlServerEnabled), Number(0));
        EXPECT_EQ(Stored(Announcement::ProcessId).first + Stored(Announcement::PipeName).first, 0u);
        EXPECT_EQ(Get(OrvaneMcp_GetPipeName), std::pair(1, pipe));
        EXPECT_FALSE(*RawClient().Pipe) << "nobody listens after a stop";
    }
}

TEST_F(ServerStart, ReportsAPipeThatCannotBeCreatedAndCanBeRepeated) {
    OwnedHandle taken(CreateNamedPipeW(ControlPipeName(4242).c_str(), PIPE_ACCESS_DUPLEX, 0, 1, 512, 512, 0, nullptr));
    const std::pair<int, std::string> failure(1, "Failed to create Orvane MCP control pipe.");
    EXPECT_EQ(Start(nullptr, 4242), 1);
    EXPECT_TRUE(Eventually([&] { return Get(OrvaneMcp_GetLastError) == failure; }));
    OrvaneMcp_StopControlServer();
    EXPECT_EQ(Get(OrvaneMcp_GetLastError), failure);
    EXPECT_EQ(Start(), 1);
    EXPECT_EQ(Get(OrvaneMcp_GetLastError), std::pair(0, std::string()));
}

TEST_F(Getters, CutTheirTextAndRefuseABufferThatTheyCannotUse) {
    Start();
    SetLastErrorText(TEXT("a failure"));
    for (const auto getter : {OrvaneMcp_GetPipeName, OrvaneMcp_GetServerPath, OrvaneMcp_GetLastError}) {
        const std::string whole = Get(getter).second;
        SCOPED_TRACE(whole);
        EXPECT_EQ(Get(getter, 5), std::pair(1, whole.substr(0, 4)));
        EXPECT_EQ(Get(getter, 1), std::pair(1, std::string()));
        for (const int capacity : {0, -1}) EXPECT_EQ(Get(getter, capacity), std::pair(0, std::string("untouched")));
        EXPECT_EQ(getter(nullptr, 5), 0);
    }
    SetLastErrorText(nullptr);
    EXPECT_EQ(Get(OrvaneMcp_GetLastError), std::pair(0, std::string()));
}

TEST_F(ClientList, ShowsEachClientByItsFirstWriteAndThenByItsRename) {
    const struct {
        std::string FirstWrite, Name, Rename, NewName;
    } rows[] = {
        {"HELLO Inspector \r\n", "Inspector", "\xC3\xA9\xFF ", "\xC3\xA9\xEF\xBF\xBD"},
        {"HELLO\n", "HELLO", "", "MCP client"},
        {"HELLO \n", "MCP client", "codex", "Codex MCP client"},
        {"HELLO a\nGET_NET\t\n", "a\nGET_NET", std::string(128, 'x'), std::string(127, 'x')},
        {std::string("HELLO a\0b (bridge pid 4)\n", 25), "a", "y", "y"},
        {"HELLO x (bridge pid 4)\n", "x (bridge pid 4)", "claude", "Claude MCP client (bridge pid 4)"},
        {"HELLO x (bridge pid 4)\n", "x (bridge pid 4)", "Y (BRIDGE PID 7)", "Y (BRIDGE PID 7) (bridge pid 4)"},
        {"HELLO x (bridge pid 4)\n", "x (bridge pid 4)", "y (bridge pid 7)", "y (bridge pid 7)"},
    };
    OrvaneMcp_StartControlServer(nullptr);
    for (const auto& row : rows) {
        SCOPED_TRACE(row.FirstWrite + row.Rename);
        RawClient client;
        EXPECT_EQ(client.Send(row.FirstWrite) ? client.Read() : "", "OK");
        EXPECT_THAT(ClientNames(), ElementsAre(row.Name));
        EXPECT_EQ(client.Exchange("CLIENT_NAME\t" + row.Rename), "OK\tClient name updated.");
        EXPECT_THAT(ClientNames(), ElementsAre(row.NewName));
        EXPECT_EQ(OrvaneMcp_DisconnectClients(), 1);
        EXPECT_EQ(client.Read(), "<end>");
    }
}

TEST_F(ClientList, TellsTheTimeOfTheConnectionAndRefusesWhatItCannotFill) {
    const auto now = [] {
        char text[64];
        const std::time_t time = std::time(nullptr);
        return std::string(text, std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", std::localtime(&time)));
    };
    Start();
    const std::string before = now();
    const RawClient client("one");
    ClientInfo info{517, {}, {}, {}};
    for (const int index : {-1, 1}) EXPECT_EQ(OrvaneMcp_GetClientInfo(index, &info), 0) << index;
    EXPECT_EQ(OrvaneMcp_GetClientInfo(0, nullptr), 0);
    EXPECT_EQ(OrvaneMcp_GetClientInfo(0, &(info = {515, {}, {}, {}})), 0);
    EXPECT_EQ(*info.DisplayName + *info.Transport + *info.ConnectedAt, 0);
    EXPECT_EQ(OrvaneMcp_GetClientInfo(0, &(info = {516, {}, {}, {}})), 1);
    EXPECT_EQ(WideToUtf8(info.Transport), "stdio bridge");
    EXPECT_LE(before, WideToUtf8(info.ConnectedAt));
    EXPECT_LE(WideToUtf8(info.ConnectedAt), now());
}

TEST_F(ClientSession, TakesTheFirst255BytesForTheGreetingAndTheRestForRequests) {
    Start();
    RawClient client;
    client.Send("HELLO " + std::string(249, 'x') + "GET_BOARD_STATE\n");
    EXPECT_EQ(client.Read(), "OK");
    EXPECT_EQ(client.Read(), "ERR\tOrvane main window is not available.");
}

TEST_F(ClientSession, HandsEachRequestToTheHostByItsIdAndAnswersWithOneLine) {
    const std::string unknown = "ERR\tUnknown Orvane MCP command.";
    struct Row {
        std::string Request, Reply;
    };
    std::vector<Row> rows = {
        {"GET_BOARD_STATE\r", "OK\t2:"},
        {"GET_BOARD_STATE\t", unknown},
        {"FIND_COMPONENTS_UI\tcharger", "OK\t5:SHOW_UI\tcharger"},
        {"GET_NET\ta\\nb\r\r", "OK\t7:a\\\\nb"},
        {"GET_NET", unknown},
        {"get_net\tVCC", unknown},
        {"HELLO again", unknown},
        {std::string("GET_NET\ta\xFF\0b", 12), "OK\t7:a\xEF\xBF\xBD"},
        {"\r\n\nGET_NET\t", "OK\t7:"},
    };
    for (const HostVerb& verb : HostVerbs) {
        const std::string name(verb.Literal.substr(0, verb.Literal.find('\t')));
        if (name == "GET_BOARD_STATE") continue;
        const std::string text = std::string(verb.TextPrefix) + "a b\tc";
        rows.push_back({name + "\ta b\tc", "OK\t" + std::to_string(verb.CommandId) + ":" + text});
    }
    HostWindow host;
    Start(host.Handle);
    RawClient client("one");
    for (const Row& row : rows) EXPECT_EQ(client.Exchange(row.Request), row.Reply) << row.Request;
}

TEST_F(ClientSession, CutsLinesWhereverWritesEndAndCarriesThemOutForAClientThatHasGone) {
    HostWindow host;
    Start(host.Handle);
    RawClient other("other"), client("one");
    client.Send("GET_NET\ta\nGET_NET\tb\nGET_N");
    EXPECT_EQ(client.Read("b\n"), "OK\t7:a\nOK\t7:");
    for (const char byte : std::string("ET\tc\n")) client.Send({&byte, 1});
    EXPECT_EQ(client.Read(), "OK\t7:c");
    const std::string text = std::string(1022, 'x') + "\xF0\x9F\x98\x80" + std::string(1000, 'x');
    EXPECT_EQ(client.Exchange("GET_NET\t" + text), "OK\t7:" + text);
    EXPECT_THAT(ClientNames(), ElementsAre("other", "one"));
    client.Send("GET_NET\td\nGET_NET\te\nGET_NET\tunfinished");
    client.Pipe.reset();
    EXPECT_TRUE(Eventually([] { return ClientNames() == std::vector<std::string>{"other"}; }));
    EXPECT_EQ(host.Commands, 6);
}

TEST_F(ClientSession, LeavesNoThreadAndNoHandleBehind) {
    Start();
    const auto round = [] {
        for (int i = 0; i < 50; ++i) {
            const RawClient silent;
            RawClient("hasty").Send("GET_BOARD_STATE\nGET_NET\thalf a li");
        }
        EXPECT_TRUE(SessionsBecome(0));
        return ThreadsAndHandles();
    };
    EXPECT_EQ(LeftBehind(round), "");
}

TEST_F(ClientSession, EndsItsConnectionAtOnceEvenWhileThePipeIsHeldElsewhere) {
    Start();
    RawClient client("one");
    const std::shared_ptr<PipeInstance> held = ServerState().Clients.at(0).Pipe;
    OrvaneMcp_StopControlServer();
    const HANDLE pipe = client.Pipe->Get();
    EXPECT_TRUE(Eventually([&] { return PeekNamedPipe(pipe, nullptr, 0, nullptr, nullptr, nullptr) == 0; }));
}

TEST_F(ClientSession, HarmsNobodyWhenItOutlivesAStop) {
    std::promise<void> restarted, finish;
    HostWindow second;
    HostWindow first([&](HostCommand& command) {
        OrvaneMcp_StopControlServer();
        EXPECT_EQ(OrvaneMcp_GetClientCount(), 0);
        Start(second.Handle);
        restarted.set_value();
        finish.get_future().wait();
        return Echo(command);
    });
    Start(first.Handle);
    RawClient greeting, old("old");
    EXPECT_TRUE(SessionsBecome(2));
    old.Send("GET_NET\ta\nCLIENT_NAME\trenamed\nGET_NET\tb\n");
    restarted.get_future().wait();
    RawClient fresh("fresh");
    EXPECT_EQ(ServerState().Clients.at(0).Id, 1u) << "the old client's id too";
    EXPECT_EQ(greeting.Exchange("HELLO greeting"), "<end>");
    finish.set_value();
    EXPECT_TRUE(SessionsBecome(1));
    EXPECT_THAT(ClientNames(), ElementsAre("fresh"));
    EXPECT_EQ(fresh.Exchange("GET_NET\tc"), "OK\t7:c");
    EXPECT_EQ(first.Commands + second.Commands, 2);
}

TEST_F(DisconnectClients, FreesASessionThatWritesToAClientThatDoesNotRead) {
    HostWindow host([](HostCommand& command) { return SetLongReply(command, WideString(100000, 'x')), 0; });
    Start(host.Handle);
    RawClient client("deaf");
    client.Send("GET_NET\ta\nGET_NET\tb\nGET_NET\tc\n");
    EXPECT_EQ(client.Read("\t"), "ERR");
    EXPECT_EQ(OrvaneMcp_DisconnectClients(), 1);
    EXPECT_TRUE(SessionsBecome(0));
    EXPECT_EQ(host.Commands, 1);
}

TEST_F(DisconnectClients, FailsOnlyWhenClientsStayThatNobodyCouldDisconnect) {
    HostWindow host([](HostCommand& command) {
        EXPECT_EQ(OrvaneMcp_DisconnectClients(), 1) << "its client stays in the list until the command is done";
        return Echo(command);
    });
    Start(host.Handle);
    EXPECT_EQ(OrvaneMcp_DisconnectClients(), 1) << "there are none";
    EXPECT_EQ(RawClient("one").Exchange("GET_NET\ta"), "<end>");
    EXPECT_TRUE(SessionsBecome(0));
    EXPECT_EQ(
        RegisterClient(TEXT("without a pipe"), std::make_shared<PipeInstance>(OwnedHandle()), ServerState().ServerRun),
        2u);
    EXPECT_EQ(OrvaneMcp_DisconnectClients(), 0);
    EXPECT_THAT(ClientNames(), ElementsAre("without a pipe"));
}
