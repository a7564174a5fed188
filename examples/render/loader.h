// Reads triangle meshes from files (OBJ, PLY, OFF, STL and the other formats
// the importer knows).
#pragma once

#include <string>

#include "mesh.h"

namespace render {

enum class LoadStatus { Ok, Missing, Unreadable, Empty };

struct LoadResult {
    LoadStatus status = LoadStatus::Ok;
    std::string error;  // one line naming the file
    Mesh mesh;          // every triangle uses material `material`
};

// Loads every mesh of the file into one, in the file's coordinates, with
// identical vertices merged so that normals can be smoothed across them.
LoadResult loadMesh(const std::string& path, const Material& material);

}  // namespace render
