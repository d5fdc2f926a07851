// Rates of writing and reading a mesh in memory: the binary form beside hand-written loops over the same bytes, the
// document beside another XML parser.

#include "peer/otherxml.h"
#include "support/bufferstream.h"
#include "support/build.h"
#include "support/heap.h"
#include "support/itemloop.h"
#include "support/measure.h"
#include "support/table.h"

#include "korv/common/debug/assert.h"
#include "korv/common/exceptions/exception.h"
#include "korv/common/interface.h"
#include "korv/common/parser/xml/xmlparser.h"
#include "korv/navmesh/navmeshserializer.h"

#include <CLI/CLI.hpp>

#include <cmath>
#include <cstring>
#include <iostream>
#include <stdexcept>

namespace
{
using namespace KORV::Benchmarks;
using namespace KORV::NavMesh;
using namespace KORV::Common::Platform::Endian;
using KORV::int32;
using KORV::uint32;
using StreamPtr = SharedPtr<KORV::Common::Stream>;
using Buffer = std::vector<std::uint8_t>;

struct Options
{
    uint32 mSide = 1000;
    unsigned mRepetitions = 5;
    bool mQuick = false;
};

/// A mesh of side x side four-cornered nodes, linked all around, on wavy ground.
SharedPtr<NavMeshContainer> gridMesh(uint32 side)
{
    SharedPtr<NavMeshContainer> mesh(new (KORV::Common::Interface::getSharedAllocator()) NavMeshContainer);
    mesh->mNormal = {0.0f, 1.0f, 0.0f};
    mesh->mXAxis = {0.0f, 0.0f, 1.0f};
    mesh->mYAxis = {1.0f, 0.0f, 0.0f};
    mesh->mCubeSize = 0.1f;
    mesh->mHeight.push_back(1.8f);
    mesh->mCharacters.push_back({"human", 1, BODY_HEIGHT, JUMP_HEIGHT, FALL_HEIGHT, 0});
    mesh->mSurfaceTypes.push_back({"Default", 0});
    const uint32 row = side + 1;
    for (uint32 i = 0; i < row * row; ++i)
    {
        const float x = 0.37f * static_cast<float>(i % row);
        const float z = 0.41f * static_cast<float>(i / row);
        mesh->mVertices.push_back({x, std::sin(x * 0.1f) * std::cos(z * 0.07f), z});
    }
    mesh->mNodes.reserve(static_cast<std::size_t>(side) * side);
    for (uint32 i = 0; i < side * side; ++i)
    {
        const uint32 x = i % side;
        const uint32 z = i / side;
        const uint32 corner = z * row + x;
        const auto id = [&](bool isInside, uint32 node) { return isInside ? static_cast<int32>(node) : -1; };
        NavMeshContainer::NavNode& node = mesh->mNodes.emplace_back(mesh->getMemory());
        node.mHeightClass = 0;
        node.mSurfaceTypeID = 0;
        for (const uint32 vertex : {corner, corner + row, corner + row + 1, corner + 1})
            node.mPolygon.push_back(vertex);
        for (const int32 neighbour :
             {id(x > 0, i - 1), id(z + 1 < side, i + side), id(x + 1 < side, i + 1), id(z > 0, i - side)})
            node.mNeighbours.push_back(neighbour);
    }
    return mesh;
}

StreamPtr streamOver(Buffer& buffer, std::size_t length)
{
    return StreamPtr(new (KORV::Common::Interface::getSharedAllocator()) BufferStream(buffer, length));
}

/// Lets a function write to a stream in a buffer that grows as needed.
/// @return the bytes written.
template <class Function>
Buffer written(std::size_t room, Function&& function)
{
    Buffer buffer(room);
    const StreamPtr stream = streamOver(buffer, 0);
    function(stream);
    buffer.resize(static_cast<std::size_t>(stream->getLength()));
    return buffer;
}

void check(bool condition, const char* what)
{
    if (!condition)
        throw std::runtime_error(what);
}

class Report
{
public:
    explicit Report(const Options& options) : mOptions(options), mMesh(gridMesh(options.mSide))
    {
        const std::size_t room = mMesh->mNodes.size() * 1000 + 1'000'000;
        mBinary = written(room, [&](const StreamPtr& stream)
                          { NavMeshSerializer::writeNavMeshBinary(stream, mMesh, ENDIAN_LITTLE); });
        mBigEndian = written(room, [&](const StreamPtr& stream)
                             { NavMeshSerializer::writeNavMeshBinary(stream, mMesh, ENDIAN_BIG); });
        mDocument =
            written(room, [&](const StreamPtr& stream) { NavMeshSerializer::writeNavMesh(stream.get(), mMesh); });
    }

    void print(std::ostream& out)
    {
        out << "### Binary form\n\n";
        measureBinary(out);
        out << "\n### Document\n\n";
        measureDocument(out);
    }

private:
    SecondsPerItem run(const Contestants& contestants) const
    {
        return compare(contestants, mOptions.mRepetitions, mOptions.mQuick ? 0.02 : 0.5);
    }

    void measureBinary(std::ostream& out)
    {
        const ItemLoop loop(*mMesh, mBinary);
        Buffer target(mBinary.size());
        const std::size_t loopBytes = loop.write(*mMesh, target.data());
        check(std::memcmp(target.data(), mBinary.data() + loop.getOffset(), loopBytes) == 0,
              "the loop writes other bytes than the library");
        check(loop.read(target.data())->mNodes.size() == mMesh->mNodes.size(), "the loop reads another mesh");

        Buffer output(std::max(mBinary.size(), mBigEndian.size()));
        std::uint64_t sum = 0;
        const auto write = [&](Endiness endiness)
        {
            const StreamPtr stream = streamOver(output, 0);
            NavMeshSerializer::writeNavMeshBinary(stream, mMesh, endiness);
            return mBinary.size();
        };
        const auto read = [&](Buffer& stored)
        {
            return timedRead(stored.size(),
                             [&] { return NavMeshSerializer::readNavMeshBinary(streamOver(stored, stored.size())); });
        };
        SecondsPerItem times = run({
            {"write", [&] { return timed([&] { return write(ENDIAN_LITTLE); }); }},
            {"write, other byte order", [&] { return timed([&] { return write(ENDIAN_BIG); }); }},
            {"write, loop", [&] { return timed([&] { return loop.write(*mMesh, target.data()); }); }},
            {"read", [&] { return read(mBinary); }},
            {"read, other byte order", [&] { return read(mBigEndian); }},
            {"read, loop", [&] { return timedRead(loopBytes, [&] { return loop.read(target.data()); }); }},
            {"read, loop that keeps nothing",
             [&]
             {
                 return timed(
                     [&]
                     {
                         sum += loop.sum(target.data());
                         return loopBytes;
                     });
             }},
        });
        check(sum != 0, "the loop reads nothing");
        Table table({"operation", "MB", "MB/s", "ns/node", "share of the loop's rate"});
        const std::string size = megabytes(mBinary.size());
        for (const auto& [name, seconds] : times)
            table.add({name, size, rate(seconds), perNode(seconds, mBinary.size()),
                       ratio(times[name.substr(0, name.find(',')) + ", loop"], seconds)});
        table.print(out);
    }

    void measureDocument(std::ostream& out)
    {
        using KORV::Common::Parser::XML::XMLParser;
        Buffer output(mDocument.size());
        const auto parse = [&]
        {
            XMLParser parser(KORV::Common::Interface::getSharedAllocator());
            const StreamPtr stream = streamOver(mDocument, mDocument.size());
            check(parser.parse(stream.get()) != nullptr, "no tree");
            return mDocument.size();
        };
        const auto parseOther = [&]
        {
            check(Peer::parseOtherXml(mDocument), "no tree of pugixml");
            return mDocument.size();
        };
        const auto read = [&]
        {
            const StreamPtr stream = streamOver(mDocument, mDocument.size());
            return timedRead(mDocument.size(), [&] { return NavMeshSerializer::readNavMesh(stream.get()); });
        };
        const auto write = [&]
        {
            NavMeshSerializer::writeNavMesh(streamOver(output, 0).get(), mMesh);
            return mDocument.size();
        };
        Contestants contestants{
            {"write", [&] { return timed(write); }}, {"read", read}, {"parse alone", [&] { return timed(parse); }}};
        if (Peer::hasOtherXml())
            contestants["parse, pugixml"] = [&] { return timed(parseOther); };
        SecondsPerItem times = run(contestants);
        const std::size_t ownPeak = peakOf(parse);
        const std::size_t otherPeak = Peer::hasOtherXml() ? peakOf(parseOther) : 0;

        Table table({"operation", "MB", "MB/s", "ns/node", "time of pugixml's", "peak MB", "memory of pugixml's"});
        for (const auto& [name, seconds] : times)
        {
            const bool isParse = name.starts_with("parse");
            const std::size_t peak = name == "parse alone" ? ownPeak : otherPeak;
            table.add({name, megabytes(mDocument.size()), rate(seconds), perNode(seconds, mDocument.size()),
                       isParse ? ratio(seconds, times["parse, pugixml"]) : "", isParse ? megabytes(peak) : "",
                       isParse ? ratio(static_cast<double>(peak), static_cast<double>(otherPeak)) : ""});
        }
        table.print(out);
    }

    /// Times a function that returns a mesh, but not the mesh's end.
    template <class Function>
    static Batch timedRead(std::size_t bytes, Function&& function)
    {
        SharedPtr<NavMeshContainer> mesh;
        const Batch batch = timed(
            [&]
            {
                mesh = function();
                return bytes;
            });
        check(mesh != nullptr, "no mesh");
        return batch;
    }

    template <class Function>
    static std::size_t peakOf(Function&& function)
    {
        Heap::resetPeak();
        function();
        return Heap::getPeak();
    }

    static std::string rate(double secondsPerByte) { return digits(1e-6 / secondsPerByte); }
    std::string perNode(double secondsPerByte, std::size_t bytes) const
    {
        return digits(secondsPerByte * static_cast<double>(bytes) / static_cast<double>(mMesh->mNodes.size()) * 1e9);
    }

    const Options mOptions;
    SharedPtr<NavMeshContainer> mMesh;
    Buffer mBinary;
    Buffer mBigEndian;
    Buffer mDocument;
};

/// Prints reports but for the warning that a stream has the other byte order, which is measured here.
void printReport(const char* text, const char* file, uint32 line, void*)
{
    if (std::strstr(text, "endiness") == nullptr)
        std::cerr << file << ":" << line << ": " << text << "\n";
}

void run(const Options& options)
{
    const Library library;
    KORV::Common::Debug::setAssertionHandler(&printReport, nullptr);
    std::cerr << "# mesh of " << options.mSide * options.mSide << " nodes" << std::endl;
    Report(options).print(std::cout);
}
} // namespace

int main(int argc, char** argv)
{
    try
    {
        Options options;
        CLI::App app("Rates of writing and reading a mesh in memory.", "persistence");
        app.add_option("--side", options.mSide, "nodes along the side of the mesh")
            ->check(CLI::Range(2, 1000))
            ->capture_default_str();
        app.add_option("--repeat", options.mRepetitions, "repetitions; medians are shown")
            ->check(CLI::Range(1, 1000))
            ->capture_default_str();
        app.add_flag("--quick", options.mQuick, "a small mesh and short runs");
        CLI11_PARSE(app, argc, argv);
        if (options.mQuick)
            options.mSide = std::min(options.mSide, 200u);
        run(options);
        return 0;
    }
    catch (const std::exception& error)
    {
        std::cerr << "persistence: " << error.what() << "\n";
    }
    catch (KORV::Common::Exceptions::Exception* error)
    {
        std::cerr << "persistence: " << error->getDescription().c_str() << "\n";
        delete error;
    }
    return 1;
}
