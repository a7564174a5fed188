// The per-ray shading family on one harness: every member on random packets
// of many counts, aligned (the fast path where a member has one) and one
// element past a 16-byte boundary (the general path), each element against a
// double-precision reference or an exact rule, and the two paths against each
// other within what the member allows.  Then the boundary values, one table.
#include <gtest/gtest.h>

#include <cfloat>
#include <climits>
#include <cmath>
#include <algorithm>
#include <cstring>
#include <functional>
#include <limits>
#include <random>

#include "testutil.h"
#include "vekr.h"

namespace {

using vekr::test::Aligned;

uint32_t bits(float f)
{
    uint32_t u;
    std::memcpy(&u, &f, 4);
    return u;
}
bool same(float a, float b) { return bits(a) == bits(b); }
constexpr float kGrazing = 0.0017453292f;
const float kLight[3] = {0.25f, 2.0f, -0.5f};
const float kK[3] = {0.7f, 1.3f, -0.45f};

// Every array any member reads or writes, at one offset from a 16-byte
// boundary, and the mesh tables the normal members index.
struct Packet {
    int n;
    Aligned<float> store[13];
    Aligned<int> istore[2];
    float *a[3], *b[3], *v[3], *s, *x, *u[2];
    int *m, *idx;
    Packet(int count, int shift, uint32_t seed) : n(count)
    {
        for (auto& st : store) st.resize(n + 8);
        for (auto& st : istore) st.resize(n + 8);
        float* p[13];
        for (int i = 0; i < 13; ++i) p[i] = store[i].offset(shift);
        for (int c = 0; c < 3; ++c) a[c] = p[c], b[c] = p[3 + c], v[c] = p[6 + c];
        s = p[9], x = p[10], u[0] = p[11], u[1] = p[12];
        m = istore[0].offset(shift), idx = istore[1].offset(shift);
        std::mt19937 rng(seed);
        std::uniform_real_distribution<float> d(-2, 2), w(0, 1);
        const int negatives[] = {-1, INT32_MIN, -7}, positives[] = {0, 1, 1 << 30};
        for (int i = 0; i < n; ++i) {
            for (int c = 0; c < 3; ++c) a[c][i] = d(rng), b[c][i] = d(rng), v[c][i] = d(rng);
            s[i] = 1.5f * d(rng), x[i] = 1.5f * d(rng);
            float uu = w(rng), vv = w(rng);
            if (uu + vv > 1) uu = 1 - uu, vv = 1 - vv;
            u[0][i] = uu, u[1][i] = vv;
        }
        // Masks and hit indices by group of four: all off, all on, mixed.
        for (int g = 0; g < n; g += 4) {
            const int kind = int(rng() % 3), same = int(rng() % 40);
            for (int i = g; i < g + 4 && i < n; ++i) {
                const bool off = kind == 0 || (kind == 2 && (rng() & 1));
                m[i] = off ? negatives[rng() % 3] : positives[rng() % 3];
                idx[i] = off ? (i % 2 ? -1 : INT32_MIN) : kind == 1 ? same : int(rng() % 40);
            }
        }
        // Shadow rays: some hit points at the light, some |q| at the threshold.
        for (int i = 0; i < n; ++i) {
            if (i % 11 == 2)
                for (int c = 0; c < 3; ++c) b[c][i] = kLight[c];
            if (i % 7 == 3) {
                a[0][i] = 1, a[1][i] = 0, a[2][i] = 0;
                const float q = i % 2 ? kGrazing : std::nextafter(kGrazing, 0.0f);
                b[0][i] = kLight[0] + (i % 4 == 3 ? q : -q);
            }
            if (i % 5 == 0) s[i] = 0;
        }
    }
    // The same values at another offset.
    Packet(const Packet& o, int shift) : Packet(o.n, shift, 0)
    {
        for (int i = 0; i < n; ++i) {
            for (int c = 0; c < 3; ++c) a[c][i] = o.a[c][i], b[c][i] = o.b[c][i], v[c][i] = o.v[c][i];
            s[i] = o.s[i], x[i] = o.x[i], u[0][i] = o.u[0][i], u[1][i] = o.u[1][i], m[i] = o.m[i], idx[i] = o.idx[i];
        }
    }
    float* const* cv(float* const* p) const { return p; }
};

// 40 triangles over 30 vertices: per-triangle normals, vertex normals (not
// unit length) and index records of stride 5.
struct Tables {
    std::vector<float> triNormals, vertNormals;
    std::vector<int> records;
    Tables()
    {
        std::mt19937 rng(3);
        std::uniform_real_distribution<float> d(-2, 2);
        for (int i = 0; i < 120; ++i) triNormals.push_back(d(rng));
        for (int i = 0; i < 90; ++i) vertNormals.push_back(d(rng));
        for (int t = 0; t < 40; ++t)
            for (int k = 0; k < 5; ++k) records.push_back(k < 3 ? int(rng() % 30) : -5);
    }
};
const Tables& tables()
{
    static const Tables t;
    return t;
}

using Check = std::function<void(const Packet& in, const Packet& out, int i)>;
struct Member {
    const char* name;
    std::function<VekStatus(Packet&)> run;
    Check check;         // one element against its reference
    double pathTol;      // largest difference between the two paths (0: the same bits)
};

double dot3(float* const* p, float* const* q, int i)
{
    return double(p[0][i]) * q[0][i] + double(p[1][i]) * q[1][i] + double(p[2][i]) * q[2][i];
}
#define ZERO3(P, i) (same(P[0][i], 0) && same(P[1][i], 0) && same(P[2][i], 0))

std::vector<Member> members()
{
    return {
        {"Dot", [](Packet& p) { return vekrDot_32f_P3C1M(p.a, p.b, p.m, p.x, p.n); },
         [](const Packet& in, const Packet& out, int i) {
             if (in.m[i] < 0) {
                 EXPECT_TRUE(same(out.x[i], 0));
             } else {
                 EXPECT_NEAR(out.x[i], dot3(in.a, in.b, i), 2e-6);
             }
         }, 0},
        {"DotChangeNorm", [](Packet& p) { return vekrDotChangeNorm_32f_IM(p.a, p.m, p.v, p.x, p.n); },
         [](const Packet& in, const Packet& out, int i) {
             const double q = dot3(in.a, in.v, i);
             if (in.m[i] < 0) {
                 EXPECT_TRUE(same(out.x[i], 0));
                 for (int c = 0; c < 3; ++c) EXPECT_TRUE(same(out.v[c][i], in.v[c][i]));
                 return;
             }
             EXPECT_NEAR(out.x[i], -std::fabs(q), 2e-6);
             const float sign = q > 2e-6 ? -1.0f : q < -2e-6 ? 1.0f : 0.0f;  // turned where the dot was positive
             for (int c = 0; c < 3 && sign != 0; ++c) EXPECT_TRUE(same(out.v[c][i], sign * in.v[c][i]));
         }, 0},
        {"Mul C1P3", [](Packet& p) { return vekrMul_32f_C1P3IM(p.s, p.m, p.v, p.n); },
         [](const Packet& in, const Packet& out, int i) {
             for (int c = 0; c < 3; ++c) EXPECT_TRUE(same(out.v[c][i], in.m[i] < 0 ? 0.0f : float(double(in.v[c][i]) * in.s[i])));
         }, 0},
        {"Mul C1", [](Packet& p) { return vekrMul_32f_C1IM(p.s, p.m, p.x, p.n); },
         [](const Packet& in, const Packet& out, int i) {
             EXPECT_TRUE(same(out.x[i], in.m[i] < 0 ? 0.0f : float(double(in.x[i]) * in.s[i])));
         }, 0},
        {"Div C1", [](Packet& p) { return vekrDiv_32f_C1IM(p.s, p.m, p.x, p.n); },
         [](const Packet& in, const Packet& out, int i) {
             const float want = in.m[i] < 0 ? 0.0f : float(double(in.x[i]) / in.s[i]);
             EXPECT_TRUE(in.s[i] == 0 || same(out.x[i], want));
         }, 0},
        {"AddMulMul", [](Packet& p) { return vekrAddMulMul_32f_AC1P3IM(kK, p.s, p.a, p.m, p.v, p.n); },
         [](const Packet& in, const Packet& out, int i) {
             for (int c = 0; c < 3; ++c) {
                 const double want = in.m[i] < 0 ? in.v[c][i] : in.v[c][i] + double(in.a[c][i]) * kK[c] * in.s[i];
                 EXPECT_NEAR(out.v[c][i], want, in.m[i] < 0 ? 0.0 : 3e-6);
             }
         }, 1e-6},  // the two associations of the products differ in the last bits
        {"Reflection", [](Packet& p) { return vekrCastReflectionRay_32f(p.a, p.m, p.b, p.v, p.n); },
         [](const Packet& in, const Packet& out, int i) {
             EXPECT_TRUE(in.m[i] >= 0 || ZERO3(out.v, i));
             for (int c = 0; c < 3 && in.m[i] >= 0; ++c)
                 EXPECT_NEAR(out.v[c][i], in.a[c][i] - 2 * dot3(in.a, in.b, i) * in.b[c][i], 3e-5);
         }, 0},
        {"Shadow", [](Packet& p) { return vekrCastShadowSO_32f(kLight, p.s, p.a, p.b, p.m, p.x, p.v, p.n); },
         [](const Packet& in, const Packet& out, int i) {
             // Written from the rule: q = N.(P - L); the ray stays on when it is
             // active, f q > 0 and |q| reaches the threshold.  Groups of four
             // turn every failing lane off with -1; the scalar tail keeps an
             // inactive ray's own negative value.
             const float vx = in.b[0][i] - kLight[0], vy = in.b[1][i] - kLight[1], vz = in.b[2][i] - kLight[2];
             const float q = in.a[0][i] * vx + in.a[1][i] * vy + in.a[2][i] * vz;
             const bool pass = in.m[i] >= 0 && std::fabs(q) >= kGrazing && in.s[i] * q > 0;
             if (pass) {
                 EXPECT_EQ(out.m[i], in.m[i]);
                 EXPECT_TRUE(same(out.x[i], std::fabs(q)));
                 EXPECT_TRUE(same(out.v[0][i], vx) && same(out.v[1][i], vy) && same(out.v[2][i], vz));
             } else {
                 EXPECT_EQ(out.m[i], i >= (in.n & ~3) && in.m[i] < 0 ? in.m[i] : -1);
                 EXPECT_TRUE(same(out.x[i], 0) && ZERO3(out.v, i));
             }
         }, 0},
        {"DistAttenuation", [](Packet& p) { return vekrDistAttenuationSO_32f_M(kLight, p.b, p.m, p.x, p.n); },
         [](const Packet& in, const Packet& out, int i) {
             double s = 0;
             for (int c = 0; c < 3; ++c) s += std::pow(double(in.b[c][i]) - kLight[c], 2);
             const double want = in.m[i] < 0 ? 1.0 : std::max(1.0, std::sqrt(s));
             EXPECT_NEAR(out.x[i], want, 1e-6 * want);
         }, 0},
        {"FlatNormal", [](Packet& p) { return vekrSurfFlatNormal_32f(tables().triNormals.data(), p.idx, p.v, p.n); },
         [](const Packet& in, const Packet& out, int i) {
             for (int c = 0; c < 3; ++c)
                 EXPECT_TRUE(same(out.v[c][i], in.idx[i] < 0 ? 0.0f : tables().triNormals[3 * in.idx[i] + c]));
         }, 0},
        {"SmoothNormal", [](Packet& p) {
             return vekrSurfSmoothNormal_32f(tables().vertNormals.data(), tables().records.data(), p.idx, p.u, p.v, p.n, 5); },
         [](const Packet& in, const Packet& out, int i) {
             if (in.idx[i] < 0) {
                 EXPECT_TRUE(ZERO3(out.v, i));
                 return;
             }
             const int* r = &tables().records[5 * size_t(in.idx[i])];
             const double w[3] = {in.u[0][i], in.u[1][i], 1.0 - double(in.u[0][i]) - in.u[1][i]};
             double nn[3] = {0, 0, 0};
             for (int k = 0; k < 3; ++k)
                 for (int c = 0; c < 3; ++c) nn[c] += tables().vertNormals[3 * r[k] + c] * w[k];
             const double len = std::sqrt(nn[0] * nn[0] + nn[1] * nn[1] + nn[2] * nn[2]);
             if (len * len < 2 * FLT_EPSILON) return;  // at the cut to zero: the edge table covers it
             for (int c = 0; c < 3; ++c) EXPECT_NEAR(out.v[c][i], nn[c] / len, 2e-5);
         }, 1e-6},
    };
}

void PrintTo(const Member& m, std::ostream* os) { *os << m.name; }

class Shade : public testing::TestWithParam<Member> {};

TEST_P(Shade, ReferenceOnBothPathsAndThePathsAgree)
{
    const Member& mb = GetParam();
    for (int n : {1, 3, 4, 13, 64, 401}) {
        SCOPED_TRACE(testing::Message() << "count " << n);
        const Packet in(n, 0, 100 + n);
        Packet fast(in, 0), general(in, 1);
        ASSERT_EQ(mb.run(fast), vekStsOk);
        ASSERT_EQ(mb.run(general), vekStsOk);
        for (const Packet* out : {&fast, &general})
            for (int i = 0; i < n; ++i) {
                SCOPED_TRACE(testing::Message() << (out == &fast ? "aligned" : "misaligned") << ", element " << i);
                mb.check(in, *out, i);
                if (testing::Test::HasFailure()) return;
            }
        auto agree = [&](float f, float g) { return mb.pathTol == 0 ? same(f, g) : std::fabs(f - g) <= mb.pathTol; };
        for (int i = 0; i < n; ++i) {
            ASSERT_TRUE(agree(fast.x[i], general.x[i])) << i;
            ASSERT_EQ(fast.m[i], general.m[i]) << i;
            for (int c = 0; c < 3; ++c) ASSERT_TRUE(agree(fast.v[c][i], general.v[c][i])) << i;
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Members, Shade, testing::ValuesIn(members()), [](const testing::TestParamInfo<Member>& i) {
    std::string s = i.param.name;
    std::replace(s.begin(), s.end(), ' ', '_');
    return s;
});

// ---- boundary values, four lanes each (aligned) and three (general) ------------------

const float kInf = std::numeric_limits<float>::infinity(), kNaN = std::numeric_limits<float>::quiet_NaN();

TEST(ShadeEdges, BoundaryValuesOfEveryMember)
{
    for (int count : {4, 3}) {
        SCOPED_TRACE(testing::Message() << "count " << count);
        // Division by zero: signed infinities, 0/0 and NaN give the default NaN; the
        // divisor's sign does not matter; a masked lane gives +0.
        {
            alignas(16) float s[4] = {0, 0, 0, -0.0f}, x[4] = {3, -3, 0, 3};
            alignas(16) int m[4] = {0, 1, 0, 0};
            ASSERT_EQ(vekrDiv_32f_C1IM(s, m, x, count), vekStsOk);
            EXPECT_EQ(x[0], kInf);
            EXPECT_EQ(x[1], -kInf);
            EXPECT_EQ(bits(x[2]), 0xFFC00000u);
            EXPECT_EQ(x[3], count == 4 ? kInf : 3.0f);
            alignas(16) float s2[4] = {0, 0, 0, 2}, x2[4] = {kNaN, -0.0f, 5, 8};
            alignas(16) int m2[4] = {0, 0, -1, 0};
            ASSERT_EQ(vekrDiv_32f_C1IM(s2, m2, x2, count), vekStsOk);
            EXPECT_EQ(bits(x2[0]), 0xFFC00000u);
            EXPECT_EQ(bits(x2[1]), 0xFFC00000u);
            EXPECT_TRUE(same(x2[2], 0.0f));
        }
        // A zero dot leaves the normal as it is (-0 included) and gives 0.
        {
            alignas(16) float dx[4] = {1, 0, 0, 1}, dy[4] = {0, 1, 0, 0}, dz[4] = {0, 0, 1, 0};
            alignas(16) float nx[4] = {0, 1, -0.0f, 2}, ny[4] = {1, 0, 1, 0}, nz[4] = {1, 1, 0, 0}, out[4];
            alignas(16) int m[4] = {0, 0, 0, INT32_MIN};
            const float* d[3] = {dx, dy, dz};
            float* nn[3] = {nx, ny, nz};
            ASSERT_EQ(vekrDotChangeNorm_32f_IM(d, m, nn, out, count), vekStsOk);
            for (int i = 0; i < 3; ++i) EXPECT_EQ(out[i], 0.0f);
            EXPECT_TRUE(nx[0] == 0 && ny[0] == 1 && nz[0] == 1 && same(nx[2], -0.0f));
        }
        // Reflection: a normal perpendicular to the ray, or zero, keeps the direction.
        {
            alignas(16) float dx[4] = {1, 0.5f, 3, -2}, dy[4] = {0, 0.25f, 4, 1}, dz[4] = {0, 0, 5, 7};
            alignas(16) float nx[4] = {0, 0, 0, 0}, ny[4] = {1, 0, 0, 0}, nz[4] = {0, 1, 0, 0}, rx[4], ry[4], rz[4];
            alignas(16) int m[4] = {0, 1, 0, 2};
            const float *d[3] = {dx, dy, dz}, *nn[3] = {nx, ny, nz};
            float* r[3] = {rx, ry, rz};
            ASSERT_EQ(vekrCastReflectionRay_32f(d, m, nn, r, count), vekStsOk);
            for (int i = 0; i < count; ++i) EXPECT_TRUE(rx[i] == dx[i] && ry[i] == dy[i] && rz[i] == dz[i]) << i;
        }
        // Attenuation: distance 0.5 and 0 give 1, distance 2 gives 2, a masked point 1.
        {
            const float light[3] = {1, 1, 1};
            alignas(16) float px[4] = {1.5f, 3, 7, 1}, py[4] = {1, 1, 1, 1}, pz[4] = {1, 1, 1, 1}, d[4];
            alignas(16) int m[4] = {0, 0, -1, 0};
            const float* p[3] = {px, py, pz};
            ASSERT_EQ(vekrDistAttenuationSO_32f_M(light, p, m, d, count), vekStsOk);
            EXPECT_TRUE(d[0] == 1 && d[1] == 2 && d[2] == 1);
        }
    }
    // Shadow rays: light at the hit point; side factor 0; |q| just under and
    // exactly at the threshold; the light behind the surface.
    const float light[3] = {0, 0, 0}, under = std::nextafter(kGrazing, 0.0f);
    float f[5] = {1, 0, 1, 1, -1}, nx[5] = {0, 0, 1, 1, 0}, ny[5] = {0, 1, 0, 0, 1}, nz[5] = {1, 0, 0, 0, 0};
    float px[5] = {0, 0, under, kGrazing, 0}, py[5] = {0, 3, 0, 0, 3}, pz[5] = {0, 0, 0, 0, 0};
    int m[5] = {0, 0, 0, 0, 0};
    float c[5], sx[5], sy[5], sz[5];
    const float *nn[3] = {nx, ny, nz}, *p[3] = {px, py, pz};
    float* s[3] = {sx, sy, sz};
    ASSERT_EQ(vekrCastShadowSO_32f(light, f, nn, p, m, c, s, 5), vekStsOk);
    const int wantMask[5] = {-1, -1, -1, 0, -1};
    for (int i = 0; i < 5; ++i) EXPECT_EQ(m[i], wantMask[i]) << i;
    EXPECT_TRUE(c[0] == 0 && sx[0] == 0 && c[3] == kGrazing && sx[3] == kGrazing);
}

TEST(ShadeEdges, SmoothNormalAtTheCutToZero)
{
    const float e = std::ldexp(1.0f, -12);  // (e, e, 0) has squared length exactly FLT_EPSILON
    alignas(16) const float vn[] = {0, 0, 2, 3, 0, 0, -3, 0, 0, e, e, 0, 0, 0, 0};
    alignas(16) const int rec[] = {0, 1, 2, 0, 1, 2, 0, 0, 4, 4, 3, 0, 0, 1, 0, 0};
    alignas(16) const int idx[] = {0, 1, 2, 3};
    alignas(16) const float u[] = {0.0f, 0.5f, 0.0f, 0.25f}, v[] = {0.0f, 0.5f, 0.0f, 0.25f};
    const float* uv[2] = {u, v};
    for (int count : {4, 3}) {  // fast path, general path
        alignas(16) float x[4], y[4], z[4];
        float* out[3] = {x, y, z};
        ASSERT_EQ(vekrSurfSmoothNormal_32f(vn, rec, idx, uv, out, count, 4), vekStsOk);
        EXPECT_NEAR(x[0], -1.0f, 2e-7f);                                // the third vertex's normal
        EXPECT_TRUE(same(x[1], 0) && same(y[1], 0) && same(z[1], 0));  // opposite normals cancel
        // Squared length exactly the epsilon: normalised on the general path, zero on the fast one.
        EXPECT_NEAR(x[2], count == 3 ? 0.70710678f : 0.0f, 1e-7f);
    }
}

}  // namespace
