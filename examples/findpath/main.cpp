// A host that loads a mesh and finds a way for one character: findpath MESH FROMX FROMY FROMZ TOX TOY TOZ [CHARACTER]
#include "korv/common/callback/standardcallbacks.h"
#include "korv/navmesh/interface.h"
#include "korv/navmesh/navmeshserializer.h"
#include "korv/navmesh/navmeshway.h"

#include <cstdio>
#include <cstdlib>
#include <limits>

using namespace KORV::NavMesh;
using namespace KORV::Common::Callback;

namespace
{
/// The node at a place, or that of the nearest place on the mesh, which the place is then moved to.
int standOn(const NavMeshNodeIndex& index, Vec3<float>& place, const NavMeshSearchFilter& filter)
{
    const int node = index.searchNode(place);
    if (node >= 0)
        return node;
    const NavMeshPlace nearest = index.nearestNode(place, std::numeric_limits<float>::infinity(), &filter);
    place = nearest.mPosition;
    return nearest.mNodeID;
}

void print(const NavMeshWay& way)
{
    const char* const moves[] = {"walk", "jump up", "drop down"};
    for (const NavMeshWayPoint& point : way.mPoints)
        std::printf("%g %g %g in node %d, then %s\n", static_cast<double>(point.mPosition.mX),
                    static_cast<double>(point.mPosition.mY), static_cast<double>(point.mPosition.mZ), point.mNodeID,
                    &point == &way.mPoints.back() ? "stop" : moves[static_cast<int>(point.mMove)]);
    std::printf("length %g\n", static_cast<double>(way.mLength));
}

/// @return whether there is a way.
bool findWay(const SharedPtr<NavMeshContainer>& mesh, Vec3<float> from, Vec3<float> to, const CharacterInfo* character)
{
    NavMeshSearchFilter filter(mesh->getMemory());
    if (character != nullptr)
        filter.setCharacter(*character);
    filter.setBodyRadius(0.2f);

    const NavMeshNodeIndex index(mesh); // once a mesh
    const int fromNode = standOn(index, from, filter);
    const int toNode = standOn(index, to, filter);

    NavMeshPathSearch search(mesh); // once a character; searches one way after the other
    search.setFilter(&filter);
    if (!search.initSearch(from, fromNode, to, toNode))
        return false;
    int state = 1;
    while (state == 1) // a game would do one slice a frame
        state = search.runSearch(100);
    if (state != 0)
        return false;

    NavMeshWayFinder finder(mesh);
    finder.setBodyRadius(0.2f);
    NavMeshWay way(mesh->getMemory());
    finder.findWay(way, from, to, search.getPath(), fromNode);
    print(way);
    return true;
}

int run(char** arguments, const char* characterName)
{
    const SharedPtr<NavMeshContainer> mesh = NavMeshSerializer::readCheckedNavMesh(arguments[0]);
    if (mesh == nullptr)
        return 1;
    float numbers[6];
    for (int i = 0; i < 6; ++i)
        numbers[i] = std::strtof(arguments[i + 1], nullptr);
    const CharacterInfo* const character = characterName != nullptr ? mesh->getCharacter(characterName) : nullptr;
    if (findWay(mesh, {numbers[0], numbers[1], numbers[2]}, {numbers[3], numbers[4], numbers[5]}, character))
        return 0;
    std::puts("there is no way");
    return 3;
}
} // namespace

int main(int argc, char** argv)
{
    if (argc != 8 && argc != 9)
    {
        std::fprintf(stderr, "usage: findpath MESH FROMX FROMY FROMZ TOX TOY TOZ [CHARACTER]\n");
        return 2;
    }
    Interface::initLibrary(SharedPtr<MemoryCallback>(new StandardMemoryCallback),
                           SharedPtr<FileIOCallback>(new StandardFileIOCallback));
    int result = 1;
    try
    {
        result = run(argv + 1, argc == 9 ? argv[8] : nullptr);
    }
    catch (KORV::Common::Exceptions::Exception* error) // the library throws pointers; who catches one deletes it
    {
        std::fprintf(stderr, "%s\n", error->getDescription().c_str());
        delete error;
    }
    Interface::closeLibrary();
    return result;
}
