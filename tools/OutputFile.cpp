#include "tools/OutputFile.h"

#include <unistd.h>

#include <system_error>

#include "vidloom/platform/foundation/NSLog.h"

namespace vidloom {

namespace fs = std::filesystem;

namespace {

fs::path folderOf(const fs::path& file) { return file.has_parent_path() ? file.parent_path() : fs::path("."); }

}  // namespace

fs::path behindLink(const fs::path& output) {
  std::error_code failure;
  if (!fs::is_symlink(output, failure)) return output;
  const fs::path target = fs::canonical(output, failure);
  if (!failure) return target;
  // What it stands for is not there yet, or has no name, as a pipe.
  const bool isMissing = fs::status(output, failure).type() == fs::file_type::not_found;
  return isMissing ? output.parent_path() / fs::read_symlink(output, failure) : output;
}

std::string problemWithOutput(const fs::path& output, bool overwrite) {
  std::error_code failure;
  const fs::path folder = folderOf(output);
  if (!fs::is_directory(folder, failure)) return output.string() + ": the folder " + folder.string() + " does not exist";
  if (!output.has_filename()) return output.string() + ": not the name of a file";
  const auto own = fs::symlink_status(output, failure);
  if (own.type() == fs::file_type::none) return output.string() + ": " + failure.message();
  if (!fs::exists(own)) return "";
  const auto target = fs::status(output, failure);
  if (fs::is_directory(target)) return output.string() + ": is a folder";
  if (fs::exists(target) && !fs::is_regular_file(target)) return output.string() + ": is not a regular file";
  if (!overwrite) return output.string() + ": the file exists; -y replaces it";
  return "";
}

bool isSameFile(const fs::path& one, const fs::path& other) {
  std::error_code failure;
  return fs::equivalent(one, other, failure) && !failure;
}

void removeTemporaryFilesOf(const fs::path& output) {
  const std::string ours = NSStringWithFormat(".%d-", getpid());
  std::error_code failure;
  std::vector<fs::path> found;
  for (fs::directory_iterator at(folderOf(output), failure), end; !failure && at != end; at.increment(failure)) {
    const std::string name = at->path().filename().string();
    if (name.front() == '.' && name.ends_with(".part") && name.find(ours) != std::string::npos) found.push_back(at->path());
  }
  for (const fs::path& file : found) fs::remove(file, failure);
}

}  // namespace vidloom
