// Command-line options of vekr-render.
#pragma once

#include <string>
#include <vector>

namespace render {

struct LightOption {
    float position[3];
    float intensity;
    float colour[3];
};

struct Options {
    std::string input;                 // mesh file; empty: the built-in scene
    std::string output = "vekr-render.png";
    int width = 800;
    int height = 600;
    bool hasEye = false, hasTarget = false;
    float eye[3] = {0, 0, 0};
    float target[3] = {0, 0, 0};
    float up[3] = {0, 1, 0};
    float fov = 45.0f;                 // vertical field of view in degrees
    std::vector<LightOption> lights;   // empty: the scene's own lights
    int samples = 1;                   // samples per pixel
    int threads = 0;                   // 0: every core
    int detail = 3;                    // tessellation of the built-in scene
    bool flat = false;                 // flat instead of smooth normals
    bool ground = true;                // ground plane under a loaded mesh
    float reflect = 0.0f;              // mirror share of a loaded mesh
    float exposure = 1.0f;
    bool quiet = false;
    bool help = false;
    bool version = false;
};

struct ParseResult {
    bool ok = true;
    std::string error;  // one line, without the program name
    Options options;
};

// Parses argv[1..argc-1].  Never exits and never prints.
ParseResult parseOptions(int argc, const char* const* argv);

// The text printed by --help.
std::string usageText();

}  // namespace render
