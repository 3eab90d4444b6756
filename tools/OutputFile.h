#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace vidloom {

/// The file that a symbolic link stands for, so that it is written and the link stays; any other path as it is.
std::filesystem::path behindLink(const std::filesystem::path& output);

/// Why a movie may not be written there, with the path; empty where it may. Touches nothing.
std::string problemWithOutput(const std::filesystem::path& output, bool overwrite);

/// Whether both names stand for one existing file.
bool isSameFile(const std::filesystem::path& one, const std::filesystem::path& other);

/// Removes what this process may have left under a temporary name beside the output: for leaving in a hurry.
void removeTemporaryFilesOf(const std::filesystem::path& output);

}  // namespace vidloom
