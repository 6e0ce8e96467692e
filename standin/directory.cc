#include "standin/directory.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <dirent.h>
#include <fcntl.h>
#include <memory>
#include <sys/file.h>
#include <sys/stat.h>

static std::string ChooseDirectory() {
    if (const char* own = std::getenv("ORVANE_STANDIN_DIR"); own != nullptr && *own != 0) return own;
    if (const char* runtime = std::getenv("XDG_RUNTIME_DIR"); runtime != nullptr && *runtime != 0) {
        return std::string(runtime) + "/orvane-standin";
    }
    return "/tmp/orvane-standin-" + std::to_string(geteuid());
}

Descriptor OpenSharedDirectory() {
    static const std::string& path = *new std::string(ChooseDirectory());
    mkdir(path.c_str(), 0700);
    Descriptor directory(open(path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    struct stat status = {};
    const bool ours = directory && fstat(directory.Get(), &status) == 0 && status.st_uid == geteuid() &&
                      (status.st_mode & (S_IRWXG | S_IRWXO)) == 0;
    if (ours) return directory;
    SetLastError(ERROR_ACCESS_DENIED);
    return {};
}

Descriptor LockSharedDirectory() {
    Descriptor directory = OpenSharedDirectory();
    while (directory && flock(directory.Get(), LOCK_EX) != 0 && errno == EINTR) {
    }
    return directory;
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

std::string FileNameFor(std::u16string_view name) {
    std::string file;
    for (const char16_t unit : name) {
        const bool upper = unit >= 'A' && unit <= 'Z';
        const bool plain = upper || (unit >= 'a' && unit <= 'z') || (unit >= '0' && unit <= '9') || unit == '_';
        char escaped[8];
        std::snprintf(escaped, sizeof(escaped), plain ? "%c" : "-%04x", upper ? unit + ('a' - 'A') : unit);
        file += escaped;
    }
    return file;
}
