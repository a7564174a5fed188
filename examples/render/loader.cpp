#include "loader.h"

#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>
#include <vector>
#include <sys/stat.h>

#include <assimp/Importer.hpp>
#include <assimp/postprocess.h>
#include <assimp/scene.h>

namespace render {

namespace {

void collect(const aiScene* scene, const aiNode* node, const aiMatrix4x4& parent, Mesh& out)
{
    const aiMatrix4x4 transform = parent * node->mTransformation;
    for (unsigned k = 0; k < node->mNumMeshes; ++k) {
        const aiMesh* m = scene->mMeshes[node->mMeshes[k]];
        const int base = out.vertexCount();
        for (unsigned v = 0; v < m->mNumVertices; ++v) {
            const aiVector3D p = transform * m->mVertices[v];
            out.addVertex(p.x, p.y, p.z);
        }
        for (unsigned f = 0; f < m->mNumFaces; ++f) {
            const aiFace& face = m->mFaces[f];
            if (face.mNumIndices != 3) continue;  // points and lines
            out.addTriangle(base + static_cast<int>(face.mIndices[0]),
                            base + static_cast<int>(face.mIndices[1]),
                            base + static_cast<int>(face.mIndices[2]), 0);
        }
    }
    for (unsigned c = 0; c < node->mNumChildren; ++c) collect(scene, node->mChildren[c], transform, out);
}

// The importer clamps OFF indices that point past the vertex list, so OFF
// files are scanned first.  Returns the first face (counted from 1) with an
// index outside 0..vertices-1, and that index; 0 when all are in range or the
// file is not a text OFF file.
long firstBadOffFace(const std::string& path, long& badIndex, long& vertices)
{
    std::ifstream in(path);
    std::vector<std::string> words;  // the rest of the current line, reversed
    auto nextLine = [&]() {          // skips '#' comments and empty lines
        std::string line, w;
        while (words.empty() && std::getline(in, line)) {
            std::istringstream ss(line.substr(0, line.find('#')));
            while (ss >> w) words.insert(words.begin(), w);
        }
        return !words.empty();
    };
    auto next = [&](long& out) {
        if (words.empty() && !nextLine()) return false;
        out = std::strtol(words.back().c_str(), nullptr, 10);
        words.pop_back();
        return true;
    };
    if (!nextLine()) return 0;
    const std::string magic = words.back();
    words.pop_back();
    if (magic.size() < 3 || magic.compare(magic.size() - 3, 3, "OFF") != 0 ||
        (!words.empty() && words.back() == "BINARY"))
        return 0;
    long faces = 0, edges = 0;
    if (!next(vertices) || !next(faces) || !next(edges)) return 0;
    words.clear();
    for (long v = 0; v < vertices; ++v) {  // one line per vertex, whatever it holds
        if (!nextLine()) return 0;
        words.clear();
    }
    for (long f = 1; f <= faces; ++f) {
        long n = 0;
        if (!next(n)) return 0;
        for (long k = 0; k < n; ++k) {
            if (!next(badIndex)) return 0;
            if (badIndex < 0 || badIndex >= vertices) return f;
        }
        words.clear();  // colour values after the indices
    }
    return 0;
}

// Refuses indices out of range and drops triangles with a non-finite vertex.
void validate(const std::string& path, LoadResult& r)
{
    Mesh& m = r.mesh;
    const int nv = m.vertexCount();
    std::vector<int> kept;
    int dropped = 0;
    for (int t = 0; t < m.triangleCount(); ++t) {
        const int* tri = &m.triangles[4 * static_cast<size_t>(t)];
        bool finite = true;
        for (int c = 0; c < 3; ++c) {
            if (tri[c] < 0 || tri[c] >= nv) {
                r.status = LoadStatus::Invalid;
                r.error = "'" + path + "': triangle " + std::to_string(t + 1) + " uses vertex " +
                          std::to_string(tri[c]) + " of " + std::to_string(nv);
                return;
            }
            for (int a = 0; a < 3; ++a) finite = finite && std::isfinite(m.vertices[3 * tri[c] + a]);
        }
        if (finite)
            kept.insert(kept.end(), tri, tri + 4);
        else
            ++dropped;
    }
    if (dropped > 0) {
        m.triangles = std::move(kept);
        r.warning = "'" + path + "': dropped " + std::to_string(dropped) +
                    " triangle(s) with non-finite vertices";
    }
}

}  // namespace

LoadResult loadMesh(const std::string& path, const Material& material)
{
    LoadResult r;
    struct stat st {};
    if (::stat(path.c_str(), &st) != 0) {
        r.status = errno == ENOENT ? LoadStatus::Missing : LoadStatus::Unreadable;
        r.error = "cannot open '" + path + "': " + std::strerror(errno);
        return r;
    }
    if (S_ISDIR(st.st_mode)) {
        r.status = LoadStatus::Unreadable;
        r.error = "cannot read '" + path + "': it is a directory";
        return r;
    }
    if (st.st_size == 0) {
        r.status = LoadStatus::Empty;
        r.error = "'" + path + "' is empty";
        return r;
    }
    {
        std::ifstream probe(path, std::ios::binary);
        if (!probe) {
            r.status = LoadStatus::Unreadable;
            r.error = "cannot open '" + path + "': " + std::strerror(errno);
            return r;
        }
    }
    long badIndex = 0, vertices = 0;
    if (const long face = firstBadOffFace(path, badIndex, vertices)) {
        r.status = LoadStatus::Invalid;
        r.error = "'" + path + "': face " + std::to_string(face) + " uses vertex " +
                  std::to_string(badIndex) + ", but there are " + std::to_string(vertices) +
                  " vertices (0.." + std::to_string(vertices - 1) + ")";
        return r;
    }
    Assimp::Importer importer;
    // Drop what a mesh of triangles does not need; points and lines are
    // sorted out so that only triangles remain.
    importer.SetPropertyInteger(AI_CONFIG_PP_SBP_REMOVE, aiPrimitiveType_POINT | aiPrimitiveType_LINE);
    const aiScene* scene = importer.ReadFile(
        path, aiProcess_Triangulate | aiProcess_JoinIdenticalVertices | aiProcess_SortByPType |
                  aiProcess_FindDegenerates | aiProcess_DropNormals);
    if (!scene || !scene->mRootNode) {
        // A file of points or lines only ends as "No meshes remaining"; the
        // OBJ reader itself refuses indices out of range.
        const std::string why = importer.GetErrorString();
        r.status = why.find("No meshes") != std::string::npos       ? LoadStatus::Empty
                   : why.find("out of range") != std::string::npos ? LoadStatus::Invalid
                                                                    : LoadStatus::Unreadable;
        r.error = r.status == LoadStatus::Empty ? "'" + path + "' holds no triangles"
                                                : "cannot read '" + path + "': " + why;
        return r;
    }
    r.mesh.addMaterial(material);
    collect(scene, scene->mRootNode, aiMatrix4x4(), r.mesh);
    validate(path, r);
    if (r.status != LoadStatus::Ok) {
        r.mesh = Mesh{};
        return r;
    }
    if (r.mesh.triangleCount() == 0) {
        r.status = LoadStatus::Empty;
        r.error = "'" + path + "' holds no triangles";
        r.mesh = Mesh{};
    }
    return r;
}

}  // namespace render
