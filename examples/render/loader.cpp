#include "loader.h"

#include <cerrno>
#include <cstring>
#include <fstream>
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
    Assimp::Importer importer;
    // Drop what a mesh of triangles does not need; points and lines are
    // sorted out so that only triangles remain.
    importer.SetPropertyInteger(AI_CONFIG_PP_SBP_REMOVE, aiPrimitiveType_POINT | aiPrimitiveType_LINE);
    const aiScene* scene = importer.ReadFile(
        path, aiProcess_Triangulate | aiProcess_JoinIdenticalVertices | aiProcess_SortByPType |
                  aiProcess_FindDegenerates | aiProcess_DropNormals);
    if (!scene || !scene->mRootNode) {
        r.status = LoadStatus::Unreadable;
        r.error = "cannot read '" + path + "': " + importer.GetErrorString();
        return r;
    }
    r.mesh.addMaterial(material);
    collect(scene, scene->mRootNode, aiMatrix4x4(), r.mesh);
    if (r.mesh.triangleCount() == 0) {
        r.status = LoadStatus::Empty;
        r.error = "'" + path + "' holds no triangles";
        r.mesh = Mesh{};
    }
    return r;
}

}  // namespace render
