/// Real processes and many clients under load, while viewers die and servers stop. Every call must come to exactly one
/// result, and nothing may hang. Run in the folder of the programs; the argument is about how many seconds each
/// open-ended part takes.

#include "../child_process.h"
#include "../host_window.h"
#include "control/clients.h"
#include "protocol/control_protocol.h"

#include <iostream>
#include <random>

namespace {

std::atomic<long> calls = 0, results = 0, doubled = 0, hung = 0;

void Say(const std::string& text) {
    std::cout << "stress: " << text << std::endl;
}

DWORD Random(DWORD below) {
    static thread_local std::mt19937 generator{std::random_device{}()};
    return static_cast<DWORD>(generator() % below);
}

/// Waits for threads that should end soon; a part that hangs is said and ends the run, since it can't be joined.
void JoinAll(std::vector<std::thread>& threads, const std::atomic<int>& running, const std::string& part) {
    if (!Eventually([&] { return running == 0; })) {
        Say(part + ": " + std::to_string(running) + " hang");
        std::_Exit(1);
    }
    for (std::thread& thread : threads) thread.join();
}

// ---- The viewer -----------------------------------------------------------------------------------------------------

WideString LongText() {
    return WideString(5 * 1024 * 1024, 'x') + WideString(5 * 1024 * 1024, WCHAR(0xb5));
}

/// A host with moods: the text of a command says how to answer.
LRESULT Answer(HostCommand& command) {
    const std::string text = WideToUtf8(command.LongText);
    const WCHAR odd[] = {'a', 0xd800, 'b', 0xdc00, 0xd800, 'c', 0, 'd'};
    if (text == "slow") Sleep(300);
    if (text == "fail") return 0;
    if (text == "nothing") return command.Success = 1;
    if (text == "long") SetLongReply(command, LongText());
    if (text == "odd") SetLongReply(command, WideView(odd, std::size(odd)));
    return command.LongReply ? command.Success = 1 : Echo(command);
}

/// The program as a viewer: serves until its input ends or it is killed.
int RunViewer() {
    HostWindow host(Answer);
    if (ServerTest::Start(host.Handle) != 1) return 1;
    std::cout << "serving" << std::endl;
    while (std::cin.get() != EOF) {
    }
    OrvaneMcp_StopControlServer();
    return 0;
}

std::unique_ptr<ChildProcess> StartViewer(const WideString& self) {
    auto viewer = std::make_unique<ChildProcess>(self, std::vector<std::string>{"--viewer"});
    if (viewer->Read("serving") != "") Say("the viewer did not start"), ++hung;
    return viewer;
}

// ---- Bridges --------------------------------------------------------------------------------------------------------

struct Bridge {
    ChildProcess Process{TEXT("./orvane_mcp.exe")};
    int LastId = 0;
    std::atomic<DWORD> LastSuccess = 0;  // tick

    /// Calls select_net and gives the body of the result.
    std::string Call(const std::string& net) {
        const std::string id = std::to_string(++LastId);
        ++calls;
        Process.Send(R"({"jsonrpc":"2.0","id":)" + id + R"(,"method":"tools/call","params":{"name":"select_net",)" +
                     R"("arguments":{"net":")" + net + "\"}}}\n");
        const std::string reply = Process.Read("\n");
        if (reply.ends_with("<end>")) return reply;  // lost: no result is counted
        const bool good = reply.ends_with(R"("isError":false}})");
        const bool told = reply.find("Failed to send command to Orvane.") != std::string::npos ||
                          reply.find("Orvane main window is not available.") != std::string::npos ||
                          reply.find("Orvane command failed.") != std::string::npos;
        ++(reply.starts_with(R"({"jsonrpc":"2.0","id":)" + id + ",") && (good || told) ? results : doubled);
        if (good) LastSuccess = GetTickCount();
        return reply;
    }

    /// Ends the input and sees the bridge end with nothing more to say.
    void End() {
        Process.Input.reset();
        if (Process.Read("\n") != "<end>") ++doubled;
        if (Process.WaitForExitCode() != 0) ++hung;
    }
};

/// 20 bridges call without pause while the viewer is killed and started again.
void BridgesAndRestarts(const WideString& self, int restarts) {
    std::vector<std::unique_ptr<Bridge>> bridges;
    for (int i = 0; i < 20; ++i) bridges.push_back(std::make_unique<Bridge>());
    std::atomic<bool> done = false;
    std::atomic<int> running = 20;
    std::vector<std::thread> threads;
    for (const auto& bridge : bridges) {
        threads.emplace_back([&, one = bridge.get()] {
            while (!done) one->Call("net");
            --running;
        });
    }
    DWORD worst = 0;
    for (int i = 1; i <= restarts; ++i) {
        const auto viewer = StartViewer(self);
        const DWORD back = GetTickCount();
        if (i % 10 != 0) {
            Sleep(50 + Random(400));
            viewer->Kill();
            continue;
        }
        const bool all = Eventually([&] {
            return std::all_of(bridges.begin(), bridges.end(), [&](const auto& bridge) {
                return static_cast<std::int32_t>(bridge->LastSuccess - back) > 0;
            });
        });
        worst = std::max(worst, GetTickCount() - back);
        if (!all || GetTickCount() - back > 3000) ++hung;
        Say("viewer killed " + std::to_string(i) + " times, every bridge works again after " + std::to_string(worst) +
            " ms at most");
        viewer->Kill();
    }
    done = true;
    JoinAll(threads, running, "bridges");
    for (const auto& bridge : bridges) bridge->End();
}

/// What a host can hold against the bridge, one result each.
void OddHosts(const WideString& self) {
    const auto viewer = StartViewer(self);
    Bridge bridge;
    const auto check = [&](const std::string& net, const std::string& text, const char* isError) {
        const std::string body = bridge.Call(net);
        const std::string expected = R"("text":")" + text + R"("}],"isError":)" + isError + "}}";
        if (!body.ends_with(expected)) Say("a host that is '" + net + "' is answered wrongly"), ++doubled;
    };
    check("slow", "1:slow", "false");
    check("fail", "Orvane command failed.", "true");
    check("nothing", "OK", "false");
    check("odd",
          "a\xef\xbf\xbd"
          "b\xef\xbf\xbd\xef\xbf\xbd"
          "c",
          "false");
    check("long", WideToUtf8(LongText()), "false");
    check("net", "1:net", "false");
    bridge.End();
    viewer->Input.reset();
    if (viewer->WaitForExitCode() != 0) ++hung;
    Say("hosts that are slow, fail, or reply with nothing, 10 MB and broken text are answered for");
}

// ---- Raw clients ---------------------------------------------------------------------------------------------------

/// 250 clients at once, their lines cut at random, several in a write, every tenth with one of 64 KB.
void ManyRawClients() {
    HostWindow host;
    ServerTest::Start(host.Handle);
    std::atomic<int> running = 250;
    std::vector<std::thread> threads;
    for (int number = 0; number < 250; ++number) {
        threads.emplace_back([&, number] {
            RawClient client("client " + std::to_string(number));
            std::vector<std::string> payloads;
            for (int i = 0; i < 20; ++i) payloads.push_back(std::to_string(number) + "." + std::to_string(i));
            if (number % 10 == 0) payloads.insert(payloads.begin() + 10, std::string(64 * 1024, 'y'));
            std::string bytes;
            for (const std::string& payload : payloads) bytes += "GET_NET\t" + payload + "\n";
            calls += static_cast<long>(payloads.size());
            // A client that writes all before it reads would wait for a server that waits for it.
            std::thread writer([&] {
                for (std::size_t at = 0; at < bytes.size();) {
                    const std::size_t cut = std::min<std::size_t>(bytes.size() - at, 1 + Random(900));
                    client.Send(std::string_view(bytes).substr(at, cut));
                    at += cut;
                }
            });
            for (const std::string& payload : payloads) {
                const std::string reply = client.Read();
                if (reply.ends_with("<end>")) break;
                ++(reply == "OK\t7:" + payload ? results : doubled);
            }
            writer.join();
            --running;
        });
    }
    Eventually([&] { return running == 0; });  // the long lines take their time
    JoinAll(threads, running, "raw clients");
    OrvaneMcp_StopControlServer();
    Say("250 raw clients at once got their replies");
}

// ---- Starts and stops -----------------------------------------------------------------------------------------------

/// Where the sessions are that are counted in this process, such as "1 greeting, ".
std::string SessionsByStage() {
    const char* const names[] = {"starting", "greeting", "polling", "in a command", "ending"};
    std::string text;
    for (std::size_t i = 0; i < std::size(names); ++i) {
        if (const int count = ServerState().SessionsByStage[i]) text += std::to_string(count) + " " + names[i] + ", ";
    }
    return text;
}

/// The program as a host that starts and stops its server without a pause, or with one of up to 40 ms. Then a line of
/// input tells it that all clients have gone: a second later no session may be left.
int RunRestartingHost(int rounds) {
    constexpr DWORD stopLimit = 2000;
    HostWindow host;
    DWORD longest = 0;
    int atLimit = 0;
    for (int i = 0; i < rounds; ++i) {
        ServerTest::Start(host.Handle);
        if (i == 0) std::cout << "serving" << std::endl;
        Sleep(Random(3) == 0 ? 0 : Random(40));
        const DWORD start = GetTickCount();
        OrvaneMcp_StopControlServer();
        longest = std::max(longest, GetTickCount() - start);
        if (GetTickCount() - start < stopLimit) continue;
        ++atLimit;
        std::cout << "stop " << i << " ran into its limit: " << SessionsByStage() << std::endl;
    }
    std::cout << rounds << " starts and stops, the longest stop " << longest << " ms" << std::endl
              << "done" << std::endl;
    std::cin.get();
    Sleep(1000);
    const int left = ServerState().ActiveSessions;
    std::cout << atLimit << " stops at their limit, " << left << " sessions left: " << SessionsByStage() << std::endl;
    return atLimit == 0 && left == 0 && OrvaneMcp_GetClientCount() == 0 ? 0 : 1;
}

/// How a client behaves towards a server that comes and goes.
enum class Visit { Greets, LeavesAtOnce, StaysUntilTheEnd };

void VisitOnce(const WideString& pipe, Visit visit) {
    OwnedHandle client(CreateFileW(pipe.c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, 0, nullptr));
    if (!client || visit == Visit::LeavesAtOnce) return Sleep(0);
    WriteBytes(client.Get(), "HELLO passing\n");
    if (visit == Visit::StaysUntilTheEnd) {
        for (MarkedReader reader; reader.Until("\n", client.Get()) != "<end>";) {
        }
        return;
    }
    DWORD available = 0;
    for (const DWORD start = GetTickCount(); available < 3 && GetTickCount() - start < 1000; Sleep(1)) {
        if (PeekNamedPipe(client.Get(), nullptr, 0, nullptr, &available, nullptr) == 0) return;
    }
}

/// A host's starts and stops while clients come and go and the processors have more to do than they can.
void StartsAndStops(const WideString& self, int rounds) {
    ChildProcess host(self, {"--restarting", std::to_string(rounds)});
    if (host.Read("serving") != "") Say("the host did not start"), ++hung;
    const WideString pipe = ControlPipeName(host.Id);
    std::atomic<bool> done = false;
    std::atomic<int> running = 0;
    std::vector<std::thread> threads;
    const auto repeat = [&](auto body) {
        ++running;
        threads.emplace_back([&done, &running, body] {
            while (!done) body();
            --running;
        });
    };
    for (const Visit visit : {Visit::Greets, Visit::Greets, Visit::LeavesAtOnce, Visit::StaysUntilTheEnd}) {
        repeat([&pipe, visit] { VisitOnce(pipe, visit); });
    }
    for (int i = 0; i < 2; ++i) repeat([] {});  // idle loops that keep the processors busy
    const std::string told = host.Read("done\n");
    done = true;
    JoinAll(threads, running, "clients of a host that restarts its server");
    host.Send("\n");
    const std::string left = host.Read("<no mark>");
    if (host.WaitForExitCode() != 0) ++hung;
    Say(told + left);
}

/// Clients that stop reading, never greet or go away in the middle, with disconnects and stops in between. Gives the
/// threads and handles that are in use after them.
std::string BadClients(HWND host, DWORD seconds) {
    for (const DWORD start = GetTickCount(); GetTickCount() - start < seconds * 1000;) {
        ServerTest::Start(host);
        {
            std::vector<std::unique_ptr<RawClient>> mute, deaf;
            std::atomic<int> running = 5;
            std::vector<std::thread> threads;
            for (int i = 0; i < 5; ++i) {
                mute.push_back(std::make_unique<RawClient>());
                deaf.push_back(std::make_unique<RawClient>("deaf"));
                threads.emplace_back([&, client = deaf.back().get()] {
                    std::string requests;
                    for (int k = 0; k < 200; ++k) requests += "GET_NET\tsome net with a name\n";
                    client->Send(requests);  // blocks until the connection is ended
                    --running;
                });
                RawClient("gone").Send("GET_NET\thalf a li");
            }
            Sleep(Random(300));
            if (Random(3) == 0) {
                // The sessions that outlive a stop are on no list: they end when their clients give up.
                OrvaneMcp_StopControlServer();
                ServerTest::Start(host);
                Eventually([&] {
                    for (const auto& client : deaf) CancelIoEx(client->Pipe->Get(), nullptr);
                    return running == 0;
                });
            } else {
                OrvaneMcp_DisconnectClients();
            }
            JoinAll(threads, running, "deaf clients");
        }
        OrvaneMcp_StopControlServer();
    }
    const bool gone = Eventually([] { return ServerState().ActiveSessions == 0 && OrvaneMcp_GetClientCount() == 0; });
    if (!gone) Say("bad clients leave sessions or records"), ++hung;
    const std::string used = ThreadsAndHandles();
    Say("bad clients have come and gone, in use are " + used);
    return used;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc > 1 && argv[1] == std::string("--viewer")) return RunViewer();
    if (argc > 2 && argv[1] == std::string("--restarting")) return RunRestartingHost(std::atoi(argv[2]));
    const DWORD seconds = argc > 1 ? static_cast<DWORD>(std::atoi(argv[1])) : 60;
    const WideString self = Utf8ToWide(argv[0]);
    if (argc > 2 && argv[1] == std::string("--starts-and-stops")) {
        for (int times = std::atoi(argv[2]); times > 0; --times) StartsAndStops(self, 1000);
        return hung == 0 ? 0 : 1;
    }
    OddHosts(self);
    BridgesAndRestarts(self, static_cast<int>(std::max<DWORD>(100, seconds)));
    ManyRawClients();
    StartsAndStops(self, 1000);
    HostWindow host;
    if (LeftBehind([&] { return BadClients(host.Handle, 1 + seconds / 4); }) != "")
        Say("they leave more each time"), ++hung;
    const long lost = calls - results - doubled;
    Say(std::to_string(calls) + " calls, " + std::to_string(results) + " results, " + std::to_string(lost) + " lost, " +
        std::to_string(doubled) + " doubled, " + std::to_string(hung) + " hung");
    return lost == 0 && doubled == 0 && hung == 0 && testing::UnitTest::GetInstance()->Passed() ? 0 : 1;
}
