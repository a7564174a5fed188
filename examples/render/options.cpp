#include "options.h"

#include "film.h"

#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <sstream>

namespace render {

namespace {

bool parseInt(const std::string& s, int lo, int hi, int& out)
{
    if (s.empty()) return false;
    char* end = nullptr;
    errno = 0;
    const long v = std::strtol(s.c_str(), &end, 10);
    if (errno != 0 || *end != '\0' || v < lo || v > hi) return false;
    out = static_cast<int>(v);
    return true;
}

bool parseFloat(const std::string& s, float& out)
{
    if (s.empty()) return false;
    char* end = nullptr;
    errno = 0;
    const float v = std::strtof(s.c_str(), &end);
    if (errno != 0 || *end != '\0' || !std::isfinite(v)) return false;
    out = v;
    return true;
}

// A comma-separated list of exactly `n` finite numbers, or of between
// `n` and `m` when m > n.
bool parseList(const std::string& s, size_t n, size_t m, std::vector<float>& out)
{
    out.clear();
    std::stringstream ss(s);
    std::string item;
    while (std::getline(ss, item, ',')) {
        float v;
        if (!parseFloat(item, v)) return false;
        out.push_back(v);
    }
    if (!s.empty() && s.back() == ',') return false;
    return out.size() == n || (m > n && out.size() >= n && out.size() <= m);
}

}  // namespace

std::string usageText()
{
    return "usage: vekr-render [options] [mesh.obj|.ply|.off|.stl]\n"
           "Ray-traces a mesh (or, without one, the built-in scene) and writes a PNG or JPEG.\n"
           "\n"
           "  -o, --output PATH     picture to write, .png, .jpg or .jpeg (default vekr-render.png)\n"
           "  -s, --size WxH        image size in pixels (default 800x600)\n"
           "      --eye X,Y,Z       camera position\n"
           "      --target X,Y,Z    point the camera looks at\n"
           "      --up X,Y,Z        up direction (default 0,1,0)\n"
           "      --fov DEG         vertical field of view, 1..179 (default 45)\n"
           "  -l, --light X,Y,Z[,I[,R,G,B]]\n"
           "                        point light at X,Y,Z with intensity I (default 60)\n"
           "                        and colour R,G,B (default 1,1,1); repeat for more\n"
           "                        lights; replaces the scene's lights\n"
           "      --spp N           samples per pixel, 1..1024 (default 1)\n"
           "  -t, --threads N       threads (default: every core)\n"
           "      --detail N        tessellation of the built-in scene, 1..16 (default 3)\n"
           "      --flat            flat triangle normals instead of smooth ones\n"
           "      --no-ground       no ground plane under a loaded mesh\n"
           "      --reflect R       mirror share 0..1 of a loaded mesh (default 0)\n"
           "      --exposure E      brightness factor (default 1)\n"
           "  -q, --quiet           no progress bar and no summary\n"
           "  -h, --help            this text\n"
           "      --version         library version\n"
           "\n"
           "A loaded mesh is scaled to a largest extent of 2 and put on the ground\n"
           "plane y = 0, centred on the y axis.  Exit codes: 0 done, 1 render or\n"
           "output failure, 2 bad options, 3 input missing or unreadable,\n"
           "4 input without triangles or with vertex indices out of range.\n";
}

ParseResult parseOptions(int argc, const char* const* argv)
{
    ParseResult r;
    Options& o = r.options;
    auto fail = [&](const std::string& msg) {
        r.ok = false;
        r.error = msg;
        return r;
    };
    std::vector<float> list;
    for (int i = 1; i < argc; ++i) {
        const std::string a = argv[i];
        auto value = [&](std::string& out) {
            if (i + 1 >= argc) return false;
            out = argv[++i];
            return true;
        };
        std::string v;
        if (a == "-h" || a == "--help") {
            o.help = true;
        } else if (a == "--version") {
            o.version = true;
        } else if (a == "-q" || a == "--quiet") {
            o.quiet = true;
        } else if (a == "--flat") {
            o.flat = true;
        } else if (a == "--no-ground") {
            o.ground = false;
        } else if (a == "-o" || a == "--output") {
            if (!value(v) || v.empty()) return fail("option " + a + " needs a file name");
            o.output = v;
        } else if (a == "-s" || a == "--size") {
            if (!value(v)) return fail("option " + a + " needs WxH");
            const size_t x = v.find_first_of("xX");
            if (x == std::string::npos || !parseInt(v.substr(0, x), 1, 16384, o.width) ||
                !parseInt(v.substr(x + 1), 1, 16384, o.height)) {
                return fail("bad size '" + v + "' (want WxH, each 1..16384)");
            }
        } else if (a == "--eye" || a == "--target" || a == "--up") {
            if (!value(v) || !parseList(v, 3, 0, list)) {
                return fail("option " + a + " needs three numbers X,Y,Z");
            }
            float* dst = a == "--eye" ? o.eye : a == "--target" ? o.target : o.up;
            for (int c = 0; c < 3; ++c) dst[c] = list[c];
            if (a == "--eye") o.hasEye = true;
            if (a == "--target") o.hasTarget = true;
            if (a == "--up" && list[0] == 0 && list[1] == 0 && list[2] == 0) {
                return fail("the up direction must not be zero");
            }
        } else if (a == "--fov") {
            if (!value(v) || !parseFloat(v, o.fov) || o.fov < 1.0f || o.fov > 179.0f) {
                return fail("bad field of view (want degrees 1..179)");
            }
        } else if (a == "-l" || a == "--light") {
            if (!value(v) || !parseList(v, 3, 7, list) || list.size() == 6) {
                return fail("option " + a + " needs X,Y,Z[,I[,R,G,B]]");
            }
            LightOption l{{list[0], list[1], list[2]}, 60.0f, {1, 1, 1}};
            if (list.size() >= 4) l.intensity = list[3];
            if (list.size() == 7) {
                for (int c = 0; c < 3; ++c) l.colour[c] = list[4 + c];
            }
            if (l.intensity < 0 || l.colour[0] < 0 || l.colour[1] < 0 || l.colour[2] < 0) {
                return fail("light intensity and colour must not be negative");
            }
            o.lights.push_back(l);
        } else if (a == "--spp") {
            if (!value(v) || !parseInt(v, 1, 1024, o.samples)) {
                return fail("bad samples per pixel (want 1..1024)");
            }
        } else if (a == "-t" || a == "--threads") {
            if (!value(v) || !parseInt(v, 1, 1024, o.threads)) {
                return fail("bad thread count (want 1..1024)");
            }
        } else if (a == "--detail") {
            if (!value(v) || !parseInt(v, 1, 16, o.detail)) return fail("bad detail (want 1..16)");
        } else if (a == "--reflect") {
            if (!value(v) || !parseFloat(v, o.reflect) || o.reflect < 0 || o.reflect > 1) {
                return fail("bad mirror share (want 0..1)");
            }
        } else if (a == "--exposure") {
            if (!value(v) || !parseFloat(v, o.exposure) || o.exposure <= 0) {
                return fail("bad exposure (want a positive number)");
            }
        } else if (a.size() > 1 && a[0] == '-') {
            return fail("unknown option '" + a + "' (try --help)");
        } else {
            if (!o.input.empty()) return fail("more than one input file given");
            o.input = a;
        }
    }
    if (o.hasEye && o.hasTarget && o.eye[0] == o.target[0] && o.eye[1] == o.target[1] &&
        o.eye[2] == o.target[2]) {
        return fail("camera position and target must differ");
    }
    if (pictureFormat(o.output) == PictureFormat::Unknown) {
        return fail("cannot write '" + o.output + "': unknown picture type (want .png, .jpg or .jpeg)");
    }
    return r;
}

}  // namespace render
