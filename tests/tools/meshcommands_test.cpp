// The subcommands of korvnav that take a stored mesh: path, prune, convert.

#include "program.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <cmath>

namespace KORV::Tests
{
namespace
{
using Json = nlohmann::json;

/// OBJ of level squares, each given by its lower corner, its edge and its height, over a speck far below that keeps
/// them off the voxel boundaries.
struct Square
{
    float mX;
    float mZ;
    float mEdge;
    float mY;
    const char* mMaterial = "ground";
};

std::string squaresText(const std::vector<Square>& squares)
{
    std::string text = "v 0 -3 0\nv 0 -3 0.1\nv 0.1 -3 0\nf 1 3 2\n";
    int corner = 4;
    for (const Square& square : squares)
    {
        text += std::string("usemtl ") + square.mMaterial + "\n";
        for (const auto& [dx, dz] :
             {std::pair{0.0f, 0.0f}, {0.0f, square.mEdge}, {square.mEdge, square.mEdge}, {square.mEdge, 0.0f}})
            text += "v " + std::to_string(square.mX + dx) + " " + std::to_string(square.mY) + " " +
                    std::to_string(square.mZ + dz) + "\n";
        text += "f " + std::to_string(corner) + " " + std::to_string(corner + 1) + " " + std::to_string(corner + 2) +
                " " + std::to_string(corner + 3) + "\n";
        corner += 4;
    }
    return text;
}

/// A terrace 0.8 above the ground beside it, and an island. Made for a cat that jumps up, and a dog that only drops.
class MeshCommands : public testing::Test
{
protected:
    void SetUp() override
    {
        const std::string scene =
            mDirectory.write("scene.obj", squaresText({{0, 0, 6, 0.1f}, {6.3f, 0, 6, 0.9f}, {30, 0, 4, 0.1f}}));
        mMesh = mDirectory.file("mesh.knm");
        const Outcome built = run(KORVNAV, {"build", scene, "-o", mMesh, "--character", "cat:0.4:1.0:2.0",
                                            "--character", "dog:0.7:0.3:1.0", "--quiet"});
        ASSERT_EQ(built.mExitCode, 0) << built.mErrors;
    }

    Outcome findPath(const std::string& from, const std::string& to, std::vector<std::string> more = {}) const
    {
        std::vector<std::string> arguments{"path", mMesh, "--from", from, "--to", to};
        arguments.insert(arguments.end(), more.begin(), more.end());
        return run(KORVNAV, arguments);
    }
    Json findPathJson(const std::string& from, const std::string& to, std::vector<std::string> more = {}) const
    {
        more.push_back("--json");
        return Json::parse(findPath(from, to, more).mOutput);
    }

    static std::vector<std::string> movesOf(const Json& path)
    {
        std::vector<std::string> moves;
        for (const Json& crossing : path.at("crossings"))
            if (crossing.at("move") != "walk")
                moves.push_back(crossing.at("move"));
        return moves;
    }

    TemporaryDirectory mDirectory;
    std::string mMesh;
};

const std::string GROUND = "2,0.2,3";
const std::string TERRACE = "10,1,3";
const std::string ISLAND = "32,0.2,2";
} // namespace

TEST_F(MeshCommands, aPathSaysWhereItJumpsAndWhoCanGoIt)
{
    const Json up = findPathJson(GROUND, TERRACE, {"--character", "cat"});
    EXPECT_EQ(up.at("found"), true);
    EXPECT_EQ(movesOf(up), std::vector<std::string>{"jump"});
    EXPECT_NEAR(up.at("crossings")[0].at("height").get<double>(), 0.8, 0.26); // both tops lie on voxels
    EXPECT_EQ(up.at("nodes").size(), up.at("crossings").size() + 1);
    const Json& points = up.at("wayPoints");
    ASSERT_GE(points.size(), 4u); // start, both ends of the jump, end
    double length = 0.0;
    for (std::size_t i = 0; i + 1 < points.size(); ++i)
        length += points[i].at("length").get<double>();
    EXPECT_NEAR(length, up.at("length").get<double>(), 1e-3);
    EXPECT_GE(length, up.at("straight").get<double>() - 1e-4);

    EXPECT_EQ(movesOf(findPathJson(TERRACE, GROUND, {"--character", "dog"})), std::vector<std::string>{"drop"});
    const Outcome dog = findPath(GROUND, TERRACE, {"--character", "dog"});
    EXPECT_EQ(dog.mExitCode, 3);
    EXPECT_EQ(dog.mOutput, "");
    EXPECT_NE(dog.mErrors.find("nearest place that can be reached"), std::string::npos) << dog.mErrors;
    const Json told = findPathJson(GROUND, TERRACE, {"--character", "dog"});
    EXPECT_EQ(told.at("found"), false);
    EXPECT_LT(told.at("nearest").at("position")[0].get<double>(), 6.6);
    EXPECT_EQ(findPath(GROUND, TERRACE, {"--radius", "4"}).mExitCode, 3); // the terrace is 6 wide
    EXPECT_EQ(findPath(GROUND, TERRACE, {"--cost", "Default=0"}).mExitCode, 3);
}

TEST_F(MeshCommands, slicesAndCostsLeaveTheWayAsItIs)
{
    const Json plain = findPathJson(GROUND, TERRACE);
    const Json sliced = findPathJson(GROUND, TERRACE, {"--steps", "1", "--cost", "Default=3"});
    EXPECT_EQ(sliced.at("nodes"), plain.at("nodes"));
    EXPECT_EQ(plain.at("slices"), 1);
    EXPECT_GT(sliced.at("slices"), 1);
    EXPECT_NEAR(sliced.at("cost").get<double>(), 3.0 * plain.at("cost").get<double>(), 1e-2);

    const std::string picture = mDirectory.file("way.svg");
    const Outcome outcome = findPath(GROUND, TERRACE, {"--svg", picture});
    EXPECT_EQ(outcome.mExitCode, 0) << outcome.mErrors;
    EXPECT_NE(outcome.mOutput.find("1 jumped"), std::string::npos) << outcome.mOutput;
    for (const char* fragment : {"class=\"way ww\"", "class=\"way wj\"", "jumped or dropped"})
        EXPECT_NE(readFile(picture).find(fragment), std::string::npos) << fragment;
}

TEST_F(MeshCommands, wrongPlacesAndNamesAreTold)
{
    const struct
    {
        std::vector<std::string> mArguments;
        int mExitCode;
        const char* mFragment;
    } rows[] = {
        {{"path", mMesh, "--from", "20,0,3", "--to", GROUND}, 1, "the nearest is 12"},
        {{"path", mMesh, "--from", GROUND, "--to", "2,9,3"}, 1, "--to 2 9 3"},
        {{"path", mMesh, "--from", GROUND, "--to", ISLAND}, 3, "there is no way"},
        {{"path", mMesh, "--from", "1,2", "--to", ISLAND}, 2, "three numbers"},
        {{"path", mMesh, "--from", "1,2,x", "--to", ISLAND}, 2, "'x'"},
        {{"path", mMesh, "--from", GROUND, "--to", ISLAND, "--character", "cow"}, 2, "'cat', 'dog'"},
        {{"path", mMesh, "--from", GROUND, "--to", ISLAND, "--cost", "lava=2"}, 2, "'Default'"},
        {{"path", mMesh, "--from", GROUND, "--to", ISLAND, "--cost", "Default=0.5"}, 2, "at least 1"},
        {{"path", mMesh, "--from", GROUND, "--to", ISLAND, "--steps", "0"}, 2, "--steps"},
        {{"path", mMesh, "--from", GROUND, "--to", ISLAND, "--radius", "-1"}, 2, "--radius"},
        {{"prune", mMesh, "--keep", "20,0,3", "-o", mDirectory.file("out.knm")}, 1, "the nearest is"},
        {{"prune", mMesh, "-o", mDirectory.file("out.knm")}, 2, "--keep"},
        {{"convert", mMesh, mDirectory.file("out.txt")}, 2, ".knm"},
        {{"convert", mMesh, mDirectory.file("out.xml"), "--endian", "big"}, 2, "byte order"},
        {{"convert", mDirectory.write("cut.knm", readFile(mMesh).substr(0, 300)), mDirectory.file("out.knm")},
         1,
         "cut.knm"},
        {{"convert", mMesh, "/dev/full"}, 2, ".knm"},
    };
    for (const auto& row : rows)
    {
        SCOPED_TRACE(row.mFragment);
        const Outcome outcome = run(KORVNAV, row.mArguments);
        EXPECT_EQ(outcome.mExitCode, row.mExitCode) << outcome.mErrors;
        EXPECT_EQ(outcome.mOutput, "");
        EXPECT_NE(outcome.mErrors.find(row.mFragment), std::string::npos) << outcome.mErrors;
    }
    EXPECT_FALSE(std::filesystem::exists(mDirectory.file("out.knm")));
}

TEST_F(MeshCommands, pruningDropsTheIslands)
{
    const std::string pruned = mDirectory.file("pruned.xml");
    const Outcome outcome = run(KORVNAV, {"prune", mMesh, "--keep", GROUND, "-o", pruned, "--json"});
    ASSERT_EQ(outcome.mExitCode, 0) << outcome.mErrors;
    const Json json = Json::parse(outcome.mOutput);
    EXPECT_EQ(json.at("before").at("islands"), 2);
    EXPECT_EQ(json.at("after").at("islands"), 1);
    EXPECT_EQ(json.at("removed").at("islands"), 1);
    EXPECT_NEAR(json.at("removed").at("area").get<double>(), 16.0, 6.0); // voxels stick out at the rim
    EXPECT_EQ(json.at("after").at("nodes").get<int>() + json.at("removed").at("nodes").get<int>(),
              json.at("before").at("nodes"));
    EXPECT_EQ(run(KORVNAV, {"path", pruned, "--from", GROUND, "--to", TERRACE}).mExitCode, 0);
    EXPECT_EQ(run(KORVNAV, {"path", pruned, "--from", GROUND, "--to", ISLAND}).mExitCode, 1);
    const Outcome inPlace = run(KORVNAV, {"prune", mMesh, "--keep", GROUND, "--keep", ISLAND, "-o", mMesh});
    EXPECT_EQ(inPlace.mExitCode, 0) << inPlace.mErrors;
    EXPECT_NE(inPlace.mOutput.find("0 nodes"), std::string::npos) << inPlace.mOutput;
}

TEST_F(MeshCommands, eitherFormHoldsTheSameMesh)
{
    const std::string big = mDirectory.file("big.knm");
    const std::string document = mDirectory.file("mesh.xml");
    const std::string back = mDirectory.file("back.knm");
    ASSERT_EQ(run(KORVNAV, {"convert", mMesh, big, "--endian", "big"}).mExitCode, 0);
    EXPECT_NE(readFile(big), readFile(mMesh));
    const Outcome told = run(KORVNAV, {"convert", big, back});
    EXPECT_EQ(told.mExitCode, 0);
    EXPECT_EQ(told.mErrors, ""); // the other byte order is no trouble
    EXPECT_TRUE(readFile(back) == readFile(mMesh));
    ASSERT_EQ(run(KORVNAV, {"convert", big, document}).mExitCode, 0);
    std::filesystem::rename(document, mDirectory.file("disguised.knm")); // the content tells what a file is
    const Json a = Json::parse(run(KORVNAV, {"info", mDirectory.file("disguised.knm"), "--json"}).mOutput);
    const Json b = Json::parse(run(KORVNAV, {"info", mMesh, "--json"}).mOutput);
    for (const char* key : {"nodes", "vertices", "links", "characters", "heights", "up"})
        EXPECT_EQ(a.at(key), b.at(key)) << key;
}
} // namespace KORV::Tests
