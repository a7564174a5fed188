// Command-line parsing: values reach the options, and every malformed or
// out-of-range value is refused with a message instead of a default.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "options.h"

using render::parseOptions;
using render::ParseResult;

namespace {

ParseResult parse(std::vector<std::string> args)
{
    args.insert(args.begin(), "vekr-render");
    std::vector<const char*> argv;
    for (const std::string& a : args) argv.push_back(a.c_str());
    return parseOptions(static_cast<int>(argv.size()), argv.data());
}

}  // namespace

TEST(Options, ValuesReachTheirFields)
{
    const ParseResult r = parse({"--size", "320x200", "-o", "out.png", "--eye", "1,2.5,-3",
                                 "--target", "0,1,0", "--up", "0,0,1", "--fov", "60", "--spp", "4",
                                 "-t", "2", "--flat", "--no-ground", "--reflect", "0.25",
                                 "--exposure", "1.5", "--detail", "5", "-q", "mesh.ply"});
    ASSERT_TRUE(r.ok) << r.error;
    const render::Options& o = r.options;
    EXPECT_EQ(o.width, 320);
    EXPECT_EQ(o.height, 200);
    EXPECT_EQ(o.output, "out.png");
    EXPECT_TRUE(o.hasEye);
    EXPECT_FLOAT_EQ(o.eye[1], 2.5f);
    EXPECT_FLOAT_EQ(o.eye[2], -3.0f);
    EXPECT_TRUE(o.hasTarget);
    EXPECT_FLOAT_EQ(o.target[1], 1.0f);
    EXPECT_FLOAT_EQ(o.up[2], 1.0f);
    EXPECT_FLOAT_EQ(o.fov, 60.0f);
    EXPECT_EQ(o.samples, 4);
    EXPECT_EQ(o.threads, 2);
    EXPECT_TRUE(o.flat);
    EXPECT_FALSE(o.ground);
    EXPECT_FLOAT_EQ(o.reflect, 0.25f);
    EXPECT_FLOAT_EQ(o.exposure, 1.5f);
    EXPECT_EQ(o.detail, 5);
    EXPECT_TRUE(o.quiet);
    EXPECT_EQ(o.input, "mesh.ply");
}

TEST(Options, LightsAccumulateWithDefaultsForMissingParts)
{
    const ParseResult r = parse({"--light", "1,2,3", "-l", "4,5,6,10", "-l", "7,8,9,2,1,0.5,0"});
    ASSERT_TRUE(r.ok) << r.error;
    ASSERT_EQ(r.options.lights.size(), 3u);
    EXPECT_FLOAT_EQ(r.options.lights[0].position[2], 3.0f);
    EXPECT_FLOAT_EQ(r.options.lights[0].intensity, 60.0f);
    EXPECT_FLOAT_EQ(r.options.lights[0].colour[1], 1.0f);
    EXPECT_FLOAT_EQ(r.options.lights[1].intensity, 10.0f);
    EXPECT_FLOAT_EQ(r.options.lights[2].intensity, 2.0f);
    EXPECT_FLOAT_EQ(r.options.lights[2].colour[1], 0.5f);
    EXPECT_FLOAT_EQ(r.options.lights[2].colour[2], 0.0f);
}

TEST(Options, MalformedValuesAreRefused)
{
    const std::vector<std::vector<std::string>> bad = {
        {"--size", "640"},         {"--size", "0x10"},       {"--size", "10x"},
        {"--size", "20000x10"},    {"--size", "64x48junk"},  {"--eye", "1,2"},
        {"--eye", "1,2,3,4"},      {"--eye", "1,,3"},        {"--target", "a,b,c"},
        {"--up", "0,0,0"},         {"--fov", "0"},           {"--fov", "180"},
        {"--fov", "nan"},          {"--spp", "0"},           {"--spp", "2.5"},
        {"--threads", "-1"},       {"--light", "1,2"},       {"--light", "1,2,3,4,5,6"},
        {"--light", "1,2,3,-1"},   {"--light", "1,2,3,1,1,1,1,1"}, {"--reflect", "1.5"},
        {"--exposure", "0"},       {"--detail", "17"},       {"--bogus"},
        {"-o"},                    {"--size"},               {"a.obj", "b.obj"},
        {"--eye", "1,1,1", "--target", "1,1,1"},
    };
    for (const auto& args : bad) {
        const ParseResult r = parse(args);
        std::string joined;
        for (const auto& a : args) joined += a + " ";
        EXPECT_FALSE(r.ok) << joined;
        EXPECT_FALSE(r.error.empty()) << joined;
        EXPECT_EQ(r.error.find('\n'), std::string::npos) << joined;
    }
}
