// vekr.Scene: a triangle mesh with its box, acceleration records and KD-tree,
// and the ray queries on it.  Rays come as (..., 3) arrays of any length; they
// are cut into chunks, each copied into aligned planes padded to whole 4 x 4
// tiles so the library takes its packet path, and the chunks run on threads.
#include <algorithm>
#include <cmath>
#include <limits>

#include "common.h"

namespace vekrpy {
namespace {

constexpr size_t kChunk = 4096;  // rays per library call (a multiple of 16)
constexpr float kInf = std::numeric_limits<float>::infinity();

size_t pad16(size_t n)
{
    return (n + 15) & ~size_t(15);
}

// Leading shape of a (..., 3) array, and its ray count.
std::vector<py::ssize_t> leadShape(const py::array& a)
{
    return std::vector<py::ssize_t>(a.shape(), a.shape() + a.ndim() - 1);
}

// A per-ray float argument (t_max): a scalar or an array of the rays' shape.
struct PerRay {
    py::array_t<float, py::array::c_style | py::array::forcecast> a;
    bool scalar = true;
    PerRay(py::handle obj, const std::vector<py::ssize_t>& lead, const char* what)
    {
        a = py::array_t<float, py::array::c_style | py::array::forcecast>::ensure(obj);
        if (!a) typeError(std::string(what) + " must be a real number or an array of them");
        scalar = a.ndim() == 0;
        if (!scalar && std::vector<py::ssize_t>(a.shape(), a.shape() + a.ndim()) != lead)
            valueError(std::string(what) + " must be a scalar or have the rays' shape");
        const float* p = a.data();
        for (py::ssize_t i = 0; i < a.size(); ++i)
            if (std::isnan(p[i])) valueError(std::string(what) + " must not be NaN");
    }
    float operator[](size_t i) const { return a.data()[scalar ? 0 : i]; }
};

void requireFinite(const float* p, size_t n, const char* what)
{
    for (size_t i = 0; i < n; ++i)
        if (!std::isfinite(p[i])) throw py::value_error(std::string(what) + " must be finite");
}

class Scene {
public:
    Scene(py::object vertices, py::object triangles, int maxDepth, float splitThreshold,
          py::object memoryMb)
    {
        py::array_t<float> v = vectors3(vertices, "vertices");
        if (v.ndim() != 2 || v.shape(0) < 1) valueError("vertices must have shape (V, 3), V >= 1");
        py::array t = asArray(triangles, "triangles", {"int32", "int64", "uint32", "int16"});
        if (t.ndim() != 2 || (t.shape(1) != 3 && t.shape(1) != 4) || t.shape(0) < 1)
            valueError("triangles must have shape (T, 3) or (T, 4), T >= 1");
        if (v.shape(0) > INT32_MAX / 3 || t.shape(0) > INT32_MAX / 84)
            valueError("mesh too large for 32-bit counts");
        if (maxDepth < 0 || maxDepth > 50) valueError("max_depth must be between 0 and 50");
        if (!(splitThreshold >= 0.0f && splitThreshold <= 1.0f))
            valueError("split_threshold must be between 0 and 1");
        nv_ = static_cast<int>(v.shape(0));
        nt_ = static_cast<int>(t.shape(0));
        verts_.assign(v.data(), v.data() + size_t(nv_) * 3);
        requireFinite(verts_.data(), verts_.size(), "vertices");
        auto ti = py::array_t<int64_t, py::array::c_style | py::array::forcecast>::ensure(t);
        const int cols = static_cast<int>(t.shape(1));
        tris_.assign(size_t(nt_) * 4, 0);
        for (int i = 0; i < nt_; ++i)
            for (int c = 0; c < 3; ++c) {
                const int64_t k = ti.data()[size_t(i) * cols + c];
                if (k < 0 || k >= nv_) valueError("triangles index a vertex out of range");
                tris_[size_t(i) * 4 + c] = static_cast<int32_t>(k);
            }
        uint32_t budget = 0;
        const bool fixedBudget = !memoryMb.is_none();
        if (fixedBudget) {
            const long mb = memoryMb.cast<long>();
            if (mb < 1 || mb > 65535) valueError("memory_mb must be between 1 and 65535");
            budget = static_cast<uint32_t>(mb);
        } else {
            // The build's fixed part, one 16 MB unit and some room, doubled on demand.
            const double fixed = 84.0 * nt_ + 12.0 * nv_ + 480.0;
            budget = static_cast<uint32_t>(std::ceil(fixed / 1048576.0)) + 64u;
        }
        py::gil_scoped_release release;
        check(vekrSetBoundBox_32f(verts_.data(), nv_, &box_), "vekrSetBoundBox_32f");
        accel_.resize(size_t(nt_));
        check(vekrTriangleAccelInit(accel_.data(), verts_.data(), tris_.data(), nt_),
              "vekrTriangleAccelInit");
        VekrKDTreeBuildParams params{VEKR_KDTREE_SAH_MAGIC, maxDepth, splitThreshold, budget,
                                     nullptr};
        for (;;) {
            const VekStatus st = vekrKDTreeBuildAlloc(&tree_, verts_.data(), tris_.data(), nv_,
                                                      nt_, &treeSize_, &params);
            if (st == vekStsMemBudget && !fixedBudget && params.memoryMB < 4000u) {
                params.memoryMB = std::min(4000u, params.memoryMB * 2u);
                continue;
            }
            check(st, "vekrKDTreeBuildAlloc");
            break;
        }
    }
    ~Scene() { close(); }

    void close()
    {
        if (tree_) vekrKDTreeFree(tree_);
        tree_ = nullptr;
    }
    bool closed() const { return tree_ == nullptr; }

    py::tuple intersect(py::object origins, py::object directions, py::object tMax,
                        py::object threads)
    {
        requireOpen();
        py::array_t<float> d = vectors3(directions, "directions");
        const auto lead = leadShape(d);
        // One origin may be any three real numbers; per-ray origins are float arrays.
        py::array oa = py::array::ensure(origins);
        const bool shared = oa && oa.ndim() == 1;
        py::array_t<float> o;
        if (shared) {
            const auto v = vector3(origins, "origins");
            o = py::array_t<float>(3, v.data());
        } else {
            o = vectors3(origins, "origins");
        }
        if (!shared &&
            std::vector<py::ssize_t>(o.shape(), o.shape() + o.ndim()) !=
                std::vector<py::ssize_t>(d.shape(), d.shape() + d.ndim()))
            valueError("origins must have shape (3,) or the shape of directions");
        PerRay tm(tMax, lead, "t_max");
        const size_t n = d.size() / 3;
        if (n > size_t(INT32_MAX)) valueError("too many rays");
        py::array_t<float> T(lead), U(lead), V(lead);
        py::array_t<int32_t> TRI(lead);
        const float* D = d.data();
        const float* O = o.data();
        requireFinite(O, o.size(), "origins");
        float *pt = T.mutable_data(), *pu = U.mutable_data(), *pv = V.mutable_data();
        int32_t* ptri = TRI.mutable_data();
        const VekrIntersectContext ctx = context();
        runParts(parts(n), threadCount(threads), [&](int p) {
            const size_t s = size_t(p) * kChunk, cnt = std::min(kChunk, n - s), np = pad16(cnt);
            float* buf = static_cast<float*>(threadScratch(0, np * 9 * sizeof(float)));
            int32_t* tri = static_cast<int32_t*>(threadScratch(1, np * sizeof(int32_t)));
            float* dir[3] = {buf, buf + np, buf + 2 * np};
            float* org[3] = {buf + 3 * np, buf + 4 * np, buf + 5 * np};
            float* dist = buf + 6 * np;
            float* hit[2] = {buf + 7 * np, buf + 8 * np};
            // Padding lanes get a limit of 0, so the library does not trace them.
            for (size_t i = cnt; i < np; ++i) {
                for (int c = 0; c < 3; ++c) dir[c][i] = org[c][i] = 0.0f;
                dist[i] = 0.0f;
            }
            // The finite test rides along with the copy: x * 0 is 0 for a
            // finite x and NaN otherwise, so the sum stays 0 only if all are.
            const float* src = D + s * 3;
            float nonFinite = 0.0f;
            for (size_t i = 0; i < cnt; ++i) {
                const float x = src[3 * i], y = src[3 * i + 1], z = src[3 * i + 2];
                dir[0][i] = x, dir[1][i] = y, dir[2][i] = z;
                nonFinite += x * 0.0f + y * 0.0f + z * 0.0f;
            }
            if (nonFinite != 0.0f) throw py::value_error("directions must be finite");
            for (size_t i = 0; i < cnt && !shared; ++i)
                for (int c = 0; c < 3; ++c) org[c][i] = O[(s + i) * 3 + c];
            if (tm.scalar) std::fill(dist, dist + cnt, tm[0]);
            else std::copy(tm.a.data() + s, tm.a.data() + s + cnt, dist);
            const VekSize ext{4, static_cast<int>(np / 4)};
            if (shared)
                vekrIntersectEyeSO_32f(O, dir, dist, hit, tri, &ctx, ext);
            else
                vekrIntersectMO_32f(org, dir, dist, hit, tri, &ctx, ext);
            for (size_t i = 0; i < cnt; ++i) {
                const bool h = tri[i] >= 0;
                pt[s + i] = h ? dist[i] : kInf;
                pu[s + i] = h ? hit[0][i] : 0.0f;
                pv[s + i] = h ? hit[1][i] : 0.0f;
                ptri[s + i] = tri[i];
            }
        });
        return py::make_tuple(T, U, V, TRI);
    }

    py::array occluded(py::object origin, py::object targets, py::object threads)
    {
        requireOpen();
        const auto org = vector3(origin, "origin");
        py::array_t<float> d = vectors3(targets, "targets");
        const size_t n = d.size() / 3;
        if (n > size_t(INT32_MAX)) valueError("too many rays");
        py::array_t<bool> B(leadShape(d));
        const float* D = d.data();
        bool* pb = B.mutable_data();
        const VekrIntersectContext ctx = context();
        runParts(parts(n), threadCount(threads), [&](int p) {
            const size_t s = size_t(p) * kChunk, cnt = std::min(kChunk, n - s), np = pad16(cnt);
            requireFinite(D + s * 3, cnt * 3, "targets");
            Scratch<float> buf(np * 3);
            Scratch<int32_t> ints(np * 2);
            float* dir[3] = {buf.get(), buf.get() + np, buf.get() + 2 * np};
            int32_t* tri = ints.get();
            int32_t* mask = ints.get() + np;
            for (size_t i = 0; i < np; ++i) {
                const bool real = i < cnt;
                for (int c = 0; c < 3; ++c) dir[c][i] = real ? D[(s + i) * 3 + c] - org[c] : 0.0f;
                mask[i] = real ? 0 : -1;
            }
            vekrIntersectAnySO_32f(org.data(), dir, tri, mask, VekSize{4, int(np / 4)}, &ctx);
            for (size_t i = 0; i < cnt; ++i) pb[s + i] = tri[i] >= 0;
        });
        return std::move(B);
    }

    py::tuple intersectLayers(py::object origin, py::object directions, int maxHits,
                              py::object tMax, py::object threads)
    {
        requireOpen();
        const auto org = vector3(origin, "origin");
        py::array_t<float> d = vectors3(directions, "directions");
        if (maxHits < 1 || maxHits > 256) valueError("max_hits must be between 1 and 256");
        auto lead = leadShape(d);
        PerRay tm(tMax, lead, "t_max");
        const size_t n = d.size() / 3, L = size_t(maxHits);
        if (n > size_t(INT32_MAX) / L) valueError("too many rays");
        lead.push_back(maxHits);
        py::array_t<float> T(lead), U(lead), V(lead);
        py::array_t<int32_t> TRI(lead);
        const float* D = d.data();
        float *pt = T.mutable_data(), *pu = U.mutable_data(), *pv = V.mutable_data();
        int32_t* ptri = TRI.mutable_data();
        const VekrIntersectContext ctx = context();
        runParts(parts(n), threadCount(threads), [&](int p) {
            const size_t s = size_t(p) * kChunk, cnt = std::min(kChunk, n - s), np = pad16(cnt);
            requireFinite(D + s * 3, cnt * 3, "directions");
            Scratch<float> buf(np * 3 + np * L * 3);
            Scratch<int32_t> tri(np * L);
            std::fill(buf.get(), buf.get() + np * 3 + np * L * 3, 0.0f);
            float* dir[3] = {buf.get(), buf.get() + np, buf.get() + 2 * np};
            float* dist = buf.get() + 3 * np;
            float* hit[2] = {dist + np * L, dist + 2 * np * L};
            for (size_t i = 0; i < cnt; ++i) {
                for (int c = 0; c < 3; ++c) dir[c][i] = D[(s + i) * 3 + c];
                dist[i] = tm[s + i];
            }
            vekrIntersectMultipleSO_32f(org.data(), dir, dist, hit, tri.get(),
                                        VekrHitBlockSize{4, int(np / 4), maxHits}, &ctx);
            for (size_t i = 0; i < cnt; ++i)
                for (size_t l = 0; l < L; ++l) {
                    const size_t k = l * np + i, out = (s + i) * L + l;
                    const bool h = tri[k] >= 0;
                    pt[out] = h ? dist[k] : kInf;
                    pu[out] = h ? hit[0][k] : 0.0f;
                    pv[out] = h ? hit[1][k] : 0.0f;
                    ptri[out] = tri[k];
                }
        });
        return py::make_tuple(T, U, V, TRI);
    }

    py::array triangleNormals()
    {
        requireOpen();
        py::array_t<float> N({py::ssize_t(nt_), py::ssize_t(3)});
        float* pn = N.mutable_data();
        py::gil_scoped_release release;
        check(vekrTriangleNormal_32f(verts_.data(), tris_.data(), pn, nt_),
              "vekrTriangleNormal_32f");
        return std::move(N);
    }

    // Area-weighted average of the face normals around each vertex, unit length.
    py::array vertexNormals()
    {
        requireOpen();
        py::array_t<float> N({py::ssize_t(nv_), py::ssize_t(3)});
        std::vector<double> acc(size_t(nv_) * 3, 0.0);
        for (int t = 0; t < nt_; ++t) {
            const int32_t* k = &tris_[size_t(t) * 4];
            const float *a = &verts_[size_t(k[0]) * 3], *b = &verts_[size_t(k[1]) * 3],
                        *c = &verts_[size_t(k[2]) * 3];
            const double e1[3] = {double(a[0]) - c[0], double(a[1]) - c[1], double(a[2]) - c[2]};
            const double e2[3] = {double(b[0]) - c[0], double(b[1]) - c[1], double(b[2]) - c[2]};
            const double nrm[3] = {e1[1] * e2[2] - e1[2] * e2[1], e1[2] * e2[0] - e1[0] * e2[2],
                                   e1[0] * e2[1] - e1[1] * e2[0]};
            for (int j = 0; j < 3; ++j)
                for (int q = 0; q < 3; ++q) acc[size_t(k[j]) * 3 + q] += nrm[q];
        }
        float* pn = N.mutable_data();
        for (int i = 0; i < nv_; ++i) {
            const double* a = &acc[size_t(i) * 3];
            const double len = std::sqrt(a[0] * a[0] + a[1] * a[1] + a[2] * a[2]);
            for (int q = 0; q < 3; ++q) pn[i * 3 + q] = len > 0 ? float(a[q] / len) : 0.0f;
        }
        return std::move(N);
    }

    py::array smoothNormals(py::object triangle, py::object u, py::object v,
                            py::object vertexNormalsArg, py::object threads)
    {
        requireOpen();
        py::array ta = asArray(triangle, "triangle", {"int32", "int64"});
        auto tri = py::array_t<int32_t, py::array::c_style | py::array::forcecast>::ensure(ta);
        auto ua = py::array_t<float, py::array::c_style | py::array::forcecast>::ensure(
            asArray(u, "u", {"float32", "float64"}));
        auto va = py::array_t<float, py::array::c_style | py::array::forcecast>::ensure(
            asArray(v, "v", {"float32", "float64"}));
        std::vector<py::ssize_t> lead(tri.shape(), tri.shape() + tri.ndim());
        for (const py::array* a : {(py::array*)&ua, (py::array*)&va})
            if (std::vector<py::ssize_t>(a->shape(), a->shape() + a->ndim()) != lead)
                valueError("triangle, u and v must have the same shape");
        py::array_t<float> vn = vertexNormalsArg.is_none()
                                    ? py::array_t<float>(vertexNormals())
                                    : vectors3(vertexNormalsArg, "vertex_normals");
        if (vn.ndim() != 2 || vn.shape(0) != nv_)
            valueError("vertex_normals must have shape (V, 3) for the scene's V vertices");
        const size_t n = tri.size();
        const int32_t* pt = tri.data();
        for (size_t i = 0; i < n; ++i)
            if (pt[i] >= nt_) valueError("triangle holds an index past the last triangle");
        auto outShape = lead;
        outShape.push_back(3);
        py::array_t<float> N(outShape);
        float* pn = N.mutable_data();
        const float *pu = ua.data(), *pv = va.data(), *pvn = vn.data();
        runParts(parts(n), threadCount(threads), [&](int p) {
            const size_t s = size_t(p) * kChunk, cnt = std::min(kChunk, n - s);
            Scratch<float> buf(cnt * 3);
            float* out[3] = {buf.get(), buf.get() + cnt, buf.get() + 2 * cnt};
            const float* uv[2] = {pu + s, pv + s};
            check(vekrSurfSmoothNormal_32f(pvn, tris_.data(), pt + s, uv, out, int(cnt), 4),
                  "vekrSurfSmoothNormal_32f");
            for (size_t i = 0; i < cnt; ++i)
                for (int c = 0; c < 3; ++c) pn[(s + i) * 3 + c] = out[c][i];
        });
        return std::move(N);
    }

    py::array bounds() const
    {
        py::array_t<float> b(6);
        std::copy(&box_.minX, &box_.minX + 6, b.mutable_data());
        return std::move(b);
    }
    int triangleCount() const { return nt_; }
    int vertexCount() const { return nv_; }
    int treeBytes() const { return treeSize_; }

private:
    static int parts(size_t n) { return static_cast<int>((n + kChunk - 1) / kChunk); }
    void requireOpen() const
    {
        if (!tree_) valueError("the scene is closed");
    }
    VekrIntersectContext context() const { return {&box_, accel_.data(), tree_}; }

    int nv_ = 0, nt_ = 0, treeSize_ = 0;
    std::vector<float> verts_;
    std::vector<int32_t> tris_;
    VekrBox3D box_{};
    std::vector<VekrTriangleAccel> accel_;
    VekrKDTreeNode* tree_ = nullptr;
};

// Eye rays of a pinhole camera through pixel centres, from vekrCastEye_32f.
py::array cameraRays(py::object eye, py::object target, py::object up, double fov, int width,
                     int height)
{
    const auto e = vector3(eye, "eye"), t = vector3(target, "target"), u = vector3(up, "up");
    if (!(fov > 0.0 && fov < 180.0)) valueError("fov must be between 0 and 180 degrees");
    if (width < 1 || height < 1 || double(width) * height > INT32_MAX)
        valueError("width and height must be positive");
    auto sub = [](const double* a, const double* b) {
        return std::array<double, 3>{a[0] - b[0], a[1] - b[1], a[2] - b[2]};
    };
    auto cross = [](const std::array<double, 3>& a, const std::array<double, 3>& b) {
        return std::array<double, 3>{a[1] * b[2] - a[2] * b[1], a[2] * b[0] - a[0] * b[2],
                                     a[0] * b[1] - a[1] * b[0]};
    };
    auto unit = [](std::array<double, 3> a, const char* msg) {
        const double l = std::sqrt(a[0] * a[0] + a[1] * a[1] + a[2] * a[2]);
        if (!(l > 0.0)) valueError(msg);
        for (double& x : a) x /= l;
        return a;
    };
    const double ed[3] = {e[0], e[1], e[2]}, td[3] = {t[0], t[1], t[2]};
    const auto f = unit(sub(td, ed), "target must differ from eye");
    const auto r = unit(cross(f, {u[0], u[1], u[2]}), "up must not be parallel to the view");
    const auto uu = cross(r, f);
    const double hh = std::tan(fov * M_PI / 360.0), hw = hh * width / height;
    float corner[3], sx[3], sy[3];
    for (int c = 0; c < 3; ++c) {
        sx[c] = float(2.0 * hw / width * r[c]);
        sy[c] = float(-2.0 * hh / height * uu[c]);
        corner[c] = float(f[c] - hw * r[c] + hh * uu[c] + 0.5 * (2.0 * hw / width * r[c]) -
                          0.5 * (2.0 * hh / height * uu[c]));
    }
    py::array_t<float> out({py::ssize_t(height), py::ssize_t(width), py::ssize_t(3)});
    const size_t n = size_t(width) * height;
    Scratch<float> buf(n * 3);
    float* dir[3] = {buf.get(), buf.get() + n, buf.get() + 2 * n};
    float* po = out.mutable_data();
    {
        py::gil_scoped_release release;
        check(vekrCastEye_32f(corner, sx, sy, 0, 0, VekSize{width, height}, dir,
                              VekSize{width, height}),
              "vekrCastEye_32f");
        for (size_t i = 0; i < n; ++i)
            for (int c = 0; c < 3; ++c) po[i * 3 + c] = dir[c][i];
    }
    return std::move(out);
}

}  // namespace

void initRays(py::module_& m)
{
    using namespace py::literals;
    py::class_<Scene>(m, "Scene", R"(A triangle mesh prepared for ray queries.

Builds the mesh's bounding box, one acceleration record per triangle and a
cost-driven (surface-area heuristic) KD-tree, and keeps them together until
:meth:`close` (or the end of a ``with`` block).  The vertices and triangles
are copied, so the caller's arrays may change afterwards.

Parameters
----------
vertices : array_like, shape (V, 3), float32 or float64
    Vertex positions (float64 is rounded to float32, the library's precision).
triangles : array_like, shape (T, 3) or (T, 4), int32, int64, uint32 or int16
    Vertex indices per triangle in winding order; a fourth column is ignored.
max_depth : int, optional
    Deepest level of the tree, 0 to 50 (default 50).
split_threshold : float, optional
    0 to 1; 0 (default) demands the largest cost gain per split, 1 splits most.
memory_mb : int, optional
    Working-memory budget of the build in MB.  By default it is sized from the
    mesh and doubled while the build reports the budget too small.

Raises
------
TypeError
    A dtype other than the accepted ones.
ValueError
    Wrong shapes, an empty mesh, an index out of range, non-finite vertices,
    or a parameter out of range.
VekrError
    The build failed (for example ``memory_mb`` below the build's fixed need
    gives code -4, ``vekStsNoMem``).

Notes
-----
Queries take rays of any count and shape ``(..., 3)``; they are padded
internally to the library's 4 x 4 packet tiles and split into chunks of 4096
rays that run on ``threads`` threads (default: the library's thread count).
The GIL is released while the library runs.  Do not call :meth:`close` while
another thread is querying the scene.
)")
        .def(py::init<py::object, py::object, int, float, py::object>(), "vertices"_a,
             "triangles"_a, py::kw_only(), "max_depth"_a = 50, "split_threshold"_a = 0.0f,
             "memory_mb"_a = py::none())
        .def("intersect", &Scene::intersect, "origins"_a, "directions"_a,
             "t_max"_a = std::numeric_limits<double>::infinity(), py::kw_only(),
             "threads"_a = py::none(), R"(Nearest hit of each ray.

Parameters
----------
origins : array_like, shape (3,) or (..., 3), float32 or float64
    One origin shared by all rays (the eye-ray path) or one origin per ray,
    shaped like ``directions`` (the own-origin path).
directions : array_like, shape (..., 3), float32 or float64
    Ray directions, not necessarily of unit length.
t_max : float or array_like, optional
    Largest distance of interest per ray (default infinity).
threads : int, optional

Returns
-------
t, u, v : ndarray of float32, shape (...)
    Distance along the ray in units of its direction's length (``inf`` for a
    miss) and the barycentric coordinates of the hit: the hit point is
    ``u * A + v * B + (1 - u - v) * C`` for the triangle's vertices A, B, C
    (0 for a miss).
triangle : ndarray of int32, shape (...)
    Index of the hit triangle, -1 for a miss.

Notes
-----
Only hits with ``0 < t < t_max`` count.  With per-ray origins a later
triangle replaces a nearer one only when it is nearer by more than 1e-5, and a
ray lying in a triangle's plane does not hit it.
)")
        .def("occluded", &Scene::occluded, "origin"_a, "targets"_a, py::kw_only(),
             "threads"_a = py::none(), R"(Whether anything blocks the segments from one point to targets.

Parameters
----------
origin : array_like, shape (3,)
targets : array_like, shape (..., 3), float32 or float64
threads : int, optional

Returns
-------
ndarray of bool, shape (...)
    True where a triangle lies strictly between ``origin`` and the target
    (``0 < t < 1`` along ``target - origin``).
)")
        .def("intersect_layers", &Scene::intersectLayers, "origin"_a, "directions"_a,
             "max_hits"_a, "t_max"_a = std::numeric_limits<double>::infinity(), py::kw_only(),
             "threads"_a = py::none(), R"(Successive hits along rays from one origin.

Parameters
----------
origin : array_like, shape (3,)
directions : array_like, shape (..., 3), float32 or float64
max_hits : int
    Number of hit layers per ray, 1 to 256.
t_max : float or array_like, optional
    Limit of the first hit per ray (default infinity).
threads : int, optional

Returns
-------
t, u, v : ndarray of float32, shape (..., max_hits)
    Hits in order of distance, distances measured from ``origin``;
    ``inf`` (and u = v = 0) where a ray has fewer hits.
triangle : ndarray of int32, shape (..., max_hits)
    -1 past a ray's last hit.  A triangle is not reported twice in a row.
)")
        .def("triangle_normals", &Scene::triangleNormals, R"(Unit normal of every triangle.

Returns
-------
ndarray of float32, shape (T, 3)
    ``(A - C) x (B - C)`` normalised (right-hand rule over the winding);
    (0, 0, 0) for a degenerate triangle.
)")
        .def("vertex_normals", &Scene::vertexNormals, R"(Area-weighted unit normal at every vertex.

Returns
-------
ndarray of float32, shape (V, 3)
    The normalised sum of the (unnormalised) normals of the triangles around
    each vertex; (0, 0, 0) where that sum vanishes.
)")
        .def("smooth_normals", &Scene::smoothNormals, "triangle"_a, "u"_a, "v"_a,
             "vertex_normals"_a = py::none(), py::kw_only(), "threads"_a = py::none(),
             R"(Interpolated unit normals at hits, as returned by :meth:`intersect`.

Parameters
----------
triangle : array_like of int32 or int64
    Hit triangle per ray; negative for no hit.
u, v : array_like, float32 or float64, same shape as ``triangle``
vertex_normals : array_like, shape (V, 3), optional
    Defaults to :meth:`vertex_normals`.
threads : int, optional

Returns
-------
ndarray of float32, shape (..., 3)
    ``normalize(u * N_A + v * N_B + (1 - u - v) * N_C)``; (0, 0, 0) for no
    hit or a vanishing sum.
)")
        .def("close", &Scene::close, "Release the KD-tree; later queries raise ValueError.")
        .def_property_readonly("closed", &Scene::closed, "True after :meth:`close`.")
        .def_property_readonly("bounds", &Scene::bounds,
                               "The widened bounding box (min x, y, z, max x, y, z).")
        .def_property_readonly("triangle_count", &Scene::triangleCount, "Number of triangles.")
        .def_property_readonly("vertex_count", &Scene::vertexCount, "Number of vertices.")
        .def_property_readonly("tree_bytes", &Scene::treeBytes, "Size of the KD-tree in bytes.")
        .def("__enter__", [](py::object self) { return self; })
        .def("__exit__", [](Scene& s, py::args) { s.close(); });

    py::object scene = m.attr("Scene");
    m.def("camera_rays", &cameraRays, "eye"_a, "target"_a, "up"_a, "fov"_a, "width"_a,
          "height"_a, R"(Eye-ray directions of a pinhole camera, one per pixel centre.

Parameters
----------
eye, target, up : array_like, shape (3,)
    Camera position, the point looked at, and the up direction.
fov : float
    Vertical field of view in degrees (0 to 180).
width, height : int
    Image size in pixels.

Returns
-------
ndarray of float32, shape (height, width, 3)
    Directions from ``eye``, not normalised: each has length 1 along the
    viewing axis, so a hit distance ``t`` from :meth:`Scene.intersect` with
    ``origins=eye`` is the depth along the viewing axis.  Row 0 is the top of
    the image.
)");
    scene.attr("camera_rays") = py::reinterpret_borrow<py::object>(
        reinterpret_cast<PyObject*>(&PyStaticMethod_Type))(m.attr("camera_rays"));
}

}  // namespace vekrpy
