// The shared test helpers read real meshes correctly.
#include <gtest/gtest.h>

#include "testutil.h"

TEST(Support, BunnyLoads)
{
    const std::string path = vekr::test::dataFile("bunny00.off");
    if (path.empty()) GTEST_SKIP() << "bunny00.off not fetched";
    const vekr::test::Mesh m = vekr::test::loadOff(path);
    EXPECT_EQ(m.vertexCount(), 37706);
    EXPECT_EQ(m.triangleCount(), 75408);
}

TEST(Support, SyntheticSphereIsIndexedInRange)
{
    const vekr::test::Mesh m = vekr::test::bumpySphere(20, 30);
    EXPECT_EQ(m.triangleCount(), 2 * 20 * 30);
    for (size_t i = 0; i < m.triangles.size(); i += 4)
        for (int k = 0; k < 3; ++k) {
            EXPECT_GE(m.triangles[i + k], 0);
            EXPECT_LT(m.triangles[i + k], m.vertexCount());
        }
}
