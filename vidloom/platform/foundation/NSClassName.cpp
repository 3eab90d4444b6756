#include "vidloom/platform/foundation/NSClassName.h"

#include <cxxabi.h>

#include <cstdlib>
#include <memory>

namespace vidloom {

std::string NSStringFromClass(const std::type_info& type) {
  int status = 0;
  const std::unique_ptr<char, decltype(&std::free)> readable(abi::__cxa_demangle(type.name(), nullptr, nullptr, &status),
                                                             &std::free);
  const std::string name = readable ? readable.get() : type.name();
  const size_t scope = name.rfind("::", name.find('<'));
  return scope == std::string::npos ? name : name.substr(scope + 2);
}

}  // namespace vidloom
