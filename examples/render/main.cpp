// vekr-render: ray-traces a mesh, or the built-in scene, with the vekr
// library and writes a PNG or JPEG.
#include <omp.h>

#include <cstdio>
#include <string>

#include "vekr.h"

#include "environment.h"
#include "film.h"
#include "loader.h"
#include "options.h"
#include "progress.h"
#include "scene.h"
#include "tracer.h"

namespace {

int failWith(int code, const std::string& message)
{
    std::fprintf(stderr, "vekr-render: %s\n", message.c_str());
    return code;
}

}  // namespace

int main(int argc, char** argv)
{
    using namespace render;
    const ParseResult parsed = parseOptions(argc, argv);
    if (!parsed.ok) return failWith(2, parsed.error);
    const Options& o = parsed.options;
    if (o.help) {
        std::fputs(usageText().c_str(), stdout);
        return 0;
    }
    if (o.version) {
        const VekLibraryVersion* v = vekrGetLibVersion();
        std::printf("vekr-render with %s %s\n", v->name, v->version);
        return 0;
    }

    std::string error;
    if (!outputWritable(o.output, error)) return failWith(1, error);

    Scene scene;
    if (o.input.empty()) {
        scene = defaultScene(o.detail);
    } else {
        Material m;
        m.albedo[0] = 0.80f;
        m.albedo[1] = 0.72f;
        m.albedo[2] = 0.62f;
        m.reflect = o.reflect;
        LoadResult loaded = loadMesh(o.input, m);
        switch (loaded.status) {
        case LoadStatus::Ok: break;
        case LoadStatus::Missing:
        case LoadStatus::Unreadable: return failWith(3, loaded.error);
        case LoadStatus::Empty:
        case LoadStatus::Invalid: return failWith(4, loaded.error);
        }
        if (!loaded.warning.empty()) std::fprintf(stderr, "vekr-render: warning: %s\n", loaded.warning.c_str());
        scene = meshScene(std::move(loaded.mesh), o.ground);
    }
    applyOptions(scene, o);

    Accel accel;
    if (!accel.build(scene.mesh, error)) return failWith(1, error);
    Environment env;
    if (!env.init(scene.sky, 4096, error)) return failWith(1, error);

    RenderSettings settings;
    settings.width = o.width;
    settings.height = o.height;
    settings.samples = o.samples;
    settings.threads = o.threads > 0 ? o.threads : omp_get_max_threads();
    settings.flat = o.flat;

    Film film(o.width, o.height);
    ProgressBar bar(!o.quiet);
    const RenderStats stats =
        renderFrame(scene, accel, env, settings, film, [&](int done, int total) { bar.update(done, total); });
    bar.finish();
    if (stats.status != vekStsOk) {
        return failWith(1, stats.failedCall + " failed with status " + std::to_string(stats.status));
    }
    if (!writePicture(o.output, o.width, o.height, film.toRgb8(o.samples, o.exposure), error)) {
        return failWith(1, error);
    }
    if (!o.quiet) {
        const double mrays = stats.seconds > 0 ? stats.totalRays() / stats.seconds / 1e6 : 0.0;
        std::fprintf(stderr,
                     "%d triangles, build %.3f s (tree %d KiB, depth limit %d); %dx%d, %d spp, %d "
                     "threads: %llu primary, %llu shadow, %llu reflection rays in %.3f s, "
                     "%.2f Mrays/s -> %s\n",
                     scene.mesh.triangleCount(), accel.buildSeconds(), accel.treeBytes() / 1024,
                     accel.treeDepth(), o.width, o.height, o.samples, settings.threads,
                     static_cast<unsigned long long>(stats.primaryRays),
                     static_cast<unsigned long long>(stats.shadowRays),
                     static_cast<unsigned long long>(stats.reflectionRays), stats.seconds, mrays,
                     o.output.c_str());
    }
    return 0;
}
