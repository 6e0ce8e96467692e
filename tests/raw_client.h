/// Bytes through pipes, and a client of this process's control server that says whatever a test wants.
#pragma once

#include "api/exports.h"
#include "control/state.h"

#include <optional>

/// True as soon as `condition` holds; false when it has not come true within half a minute.
template <typename Condition>
bool Eventually(Condition condition) {
    for (const DWORD start = GetTickCount(); GetTickCount() - start < 30000; Sleep(5)) {
        if (condition()) return true;
    }
    return false;
}

/// What comes before `mark`, which is taken as well, or before the end of the stream, which adds "<end>".
inline std::string ReadUntil(HANDLE from, std::string_view mark) {
    std::string text;
    DWORD count = 0;
    for (char byte = 0; !text.ends_with(mark); text += byte) {
        if (ReadFile(from, &byte, 1, &count, nullptr) == 0) return text + "<end>";
    }
    return text.substr(0, text.size() - mark.size());
}

inline bool WriteBytes(HANDLE to, std::string_view bytes) {
    DWORD written = 0;
    return WriteFile(to, bytes.data(), static_cast<DWORD>(bytes.size()), &written, nullptr) != 0;
}

struct RawClient {
    std::optional<OwnedHandle> Pipe{std::in_place};

    /// Connects, after as many attempts as the listener needs to have an instance free.
    RawClient() {
        WCHAR name[128];
        OrvaneMcp_GetPipeName(name, 128);
        Eventually([&] {
            Pipe.emplace(CreateFileW(name, GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, 0, nullptr));
            return *Pipe || !ServerState().Running;
        });
    }
    explicit RawClient(const std::string& name) : RawClient() { Exchange("HELLO " + name); }
    /// A client of another process's server.
    RawClient(const WideString& pipe, const std::string& name) {
        Eventually([&] {
            Pipe.emplace(
                CreateFileW(pipe.c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, 0, nullptr));
            return static_cast<bool>(*Pipe);
        });
        Exchange("HELLO " + name);
    }
    bool Send(std::string_view bytes) { return WriteBytes(Pipe->Get(), bytes); }
    std::string Read(std::string_view mark = "\n") { return ReadUntil(Pipe->Get(), mark); }
    std::string Exchange(const std::string& line) { return Send(line + "\n") ? Read() : "<end>"; }
};
