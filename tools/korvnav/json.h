#pragma once

#include "korv/common/math/vec3.h"

#include <nlohmann/json.hpp>

#include <string>

/// The JSON objects that the program prints; keys keep their order.
namespace KORV::Tool
{
using JsonValue = nlohmann::ordered_json;

/// The object's text and a line feed. Names come from files: bytes that are no UTF-8 are replaced rather than refused.
std::string dump(const JsonValue& json);
JsonValue vectorJson(const Common::Math::Vec3<float>& vector);
} // namespace KORV::Tool
