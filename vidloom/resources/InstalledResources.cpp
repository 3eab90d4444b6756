// Installed beside the resources and compiled into every program that links the installed library: tells the library, which is part
// of the program and could not know, where its resources lie.
#include <filesystem>
#include <source_location>

#include "vidloom/platform/foundation/NSBundle.h"

namespace {

const bool isKnown = [] {
  vidloom::NSBundle::addFolderForLibrary(std::filesystem::path(std::source_location::current().file_name()).parent_path());
  return true;
}();

}  // namespace
