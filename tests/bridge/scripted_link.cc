#include "bridge/scripted_link.h"

#include <cstdlib>
#include <new>

ScriptedLink Link;
std::size_t LargestAllocation = NoLimit;

bool EnsureControlConnection(DWORD timeoutMs) {
    if (Link.WrittenBeforeConnecting < 0) Link.WrittenBeforeConnecting = std::ftell(stdout);
    Link.Calls.push_back(std::to_string(timeoutMs));
    return Link.CanConnect;
}

std::optional<std::string> SendControlLine(std::string_view line) {
    Link.Calls.emplace_back(line);
    return Link.Answer(line);
}

std::string LastClientName() {
    return Link.ClientName;
}

void* operator new(std::size_t size) {
    void* const block = size <= LargestAllocation ? std::malloc(size) : nullptr;
    if (block == nullptr) throw std::bad_alloc();
    return block;
}

void operator delete(void* block) noexcept {
    std::free(block);
}

void operator delete(void* block, std::size_t) noexcept {
    std::free(block);
}
