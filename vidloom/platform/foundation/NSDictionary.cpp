#include "vidloom/platform/foundation/NSDictionary.h"

namespace vidloom {

namespace {

template <typename... Types>
bool readAs(const std::any& held, double& value) {
  const auto read = [&]<typename Type>(const Type* number) {
    if (number != nullptr) value = static_cast<double>(*number);
    return number != nullptr;
  };
  return (read(std::any_cast<Types>(&held)) || ...);
}

}  // namespace

bool numberValue(const NSDictionary& dictionary, const std::string& key, double& value) {
  const auto found = dictionary.find(key);
  return found != dictionary.end() && readAs<int, unsigned, int64_t, uint64_t, double, float, bool, long long, unsigned long long,
                                             short, unsigned short, signed char, unsigned char>(found->second, value);
}

}  // namespace vidloom
