// korvnav as its users meet it: exit codes, messages, files, the JSON object.

#include "program.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <cmath>
#include <csignal>
#include <fstream>

namespace KORV::Tests
{
namespace
{
using Json = nlohmann::json;

const std::string COURTYARD = std::string(EXAMPLE_SCENES) + "/courtyard.obj";

/// VRML of a square floor of 8 x 8 a little above its lowest vertex, which keeps it off the voxel boundaries.
std::string floorText(float roof = 0.0f)
{
    const auto quad = [](const std::string& points)
    {
        return "Shape { geometry IndexedFaceSet { coord Coordinate { point [ " + points +
               " ] } coordIndex [ 0 1 2 3 -1 ] } }\n";
    };
    std::string text =
        "#VRML V2.0 utf8\n" + quad("0 0.1 0, 0 0.1 8, 8 0.1 8, 8 0.1 0") + quad("0 0 0, 1 0 0, 1 0 1, 0 0 1");
    const std::string y = std::to_string(roof);
    if (roof > 0.0f)
        text += quad("0 " + y + " 0, 8 " + y + " 0, 8 " + y + " 8, 0 " + y + " 8"); // faces down
    return text;
}

/// The floor as OBJ with its three axes in another order, so that another one points up.
std::string turnedFloor(const std::string& up)
{
    const float floor[5][3] = {{0, 0.1f, 0}, {0, 0.1f, 8}, {8, 0.1f, 8}, {8, 0.1f, 0}, {0, 0, 0}};
    const float sign = up[0] == '-' ? -1.0f : 1.0f;
    const int axis = up.back() - 'x';
    std::string text;
    for (const auto& corner : floor)
    {
        float turned[3];
        turned[axis] = sign * corner[1];
        turned[(axis + 1) % 3] = sign * corner[2]; // a turn, no mirror image
        turned[(axis + 2) % 3] = corner[0];
        text +=
            "v " + std::to_string(turned[0]) + " " + std::to_string(turned[1]) + " " + std::to_string(turned[2]) + "\n";
    }
    return text + "f 1 2 3 4\nf 1 4 5\n";
}

Json parse(const std::string& text)
{
    Json json = Json::parse(text, nullptr, false);
    EXPECT_FALSE(json.is_discarded()) << text;
    return json;
}

void expectFailure(const Outcome& outcome, int exitCode, const std::string& fragment)
{
    EXPECT_EQ(outcome.mExitCode, exitCode);
    EXPECT_EQ(outcome.mOutput, "");
    EXPECT_NE(outcome.mErrors.find(fragment), std::string::npos) << outcome.mErrors;
}
} // namespace

TEST(KorvNav, refusesWrongUsage)
{
    const TemporaryDirectory directory;
    const std::string scene = directory.write("floor.wrl", floorText());
    const std::string mesh = directory.file("mesh.xml");
    const struct
    {
        const char* mWhat;
        std::vector<std::string> mArguments;
        const char* mFragment;
    } rows[] = {
        {"no subcommand", {}, "subcommand"},
        {"no output", {"build", scene}, "--output"},
        {"no scene", {"build", "-o", mesh}, "scene"},
        {"unknown option", {"build", scene, "-o", mesh, "--fast"}, "--fast"},
        {"cube 0", {"build", scene, "-o", mesh, "--cube", "0"}, "--cube"},
        {"endless cube", {"build", scene, "-o", mesh, "--cube", "inf"}, "--cube"},
        {"slope below 0", {"build", scene, "-o", mesh, "--max-slope", "-1"}, "--max-slope"},
        {"slope above 90", {"build", scene, "-o", mesh, "--max-slope", "90.1"}, "--max-slope"},
        {"axis w", {"build", scene, "-o", mesh, "--up", "w"}, "--up"},
        {"winding", {"build", scene, "-o", mesh, "--winding", "up"}, "--winding"},
        {"rules", {"build", scene, "-o", mesh, "--rules", "other"}, "--rules"},
        {"threads", {"build", scene, "-o", mesh, "--threads", "-1"}, "--threads"},
        {"three fields", {"build", scene, "-o", mesh, "--character", "a:1:1"}, "--character"},
        {"no height", {"build", scene, "-o", mesh, "--character", "a:0:1:1"}, "height"},
        {"twins",
         {"build", scene, "-o", mesh, "--character", "a:1:1:1", "--character", "a:2:1:1"},
         "names must differ"},
        {"id too large", {"build", scene, "-o", mesh, "--surface", "a=65536"}, "65535"},
        {"name unfit for the document", {"build", scene, "-o", mesh, "--surface", "<a>=1"}, "'<'"},
        {"name of type 0", {"build", scene, "-o", mesh, "--surface", "Default=1"}, "type 0"},
        {"quiet json", {"build", scene, "-o", mesh, "--quiet", "--json"}, "--json"},
        {"mesh over scene", {"build", scene, "-o", scene}, "another name"},
    };
    for (const auto& row : rows)
    {
        SCOPED_TRACE(row.mWhat);
        expectFailure(run(KORVNAV, row.mArguments), 2, row.mFragment);
    }
    EXPECT_EQ(readFile(scene), floorText());
    EXPECT_EQ(directory.list(), std::vector<std::string>{"floor.wrl"});
}

TEST(KorvNav, saysWhatIsWrongWithAnInput)
{
    const TemporaryDirectory directory;
    const std::string good = directory.write("floor.wrl", floorText());
    const std::string broken =
        directory.write("broken.wrl", "#VRML V2.0 utf8\nShape {\n  geometry Box { size 1 2 }\n}\n");
    const std::string noise = directory.write("noise.obj", "f 1 2 99\nthis is no scene\n");
    const std::string endless =
        directory.write("endless.wrl", floorText() + "Transform { scale 1e30 1 1 children [ Transform "
                                                     "{ scale 1e30 1 1 children [ Shape { geometry "
                                                     "Box { size 1 1 1 } } ] } ] }\n");
    const std::string mesh = directory.file("mesh.xml");
    const std::vector<std::string> before = directory.list();
    expectFailure(run(KORVNAV, {"build", directory.file("none.obj"), "-o", mesh}), 1,
                  "none.obj: there is no such file");
    expectFailure(run(KORVNAV, {"build", directory.file(""), "-o", mesh}), 1, "directory");
    expectFailure(run(KORVNAV, {"build", broken, "-o", mesh}), 1, "broken.wrl:3:");
    expectFailure(run(KORVNAV, {"build", noise, "-o", mesh}), 1, "noise.obj");
    expectFailure(run(KORVNAV, {"build", endless, "-o", mesh}), 1, "endless.wrl");
    expectFailure(run(KORVNAV, {"build", directory.write("a.xyz", "1"), "-o", mesh}), 1, ".xyz");
    expectFailure(run(KORVNAV, {"build", good, "-o", mesh, "--cube", "1e-12"}), 1, "--cube");
    expectFailure(run(KORVNAV, {"build", good, "-o", directory.file("no/mesh.xml")}), 1, "create it first");
    expectFailure(run(KORVNAV, {"build", good, "-o", directory.file("")}), 1, "directory");
    expectFailure(run(KORVNAV, {"info", directory.file("none.xml")}), 1, "none.xml");
    expectFailure(run(KORVNAV, {"info", good}), 1, "floor.wrl");
    expectFailure(run(KORVNAV, {"info", directory.write("empty.xml", "<?xml version=\"1.0\"?><KORV></KORV>")}), 1,
                  "empty.xml");
    std::filesystem::remove(directory.file("a.xyz"));
    std::filesystem::remove(directory.file("empty.xml"));
    EXPECT_EQ(directory.list(), before);
}

TEST(KorvNav, saysWhyNothingIsWalkable)
{
    const TemporaryDirectory directory;
    const std::string open = directory.write("open.wrl", floorText());
    const std::string low = directory.write("low.wrl", floorText(1.1f));
    const std::string empty = directory.write("empty.wrl", "#VRML V2.0 utf8\n");
    const std::string mesh = directory.file("mesh.xml");
    expectFailure(run(KORVNAV, {"build", empty, "-o", mesh}), 3, "no triangles");
    expectFailure(run(KORVNAV, {"build", open, "-o", mesh, "--up", "x"}), 3, "slope");
    expectFailure(run(KORVNAV, {"build", low, "-o", mesh}), 3, "no character fits");
    EXPECT_EQ(run(KORVNAV, {"build", low, "-o", mesh, "--character", "dog:0.6:0.3:0.5", "--quiet"}).mExitCode, 0);
}

TEST(KorvNav, printsOneJsonObjectThatInfoConfirms)
{
    const TemporaryDirectory directory;
    const std::string mesh = directory.file("mesh.xml");
    const Outcome built = run(KORVNAV, {"build", COURTYARD, "-o", mesh, "--json", "--character", "human:1.8:0.5:1.0:-7",
                                        "--character", "child:1.1:0.35:0.7", "--surface", "grass=3"});
    ASSERT_EQ(built.mExitCode, 0) << built.mErrors;
    EXPECT_EQ(built.mErrors, "");
    const Json summary = parse(built.mOutput);
    for (const char* key : {"vertices", "triangles", "voxels", "walkableVoxels", "surfaces", "nodes", "heightClasses",
                            "walkableArea", "generateSeconds", "peakMemoryBytes"})
        EXPECT_GT(summary.at(key).get<double>(), 0.0) << key;
    EXPECT_TRUE(summary.at("rescues").is_number());
    EXPECT_TRUE(summary.at("version").is_string());
    EXPECT_FALSE(summary.at("stages").empty());
    EXPECT_EQ(summary.at("heightClasses"), 2);
    EXPECT_GT(summary.at("links").at("down").get<int>(),
              summary.at("links").at("up").get<int>()); // ledges to drop from

    const Outcome told = run(KORVNAV, {"info", mesh, "--json"});
    ASSERT_EQ(told.mExitCode, 0) << told.mErrors;
    const Json info = parse(told.mOutput);
    EXPECT_EQ(info.at("valid"), true);
    EXPECT_EQ(info.at("nodes"), summary.at("nodes"));
    EXPECT_NEAR(info.at("walkableArea").get<double>(), summary.at("walkableArea").get<double>(), 0.5);
    EXPECT_EQ(info.at("characters")[0].at("userId"), -7);
    EXPECT_EQ(info.at("characters")[1].at("heightClass"), 0);
    ASSERT_EQ(info.at("surfaceTypes").size(), 2u);
    EXPECT_EQ(info.at("surfaceTypes")[0].at("name"), "Default");
    EXPECT_EQ(info.at("surfaceTypes")[1].at("name"), "grass");
    EXPECT_GT(info.at("surfaceTypes")[1].at("area").get<double>(), 300.0);
}

TEST(KorvNav, everyAxisCanPointUp)
{
    const TemporaryDirectory directory;
    for (const std::string up : {"x", "y", "z", "-x", "-y", "-z"})
    {
        SCOPED_TRACE(up);
        const std::string scene = directory.write("floor.obj", turnedFloor(up));
        const Outcome outcome = run(KORVNAV, {"build", scene, "-o", directory.file("mesh.xml"), "--up", up, "--json"});
        ASSERT_EQ(outcome.mExitCode, 0) << outcome.mErrors;
        const double area = parse(outcome.mOutput).at("walkableArea").get<double>();
        EXPECT_GE(area, 8.0 * 8.0 - 0.01); // voxels stick out by up to a cube on every side
        EXPECT_LE(area, 8.5 * 8.5 + 0.01);
        const Outcome reversed = run(KORVNAV, {"build", scene, "-o", directory.file("mesh.xml"), "--up", up,
                                               "--winding", "cw", "--max-slope", "10"});
        EXPECT_EQ(reversed.mExitCode, 3);
    }
}

TEST(KorvNav, writesTheSameMeshWithAnyNumberOfThreads)
{
    const TemporaryDirectory directory;
    for (const std::string threads : {"1", "2", "5"})
        ASSERT_EQ(
            run(KORVNAV, {"build", COURTYARD, "-o", directory.file(threads), "--threads", threads, "--quiet"}).mOutput,
            "");
    EXPECT_FALSE(readFile(directory.file("1")).empty());
    EXPECT_TRUE(readFile(directory.file("1")) == readFile(directory.file("2")));
    EXPECT_TRUE(readFile(directory.file("1")) == readFile(directory.file("5")));
}

TEST(KorvNav, aFailedRunKeepsTheOldFiles)
{
    const TemporaryDirectory directory;
    const std::string mesh = directory.write("mesh.xml", "old mesh");
    const std::string picture = directory.write("mesh.svg", "old picture");
    const std::string low = directory.write("low.wrl", floorText(1.1f));
    const std::string good = directory.write("good.wrl", floorText());
    const std::vector<std::string> before = directory.list();
    EXPECT_EQ(run(KORVNAV, {"build", low, "-o", mesh, "--svg", picture}).mExitCode, 3);
    EXPECT_EQ(run(KORVNAV, {"build", good, "-o", mesh, "--svg", "/dev/full"}).mExitCode, 1);
    EXPECT_EQ(readFile(mesh), "old mesh");
    EXPECT_EQ(readFile(picture), "old picture");
    EXPECT_EQ(directory.list(), before);

    const std::string link = directory.file("link.xml");
    std::filesystem::create_symlink("mesh.xml", link);
    EXPECT_EQ(run(KORVNAV, {"build", good, "-o", link, "--svg", picture, "--quiet"}).mExitCode, 0);
    EXPECT_TRUE(std::filesystem::is_symlink(link));
    EXPECT_NE(readFile(mesh).find("<navmesh"), std::string::npos);
    EXPECT_NE(readFile(picture).find("</svg>"), std::string::npos);
}

TEST(KorvNav, aSignalStopsItCleanly)
{
    const TemporaryDirectory directory;
    const std::string scene = directory.file("hall.obj");
    ASSERT_EQ(run(SCENEGEN, {"hall", "--count", "900", "-o", scene}).mExitCode, 0);
    const std::vector<std::string> before = directory.list();
    const std::vector<std::string> arguments{"build",     scene,           "-o", directory.file("mesh.xml"),
                                             "--verbose", "--split-depth", "-1"};
    const Outcome outcome = run(KORVNAV, arguments, "Build Octree", SIGINT);
    EXPECT_EQ(outcome.mExitCode, 130);
    EXPECT_EQ(directory.list(), before);
}

TEST(KorvNav, warnsOfWhatHardlyAnybodyWants)
{
    const TemporaryDirectory directory;
    const std::string scene = directory.write("floor.wrl", floorText());
    const Outcome outcome =
        run(KORVNAV, {"build", scene, "-o", directory.file("mesh.xml"), "--quiet", "--character", "snail:0.2:0.1:0.1",
                      "--split-depth", "9", "--surface", "lava=4", "--surface", "floor=2"});
    EXPECT_EQ(outcome.mExitCode, 0);
    EXPECT_EQ(outcome.mOutput, "");
    for (const char* fragment : {"'snail' is below the cube size", "--split-depth 9", "--surface lava"})
        EXPECT_NE(outcome.mErrors.find(fragment), std::string::npos) << fragment << "\n" << outcome.mErrors;
    EXPECT_EQ(outcome.mErrors.find("--surface floor"), std::string::npos); // .wrl files answer to their names
}

TEST(KorvNav, brokenMeshesAreTold)
{
    const TemporaryDirectory directory;
    const std::string mesh = directory.file("mesh.xml");
    ASSERT_EQ(run(KORVNAV, {"build", directory.write("floor.wrl", floorText()), "-o", mesh, "--quiet"}).mExitCode, 0);
    std::string document = readFile(mesh);
    const std::string tag = "<vert_id>";
    const std::size_t at = document.find(tag) + tag.size();
    document.replace(at, document.find('<', at) - at, "987654");
    const std::string broken = directory.write("broken.xml", document);
    const Outcome told = run(KORVNAV, {"info", broken, "--json"});
    EXPECT_EQ(told.mExitCode, 1);
    EXPECT_NE(told.mErrors.find("node 0"), std::string::npos) << told.mErrors;
    EXPECT_EQ(parse(told.mOutput).at("valid"), false);
}

TEST(KorvNav, thePictureShowsFloorsApart)
{
    const TemporaryDirectory directory;
    const std::string picture = directory.file("mesh.svg");
    const Outcome outcome = run(KORVNAV, {"build", COURTYARD, "-o", directory.file("mesh.xml"), "--svg", picture,
                                          "--character", "me & you:1.8:0.5:1"});
    ASSERT_EQ(outcome.mExitCode, 0) << outcome.mErrors;
    EXPECT_NE(outcome.mOutput.find(picture), std::string::npos);
    const std::string svg = readFile(picture);
    for (const char* fragment : {"Floor 2", "me &amp; you", "Surface types", "Scale", "class=\"hd\""})
        EXPECT_NE(svg.find(fragment), std::string::npos) << fragment;
    EXPECT_EQ(svg.find("nan"), std::string::npos);
    EXPECT_EQ(svg.find("http"), svg.rfind("http")); // the name space, and nothing from elsewhere
    EXPECT_LT(svg.size(), 1000000u);
}
} // namespace KORV::Tests
