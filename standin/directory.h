/// The directory that one user's processes share: pipe instances and registry values live there as files.
#pragma once

#include "platform/platform.h"
#include "standin/descriptor.h"

#include <cstdint>
#include <string>
#include <string_view>
#include <sys/types.h>
#include <vector>

/// Opens the shared directory, and makes it first when it is missing. Empty, with ERROR_ACCESS_DENIED, when it can't
/// be had or when anybody but this user could touch it.
Descriptor OpenSharedDirectory();

/// The shared directory, held by one thread of one process at a time. Everybody who adds, renames or removes a pipe's
/// file, or who connects to one, does so under this lock; it is given back at the latest when its process dies.
struct DirectoryLock {
    Descriptor Directory;
    Descriptor LockFile;
    explicit operator bool() const { return static_cast<bool>(LockFile); }
};
DirectoryLock LockSharedDirectory();

/// The names of the files in `directory`, sorted.
std::vector<std::string> ListFiles(const Descriptor& directory);

/// A path to `name` in `directory` that is short enough for a socket's address.
std::string PathThrough(const Descriptor& directory, std::string_view name);

/// `name` as a file name, with its case folded: 1 to 24 letters, digits, "_" and "-"; what does not fit is hashed.
std::string FileNameFor(std::u16string_view name);

/// "<kind>.<process>.<its start>.<serial>": the start of a file name that nobody else takes, and that tells by itself
/// when its maker is gone.
std::string NewFileStamp(char kind);

/// Whether the process that stamped `fileName` still runs; true for names without a stamp.
bool StampIsAlive(const std::string& fileName);

/// When a process started, in clock ticks since the machine did; 0 when there is none or it has ended.
std::uint64_t ProcessStart(pid_t process);
