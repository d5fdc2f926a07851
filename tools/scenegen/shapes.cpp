#include "shapes.h"

#include <algorithm>
#include <cmath>

namespace KORV::Scenes
{
namespace
{
constexpr float UNDERSIDE = 0.35f; // above the foot of a body: leaves nobody room inside it
constexpr float STEEPNESS = 1.6f;  // rise over run of what nobody can stand on, 58 degrees
} // namespace

float Random::next()
{
    mState ^= mState << 13;
    mState ^= mState >> 17;
    mState ^= mState << 5;
    return static_cast<float>(mState >> 8) / 16777216.0f;
}

std::uint32_t Random::below(std::uint32_t limit)
{
    return std::min(static_cast<std::uint32_t>(next() * static_cast<float>(limit)), limit - 1);
}

Footprint span(float x0, float z0, float x1, float z1)
{
    return {0.5f * (x0 + x1), 0.5f * (z0 + z1), 0.5f * std::abs(x1 - x0), 0.5f * std::abs(z1 - z0), 0.0f};
}

void Shapes::material(const std::string& name, std::array<float, 3> colour)
{
    const auto found = std::find_if(mScene.mMaterials.begin(), mScene.mMaterials.end(),
                                    [&](const Material& known) { return known.mName == name; });
    mMaterial = static_cast<std::uint32_t>(found - mScene.mMaterials.begin());
    if (found == mScene.mMaterials.end())
        mScene.mMaterials.push_back({name, {colour[0], colour[1], colour[2]}});
}

void Shapes::face(std::initializer_list<Vertex> corners)
{
    const auto first = static_cast<std::uint32_t>(mScene.mVertices.size());
    mScene.mVertices.insert(mScene.mVertices.end(), corners);
    for (std::uint32_t corner = 2; corner < corners.size(); ++corner)
        mScene.mTriangles.push_back({{first, first + corner - 1, first + corner}, mMaterial});
}

void Shapes::floor(float x0, float z0, float x1, float z1, float y)
{
    face({{x0, y, z0}, {x0, y, z1}, {x1, y, z1}, {x1, y, z0}});
}

void Shapes::slab(float x0, float z0, float x1, float z1, float bottom, float top)
{
    sides(corners(span(x0, z0, x1, z1), bottom), top);
    floor(x0, z0, x1, z1, top);
    face({{x0, bottom, z0}, {x1, bottom, z0}, {x1, bottom, z1}, {x0, bottom, z1}});
}

void Shapes::block(const Footprint& footprint, float bottom, float top)
{
    sides(corners(footprint, bottom), top);
    const std::array<Vertex, 4> under = corners(footprint, std::min(bottom + UNDERSIDE, top));
    const std::array<Vertex, 4> over = corners(footprint, top);
    face({under[3], under[2], under[1], under[0]});
    face({over[0], over[1], over[2], over[3]});
}

void Shapes::pointed(const Footprint& footprint, float bottom, float top)
{
    sides(corners(footprint, bottom), top);
    const std::array<Vertex, 4> under = corners(footprint, bottom + UNDERSIDE);
    const std::array<Vertex, 4> over = corners(footprint, top);
    face({under[3], under[2], under[1], under[0]});
    const Vertex tip{footprint.mX, top + STEEPNESS * std::max(footprint.mHalfX, footprint.mHalfZ), footprint.mZ};
    for (std::size_t side = 0; side < 4; ++side)
        face({over[side], over[(side + 1) % 4], tip});
}

void Shapes::wall(float x0, float z0, float x1, float z1, float bottom, float top)
{
    sides(corners(span(x0, z0, x1, z1), bottom), top);
    const std::array<Vertex, 4> under = corners(span(x0, z0, x1, z1), bottom + UNDERSIDE);
    face({under[3], under[2], under[1], under[0]});
}

void Shapes::fence(float x0, float z0, float x1, float z1, float bottom, float top)
{
    wall(x0, z0, x1, z1, bottom, top);
    const Footprint foot = span(x0, z0, x1, z1);
    if (foot.mHalfX >= foot.mHalfZ)
    {
        const float ridge = top + STEEPNESS * foot.mHalfZ;
        face({{x0, top, z1}, {x1, top, z1}, {x1, ridge, foot.mZ}, {x0, ridge, foot.mZ}});
        face({{x1, top, z0}, {x0, top, z0}, {x0, ridge, foot.mZ}, {x1, ridge, foot.mZ}});
        face({{x1, top, z1}, {x1, top, z0}, {x1, ridge, foot.mZ}});
        face({{x0, top, z0}, {x0, top, z1}, {x0, ridge, foot.mZ}});
        return;
    }
    const float ridge = top + STEEPNESS * foot.mHalfX;
    face({{x1, top, z1}, {x1, top, z0}, {foot.mX, ridge, z0}, {foot.mX, ridge, z1}});
    face({{x0, top, z0}, {x0, top, z1}, {foot.mX, ridge, z1}, {foot.mX, ridge, z0}});
    face({{x0, top, z1}, {x1, top, z1}, {foot.mX, ridge, z1}});
    face({{x1, top, z0}, {x0, top, z0}, {foot.mX, ridge, z0}});
}

void Shapes::rampX(float x0, float x1, float z0, float z1, float foot, float low, float high)
{
    const bool forward = x0 < x1;
    const float a = forward ? x0 : x1;
    const float b = forward ? x1 : x0;
    const float ya = forward ? low : high;
    const float yb = forward ? high : low;
    face({{a, ya, z0}, {a, ya, z1}, {b, yb, z1}, {b, yb, z0}});
    face({{a, foot, z1}, {b, foot, z1}, {b, yb, z1}, {a, ya, z1}});
    face({{b, foot, z0}, {a, foot, z0}, {a, ya, z0}, {b, yb, z0}});
    face({{a, foot, z0}, {a, foot, z1}, {a, ya, z1}, {a, ya, z0}});
    face({{b, foot, z1}, {b, foot, z0}, {b, yb, z0}, {b, yb, z1}});
    const float ua = std::min(foot + UNDERSIDE, ya);
    const float ub = std::min(foot + UNDERSIDE, yb);
    face({{a, ua, z0}, {b, ub, z0}, {b, ub, z1}, {a, ua, z1}});
}

void Shapes::stairsZ(float x0, float x1, float z0, float z1, float low, float high, unsigned steps)
{
    for (unsigned step = 0; step < steps; ++step)
    {
        const auto done = static_cast<float>(step) / static_cast<float>(steps);
        const auto next = static_cast<float>(step + 1) / static_cast<float>(steps);
        block(span(x0, z0 + (z1 - z0) * done, x1, z0 + (z1 - z0) * next), low, low + (high - low) * next);
    }
}

std::array<Vertex, 4> Shapes::corners(const Footprint& footprint, float y) const
{
    constexpr float RADIANS = 3.14159265f / 180.0f;
    const float c = std::cos(footprint.mTurn * RADIANS);
    const float s = std::sin(footprint.mTurn * RADIANS);
    const auto corner = [&](float u, float v) {
        return Vertex{footprint.mX + c * u + s * v, y, footprint.mZ - s * u + c * v};
    };
    const float hx = footprint.mHalfX;
    const float hz = footprint.mHalfZ;
    return {corner(-hx, -hz), corner(-hx, hz), corner(hx, hz), corner(hx, -hz)};
}

void Shapes::sides(const std::array<Vertex, 4>& foot, float top)
{
    for (std::size_t side = 0; side < 4; ++side)
    {
        const Vertex& a = foot[side];
        const Vertex& b = foot[(side + 1) % 4];
        face({a, b, {b.mX, top, b.mZ}, {a.mX, top, a.mZ}});
    }
}
} // namespace KORV::Scenes
