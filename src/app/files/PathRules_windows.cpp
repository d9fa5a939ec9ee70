#include "app/files/PathRules.h"

namespace vireo::impl {

constinit const PathPlatform ThisPlatform = PathPlatform::Windows;
constinit const std::string_view PathSeparators = "/\\:";

} // namespace vireo::impl
