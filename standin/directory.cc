#include "standin/directory.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <dirent.h>
#include <fcntl.h>
#include <fstream>
#include <memory>
#include <sstream>
#include <sys/file.h>
#include <sys/stat.h>

namespace {

std::string ChooseDirectory() {
    if (const char* own = std::getenv("ORVANE_STANDIN_DIR"); own != nullptr && *own != 0) return own;
    if (const char* runtime = std::getenv("XDG_RUNTIME_DIR"); runtime != nullptr && *runtime != 0) {
        return std::string(runtime) + "/orvane-standin";
    }
    return "/tmp/orvane-standin-" + std::to_string(geteuid());
}

/// Removes what dead processes left. Under the directory lock.
void RemoveLeavings(const Descriptor& directory) {
    for (const std::string& file : ListFiles(directory)) {
        if (!StampIsAlive(file)) unlinkat(directory.Get(), file.c_str(), 0);
    }
}

}  // namespace

Descriptor OpenSharedDirectory() {
    static const std::string& path = *new std::string(ChooseDirectory());
    mkdir(path.c_str(), 0700);
    Descriptor directory(open(path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    struct stat status = {};
    const bool ours = directory && fstat(directory.Get(), &status) == 0 && status.st_uid == geteuid() &&
                      (status.st_mode & (S_IRWXG | S_IRWXO)) == 0;
    if (!ours) {
        SetLastError(ERROR_ACCESS_DENIED);
        return {};
    }
    return directory;
}

DirectoryLock LockSharedDirectory() {
    DirectoryLock lock;
    lock.Directory = OpenSharedDirectory();
    if (!lock.Directory) return lock;
    // A file of its own for each lock: threads of one process then exclude each other as processes do.
    Descriptor file(openat(lock.Directory.Get(), "lock", O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC, 0600));
    int taken = file ? 0 : -1;
    while (file && (taken = flock(file.Get(), LOCK_EX)) != 0 && errno == EINTR) {
    }
    if (taken != 0) {
        SetLastError(ERROR_ACCESS_DENIED);
        return lock;
    }
    lock.LockFile = std::move(file);
    static std::atomic<bool> swept = false;
    if (!swept.exchange(true)) RemoveLeavings(lock.Directory);
    return lock;
}

std::vector<std::string> ListFiles(const Descriptor& directory) {
    std::vector<std::string> names;
    const int again = openat(directory.Get(), ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    const std::unique_ptr<DIR, int (*)(DIR*)> listing(again >= 0 ? fdopendir(again) : nullptr, closedir);
    if (!listing) return names;
    while (const dirent* entry = readdir(listing.get())) names.emplace_back(entry->d_name);
    std::sort(names.begin(), names.end());
    return names;
}

std::string PathThrough(const Descriptor& directory, std::string_view name) {
    return "/proc/self/fd/" + std::to_string(directory.Get()) + "/" + std::string(name);
}

std::string FileNameFor(std::u16string_view name) {
    constexpr std::size_t longest = 24;
    std::string file;
    bool exact = !name.empty();
    std::uint64_t hash = 14695981039346656037u;  // FNV-1a
    for (const char16_t unit : name) {
        const auto lower = static_cast<std::uint32_t>(std::towlower(unit));
        for (const std::uint32_t byte : {lower & 0xFFu, lower >> 8}) hash = (hash ^ byte) * 1099511628211u;
        const bool plain = (lower >= 'a' && lower <= 'z') || (lower >= '0' && lower <= '9') || lower == '_';
        if (!plain || file.size() == longest) exact = false;
        if (exact) file += static_cast<char>(lower);
    }
    if (exact) return file;
    char hashed[longest];
    std::snprintf(hashed, sizeof(hashed), "-%016llx", static_cast<unsigned long long>(hash));
    return hashed;
}

std::string NewFileStamp(char kind) {
    static std::atomic<unsigned> serial = 0;
    char stamp[64];
    std::snprintf(stamp, sizeof(stamp), "%c.%x.%llx.%x", kind, static_cast<unsigned>(getpid()),
                  static_cast<unsigned long long>(ProcessStart(getpid())), serial++);
    return stamp;
}

bool StampIsAlive(const std::string& fileName) {
    char kind = 0;
    unsigned process = 0;
    unsigned long long start = 0;
    unsigned serial = 0;
    if (std::sscanf(fileName.c_str(), "%c.%x.%llx.%x", &kind, &process, &start, &serial) != 4) return true;
    return ProcessStart(static_cast<pid_t>(process)) == start;
}

std::uint64_t ProcessStart(pid_t process) {
    std::ifstream file("/proc/" + std::to_string(process) + "/stat");
    std::string line;
    std::getline(file, line);
    // The name in parentheses may hold anything, so count the fields from its end.
    const std::size_t nameEnd = line.rfind(')');
    if (nameEnd == std::string::npos) return 0;
    std::istringstream fields(line.substr(nameEnd + 1));
    char state = 0;
    std::string skipped;
    std::uint64_t start = 0;
    fields >> state;
    constexpr int fieldsBetween = 18;
    for (int i = 0; i < fieldsBetween; ++i) fields >> skipped;
    fields >> start;
    const bool running = fields && state != 'Z' && state != 'X';
    return running ? start : 0;
}
