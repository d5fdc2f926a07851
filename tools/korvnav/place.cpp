#include "place.h"

#include "failure.h"
#include "text.h"

#include <limits>

namespace KORV::Tool
{
std::string placeText(const NavMesh::Vec3<float>& place)
{
    return decimal(static_cast<double>(place.mX), 3) + " " + decimal(static_cast<double>(place.mY), 3) + " " +
           decimal(static_cast<double>(place.mZ), 3);
}

int findNode(const NavMesh::NavMeshNodeIndex& index, const std::string& option, const NavMesh::Vec3<float>& place,
             const NavMesh::NavMeshSearchFilter& filter)
{
    const int node = index.searchNode(place);
    if (node >= 0)
        return node;
    std::string text = option + " " + placeText(place) + ": no ground of the mesh is there";
    const NavMesh::NavMeshPlace nearest = index.nearestNode(place, std::numeric_limits<float>::infinity(), &filter);
    if (nearest.isValid())
        text += "; the nearest is " + shortest(nearest.mPosition.mX) + "," + shortest(nearest.mPosition.mY) + "," +
                shortest(nearest.mPosition.mZ) + " (node " + std::to_string(nearest.mNodeID) + "), " +
                decimal(static_cast<double>(nearest.mDistance), 3) + " away";
    throw Failure(ExitCode::BadInput, text + ".");
}
} // namespace KORV::Tool
