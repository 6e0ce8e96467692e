#include "standin/windows.h"

#include <cerrno>
#include <cstdint>
#include <time.h>

// File times count 100 ns from the first day of 1601; the machine counts from the first day of 1970.
constexpr std::int64_t TicksPerSecond = 10'000'000;
constexpr std::int64_t SecondsToUnixEpoch = 11'644'473'600;

static std::int64_t Ticks(const FILETIME& time) {
    return static_cast<std::int64_t>(static_cast<std::uint64_t>(time.dwHighDateTime) << 32 | time.dwLowDateTime);
}

static FILETIME FileTime(std::int64_t ticks) {
    const auto bits = static_cast<std::uint64_t>(ticks);
    return {static_cast<DWORD>(bits), static_cast<DWORD>(bits >> 32)};
}

static time_t UnixSeconds(const FILETIME& time) {
    return Ticks(time) / TicksPerSecond - SecondsToUnixEpoch;
}

DWORD GetTickCount() {
    timespec now = {};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<DWORD>(now.tv_sec * 1000 + now.tv_nsec / 1'000'000);
}

void Sleep(DWORD milliseconds) {
    timespec left = {static_cast<time_t>(milliseconds / 1000), static_cast<long>(milliseconds % 1000) * 1'000'000};
    while (nanosleep(&left, &left) != 0 && errno == EINTR) {
    }
}

void GetSystemTimeAsFileTime(FILETIME* time) {
    timespec now = {};
    clock_gettime(CLOCK_REALTIME, &now);
    *time = FileTime((now.tv_sec + SecondsToUnixEpoch) * TicksPerSecond + now.tv_nsec / 100);
}

BOOL FileTimeToLocalFileTime(const FILETIME* utc, FILETIME* local) {
    const time_t seconds = UnixSeconds(*utc);
    tm fields = {};
    tzset();
    if (localtime_r(&seconds, &fields) == nullptr) return FALSE;
    *local = FileTime(Ticks(*utc) + fields.tm_gmtoff * TicksPerSecond);
    return TRUE;
}

BOOL FileTimeToSystemTime(const FILETIME* time, SYSTEMTIME* fields) {
    const time_t seconds = UnixSeconds(*time);
    tm parts = {};
    if (Ticks(*time) < 0 || gmtime_r(&seconds, &parts) == nullptr) return FALSE;
    const auto word = [](std::int64_t value) { return static_cast<WORD>(value); };
    *fields = {
        word(parts.tm_year + 1900), word(parts.tm_mon + 1), word(parts.tm_wday), word(parts.tm_mday),
        word(parts.tm_hour),        word(parts.tm_min),     word(parts.tm_sec),  word(Ticks(*time) / 10'000 % 1000)};
    return TRUE;
}
