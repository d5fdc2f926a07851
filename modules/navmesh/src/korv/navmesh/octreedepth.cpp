#include "korv/navmesh/octreedepth.h"

#include "korv/common/debug/messagetext.h"
#include "korv/common/exceptions/exception.h"

#include <cmath>

namespace KORV::NavMesh
{
uint32 computeOctreeDepth(float edge, float cubeSize)
{
    // the quotient in float, the logarithms in double: the depth of a box near a power of two depends on it
    const float numCubes = edge / cubeSize;
    const double levels = std::log(static_cast<double>(numCubes)) / std::log(2.0) + 0.9999998807907104;
    if (!(levels < MAX_OCTREE_DEPTH + 1.0))
    {
        Common::Debug::MessageText text;
        text << "The scene is too large for the cube size: its edge of " << edge << " is " << numCubes << " cubes of "
             << cubeSize << ", more than 2^" << MAX_OCTREE_DEPTH << ". Choose a larger cube size.";
        throw new Common::Exceptions::ArgumentException("mCubeSize", text.c_str());
    }
    return levels > 0.0 ? static_cast<uint32>(levels) : 0;
}
} // namespace KORV::NavMesh
