#pragma once

#include "scenes.h"

#include <array>
#include <initializer_list>

namespace KORV::Scenes
{
/// A number generator of fixed behaviour; those of the standard library have distributions that differ.
class Random
{
public:
    explicit Random(std::uint32_t seed) : mState(seed * 2654435761u + 0x9e3779b9u) {}
    /// In [0, 1).
    float next();
    float between(float low, float high) { return low + (high - low) * next(); }
    std::uint32_t below(std::uint32_t limit);

private:
    std::uint32_t mState;
};

/// An upright rectangle seen from above: centre, half lengths, and a turn about the vertical. [degrees]
struct Footprint
{
    float mX = 0.0f;
    float mZ = 0.0f;
    float mHalfX = 1.0f;
    float mHalfZ = 1.0f;
    float mTurn = 0.0f;
};

/// The footprint between two corners, unturned.
Footprint span(float x0, float z0, float x1, float z1);

/// Adds shapes to a scene in the material last chosen.
class Shapes
{
public:
    explicit Shapes(Scene& scene) : mScene(scene) {}

    /// Chooses the material of what follows; a new name is added.
    void material(const std::string& name, std::array<float, 3> colour);

    /// A convex polygon, counter-clockwise seen from its front.
    void face(std::initializer_list<Vertex> corners);
    /// A level rectangle that faces up.
    void floor(float x0, float z0, float x1, float z1, float y);
    /// A slab: top, underside and edges.
    void slab(float x0, float z0, float x1, float z1, float bottom, float top);
    /// A solid body that stands on other ground. Its underside lies a little above its foot, so that the ground inside
    /// has no room for anyone.
    void block(const Footprint& footprint, float bottom, float top);
    /// As block, topped by a roof too steep to stand on.
    void pointed(const Footprint& footprint, float bottom, float top);
    /// As block without a top: something lies on it.
    void wall(float x0, float z0, float x1, float z1, float bottom, float top);
    /// A wall between two x (or two z) with a roof-shaped top.
    void fence(float x0, float z0, float x1, float z1, float bottom, float top);
    /// A solid ramp that rises along x from (x0, low) to (x1, high); x1 < x0 rises the other way.
    void rampX(float x0, float x1, float z0, float z1, float foot, float low, float high);
    /// Solid steps that rise along z from z0 to z1.
    void stairsZ(float x0, float x1, float z0, float z1, float low, float high, unsigned steps);

private:
    void sides(const std::array<Vertex, 4>& foot, float top);
    std::array<Vertex, 4> corners(const Footprint& footprint, float y) const;

    Scene& mScene;
    std::uint32_t mMaterial = 0;
};
} // namespace KORV::Scenes
