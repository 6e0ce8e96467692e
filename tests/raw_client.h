/// Bytes through pipes, and a client of this process's control server that says whatever a test wants.
#pragma once

#include "api/exports.h"
#include "control/state.h"
#include "platform/process_table.h"

#include <filesystem>
#include <fstream>
#include <optional>
#include <unistd.h>
#include <vector>

/// True as soon as `condition` holds; false when it has not come true within half a minute.
template <typename Condition>
bool Eventually(Condition condition) {
    for (const DWORD start = GetTickCount(); GetTickCount() - start < 30000; Sleep(5)) {
        if (condition()) return true;
    }
    return false;
}

/// The bytes of a file.
inline std::string FileText(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

/// The threads and open handles of this process at this moment.
inline std::string CountThreadsAndHandles() {
#if defined(_WIN32)
    const OwnedHandle newest = TakeProcessSnapshot();
    const auto threads = FindProcessEntry(newest, GetCurrentProcessId()).cntThreads;
    // Asks for each value that a handle is likely to have, as Wine keeps no count.
    int handles = 0;
    for (std::uintptr_t value = 4; value <= 0x4000; value += 4) {
        handles += SetHandleInformation(reinterpret_cast<HANDLE>(value), 0, 0);
    }
#else
    const auto entries = [](const char* directory) {
        return std::distance(std::filesystem::directory_iterator(directory), {});
    };
    const auto threads = entries("/proc/self/task"), handles = entries("/proc/self/fd");
#endif
    return std::to_string(threads) + " threads, " + std::to_string(handles) + " handles";
}

/// Repeats `round`, which says what is in use after it, until it says the same twice. Returns "" then, else what was in
/// use after each of `rounds`. One round may add something: a lock that has to wait for the first time keeps an event.
template <typename Round>
std::string LeftBehind(Round round, int rounds = 4) {
    std::string left, used;
    for (; rounds > 0; --rounds, left += used + "; ") {
        const std::string before = std::exchange(used, round());
        if (used == before) return "";
    }
    return left;
}

/// The same, once it stays the same: threads take a moment to leave.
inline std::string ThreadsAndHandles() {
    std::string used;
    Eventually([&] { return std::exchange(used, CountThreadsAndHandles()) == used; });
    return used;
}

/// Reads a stream from mark to mark. Takes the bytes in the pieces they come in, and keeps what follows a mark.
struct MarkedReader {
    std::string Pending;

    /// What comes before `mark`, which is taken as well, or before the end of the stream, which adds "<end>".
    /// `readSome` fills a buffer of a size and returns how many bytes it got, 0 at the end.
    template <typename ReadSome>
    std::string Until(std::string_view mark, ReadSome readSome) {
        std::size_t found = 0;
        for (std::size_t searched = 0; (found = Pending.find(mark, searched)) == std::string::npos;) {
            searched = Pending.size() - std::min(Pending.size(), mark.size() - 1);
            char piece[65536];
            const std::size_t count = readSome(piece, sizeof piece);
            if (count == 0) return std::exchange(Pending, {}) + "<end>";
            Pending.append(piece, count);
        }
        const std::string before = Pending.substr(0, found);
        Pending.erase(0, found + mark.size());
        return before;
    }
    std::string Until(std::string_view mark, HANDLE from) {
        return Until(mark, [from](char* buffer, DWORD size) -> std::size_t {
            DWORD count = 0;
            return ReadFile(from, buffer, size, &count, nullptr) != 0 ? count : 0;
        });
    }
};

inline bool WriteBytes(HANDLE to, std::string_view bytes) {
    DWORD written = 0;
    return WriteFile(to, bytes.data(), static_cast<DWORD>(bytes.size()), &written, nullptr) != 0;
}

struct RawClient {
    std::optional<OwnedHandle> Pipe{std::in_place};
    MarkedReader Reader;

    /// A client of this process's server, or of the one that serves `pipe`. Connects after as many attempts as the
    /// listener needs to have an instance free; gives up when this process's server has stopped.
    explicit RawClient(const WideString& pipe = OwnPipe()) {
        Eventually([&] {
            Pipe.emplace(
                CreateFileW(pipe.c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, 0, nullptr));
            return *Pipe || (!ServerState().Running && pipe == OwnPipe());
        });
    }
    explicit RawClient(const std::string& name, const WideString& pipe = OwnPipe()) : RawClient(pipe) {
        Exchange("HELLO " + name);
    }
    static WideString OwnPipe() { return ServerState().PipeName; }
    bool Send(std::string_view bytes) { return WriteBytes(Pipe->Get(), bytes); }
    std::string Read(std::string_view mark = "\n") { return Reader.Until(mark, Pipe->Get()); }
    std::string Exchange(const std::string& line) { return Send(line + "\n") ? Read() : "<end>"; }
};
