// Mesh loading: each supported format gives the same triangles, and missing,
// empty, unreadable and triangle-less files are told apart.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>

#include "loader.h"

namespace fs = std::filesystem;

namespace {

class Loader : public ::testing::Test {
protected:
    void SetUp() override
    {
        dir_ = fs::temp_directory_path() /
               ("vekr_render_loader_" + std::to_string(::testing::UnitTest::GetInstance()->random_seed()) +
                "_" + ::testing::UnitTest::GetInstance()->current_test_info()->name());
        fs::create_directories(dir_);
    }
    void TearDown() override { fs::remove_all(dir_); }

    std::string write(const std::string& name, const std::string& text)
    {
        const fs::path p = dir_ / name;
        std::ofstream(p, std::ios::binary) << text;
        return p.string();
    }

    fs::path dir_;
};

// A unit square in z = 0 made of two triangles, plus a tetrahedron's worth of
// extra faces in some formats: only the counts and extents are compared.
const char* kObj =
    "v 0 0 0\nv 1 0 0\nv 1 1 0\nv 0 1 0\n"
    "f 1 2 3 4\n";
const char* kOff =
    "OFF\n4 1 0\n0 0 0\n1 0 0\n1 1 0\n0 1 0\n4 0 1 2 3\n";
const char* kPly =
    "ply\nformat ascii 1.0\nelement vertex 4\nproperty float x\nproperty float y\n"
    "property float z\nelement face 1\nproperty list uchar int vertex_indices\nend_header\n"
    "0 0 0\n1 0 0\n1 1 0\n0 1 0\n4 0 1 2 3\n";
const char* kStl =
    "solid square\n"
    "facet normal 0 0 1\nouter loop\nvertex 0 0 0\nvertex 1 0 0\nvertex 1 1 0\nendloop\nendfacet\n"
    "facet normal 0 0 1\nouter loop\nvertex 0 0 0\nvertex 1 1 0\nvertex 0 1 0\nendloop\nendfacet\n"
    "endsolid square\n";

void expectUnitSquare(const render::LoadResult& r, const std::string& what)
{
    ASSERT_EQ(r.status, render::LoadStatus::Ok) << what << ": " << r.error;
    EXPECT_EQ(r.mesh.triangleCount(), 2) << what;
    EXPECT_EQ(r.mesh.vertexCount(), 4) << what << " (shared vertices are merged)";
    const render::Bounds b = render::meshBounds(r.mesh);
    EXPECT_FLOAT_EQ(b.min[0], 0.0f) << what;
    EXPECT_FLOAT_EQ(b.max[0], 1.0f) << what;
    EXPECT_FLOAT_EQ(b.max[1], 1.0f) << what;
    EXPECT_FLOAT_EQ(b.max[2], 0.0f) << what;
    ASSERT_EQ(r.mesh.materials.size(), 1u);
    EXPECT_FLOAT_EQ(r.mesh.materials[0].reflect, 0.5f);
    for (int t = 0; t < r.mesh.triangleCount(); ++t) {
        EXPECT_EQ(r.mesh.triangles[4 * t + 3], 0);
        for (int k = 0; k < 3; ++k) {
            EXPECT_GE(r.mesh.triangles[4 * t + k], 0);
            EXPECT_LT(r.mesh.triangles[4 * t + k], r.mesh.vertexCount());
        }
    }
}

render::Material half()
{
    render::Material m;
    m.reflect = 0.5f;
    return m;
}

}  // namespace

TEST_F(Loader, ReadsObjOffPlyStl)
{
    expectUnitSquare(render::loadMesh(write("a.obj", kObj), half()), "obj");
    expectUnitSquare(render::loadMesh(write("a.off", kOff), half()), "off");
    expectUnitSquare(render::loadMesh(write("a.ply", kPly), half()), "ply");
    expectUnitSquare(render::loadMesh(write("a.stl", kStl), half()), "stl");
}

TEST_F(Loader, MissingFile)
{
    const render::LoadResult r = render::loadMesh((dir_ / "nope.obj").string(), half());
    EXPECT_EQ(r.status, render::LoadStatus::Missing);
    EXPECT_NE(r.error.find("nope.obj"), std::string::npos);
    EXPECT_EQ(r.mesh.triangleCount(), 0);
}

TEST_F(Loader, EmptyFileAndFileWithoutTriangles)
{
    EXPECT_EQ(render::loadMesh(write("e.obj", ""), half()).status, render::LoadStatus::Empty);
    const render::LoadResult r = render::loadMesh(write("points.obj", "v 0 0 0\nv 1 0 0\nv 0 1 0\n"), half());
    EXPECT_NE(r.status, render::LoadStatus::Ok);
    EXPECT_FALSE(r.error.empty());
}
