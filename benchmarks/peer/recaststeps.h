#pragma once

#include "scenes.h"

#include <Recast.h>

#include <memory>
#include <vector>

/// The steps of the peer's build, for a whole scene or for a tile of it.
namespace KORV::Benchmarks::Peer
{
/// Calls a function as a deleter.
template <auto Release>
struct Releaser
{
    template <class Object>
    void operator()(Object* object) const
    {
        Release(object);
    }
};

/// Makes the peer's builder allocate from the counting heap.
void useCountingHeap();

/// The triangles in the arrays that the peer takes.
struct Triangles
{
    explicit Triangles(const Scenes::Scene& scene);
    int numVertices() const { return static_cast<int>(mVertices.size() / 3); }
    int numTriangles() const { return static_cast<int>(mIndices.size() / 3); }

    std::vector<float> mVertices;
    std::vector<int> mIndices;
};

/// Settings for all the triangles in one tile: cells as wide and high as a cube, an agent as tall as our tallest
/// character and without radius.
rcConfig configFor(const Triangles& triangles, float cube);

/// One build. The steps come in the order of their declaration; each says whether it went well.
class RecastSteps
{
public:
    /// Keeps references.
    RecastSteps(const Triangles& triangles, const rcConfig& config);

    /// Triangles into spans.
    /// @param indices  the triangles that count, three vertex ids each.
    bool rasterise(const std::vector<int>& indices);
    bool filter();
    bool compact();
    bool distances();
    bool regions();
    bool contours();
    bool polygons();

    std::size_t getNumSpans() const { return mNumSpans; }
    std::size_t getNumContours() const { return mNumContours; }
    rcPolyMesh& getMesh() { return *mMesh; }

private:
    const Triangles& mTriangles;
    const rcConfig& mConfig;
    rcContext mContext;
    std::unique_ptr<rcHeightfield, Releaser<rcFreeHeightField>> mField;
    std::unique_ptr<rcCompactHeightfield, Releaser<rcFreeCompactHeightfield>> mCompact;
    std::unique_ptr<rcContourSet, Releaser<rcFreeContourSet>> mContours;
    std::unique_ptr<rcPolyMesh, Releaser<rcFreePolyMesh>> mMesh;
    std::size_t mNumSpans = 0;
    std::size_t mNumContours = 0;
};
} // namespace KORV::Benchmarks::Peer
