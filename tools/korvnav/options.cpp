#include "options.h"

#include "failure.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <optional>

namespace KORV::Tool
{
namespace
{
using Vector3 = Common::Math::Vec3<float>;

[[noreturn]] void refuse(const std::string& option, const std::string& value, const std::string& why)
{
    throw Failure(ExitCode::BadUsage, option + " " + value + ": " + why);
}

template <class Number>
std::optional<Number> parseNumber(const std::string& text)
{
    const char* const begin = text.data() + (text.size() > 1 && text[0] == '+' ? 1 : 0);
    const char* const end = text.data() + text.size();
    Number number{};
    const std::from_chars_result result = std::from_chars(begin, end, number);
    if (result.ec != std::errc() || result.ptr != end)
        return std::nullopt;
    return number;
}

/// A finite number that is neither negative nor (unless allowed) zero.
std::optional<float> parseLength(const std::string& text, bool zeroAllowed)
{
    const std::optional<float> number = parseNumber<float>(text);
    if (!number || !std::isfinite(*number) || *number < 0.0f || (*number == 0.0f && !zeroAllowed))
        return std::nullopt;
    return number;
}

std::vector<std::string> split(const std::string& text, char separator)
{
    std::vector<std::string> fields;
    std::size_t begin = 0;
    for (std::size_t end; (end = text.find(separator, begin)) != std::string::npos; begin = end + 1)
        fields.push_back(text.substr(begin, end - begin));
    fields.push_back(text.substr(begin));
    return fields;
}

/// A name ends up as it is in the document, whose reader knows no escapes and drops blanks at the ends.
void checkName(const std::string& option, const std::string& value, const std::string& name)
{
    if (name.empty())
        refuse(option, "'" + value + "'", "the name is missing.");
    const bool control =
        std::any_of(name.begin(), name.end(), [](char c) { return static_cast<unsigned char>(c) < 32; });
    if (control || name.find('<') != std::string::npos || name.front() == ' ' || name.back() == ' ')
        refuse(option, "'" + value + "'",
               "a name must not hold '<' or control characters, nor begin or end with a blank.");
}
} // namespace

CharacterOption parseCharacter(const std::string& text)
{
    const std::string value = "'" + text + "'";
    const std::vector<std::string> fields = split(text, ':');
    if (fields.size() < 4 || fields.size() > 5)
        refuse("--character", value,
               "expected NAME:HEIGHT:JUMP:FALL or NAME:HEIGHT:JUMP:FALL:USERID, such as human:1.8:0.5:1.0.");
    checkName("--character", text, fields[0]);
    const std::optional<float> height = parseLength(fields[1], false);
    if (!height)
        refuse("--character", value, "the height must be a number above 0.");
    const std::optional<float> jump = parseLength(fields[2], true);
    const std::optional<float> fall = parseLength(fields[3], true);
    if (!jump || !fall)
        refuse("--character", value, "jump and fall height must be numbers, 0 or more.");
    const std::optional<int64> userID = fields.size() == 5 ? parseNumber<int64>(fields[4]) : 0;
    if (!userID)
        refuse("--character", value, "the user id must be a whole number of 64 bits.");
    return {fields[0], *height, *jump, *fall, *userID};
}

std::vector<CharacterOption> parseCharacters(const std::vector<std::string>& texts)
{
    std::vector<CharacterOption> characters;
    for (const std::string& text : texts)
    {
        const CharacterOption character = parseCharacter(text);
        for (const CharacterOption& known : characters)
            if (known.mName == character.mName)
                refuse("--character", "'" + text + "'", "there is another character of that name; names must differ.");
        characters.push_back(character);
    }
    return characters;
}

SurfaceOption parseSurface(const std::string& text)
{
    const std::size_t equals = text.rfind('=');
    if (equals == std::string::npos)
        refuse("--surface", "'" + text + "'", "expected NAME=ID, such as grass=1.");
    const std::string name = text.substr(0, equals);
    checkName("--surface", text, name);
    const std::optional<uint16> id = parseNumber<uint16>(text.substr(equals + 1));
    if (!id)
        refuse("--surface", "'" + text + "'", "the id must be a whole number from 0 to 65535.");
    return {name, *id};
}

std::vector<SurfaceOption> parseSurfaces(const std::vector<std::string>& texts)
{
    std::vector<SurfaceOption> surfaces;
    for (const std::string& text : texts)
    {
        const SurfaceOption surface = parseSurface(text);
        for (const SurfaceOption& known : surfaces)
            if (known.mName == surface.mName)
                refuse("--surface", "'" + text + "'", "that name has an id already; give a name once.");
        surfaces.push_back(surface);
    }
    return surfaces;
}

Vector3 parseUp(const std::string& text)
{
    const bool negative = !text.empty() && text[0] == '-';
    const std::string axis = text.substr(negative ? 1 : 0);
    if (axis != "x" && axis != "y" && axis != "z")
        refuse("--up", "'" + text + "'", "expected x, y, z, -x, -y or -z.");
    Vector3 up;
    up[axis[0] - 'x'] = negative ? -1.0f : 1.0f;
    return up;
}

Winding parseWinding(const std::string& text)
{
    if (text == "ccw")
        return Winding::CounterClockwise;
    if (text == "cw")
        return Winding::Clockwise;
    if (text != "both")
        refuse("--winding", "'" + text + "'", "expected ccw, cw or both.");
    return Winding::Both;
}

float parseCubeSize(const std::string& text)
{
    const std::optional<float> size = parseLength(text, false);
    if (!size)
        refuse("--cube", "'" + text + "'", "the cube size must be a number above 0, in the units of the scene.");
    return *size;
}

double parseSlope(const std::string& text)
{
    const std::optional<double> slope = parseNumber<double>(text);
    if (!slope || !(*slope >= 0.0 && *slope <= 90.0))
        refuse("--max-slope", "'" + text + "'", "the slope must be from 0 to 90 degrees.");
    return *slope;
}

uint32 parseThreads(const std::string& text)
{
    const std::optional<uint32> threads = parseNumber<uint32>(text);
    if (!threads || *threads > MAX_THREADS)
        refuse("--threads", "'" + text + "'",
               "expected a whole number from 0 (one per processor) to " + std::to_string(MAX_THREADS) + ".");
    return *threads;
}

int32 parseSplitDepth(const std::string& text)
{
    const std::optional<int32> depth = parseNumber<int32>(text);
    if (!depth)
        refuse("--split-depth", "'" + text + "'", "expected a whole number; -2 chooses by the size of the scene.");
    return *depth;
}

Vector3 parsePoint(const std::string& option, const std::string& text)
{
    const std::vector<std::string> fields = split(text, ',');
    Vector3 point;
    for (int axis = 0; axis < 3 && fields.size() == 3; ++axis)
    {
        const std::optional<float> number = parseNumber<float>(fields[static_cast<std::size_t>(axis)]);
        if (!number || !std::isfinite(*number))
            refuse(option, "'" + text + "'", "'" + fields[static_cast<std::size_t>(axis)] + "' is no number.");
        point[axis] = *number;
    }
    if (fields.size() != 3)
        refuse(option, "'" + text + "'", "expected three numbers X,Y,Z without blanks, such as 1.5,0,-2.");
    return point;
}

float parseRadius(const std::string& text)
{
    const std::optional<float> radius = parseLength(text, true);
    if (!radius)
        refuse("--radius", "'" + text + "'", "expected a number, 0 or more, in units of the mesh.");
    return *radius;
}

uint32 parseSteps(const std::string& text)
{
    const std::optional<uint32> steps = parseNumber<uint32>(text);
    if (!steps || *steps == 0)
        refuse("--steps", "'" + text + "'", "expected a whole number, 1 or more.");
    return *steps;
}

CostOption parseCost(const std::string& text)
{
    const std::size_t at = text.rfind('=');
    if (at == std::string::npos || at == 0)
        refuse("--cost", "'" + text + "'", "expected SURFACE=FACTOR, such as grass=2.");
    const std::optional<float> factor = parseNumber<float>(text.substr(at + 1));
    if (!factor || !std::isfinite(*factor) || (*factor > 0.0f && *factor < 1.0f))
        refuse("--cost", "'" + text + "'", "the factor must be at least 1, or 0 to forbid the surface.");
    return {text.substr(0, at), *factor};
}
} // namespace KORV::Tool
