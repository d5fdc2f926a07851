#include "pictureway.h"

namespace KORV::Tool
{
const char* const PictureWay::STYLE =
    ".way{fill:none;stroke-linejoin:round;stroke-linecap:round}.wh{stroke:#fff;stroke-opacity:.85;stroke-width:5}\n"
    ".ww{stroke:#d84315;stroke-width:2.4}.wj{stroke:#6a1b9a;stroke-width:2.4;stroke-dasharray:2 4}\n"
    ".wo{stroke:#d84315;stroke-opacity:.35;stroke-width:1.2;stroke-dasharray:1 4}\n"
    ".ws{fill:#2e7d32;stroke:#fff;stroke-width:1.5}.we{fill:#d84315;stroke:#fff;stroke-width:1.5}\n"
    ".wm{fill:#6a1b9a;stroke:#fff;stroke-width:1}\n";

PictureWay::PictureWay(const MeshView& view, const std::vector<Floor>& floors, const NavMesh::NavMeshWay& way)
    : mView(view), mFloorOfNode(view.getMesh().mNodes.size(), 0)
{
    if (way.mPoints.empty())
        return;
    for (uint32 floor = 0; floor < floors.size(); ++floor)
        for (const uint32 node : floors[floor].mNodes)
            mFloorOfNode[node] = floor;
    NavMesh::Vec3<float> at = way.mPoints.front().mPosition;
    int32 node = way.mPoints.front().mNodeID;
    for (const NavMesh::NavMeshCrossing& crossing : way.mCrossings)
    {
        add(at, crossing.mLeaving, crossing.mFromNode, crossing.mFromNode, false);
        add(crossing.mLeaving, crossing.mLanding, crossing.mFromNode, crossing.mToNode,
            crossing.mMove != NavMesh::NavMeshMove::WALK);
        at = crossing.mLanding;
        node = crossing.mToNode;
    }
    add(at, way.mPoints.back().mPosition, node, node, false);
}

void PictureWay::add(const NavMesh::Vec3<float>& from, const NavMesh::Vec3<float>& to, int32 fromNode, int32 toNode,
                     bool hop)
{
    Leg leg;
    leg.mFrom = mView.project(from);
    leg.mTo = mView.project(to);
    leg.mFloors[0] = mFloorOfNode.at(static_cast<std::size_t>(fromNode));
    leg.mFloors[1] = mFloorOfNode.at(static_cast<std::size_t>(toNode));
    leg.mHop = hop;
    mLegs.push_back(leg);
}

std::string PictureWay::Strokes::paint() const
{
    const auto stroke = [](const SvgPath& data, const std::string& style)
    { return data.empty() ? "" : "<path class=\"way " + style + "\" d=\"" + data.data() + "\"/>\n"; };
    // a light border lifts the way off the colours of the ground
    return stroke(mElsewhere, "wo") + stroke(mWalks, "wh") + stroke(mHops, "wh") + stroke(mWalks, "ww") +
           stroke(mHops, "wj");
}

std::string PictureWay::marker(float x, float y, const std::string& style, float radius)
{
    return "<circle class=\"" + style + "\" cx=\"" + pixels(x) + "\" cy=\"" + pixels(y) + "\" r=\"" + pixels(radius) +
           "\"/>\n";
}
} // namespace KORV::Tool
