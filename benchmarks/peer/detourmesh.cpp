#include "detourmesh.h"

#include "recaststeps.h"
#include "support/build.h"
#include "support/heap.h"

#include <DetourAlloc.h>
#include <DetourNavMesh.h>
#include <DetourNavMeshBuilder.h>
#include <DetourNavMeshQuery.h>
#include <DetourNode.h>

#include <algorithm>
#include <bit>
#include <cmath>

namespace KORV::Benchmarks::Peer
{
namespace
{
/// Cells along the side of a tile.
constexpr int TILE_CELLS = 128;
/// Cells around a tile that are looked at, too, so that its regions fit those beside it.
constexpr int BORDER_CELLS = 3;
/// Bits of a polygon's reference that tiles and polygons share.
constexpr unsigned REFERENCE_BITS = 22;
constexpr int MAX_CORRIDOR = 65536;

/// Builds the mesh tile by tile.
class TileBuilder
{
public:
    TileBuilder(const Scenes::Scene& scene, float cube) : mTriangles(scene), mConfig(configFor(mTriangles, cube))
    {
        mColumns = (mConfig.width + TILE_CELLS - 1) / TILE_CELLS;
        mRows = (mConfig.height + TILE_CELLS - 1) / TILE_CELLS;
        sortTriangles();
    }

    bool build(dtNavMesh& navMesh)
    {
        dtNavMeshParams params{};
        std::copy_n(mConfig.bmin, 3, params.orig);
        params.tileWidth = params.tileHeight = tileSize();
        const unsigned tileBits = static_cast<unsigned>(std::bit_width(static_cast<unsigned>(mColumns * mRows)));
        params.maxTiles = 1 << tileBits;
        params.maxPolys = 1 << (REFERENCE_BITS - tileBits);
        if (dtStatusFailed(navMesh.init(&params)))
            return false;
        for (int tile = 0; tile < mColumns * mRows; ++tile)
            if (!buildTile(navMesh, tile % mColumns, tile / mColumns))
                return false;
        return true;
    }

private:
    float tileSize() const { return static_cast<float>(TILE_CELLS) * mConfig.cs; }
    std::size_t indexOf(int column, int row) const
    {
        return static_cast<std::size_t>(row) * static_cast<std::size_t>(mColumns) + static_cast<std::size_t>(column);
    }

    /// Notes for each tile which triangles reach into it or its border.
    void sortTriangles()
    {
        mIndices.resize(static_cast<std::size_t>(mColumns) * static_cast<std::size_t>(mRows));
        const float border = static_cast<float>(BORDER_CELLS) * mConfig.cs;
        for (std::size_t i = 0; i < mTriangles.mIndices.size(); i += 3)
        {
            const int* const ids = &mTriangles.mIndices[i];
            int first[2];
            int last[2];
            for (std::size_t axis = 0; axis < 2; ++axis)
            {
                const auto at = [&](int corner)
                { return mTriangles.mVertices[static_cast<std::size_t>(ids[corner]) * 3 + axis * 2]; };
                const float low = std::min({at(0), at(1), at(2)}) - border - mConfig.bmin[axis * 2];
                const float high = std::max({at(0), at(1), at(2)}) + border - mConfig.bmin[axis * 2];
                const int limit = (axis == 0 ? mColumns : mRows) - 1;
                first[axis] = std::clamp(static_cast<int>(std::floor(low / tileSize())), 0, limit);
                last[axis] = std::clamp(static_cast<int>(std::floor(high / tileSize())), 0, limit);
            }
            for (int row = first[1]; row <= last[1]; ++row)
                for (int column = first[0]; column <= last[0]; ++column)
                {
                    std::vector<int>& indices = mIndices[indexOf(column, row)];
                    indices.insert(indices.end(), ids, ids + 3);
                }
        }
    }

    bool buildTile(dtNavMesh& navMesh, int column, int row)
    {
        rcConfig config = mConfig;
        config.borderSize = BORDER_CELLS;
        config.width = config.height = TILE_CELLS + 2 * BORDER_CELLS;
        const float border = static_cast<float>(BORDER_CELLS) * config.cs;
        const int place[2] = {column, row};
        for (std::size_t axis = 0; axis < 2; ++axis)
        {
            const float low = mConfig.bmin[axis * 2] + static_cast<float>(place[axis]) * tileSize();
            config.bmin[axis * 2] = low - border;
            config.bmax[axis * 2] = low + tileSize() + border;
        }
        const std::vector<int>& indices = mIndices[indexOf(column, row)];
        RecastSteps steps(mTriangles, config);
        if (!steps.rasterise(indices) || !steps.filter() || !steps.compact() || !steps.distances() ||
            !steps.regions() || !steps.contours() || !steps.polygons())
            return false;
        return steps.getMesh().npolys == 0 || addTile(navMesh, steps.getMesh(), column, row);
    }

    bool addTile(dtNavMesh& navMesh, rcPolyMesh& mesh, int column, int row) const
    {
        std::fill_n(mesh.flags, mesh.npolys, static_cast<unsigned short>(1));
        std::fill_n(mesh.areas, mesh.npolys, static_cast<unsigned char>(0));
        dtNavMeshCreateParams params{};
        params.verts = mesh.verts;
        params.vertCount = mesh.nverts;
        params.polys = mesh.polys;
        params.polyFlags = mesh.flags;
        params.polyAreas = mesh.areas;
        params.polyCount = mesh.npolys;
        params.nvp = mesh.nvp;
        params.tileX = column;
        params.tileY = row;
        std::copy_n(mesh.bmin, 3, params.bmin);
        std::copy_n(mesh.bmax, 3, params.bmax);
        params.walkableHeight = BODY_HEIGHT;
        params.walkableClimb = JUMP_HEIGHT;
        params.cs = mesh.cs;
        params.ch = mesh.ch;
        params.buildBvTree = true;
        unsigned char* data = nullptr;
        int size = 0;
        return dtCreateNavMeshData(&params, &data, &size) &&
               dtStatusSucceed(navMesh.addTile(data, size, DT_TILE_FREE_DATA, 0, nullptr));
    }

    const Triangles mTriangles;
    const rcConfig mConfig;
    int mColumns = 0;
    int mRows = 0;
    std::vector<std::vector<int>> mIndices; // of each tile
};
} // namespace

struct DetourMesh::Data
{
    std::unique_ptr<dtNavMesh, Releaser<dtFreeNavMesh>> mNavMesh{dtAllocNavMesh()};
    std::unique_ptr<dtNavMeshQuery, Releaser<dtFreeNavMeshQuery>> mQuery{dtAllocNavMeshQuery()};
    dtQueryFilter mFilter;
    std::vector<dtPolyRef> mCorridor = std::vector<dtPolyRef>(MAX_CORRIDOR);
};

DetourMesh::DetourMesh(std::unique_ptr<Data> data) : mData(std::move(data)) {}

DetourMesh::~DetourMesh() = default;

std::unique_ptr<DetourMesh> DetourMesh::build(const Scenes::Scene& scene, float cube)
{
    useCountingHeap();
    dtAllocSetCustom([](std::size_t size, dtAllocHint) { return Heap::allocate(size); }, Heap::release);
    auto data = std::make_unique<Data>();
    if (!TileBuilder(scene, cube).build(*data->mNavMesh) ||
        dtStatusFailed(data->mQuery->init(data->mNavMesh.get(), MAX_SEARCH_NODES)))
        return nullptr;
    return std::unique_ptr<DetourMesh>(new DetourMesh(std::move(data)));
}

std::size_t DetourMesh::getNumPolygons() const
{
    const dtNavMesh& navMesh = *mData->mNavMesh;
    std::size_t count = 0;
    for (int i = 0; i < navMesh.getMaxTiles(); ++i)
        if (const dtMeshTile* const tile = navMesh.getTile(i); tile != nullptr && tile->header != nullptr)
            count += static_cast<std::size_t>(tile->header->polyCount);
    return count;
}

std::uint32_t DetourMesh::findNearest(const Point& point, const Point& halfExtents) const
{
    dtPolyRef polygon = 0;
    mData->mQuery->findNearestPoly(point.mCoordinates, halfExtents.mCoordinates, &mData->mFilter, &polygon, nullptr);
    return polygon;
}

bool DetourMesh::findPath(std::uint32_t start, std::uint32_t end, const Point& startPoint, const Point& endPoint,
                          std::vector<std::uint32_t>& corridor) const
{
    int count = 0;
    const dtStatus status = mData->mQuery->findPath(start, end, startPoint.mCoordinates, endPoint.mCoordinates,
                                                    &mData->mFilter, mData->mCorridor.data(), &count, MAX_CORRIDOR);
    corridor.assign(mData->mCorridor.begin(), mData->mCorridor.begin() + count);
    return dtStatusSucceed(status) && !dtStatusDetail(status, DT_PARTIAL_RESULT) &&
           !dtStatusDetail(status, DT_OUT_OF_NODES);
}

std::size_t DetourMesh::countExpanded() const
{
    const dtNodePool& pool = *mData->mQuery->getNodePool();
    std::size_t count = 0;
    for (int i = 1; i <= pool.getNodeCount(); ++i)
        count += (pool.getNodeAtIdx(static_cast<unsigned>(i))->flags & DT_NODE_CLOSED) != 0 ? 1 : 0;
    return count;
}

int DetourMesh::findStraightPath(const Point& startPoint, const Point& endPoint,
                                 const std::vector<std::uint32_t>& corridor) const
{
    constexpr int MAX_POINTS = 4096;
    static float points[MAX_POINTS * 3];
    static unsigned char flags[MAX_POINTS];
    static dtPolyRef polygons[MAX_POINTS];
    int count = 0;
    mData->mQuery->findStraightPath(startPoint.mCoordinates, endPoint.mCoordinates, corridor.data(),
                                    static_cast<int>(corridor.size()), points, flags, polygons, &count, MAX_POINTS);
    return count;
}
} // namespace KORV::Benchmarks::Peer
