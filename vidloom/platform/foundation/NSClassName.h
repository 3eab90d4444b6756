// The names of classes at run time.
#pragma once

#include <string>
#include <typeinfo>

namespace vidloom {

/// The class's name without its namespace: "LUMAVAssetTrack". For an object's own class pass typeid(*object).
std::string NSStringFromClass(const std::type_info& type);

}  // namespace vidloom
