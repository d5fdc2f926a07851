// Places and ways on meshes of growing size: point location, search, way points, side by side with the peer's on its
// own mesh of the same level, and how good the ways are.

#include "support/build.h"
#include "support/dijkstra.h"
#include "support/level.h"
#include "support/measure.h"
#include "support/table.h"

#include "korv/common/exceptions/exception.h"
#include "korv/common/interface.h"
#include "korv/navmesh/navmeshpathsearch.h"
#include "korv/navmesh/navmeshway.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <cmath>
#include <iostream>
#include <memory>

namespace
{
using namespace KORV::Benchmarks;
using namespace KORV::NavMesh;

struct Options
{
    bool mQuick = false;
    unsigned mRepetitions = 5;
    std::string mLevel;
};

/// A pair of places, and the ways between them.
struct Journey
{
    Journey(const Place& start, const Place& end, const NavMeshContainer& mesh)
        : mStart(start), mEnd(end), mPath(mesh.getMemory())
    {
    }

    Place mStart;
    Place mEnd;
    Vector<NavMeshPathChunk> mPath;
    std::size_t mExpanded = 0;
    std::uint32_t mPeerStart = 0;
    std::uint32_t mPeerEnd = 0;
    std::vector<std::uint32_t> mPeerCorridor;
    std::size_t mPeerExpanded = 0;
};

constexpr unsigned NO_LIMIT = ~0u;
constexpr Peer::Point NEAR_EXTENTS{{0.1f, 1.0f, 0.1f}};
constexpr Peer::Point WIDE_EXTENTS{{0.5f, 1.0f, 0.5f}};

bool start(NavMeshPathSearch& search, const Journey& journey)
{
    return search.initSearch(journey.mStart.mPosition, journey.mStart.mNode, journey.mEnd.mPosition,
                             journey.mEnd.mNode);
}

/// Makes a journey that both can go; false when one of them can't.
bool tryJourney(const Level& level, NavMeshPathSearch& search, Journey& journey)
{
    if (journey.mStart.mNode < 0 || journey.mEnd.mNode < 0 || !start(search, journey))
        return false;
    int state = 1;
    for (; state == 1; state = search.runSearch(1))
        ++journey.mExpanded;
    if (state != 0)
        return false;
    journey.mPath = search.getPath();
    if (level.mPeer == nullptr)
        return true;
    journey.mPeerStart = level.mPeer->findNearest(journey.mStart.toPeer(), WIDE_EXTENTS);
    journey.mPeerEnd = level.mPeer->findNearest(journey.mEnd.toPeer(), WIDE_EXTENTS);
    if (journey.mPeerStart == 0 || journey.mPeerEnd == 0 ||
        !level.mPeer->findPath(journey.mPeerStart, journey.mPeerEnd, journey.mStart.toPeer(), journey.mEnd.toPeer(),
                               journey.mPeerCorridor))
        return false;
    journey.mPeerExpanded = level.mPeer->countExpanded();
    return true;
}

std::vector<Journey> makeJourneys(const Level& level, std::size_t count)
{
    constexpr std::size_t MANY = 20; // tries for each
    const std::vector<Place> places = level.randomPlaces(2 * MANY * count, 2);
    NavMeshPathSearch search(level.mMesh);
    std::vector<Journey> journeys;
    for (std::size_t i = 0; i + 1 < places.size() && journeys.size() < count; i += 2)
    {
        Journey journey(places[i], places[i + 1], *level.mMesh);
        if (tryJourney(level, search, journey))
            journeys.push_back(std::move(journey));
    }
    return journeys;
}

template <class Count>
std::size_t sum(const std::vector<Journey>& journeys, Count&& count)
{
    std::size_t total = 0;
    for (const Journey& journey : journeys)
        total += count(journey);
    return total;
}

std::string nanoseconds(double seconds)
{
    return digits(seconds * 1e9);
}

std::string microseconds(double seconds)
{
    return digits(seconds * 1e6);
}

std::string percent(double share)
{
    return digits(share * 100.0);
}

class Report
{
public:
    explicit Report(const Options& options) : mOptions(options) {}

    void measure(const Level& level)
    {
        measurePoints(level);
        const std::vector<Journey> journeys = makeJourneys(level, mOptions.mQuick ? 16 : 48);
        if (journeys.empty())
            return;
        measureSearch(level, journeys);
        measureWays(level, journeys);
        measureSlices(level, journeys);
        measureQuality(level, journeys);
    }

    void print(std::ostream& out) const
    {
        const std::pair<const char*, const Table*> tables[] = {{"Point location", &mPoints},
                                                               {"Search", &mSearch},
                                                               {"Way points", &mWays},
                                                               {"Slices", &mSlices},
                                                               {"Costs of the ways found", &mQuality}};
        for (const auto& [title, table] : tables)
        {
            out << "### " << title << "\n\n";
            table->print(out);
            out << "\n";
        }
    }

private:
    SecondsPerItem run(Contestants contestants, const Level& level) const
    {
        if (level.mPeer == nullptr)
            contestants.erase("peer");
        return compare(contestants, mOptions.mRepetitions, mOptions.mQuick ? 0.02 : 0.1);
    }

    static std::string nodes(const Level& level) { return grouped(level.mMesh->mNodes.size()); }
    static std::string polygons(const Level& level)
    {
        return level.mPeer != nullptr ? grouped(level.mPeer->getNumPolygons()) : "-";
    }

    void measurePoints(const Level& level)
    {
        const std::vector<Place> places = level.randomPlaces(10000, 1);
        std::size_t found = 0;
        std::size_t foundByPeer = 0;
        Contestants contestants;
        contestants["ours"] = [&]
        {
            found = 0;
            return timed(
                [&]
                {
                    for (const Place& place : places)
                        found += level.mIndex->searchNode(place.mPosition) >= 0 ? 1 : 0;
                    return places.size();
                });
        };
        contestants["peer"] = [&]
        {
            foundByPeer = 0;
            return timed(
                [&]
                {
                    for (const Place& place : places)
                        foundByPeer += level.mPeer->findNearest(place.toPeer(), NEAR_EXTENTS) != 0 ? 1 : 0;
                    return places.size();
                });
        };
        SecondsPerItem times = run(contestants, level);
        const auto all = static_cast<double>(places.size());
        mPoints.add({level.mName, nodes(level), polygons(level), nanoseconds(times["ours"]), nanoseconds(times["peer"]),
                     ratio(times["ours"], times["peer"]), percent(static_cast<double>(found) / all),
                     percent(static_cast<double>(foundByPeer) / all), milliseconds(level.mIndexSeconds),
                     megabytes(level.mIndex->getMemoryUsage())});
    }

    void measureSearch(const Level& level, const std::vector<Journey>& journeys)
    {
        const std::size_t expanded = sum(journeys, [](const Journey& journey) { return journey.mExpanded; });
        const std::size_t peerExpanded = sum(journeys, [](const Journey& journey) { return journey.mPeerExpanded; });
        NavMeshPathSearch search(level.mMesh);
        NavMeshPathSearch onGraph(level.mMesh);
        onGraph.setGraph(SharedPtr<NavMeshSearchGraph>(new (KORV::Common::Interface::getSharedAllocator())
                                                           NavMeshSearchGraph(level.mMesh)));
        const auto searchAll = [&](NavMeshPathSearch& ours)
        {
            return timed(
                [&]
                {
                    for (const Journey& journey : journeys)
                    {
                        start(ours, journey);
                        ours.runSearch(NO_LIMIT);
                        ours.getPath();
                    }
                    return expanded;
                });
        };
        std::vector<std::uint32_t> corridor;
        Contestants contestants;
        contestants["ours"] = [&] { return searchAll(search); };
        contestants["graph"] = [&] { return searchAll(onGraph); };
        contestants["peer"] = [&]
        {
            return timed(
                [&]
                {
                    for (const Journey& journey : journeys)
                        level.mPeer->findPath(journey.mPeerStart, journey.mPeerEnd, journey.mStart.toPeer(),
                                              journey.mEnd.toPeer(), corridor);
                    return peerExpanded;
                });
        };
        SecondsPerItem times = run(contestants, level);
        const double perJourney = static_cast<double>(expanded) / static_cast<double>(journeys.size());
        const double perPeerJourney = static_cast<double>(peerExpanded) / static_cast<double>(journeys.size());
        mSearch.add({level.mName, nodes(level), digits(perJourney), digits(perPeerJourney),
                     microseconds(times["ours"] * perJourney), microseconds(times["peer"] * perPeerJourney),
                     nanoseconds(times["ours"]), nanoseconds(times["graph"]), nanoseconds(times["peer"]),
                     ratio(times["ours"], times["peer"]), ratio(times["graph"], times["peer"])});
    }

    void measureWays(const Level& level, const std::vector<Journey>& journeys)
    {
        const std::size_t corridors = sum(journeys, [](const Journey& journey) { return journey.mPath.size() + 1; });
        const std::size_t peerCorridors =
            sum(journeys, [](const Journey& journey) { return journey.mPeerCorridor.size(); });
        NavMeshWayFinder finder(level.mMesh);
        NavMeshWay way(level.mMesh->getMemory());
        Contestants contestants;
        contestants["ours"] = [&]
        {
            return timed(
                [&]
                {
                    for (const Journey& journey : journeys)
                        finder.findPoints(way, journey.mStart.mPosition, journey.mEnd.mPosition, journey.mPath,
                                          journey.mStart.mNode);
                    return corridors;
                });
        };
        contestants["crossings"] = [&]
        {
            return timed(
                [&]
                {
                    for (const Journey& journey : journeys)
                        finder.findWay(way, journey.mStart.mPosition, journey.mEnd.mPosition, journey.mPath,
                                       journey.mStart.mNode);
                    return corridors;
                });
        };
        contestants["peer"] = [&]
        {
            return timed(
                [&]
                {
                    for (const Journey& journey : journeys)
                        level.mPeer->findStraightPath(journey.mStart.toPeer(), journey.mEnd.toPeer(),
                                                      journey.mPeerCorridor);
                    return peerCorridors;
                });
        };
        SecondsPerItem times = run(contestants, level);
        const auto count = static_cast<double>(journeys.size());
        mWays.add({level.mName, nodes(level), digits(static_cast<double>(corridors) / count),
                   digits(static_cast<double>(peerCorridors) / count), nanoseconds(times["ours"]),
                   nanoseconds(times["peer"]), ratio(times["ours"], times["peer"]), nanoseconds(times["crossings"]),
                   ratio(times["crossings"], times["peer"])});
    }

    /// The slices of one long search, and the start of another one after it.
    void measureSlices(const Level& level, const std::vector<Journey>& journeys)
    {
        constexpr unsigned SLICE = 1000;
        const Journey& journey = *std::max_element(
            journeys.begin(), journeys.end(), [](const auto& a, const auto& b) { return a.mExpanded < b.mExpanded; });
        NavMeshPathSearch search(level.mMesh);
        std::vector<double> starts;
        std::vector<double> slices;
        for (unsigned round = 0; round < mOptions.mRepetitions + 1; ++round)
        {
            const double started = timed([&] { return start(search, journey) ? 1u : 0u; }).mSeconds;
            if (round > 0) // the first one allocates
                starts.push_back(started);
            for (int state = 1; state == 1;)
            {
                const ThreadStopwatch watch;
                state = search.runSearch(SLICE);
                if (round > 0 && state == 1)
                    slices.push_back(watch.getSeconds());
            }
        }
        const double longest = slices.empty() ? 0.0 : *std::max_element(slices.begin(), slices.end());
        mSlices.add({level.mName, nodes(level), grouped(journey.mExpanded), microseconds(median(slices)),
                     microseconds(longest), microseconds(median(starts)),
                     microseconds(*std::max_element(starts.begin(), starts.end()))});
    }

    void measureQuality(const Level& level, const std::vector<Journey>& journeys)
    {
        constexpr double SAME = 1e-5;
        Dijkstra dijkstra(level.mMesh);
        std::size_t numSame = 0;
        double excess = 0.0;
        double largest = 0.0;
        for (const Journey& journey : journeys)
        {
            const double least = dijkstra.leastCost(journey.mStart, journey.mEnd);
            const double found = dijkstra.costOf(journey.mStart, journey.mEnd, journey.mPath);
            const double more = least > 0.0 ? found / least - 1.0 : 0.0;
            numSame += more < SAME ? 1 : 0;
            excess += std::max(more, 0.0);
            largest = std::max(largest, more);
        }
        const auto count = static_cast<double>(journeys.size());
        mQuality.add({level.mName, nodes(level), grouped(journeys.size()),
                      percent(static_cast<double>(numSame) / count), percent(excess / count), percent(largest)});
    }

    const Options mOptions;
    Table mPoints{{"level", "nodes", "polygons of peer", "ns/point", "ns/point of peer", "ratio", "found %",
                   "found by peer %", "index ms", "index MB"}};
    Table mSearch{{"level", "nodes", "expanded", "expanded by peer", "us/search", "us/search of peer", "ns/expanded",
                   "ns/expanded with graph", "ns/expanded of peer", "ratio per expanded", "ratio with graph"}};
    Table mWays{{"level", "nodes", "corridor", "corridor of peer", "ns/polygon", "ns/polygon of peer", "ratio",
                 "ns/polygon with crossings", "its ratio"}};
    Table mSlices{
        {"level", "nodes", "expanded", "us/slice of 1000", "longest us", "us to start a new search", "longest us"}};
    Table mQuality{{"level", "nodes", "ways", "as short as Dijkstra's %", "longer by %, mean", "longer by %, most"}};
};

int run(const Options& options)
{
    const Library library;
    Report report(options);
    for (const LevelPlan& plan : levelPlans(options.mQuick))
    {
        if (plan.mName.find(options.mLevel) == std::string::npos)
            continue;
        std::cerr << "# " << plan.mName << std::endl;
        report.measure(Level(plan));
    }
    report.print(std::cout);
    return 0;
}
} // namespace

int main(int argc, char** argv)
{
    try
    {
        Options options;
        CLI::App app("Places and ways on meshes of growing size, beside the peer's.", "search");
        app.add_flag("--quick", options.mQuick, "small meshes and short runs");
        app.add_option("--repeat", options.mRepetitions, "repetitions; medians are shown")
            ->check(CLI::Range(1, 1000))
            ->capture_default_str();
        app.add_option("--level", options.mLevel, "only levels with this in their names");
        CLI11_PARSE(app, argc, argv);
        return run(options);
    }
    catch (const std::exception& error)
    {
        std::cerr << "search: " << error.what() << "\n";
    }
    catch (KORV::Common::Exceptions::Exception* error)
    {
        std::cerr << "search: " << error->getDescription().c_str() << "\n";
        delete error;
    }
    return 1;
}
