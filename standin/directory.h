/// The directory that one user's processes share: pipe instances and registry values are files in it.
#pragma once

#include "standin/descriptor.h"
#include "standin/windows.h"

#include <string>
#include <string_view>
#include <vector>

/// Opens the shared directory, creating it if it is missing. Empty, with ERROR_ACCESS_DENIED, if that fails or if
/// anyone but this user has access to it.
Descriptor OpenSharedDirectory();

/// The same, and locked against other processes and threads until the descriptor is closed.
Descriptor LockSharedDirectory();

/// The names of the files in `directory`, sorted.
std::vector<std::string> ListFiles(const Descriptor& directory);

/// `name` as a file name without dots: ASCII letters in lower case, digits and "_" unchanged, any other unit as "-" and
/// four hex digits.
std::string FileNameFor(std::u16string_view name);
