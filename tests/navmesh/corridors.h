#pragma once

#include "navmesh/waychecks.h"

#include <random>
#include <utility>

namespace KORV::Testing::Ways
{
/// A corridor of triangles in the plane, and the segments crossed on the way through.
struct Corridor
{
    std::vector<Place> mPlaces; ///< all corners
    std::vector<std::array<uint32, 3>> mTriangles;
    std::vector<std::array<uint32, 2>> mPortals; ///< left and right
    Place mStart;
    Place mEnd;
};

/// @param spread  how far corners may lie off to the side
inline Corridor createCorridor(uint32 numTriangles, double spread, std::mt19937& random)
{
    const auto unit = [&random] { return static_cast<double>(random() % 10000) / 10000.0; };
    Corridor corridor;
    corridor.mPlaces = {{0.0, 1.0}, {0.0, -1.0}};
    corridor.mStart = {0.2, 0.1};
    uint32 left = 0;
    uint32 right = 1;
    for (uint32 i = 0; i < numTriangles; ++i)
    {
        const Place across = corridor.mPlaces[right] - corridor.mPlaces[left];
        const double width = across.getLength();
        const Place ahead(-across.mY / width, across.mX / width);
        const double reach = 0.3 + 1.5 * unit();
        const double aside = i == 0 || random() % 6 == 0 ? 0.0 : (unit() - 0.5) * spread;
        const Place middle = corridor.mPlaces[left] + across * (0.5 + aside);
        corridor.mPlaces.push_back(middle + ahead * (i == 0 ? 2.0 : reach));
        const auto corner = static_cast<uint32>(corridor.mPlaces.size() - 1);
        corridor.mTriangles.push_back({left, right, corner});
        corridor.mEnd = (corridor.mPlaces[left] + corridor.mPlaces[right] + corridor.mPlaces[corner]) * (1.0 / 3.0);
        const bool widens = width > 4.0; // then the far end comes along
        (widens ? aside < 0.0 : random() % 2 == 0) ? right = corner : left = corner;
        if (i + 1 < numTriangles)
            corridor.mPortals.push_back({left, right});
    }
    return corridor;
}

/// Mirrors what comes after a portal at it, so that the corridor turns back there.
inline void foldCorridor(Corridor& corridor, size_t portal)
{
    const Place a = corridor.mPlaces[corridor.mPortals[portal][0]];
    const Place dir = normalised(corridor.mPlaces[corridor.mPortals[portal][1]] - a);
    const auto mirror = [&](Place& p)
    {
        const double off = Common::Math::cross(dir, p - a);
        p = p + Place(dir.mY, -dir.mX) * (2.0 * off);
    };
    for (size_t i = portal + 3; i < corridor.mPlaces.size(); ++i)
        mirror(corridor.mPlaces[i]);
    mirror(corridor.mEnd);
}

/// Whether the segment from a to b crosses a portal, ends included.
inline bool crosses(const Place& a, const Place& b, const Place& left, const Place& right)
{
    const Place along = right - left;
    const double before = Common::Math::cross(along, a - left);
    const double after = Common::Math::cross(along, b - left);
    if (std::abs(after - before) < 1e-12)
        return std::min((a - left).getLength(), (a - right).getLength()) < 1e-9 ||
               std::min((b - left).getLength(), (b - right).getLength()) < 1e-9;
    const double s = -before / (after - before);
    const double share = dot(along, a + (b - a) * s - left) / dot(along, along);
    return s > -1e-9 && s < 1.0 + 1e-9 && share > -1e-9 && share < 1.0 + 1e-9;
}

/// The shortest line bends at ends of portals only: the cheapest chain of those that see each other.
inline double shortestLength(const Corridor& corridor)
{
    std::vector<std::pair<Place, size_t>> stops; // with the number of portals behind
    stops.push_back({corridor.mStart, 0});
    for (size_t i = 0; i < corridor.mPortals.size(); ++i)
    {
        stops.push_back({corridor.mPlaces[corridor.mPortals[i][0]], i + 1});
        stops.push_back({corridor.mPlaces[corridor.mPortals[i][1]], i + 1});
    }
    stops.push_back({corridor.mEnd, corridor.mPortals.size()});
    std::vector<double> lengths(stops.size(), INFINITE);
    lengths[0] = 0.0;
    for (size_t i = 1; i < stops.size(); ++i)
    {
        for (size_t j = 0; j < i; ++j)
        {
            const double length = lengths[j] + (stops[i].first - stops[j].first).getLength();
            bool sees = length < lengths[i];
            for (size_t k = stops[j].second; sees && k < stops[i].second; ++k)
                sees = crosses(stops[j].first, stops[i].first, corridor.mPlaces[corridor.mPortals[k][0]],
                               corridor.mPlaces[corridor.mPortals[k][1]]);
            if (sees)
                lengths[i] = length;
        }
    }
    return lengths.back();
}
} // namespace KORV::Testing::Ways
