#pragma once

#include "picturelayout.h"
#include "svg.h"

#include "korv/navmesh/navmeshway.h"

#include <string>

namespace KORV::Tool
{
/// A way over a mesh, cut into what is walked within one node and the hops between nodes.
class PictureWay
{
public:
    PictureWay(const MeshView& view, const std::vector<Floor>& floors, const NavMesh::NavMeshWay& way);

    /// The way as a panel shows it: what lies on that floor in full, the rest faintly.
    /// @param toX, toY  from a place in the plan to the panel. [pixels]
    template <class ToX, class ToY>
    std::string paint(uint32 floor, ToX&& toX, ToY&& toY) const
    {
        Strokes strokes;
        std::string marks; // a hop goes straight up or down: its stroke alone is next to nothing
        for (const Leg& leg : mLegs)
        {
            const bool here = leg.mFloors[0] == floor || leg.mFloors[1] == floor;
            SvgPath& stroke = !here ? strokes.mElsewhere : leg.mHop ? strokes.mHops : strokes.mWalks;
            stroke.moveTo(toX(leg.mFrom), toY(leg.mFrom));
            stroke.lineTo(toX(leg.mTo), toY(leg.mTo));
            if (here && leg.mHop)
                marks += marker(toX(leg.mFrom), toY(leg.mFrom), "wm", HOP_RADIUS);
        }
        std::string result = strokes.paint() + marks;
        if (!mLegs.empty() && mLegs.front().mFloors[0] == floor)
            result += marker(toX(mLegs.front().mFrom), toY(mLegs.front().mFrom), "ws");
        if (!mLegs.empty() && mLegs.back().mFloors[1] == floor)
            result += marker(toX(mLegs.back().mTo), toY(mLegs.back().mTo), "we");
        return result;
    }

    static constexpr float HOP_RADIUS = 3.5f; // [pixels]

    static std::string marker(float x, float y, const std::string& style, float radius = 5.5f);
    /// Style rules of what paint gives.
    static const char* const STYLE;

private:
    struct Leg
    {
        PlanPoint mFrom;
        PlanPoint mTo;
        uint32 mFloors[2] = {0, 0}; ///< of both ends
        bool mHop = false;
    };

    struct Strokes
    {
        std::string paint() const;

        SvgPath mElsewhere;
        SvgPath mWalks;
        SvgPath mHops;
    };

    void add(const NavMesh::Vec3<float>& from, const NavMesh::Vec3<float>& to, int32 fromNode, int32 toNode, bool hop);

    const MeshView& mView;
    std::vector<uint32> mFloorOfNode;
    std::vector<Leg> mLegs;
};
} // namespace KORV::Tool
