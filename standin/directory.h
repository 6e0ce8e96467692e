/// The directory that one user's processes share: pipe instances and registry values are files in it.
#pragma once

#include "standin/descriptor.h"
#include "standin/windows.h"

#include <string>
#include <string_view>
#include <vector>

/// Opens the shared directory, creating it when it is missing. Empty, with ERROR_ACCESS_DENIED, when it can't be had or
/// when anybody but this user could touch it.
Descriptor OpenSharedDirectory();

/// The same, and locked against other processes and threads until the descriptor is closed.
Descriptor LockSharedDirectory();

/// The names of the files in `directory`, sorted.
std::vector<std::string> ListFiles(const Descriptor& directory);

/// `name` as a file name without a dot: ASCII lower case, other units but letters, digits and "_" as "-" and four hex
/// digits.
std::string FileNameFor(std::u16string_view name);
