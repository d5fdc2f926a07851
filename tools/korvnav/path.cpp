// korvnav path: the way of one character from one place on a stored mesh to another.

#include "atomicfile.h"
#include "commands.h"
#include "failure.h"
#include "interrupt.h"
#include "json.h"
#include "library.h"
#include "meshfile.h"
#include "options.h"
#include "picture.h"
#include "place.h"
#include "summary.h"
#include "text.h"

#include "korv/navmesh/navmeshpathsearch.h"
#include "korv/navmesh/navmeshway.h"

#include <algorithm>
#include <filesystem>
#include <limits>
#include <memory>
#include <optional>

namespace KORV::Tool
{
namespace
{
using NavMesh::NavMeshCrossing;
using NavMesh::NavMeshMove;
using NavMesh::NavMeshPlace;
using NavMesh::NavMeshWay;
using NavMesh::NavMeshWayPoint;
using Point = NavMesh::Vec3<float>;

const char* const PATH_JSON_HELP =
    "--json prints one object: file, character (null for none), radius, from {position, node},\n"
    "to {position, node}, found, slices, cost, nodes [ids], crossings [{from, to, side, move, height, width,\n"
    "leaving, landing}], wayPoints [{position, node, move, height, length}] (move, height and length of the\n"
    "leg to the next point; the last has none), length, straight, version. A move is walk, jump or drop.\n"
    "Without a way: found is false, and nearest {position, node, distance, cost} is the place nearest to the goal\n"
    "that can be reached, or null; the exit code is 3.\n";

/// The options as they were typed.
struct PathArguments
{
    std::string mMesh;
    std::string mFrom;
    std::string mTo;
    std::string mCharacter;
    std::string mRadius = "0";
    std::vector<std::string> mCosts;
    std::string mSteps;
    std::string mPicture;
    bool mJson = false;
};

/// The options as they are meant.
struct PathOptions
{
    std::string mMesh;
    Point mFrom;
    Point mTo;
    std::string mCharacter; ///< empty for none
    float mRadius = 0.0f;
    std::vector<CostOption> mCosts;
    std::optional<uint32> mSteps;
    std::string mPicture; ///< empty for none
    bool mJson = false;
};

/// What was found.
struct PathResult
{
    explicit PathResult(const NavMesh::NavMeshContainer& mesh) : mWay(mesh.getMemory()) {}

    int mFromNode = -1;
    int mToNode = -1;
    bool mFound = false;
    uint64 mSlices = 0;
    float mCost = 0.0f;
    NavMeshPlace mNearest; ///< where there is no way
    NavMeshWay mWay;
};

PathOptions interpret(const PathArguments& arguments)
{
    PathOptions options;
    options.mMesh = arguments.mMesh;
    options.mFrom = parsePoint("--from", arguments.mFrom);
    options.mTo = parsePoint("--to", arguments.mTo);
    options.mCharacter = arguments.mCharacter;
    options.mRadius = parseRadius(arguments.mRadius);
    for (const std::string& cost : arguments.mCosts)
        options.mCosts.push_back(parseCost(cost));
    if (!arguments.mSteps.empty())
        options.mSteps = parseSteps(arguments.mSteps);
    options.mPicture = arguments.mPicture;
    options.mJson = arguments.mJson;
    return options;
}

/// "'human', 'mouse'"
template <class List>
std::string namesOf(const List& list)
{
    std::string names;
    for (const auto& item : list)
        names += (names.empty() ? "'" : ", '") + toStd(item.mName) + "'";
    return names.empty() ? "none" : names;
}

const NavMesh::CharacterInfo& findCharacter(const NavMesh::NavMeshContainer& mesh, const std::string& name)
{
    const NavMesh::CharacterInfo* const character = mesh.getCharacter(toLibrary(name));
    if (character == nullptr)
        throw Failure(ExitCode::BadUsage, "--character '" + name +
                                              "': the mesh was not made for that one; its characters are " +
                                              namesOf(mesh.mCharacters) + ".");
    return *character;
}

NavMesh::NavMeshSearchFilter filterFor(const PathOptions& options, const NavMesh::NavMeshContainer& mesh)
{
    NavMesh::NavMeshSearchFilter filter(mesh.getMemory());
    if (!options.mCharacter.empty())
        filter.setCharacter(findCharacter(mesh, options.mCharacter));
    filter.setBodyRadius(options.mRadius);
    for (const CostOption& cost : options.mCosts)
    {
        const NavMesh::SurfaceType* const surface = mesh.getSurfaceType(toLibrary(cost.mSurface));
        if (surface == nullptr)
            throw Failure(ExitCode::BadUsage, "--cost '" + cost.mSurface +
                                                  "': the mesh has no surface type of that name; it has " +
                                                  namesOf(mesh.mSurfaceTypes) + ".");
        filter.setSurfaceCost(surface->mID, cost.mFactor);
    }
    return filter;
}

/// Runs the search; in slices, if that was asked for.
bool runSearch(NavMesh::NavMeshPathSearch& search, const std::optional<uint32>& steps, uint64& slices)
{
    int state = 1;
    for (slices = 0; state == 1; ++slices)
        state = search.runSearch(steps.value_or(std::numeric_limits<uint32>::max()));
    return state == 0;
}

PathResult findPath(const PathOptions& options, const MeshPtr& mesh)
{
    const NavMesh::NavMeshSearchFilter filter = filterFor(options, *mesh);
    const NavMesh::NavMeshNodeIndex index(mesh);
    PathResult result(*mesh);
    result.mFromNode = findNode(index, "--from", options.mFrom, filter);
    result.mToNode = findNode(index, "--to", options.mTo, filter);

    NavMesh::NavMeshPathSearch search(mesh);
    search.setFilter(&filter);
    search.initSearch(options.mFrom, result.mFromNode, options.mTo, result.mToNode);
    result.mFound = runSearch(search, options.mSteps, result.mSlices);
    if (!result.mFound)
    {
        result.mNearest = search.getNearestReachable();
        result.mCost = result.mNearest.isValid() ? search.getCost(result.mNearest.mNodeID) : 0.0f;
        return result;
    }
    result.mCost = search.getCost(result.mToNode);
    NavMesh::NavMeshWayFinder finder(mesh);
    finder.setBodyRadius(options.mRadius);
    finder.findWay(result.mWay, options.mFrom, options.mTo, search.getPath(), result.mFromNode);
    return result;
}

const char* nameOf(NavMeshMove move)
{
    return move == NavMeshMove::JUMP_UP ? "jump" : move == NavMeshMove::DROP_DOWN ? "drop" : "walk";
}

std::string number(float value)
{
    return decimal(static_cast<double>(value), 3);
}

/// "3 walked, 1 jumped, 0 dropped"
std::string movesText(const NavMeshWay& way)
{
    const auto count = [&way](NavMeshMove move)
    {
        return grouped(static_cast<uint64>(std::count_if(way.mCrossings.begin(), way.mCrossings.end(),
                                                         [move](const NavMeshCrossing& crossing)
                                                         { return crossing.mMove == move; })));
    };
    return count(NavMeshMove::WALK) + " walked, " + count(NavMeshMove::JUMP_UP) + " jumped, " +
           count(NavMeshMove::DROP_DOWN) + " dropped";
}

std::string crossingLines(const NavMeshWay& way)
{
    std::string text;
    for (const NavMeshCrossing& crossing : way.mCrossings)
        text += entry(text.empty() ? "crossings" : "",
                      std::to_string(crossing.mFromNode) + " to " + std::to_string(crossing.mToNode) + ": " +
                          nameOf(crossing.mMove) + ", height " + number(crossing.mHeight) + ", width " +
                          number(crossing.mWidth) + ", at " + placeText(crossing.mLeaving));
    return text;
}

std::string wayPointLines(const NavMeshWay& way)
{
    std::string text;
    for (std::size_t i = 0; i < way.mPoints.size(); ++i)
    {
        const NavMeshWayPoint& point = way.mPoints[i];
        std::string leg;
        if (i + 1 < way.mPoints.size())
        {
            leg = std::string(", then ") + nameOf(point.mMove);
            leg += point.mMove == NavMeshMove::WALK ? "" : " " + number(point.mHeight);
            leg += ", " + number((way.mPoints[i + 1].mPosition - point.mPosition).getLength());
        }
        text += entry(text.empty() ? "way points" : "",
                      placeText(point.mPosition) + " in node " + std::to_string(point.mNodeID) + leg);
    }
    return text;
}

/// "human, radius 0.3, grass costs 2, not on water"
std::string whoText(const PathOptions& options)
{
    std::string text = options.mCharacter.empty() ? "anybody" : options.mCharacter;
    text += options.mRadius > 0.0f ? ", radius " + shortest(options.mRadius) : "";
    for (const CostOption& cost : options.mCosts)
        text += cost.mFactor > 0.0f ? ", " + cost.mSurface + " costs " + shortest(cost.mFactor)
                                    : ", not on " + cost.mSurface;
    return text;
}

std::string pathText(const PathOptions& options, const PathResult& result)
{
    const NavMeshWay& way = result.mWay;
    std::string nodes = std::to_string(result.mFromNode);
    for (const NavMeshCrossing& crossing : way.mCrossings)
        nodes += " " + std::to_string(crossing.mToNode);
    std::string text = options.mMesh + "\n";
    text += entry("who", whoText(options));
    text += entry("from", placeText(options.mFrom) + " in node " + std::to_string(result.mFromNode));
    text += entry("to", placeText(options.mTo) + " in node " + std::to_string(result.mToNode));
    if (options.mSteps)
        text += entry("search", counted(result.mSlices, "slice") + " of " + counted(*options.mSteps, "node"));
    text += entry("path", counted(way.mCrossings.size() + 1, "node") + ", " +
                              counted(way.mCrossings.size(), "crossing") + ": " + movesText(way));
    text += entry("nodes", nodes);
    text += crossingLines(way);
    text += wayPointLines(way);
    text += entry("length", number(way.mLength) + "; straight " + number((options.mTo - options.mFrom).getLength()) +
                                ", cost of the search " + number(result.mCost));
    if (!options.mPicture.empty())
        text += entry("picture", options.mPicture);
    return text;
}

JsonValue crossingsJson(const NavMeshWay& way)
{
    JsonValue list = JsonValue::array();
    for (const NavMeshCrossing& crossing : way.mCrossings)
        list.push_back({{"from", crossing.mFromNode},
                        {"to", crossing.mToNode},
                        {"side", crossing.mBorderID},
                        {"move", nameOf(crossing.mMove)},
                        {"height", asDouble(crossing.mHeight)},
                        {"width", asDouble(crossing.mWidth)},
                        {"leaving", vectorJson(crossing.mLeaving)},
                        {"landing", vectorJson(crossing.mLanding)}});
    return list;
}

JsonValue wayPointsJson(const NavMeshWay& way)
{
    JsonValue list = JsonValue::array();
    for (std::size_t i = 0; i < way.mPoints.size(); ++i)
    {
        const NavMeshWayPoint& point = way.mPoints[i];
        JsonValue item = {{"position", vectorJson(point.mPosition)}, {"node", point.mNodeID}};
        if (i + 1 < way.mPoints.size())
        {
            item["move"] = nameOf(point.mMove);
            item["height"] = asDouble(point.mHeight);
            item["length"] = asDouble((way.mPoints[i + 1].mPosition - point.mPosition).getLength());
        }
        list.push_back(item);
    }
    return list;
}

JsonValue nearestJson(const PathResult& result)
{
    if (!result.mNearest.isValid())
        return nullptr;
    return {{"position", vectorJson(result.mNearest.mPosition)},
            {"node", result.mNearest.mNodeID},
            {"distance", asDouble(result.mNearest.mDistance)},
            {"cost", asDouble(result.mCost)}};
}

std::string pathJson(const PathOptions& options, const PathResult& result)
{
    JsonValue json = {{"file", options.mMesh},
                      {"character", options.mCharacter.empty() ? JsonValue(nullptr) : JsonValue(options.mCharacter)},
                      {"radius", asDouble(options.mRadius)},
                      {"from", {{"position", vectorJson(options.mFrom)}, {"node", result.mFromNode}}},
                      {"to", {{"position", vectorJson(options.mTo)}, {"node", result.mToNode}}},
                      {"found", result.mFound},
                      {"slices", result.mSlices}};
    if (result.mFound)
    {
        JsonValue nodes = JsonValue::array({result.mFromNode});
        for (const NavMeshCrossing& crossing : result.mWay.mCrossings)
            nodes.push_back(crossing.mToNode);
        json["cost"] = asDouble(result.mCost);
        json["nodes"] = nodes;
        json["crossings"] = crossingsJson(result.mWay);
        json["wayPoints"] = wayPointsJson(result.mWay);
        json["length"] = asDouble(result.mWay.mLength);
        json["straight"] = asDouble((options.mTo - options.mFrom).getLength());
    }
    else
    {
        json["nearest"] = nearestJson(result);
    }
    json["version"] = KORVNAV_VERSION;
    return dump(json);
}

[[noreturn]] void refuseUnreachable(const PathOptions& options, const PathResult& result)
{
    std::string text = "there is no way from " + placeText(options.mFrom) + " to " + placeText(options.mTo) + " for " +
                       whoText(options);
    if (result.mNearest.isValid())
        text += "; the nearest place that can be reached is " + placeText(result.mNearest.mPosition) + ", " +
                number(result.mNearest.mDistance) + " from the goal";
    else
        text += "; the start itself is no ground for that one";
    throw Failure(ExitCode::NoWay, text + ".");
}

void drawWay(const PathOptions& options, const NavMesh::NavMeshContainer& mesh, const NavMeshWay& way)
{
    const std::string title = std::filesystem::path(options.mMesh).filename().string() + ": " +
                              placeText(options.mFrom) + " to " + placeText(options.mTo);
    const std::string drawing = drawPicture(mesh, title, &way);
    Interrupt interrupt;
    interrupt.poll(true); // a signal must not leave a temporary file behind
    AtomicFile picture(options.mPicture);
    picture.write(drawing);
    Interrupt::throwIfRequested();
    picture.commit();
}

void path(const PathOptions& options)
{
    const Reports reports;
    const MeshPtr mesh = readSoundMesh(options.mMesh);
    const PathResult result = findPath(options, mesh);
    if (result.mFound && !options.mPicture.empty())
        drawWay(options, *mesh, result.mWay);
    if (options.mJson)
        print(pathJson(options, result));
    else if (result.mFound)
        print(pathText(options, result));
    if (!result.mFound)
        refuseUnreachable(options, result);
}

int runPath(const PathArguments& arguments)
{
    const PathOptions options = interpret(arguments);
    if (!options.mPicture.empty())
        AtomicFile::check(options.mPicture);
    const Library library(false);
    guarded("", "", [&] { path(options); }); // what is thrown must not outlive the library
    return static_cast<int>(ExitCode::Done);
}
} // namespace

Command addPathCommand(CLI::App& program)
{
    const auto arguments = std::make_shared<PathArguments>();
    CLI::App* const command = program.add_subcommand("path", "Finds a way on a stored mesh.");
    command->add_option("mesh", arguments->mMesh, "mesh to read")->required()->type_name("MESH");
    command->add_option("--from", arguments->mFrom, "where the way starts, on the mesh")
        ->required()
        ->type_name("X,Y,Z");
    command->add_option("--to", arguments->mTo, "where it ends, on the mesh")->required()->type_name("X,Y,Z");
    command
        ->add_option("--character", arguments->mCharacter,
                     "who walks: only where that character of the mesh fits, and within its own jump and fall height")
        ->type_name("NAME");
    command->add_option("--radius", arguments->mRadius, "half the width of the body; narrower crossings are refused")
        ->type_name("R")
        ->capture_default_str();
    command
        ->add_option("--cost", arguments->mCosts,
                     "how much dearer a surface type is to walk on, at least 1; 0 forbids it")
        ->type_name("SURFACE=FACTOR")
        ->allow_extra_args(false);
    command->add_option("--steps", arguments->mSteps, "search in slices of so many nodes, and tell how many it took")
        ->type_name("N");
    command->add_flag("--json", arguments->mJson, "print one JSON object, and nothing else, on standard output");
    command->add_option("--svg", arguments->mPicture, "picture of the way on the mesh to write")
        ->type_name("PICTURE.svg");
    command->footer(PATH_JSON_HELP);
    return {command, [arguments] { return runPath(*arguments); }};
}
} // namespace KORV::Tool
