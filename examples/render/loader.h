// Reads triangle meshes from files (OBJ, PLY, OFF, STL and the other formats
// the importer knows).
#pragma once

#include <string>

#include "mesh.h"

namespace render {

// Missing and Unreadable: vekr-render's exit code 3; Empty (no triangles)
// and Invalid (a vertex index out of range): exit code 4.
enum class LoadStatus { Ok, Missing, Unreadable, Empty, Invalid };

struct LoadResult {
    LoadStatus status = LoadStatus::Ok;
    std::string error;    // one line naming the file
    std::string warning;  // set when triangles with non-finite vertices were dropped
    Mesh mesh;          // every triangle uses material `material`
};

// Loads every mesh of the file into one, in the file's coordinates, with
// identical vertices merged so that normals can be smoothed across them.
// The mesh is checked before the library sees it: a vertex index out of
// range refuses the file (the first bad face named), and triangles with a
// non-finite vertex are dropped (counted in `warning`).
LoadResult loadMesh(const std::string& path, const Material& material);

}  // namespace render
