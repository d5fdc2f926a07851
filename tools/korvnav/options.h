#pragma once

#include "korv/common/math/vec3.h"
#include "korv/common/types.h"

#include <string>
#include <vector>

/// What the command line says, parsed and checked. Every parser throws Failure (BadUsage) that names the option, what
/// was wrong with its value and what it should look like.
namespace KORV::Tool
{
/// Which side of a triangle counts as its front.
enum class Winding
{
    CounterClockwise,
    Clockwise,
    Both
};

enum class Verbosity
{
    Quiet,
    Normal,
    Verbose,
    Json
};

struct CharacterOption
{
    std::string mName;
    float mHeight = 0.0f;
    float mJumpHeight = 0.0f;
    float mFallHeight = 0.0f;
    int64 mUserID = 0;
};

struct SurfaceOption
{
    std::string mName;
    uint16 mID = 0;
};

/// NAME:HEIGHT:JUMP:FALL[:USERID]
CharacterOption parseCharacter(const std::string& text);
/// All of them; names must differ.
std::vector<CharacterOption> parseCharacters(const std::vector<std::string>& texts);
/// NAME=ID; the last '=' counts, so that a name may hold others.
SurfaceOption parseSurface(const std::string& text);
/// All of them; a name may occur once.
std::vector<SurfaceOption> parseSurfaces(const std::vector<std::string>& texts);
/// x, y, z, -x, -y or -z as a unit vector.
Common::Math::Vec3<float> parseUp(const std::string& text);
Winding parseWinding(const std::string& text);
/// A finite number above 0.
float parseCubeSize(const std::string& text);
/// Degrees from 0 to 90.
double parseSlope(const std::string& text);
/// Worker threads, 0 to MAX_THREADS.
uint32 parseThreads(const std::string& text);
int32 parseSplitDepth(const std::string& text);

/// X,Y,Z, all finite.
Common::Math::Vec3<float> parsePoint(const std::string& option, const std::string& text);
/// A finite number, 0 or more.
float parseRadius(const std::string& text);
/// Nodes a slice, at least 1.
uint32 parseSteps(const std::string& text);

struct CostOption
{
    std::string mSurface;
    float mFactor = 1.0f;
};

/// SURFACE=FACTOR; the last '=' counts. The factor is 0 or less, or at least 1.
CostOption parseCost(const std::string& text);

constexpr uint32 MAX_THREADS = 1024;
} // namespace KORV::Tool
