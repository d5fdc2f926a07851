#include "json.h"

#include "text.h"

namespace KORV::Tool
{
std::string dump(const JsonValue& json)
{
    return json.dump(2, ' ', false, JsonValue::error_handler_t::replace) + "\n";
}

JsonValue vectorJson(const Common::Math::Vec3<float>& vector)
{
    return {asDouble(vector.mX), asDouble(vector.mY), asDouble(vector.mZ)};
}
} // namespace KORV::Tool
