/// What the project expects of the system, as scenarios with their outcomes: the same table in both lanes, so the
/// native lane's stand-in is held to what Windows does, step by step.

#include "child_process.h"
#include "platform/module.h"
#include "protocol/control_protocol.h"

#include <functional>
#include <future>
#include <gtest/gtest.h>
#include <map>
#include <sstream>

namespace {

std::string Outcome(BOOL succeeded) {
    return succeeded ? "ok" : std::string("e").append(std::to_string(GetLastError()));
}

/// Steps in the order of a story, and what each comes to.
struct Story {
    const char* Name;
    const char* Steps;
    const char* Outcomes;
};

/// Takes each step, an action with a number behind a colon, and gives the outcomes.
template <typename Take>
std::string TellSteps(const std::string& steps, Take take) {
    std::istringstream stream(steps);
    std::string outcomes;
    for (std::string step; stream >> step;) {
        const std::size_t colon = std::min(step.find(':'), step.size());
        const DWORD number = colon < step.size() ? static_cast<DWORD>(std::stoul(step.substr(colon + 1))) : 0;
        outcomes.append(outcomes.empty() ? "" : " ").append(take(step.substr(0, colon), number));
    }
    return outcomes;
}

/// One pipe with a server's end and a client's, driven by steps such as "s.write:600". A step's outcome is "ok", the
/// bytes that it came to, or "e" and the error. "&" starts a step on a thread of its own, "join" gives what it came to.
class PipeStory {
  public:
    std::string Take(const std::string& action, DWORD number) {
        if (action == "join") return std::exchange(background_, {}).get();
        if (action[0] != '&') return Prepare(action, number)();
        background_ = std::async(std::launch::async, Prepare(action.substr(1), number));
        return "&";
    }

  private:
    /// The call that a step stands for. Its handle is looked up here: a call on another thread leaves the ends alone.
    std::function<std::string()> Prepare(const std::string& action, DWORD number) {
        if (action == "create") {
            return [this] {
                return Opened("s", CreateNamedPipeW(name_.c_str(), PIPE_ACCESS_DUPLEX, PIPE_WAIT,
                                                    PIPE_UNLIMITED_INSTANCES, 512, 512, 0, nullptr));
            };
        }
        if (action == "open" || action == "again") {
            return [this, action] {
                return Opened(action == "open" ? "c" : "again", CreateFileW(name_.c_str(), GENERIC_READ | GENERIC_WRITE,
                                                                            0, nullptr, OPEN_EXISTING, 0, nullptr));
            };
        }
        if (action == "wait") return [this, number] { return Outcome(WaitNamedPipeW(name_.c_str(), number)); };
        if (action.substr(1) == ".close") return [this, action] { return ends_.erase(action.substr(0, 1)), "ok"; };
        return [this, end = ends_.at(action.substr(0, 1)).Get(), call = action.substr(2), number]() -> std::string {
            if (call != "cancel") return Call(end, call, number);
            // One cancel may come before the call that it is meant for.
            return Eventually([&] {
                CancelIoEx(end, nullptr);
                return background_.wait_for(std::chrono::seconds(0)) == std::future_status::ready;
            })
                       ? "ok"
                       : "never";
        };
    }

    static std::string Call(HANDLE end, const std::string& call, DWORD number) {
        DWORD count = 0;
        std::string bytes(number, 'x');
        if (call == "connect") return Outcome(ConnectNamedPipe(end, nullptr));
        if (call == "disconnect") return Outcome(DisconnectNamedPipe(end));
        if (call == "peek") return Counted(PeekNamedPipe(end, nullptr, 0, nullptr, &count, nullptr), count);
        if (call == "read") return Counted(ReadFile(end, bytes.data(), number, &count, nullptr), count);
        if (call == "write") return Counted(WriteFile(end, bytes.data(), number, &count, nullptr), count);
        // "sees" waits for the bytes of a background step.
        const bool seen = Eventually([&] { return Call(end, "peek", 0) == std::to_string(number); });
        return seen ? "ok" : "never";
    }

    std::string Opened(const std::string& end, HANDLE handle) {
        if (handle == INVALID_HANDLE_VALUE) return Outcome(FALSE);
        ends_.erase(end);
        ends_.emplace(end, handle);
        return "ok";
    }
    static std::string Counted(BOOL succeeded, const DWORD& count) {
        return succeeded ? std::to_string(count) : Outcome(FALSE);
    }

    const WideString name_ = ControlPipeName(GetCurrentProcessId()) + TEXT("_story");
    std::map<std::string, OwnedHandle> ends_;
    std::future<std::string> background_;
};

TEST(Platform, PipesBehaveInBothLanes) {
    const Story stories[] = {
        {"nobody serves", "open wait:50", "e2 e2"},
        {"a client comes before the server waits", "create wait:50 open s.connect s.connect", "ok ok ok e535 e535"},
        {"a free instance beside a taken one", "create open s.connect create again", "ok ok e535 ok ok"},
        {"a closed instance leaves nothing behind", "create open s.connect s.close again c.read:9 c.write:1",
         "ok ok e535 ok e2 e109 e232"},
        {"a client comes and goes", "create open c.close s.connect", "ok ok ok e232"},
        {"bytes both ways", "create open s.connect c.write:5 s.peek s.read:3 s.peek s.read:9 s.write:2 c.read:9",
         "ok ok e535 5 5 3 2 2 2 2"},
        {"unread bytes outlive the client",
         "create open s.connect c.write:4 c.close s.peek s.read:9 s.peek s.read:1 s.write:1",
         "ok ok e535 4 ok 4 4 e109 e109 e232"},
        {"a disconnect drops what is unread",
         "create open s.connect c.write:4 s.write:4 s.disconnect s.peek s.read:4 "
         "s.write:1 c.read:4 c.write:1",
         "ok ok e535 4 4 ok e230 e233 e233 e233 e233"},
        {"512 bytes fit without a reader", "create open s.connect s.write:512 c.peek", "ok ok e535 512 512"},
        {"one byte more waits for a reader", "create open s.connect &s.write:600 c.sees:600 c.read:100 join c.read:900",
         "ok ok e535 & ok 100 600 500"},
        {"a waiting write sees the client go", "create open s.connect &s.write:900 c.sees:900 c.close join",
         "ok ok e535 & ok ok e109"},
        {"a disconnect frees a waiting write of the client",
         "create open s.connect &c.write:900 s.sees:900 s.disconnect join", "ok ok e535 & ok ok e233"},
        {"a waiting read sees the server go", "create open s.connect &c.read:9 s.close join", "ok ok e535 & ok e109"},
        {"a cancelled read", "create open s.connect &c.read:9 c.cancel join s.write:1 c.read:9",
         "ok ok e535 & ok e995 1 1"},
        {"a cancelled write", "create open s.connect &s.write:900 c.sees:900 s.cancel join", "ok ok e535 & ok ok e995"},
        {"a cancelled wait for a client", "create &s.connect s.cancel join open s.connect", "ok & ok e995 ok e535"},
    };
    for (const Story& story : stories) {
        PipeStory pipe;
        const auto take = [&pipe](const std::string& action, DWORD number) { return pipe.Take(action, number); };
        EXPECT_EQ(TellSteps(story.Steps, take), story.Outcomes) << story.Name;
    }
}

/// The process table's entry of `processId`, as "child" of this process, "stranger", or "none".
std::string Listed(DWORD processId) {
    const PROCESSENTRY32W entry = FindProcessEntry(TakeProcessSnapshot(), processId);
    if (entry.th32ProcessID == 0) return "none";
    const bool named = ModulePath(nullptr).ends_with(entry.szExeFile);
    return named && entry.th32ParentProcessID == GetCurrentProcessId() ? "child" : "stranger";
}

/// What steps come to on a process of this program: "open", "ask" and "hold" replace the handle that its start gave by
/// one for everything, for questions or for waiting; "end" has it end by itself.
std::string TellOfProcess(const std::string& steps) {
    ChildProcess child(ModulePath(nullptr), TEXT("--host stay"));
    EXPECT_EQ(child.Read("\n"), "serving");
    std::optional<OwnedHandle> opened;
    const std::map<std::string, DWORD> rights = {
        {"open", PROCESS_TERMINATE | PROCESS_QUERY_LIMITED_INFORMATION | SYNCHRONIZE},
        {"ask", PROCESS_QUERY_LIMITED_INFORMATION},
        {"hold", SYNCHRONIZE},
    };
    const auto take = [&](const std::string& action, DWORD number) -> std::string {
        const HANDLE process = opened ? opened->Get() : child.Process->Get();
        DWORD count = number;
        WCHAR path[1024];
        if (const auto right = rights.find(action); right != rights.end()) {
            opened.emplace(OpenProcess(right->second, FALSE, child.Id));
            return Outcome(static_cast<bool>(*opened));
        }
        if (action == "end") return child.Input.reset(), std::to_string(child.WaitForExitCode());
        if (action == "listed") return Listed(child.Id);
        if (action == "kill") return Outcome(TerminateProcess(process, number));
        if (action == "code") return GetExitCodeProcess(process, &count) ? std::to_string(count) : Outcome(FALSE);
        if (action == "wait") {
            count = WaitForSingleObject(process, number);
            return count == WAIT_FAILED ? Outcome(FALSE) : std::to_string(count);
        }
        if (QueryFullProcessImageNameW(process, 0, path, &count) == 0) return Outcome(FALSE);
        return WideView(path, count) == ModulePath(nullptr) ? "own" : "other";
    };
    return TellSteps(steps, take);
}

TEST(Platform, ProcessesBehaveInBothLanes) {
    const Story stories[] = {
        {"one that runs", "listed wait:0 wait:1 code path:1024 open wait:0 code path:1024 path:1 path:9",
         "child 258 258 259 own ok 258 259 own e122 e122"},
        {"a handle for questions", "ask code path:1024 wait:0 kill:3", "ok 259 own e5 e5"},
        {"a handle for waiting", "hold wait:0 code path:1024 kill:3", "ok 258 e5 e5 e5"},
        {"one that ends by itself", "open end wait:0 code listed", "ok 0 0 0 none"},
        {"one that is killed with a running one's code", "open kill:259 wait:60000 code listed", "ok ok 0 259 none"},
        {"one that has ended, with a handle left", "end ask code hold wait:60000", "0 ok 0 ok 0"},
    };
    for (const Story& story : stories) EXPECT_EQ(TellOfProcess(story.Steps), story.Outcomes) << story.Name;
}

TEST(Platform, TheRegistryBehavesInBothLanes) {
    HKEY key = nullptr;
    const auto reads = [&](DWORD room) {
        BYTE data[64];
        DWORD type = 0, size = room;
        const LSTATUS status = RegQueryValueExW(key, TEXT("value"), nullptr, &type, data, &size);
        return std::to_string(status) + ":" + std::to_string(type) + ":" + std::to_string(size);
    };
    EXPECT_EQ(RegOpenKeyExW(HKEY_CURRENT_USER, TEXT("Software\\Orvane\\None"), 0, KEY_QUERY_VALUE, &key), 2);
    ASSERT_EQ(RegCreateKeyExW(HKEY_CURRENT_USER, TEXT("Software\\Orvane\\Test"), 0, nullptr, 0,
                              KEY_SET_VALUE | KEY_QUERY_VALUE, nullptr, &key, nullptr),
              0);
    OwnedRegistryKey owned(key);
    EXPECT_EQ(RegDeleteValueW(key, TEXT("Value")), 2);
    const BYTE data[] = {1, 2, 3, 4, 5, 6};
    EXPECT_EQ(RegSetValueExW(key, TEXT("Value"), 0, REG_BINARY, data, 6), 0);
    EXPECT_EQ(reads(64), "0:3:6");
    EXPECT_EQ(reads(5), "234:3:6") << "too little room tells how much is needed";
    EXPECT_EQ(RegSetValueExW(key, TEXT("VALUE"), 0, REG_DWORD, data, 4), 0) << "names have no case";
    EXPECT_EQ(reads(64), "0:4:4");
    ASSERT_EQ(RegOpenKeyExW(HKEY_CURRENT_USER, TEXT("software\\orvane\\test"), 0, KEY_QUERY_VALUE, &key), 0);
    const OwnedRegistryKey reader(key);
    EXPECT_EQ(RegSetValueExW(key, TEXT("Value"), 0, REG_DWORD, data, 4), 5) << "a key opened for reading takes nothing";
    EXPECT_EQ(RegDeleteValueW(owned.get(), TEXT("Value")), 0);
}

}  // namespace
