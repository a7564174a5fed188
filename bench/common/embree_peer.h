// Embree 3 as a benchmark peer: a device with a fixed thread count and a
// scene of one triangle geometry made from a vekr::test::Mesh.  Include only
// when VEKR_HAVE_EMBREE is defined (the benchmark's CMakeLists sets it when
// find_package(embree 3) succeeds).
#pragma once

#include <embree3/rtcore.h>

#include <cstring>
#include <string>
#include <vector>

#include "testutil.h"

namespace vekr::bench {

class EmbreeDevice {
public:
    // threads = 0 lets Embree take every hardware thread.
    explicit EmbreeDevice(int threads)
    {
        const std::string cfg = threads > 0 ? "threads=" + std::to_string(threads) : "";
        device_ = rtcNewDevice(cfg.c_str());
    }
    ~EmbreeDevice() { rtcReleaseDevice(device_); }
    EmbreeDevice(const EmbreeDevice&) = delete;
    EmbreeDevice& operator=(const EmbreeDevice&) = delete;
    RTCDevice get() const { return device_; }
    bool ok() const { return device_ != nullptr; }

private:
    RTCDevice device_ = nullptr;
};

// A committed scene over one mesh.  The vertices are copied once (Embree
// reads 16 bytes past the last vertex, so its buffer has a padding float);
// the index records are shared as they are (stride 16, the fourth int unread).
class EmbreeScene {
public:
    EmbreeScene(const EmbreeDevice& dev, const vekr::test::Mesh& mesh) : mesh_(mesh)
    {
        device_ = dev.get();
        vertices_.resize(mesh.vertices.size() + 4, 0.0f);
        std::memcpy(vertices_.data(), mesh.vertices.data(), mesh.vertices.size() * sizeof(float));
    }
    ~EmbreeScene() { release(); }
    EmbreeScene(const EmbreeScene&) = delete;
    EmbreeScene& operator=(const EmbreeScene&) = delete;

    // Builds (or rebuilds from scratch) the BVH at the given quality.
    void build(RTCBuildQuality quality)
    {
        release();
        scene_ = rtcNewScene(device_);
        rtcSetSceneBuildQuality(scene_, quality);
        RTCGeometry geom = rtcNewGeometry(device_, RTC_GEOMETRY_TYPE_TRIANGLE);
        rtcSetGeometryBuildQuality(geom, quality);
        rtcSetSharedGeometryBuffer(geom, RTC_BUFFER_TYPE_VERTEX, 0, RTC_FORMAT_FLOAT3,
                                   vertices_.data(), 0, 3 * sizeof(float),
                                   static_cast<size_t>(mesh_.vertexCount()));
        rtcSetSharedGeometryBuffer(geom, RTC_BUFFER_TYPE_INDEX, 0, RTC_FORMAT_UINT3,
                                   mesh_.triangles.data(), 0, 4 * sizeof(int),
                                   static_cast<size_t>(mesh_.triangleCount()));
        rtcCommitGeometry(geom);
        rtcAttachGeometry(scene_, geom);
        rtcReleaseGeometry(geom);
        rtcCommitScene(scene_);
    }
    RTCScene get() const { return scene_; }

private:
    void release()
    {
        if (scene_) rtcReleaseScene(scene_);
        scene_ = nullptr;
    }
    const vekr::test::Mesh& mesh_;
    RTCDevice device_ = nullptr;
    RTCScene scene_ = nullptr;
    std::vector<float> vertices_;
};

inline const char* qualityName(RTCBuildQuality q)
{
    switch (q) {
    case RTC_BUILD_QUALITY_LOW: return "low";
    case RTC_BUILD_QUALITY_MEDIUM: return "default";
    case RTC_BUILD_QUALITY_HIGH: return "high";
    default: return "refit";
    }
}

}  // namespace vekr::bench
