#pragma once

#include <any>
#include <map>
#include <string>

namespace vidloom {

/// Details, settings and attributes under published string keys. Numbers are held as bool, int64_t or double, text as
/// std::string, and so on; readers accept any number type (see numberValue).
using NSDictionary = std::map<std::string, std::any>;

/// The number under a key as a double: any arithmetic type is accepted. False where there is none.
bool numberValue(const NSDictionary& dictionary, const std::string& key, double& value);

}  // namespace vidloom
