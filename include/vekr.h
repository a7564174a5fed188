/*
 * vekr: CPU rendering primitives for x86-64 with a flat C ABI.
 *
 * KD-tree acceleration over triangle meshes, packets of rays (nearest hit,
 * any hit, successive hits, rays with their own origins), hit points,
 * normals and lighting terms, real spherical harmonics (bands 0..15), and
 * resize / warp / remap / filter of 3D volumes.
 *
 * Every function except vekrGetLibVersion and vekrKDTreeFree returns a
 * VekStatus: 0 is success, negative values are errors, positive values are
 * warnings (the call did nothing).  A call that fails its argument checks
 * writes nothing.  The library keeps no mutable global state: all functions
 * may be called concurrently on different data.
 *
 * The header compiles as C99 and as C++.
 */
#ifndef VEKR_H
#define VEKR_H

#include <stddef.h>
#include <stdint.h>

#if defined(_WIN32)
#  define VEKR_API
#elif defined(__GNUC__)
#  define VEKR_API __attribute__((visibility("default")))
#else
#  define VEKR_API
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* ------------------------------------------------------------------------ */
/* Status codes                                                             */
/* ------------------------------------------------------------------------ */

typedef int32_t VekStatus;

enum {
    vekStsVoiOutside = 40,        /* warning: source VOI origin outside the source volume */
    vekStsEmptyDestination = 1,   /* warning: mapped destination region is empty */
    vekStsOk = 0,
    vekStsNoMem = -4,             /* allocation failed, or KD-tree budget too small */
    vekStsBadArg = -5,            /* unknown magic in a parameters record */
    vekStsSize = -6,              /* invalid count or size */
    vekStsSelector = -7,          /* spherical harmonics: bad state type, order or band */
    vekStsNullPtr = -8,           /* a required pointer is null */
    vekStsMemBudget = -9,         /* KD-tree build ran out of its memory budget */
    vekStsOutOfRange = -11,       /* KD-tree parameter field out of range */
    vekStsInterpolation = -22,    /* unsupported interpolation mode */
    vekStsResizeFactor = -23,     /* resize factor zero or negative */
    vekStsChannelCount = -53,     /* channel count other than 1 */
    vekStsAffineCoeff = -56       /* degenerate affine coefficients */
};

/* ------------------------------------------------------------------------ */
/* Version                                                                  */
/* ------------------------------------------------------------------------ */

typedef struct VekLibraryVersion {
    int32_t major;
    int32_t minor;
    int32_t majorBuild;
    int32_t build;
    char targetCpu[4];
    const char* name;
    const char* version;
    const char* buildDate;
} VekLibraryVersion;

/* ------------------------------------------------------------------------ */
/* Shared ray-tracing records                                               */
/* ------------------------------------------------------------------------ */

/* A block of rays: width x height, row after row. */
typedef struct VekSize {
    int32_t width;
    int32_t height;
} VekSize;

/* A block of rays with several hit layers per ray. */
typedef struct VekrHitBlockSize {
    int32_t width;
    int32_t height;
    int32_t count;
} VekrHitBlockSize;

/* Axis-aligned box; empty when a minimum exceeds its maximum. */
typedef struct VekrBox3D {
    float minX, minY, minZ;
    float maxX, maxY, maxZ;
} VekrBox3D;

/* One KD-tree node: 8 bytes.  w0 < 0 marks a leaf. */
typedef struct VekrKDTreeNode {
    int32_t w0;
    int32_t w1;
} VekrKDTreeNode;

/* Per-triangle acceleration record (40 bytes), made by vekrTriangleAccelInit. */
typedef struct VekrTriangleAccel {
    uint32_t axes;  /* bits 0-1 v, 2-3 u, 4-5 k, bit 31: plane perpendicular to k */
    float nu;       /* N[u] / N[k] */
    float ck;       /* C[k] */
    float nv;       /* N[v] / N[k] */
    float cu;       /* C[u] */
    float cv;       /* C[v] */
    float e2u;      /* e2[u] * s */
    float e2v;      /* e2[v] * s */
    float e1u;      /* e1[u] * s */
    float e1v;      /* e1[v] * s */
} VekrTriangleAccel;

/* What the intersection functions need to trace one mesh; borrowed, never written. */
typedef struct VekrIntersectContext {
    const VekrBox3D* pBound;
    const VekrTriangleAccel* pAccel;
    const VekrKDTreeNode* pRootNode;
} VekrIntersectContext;

#define VEKR_KDTREE_SIMPLE_MAGIC 0x499D3DC2u
#define VEKR_KDTREE_SAH_MAGIC 0x2D07705Bu

typedef struct VekrKDTreeBuildParams {
    uint32_t magic;          /* VEKR_KDTREE_SIMPLE_MAGIC or VEKR_KDTREE_SAH_MAGIC */
    int32_t depthParam;      /* 0..50: maximum depth of the cost-driven build */
    float splitThreshold;    /* 0..1: 0 demands the largest gain per split */
    uint32_t memoryMB;       /* memory budget of the cost-driven build */
    const VekrBox3D* region; /* optional: cut triangles to this box first */
} VekrKDTreeBuildParams;

/* ------------------------------------------------------------------------ */
/* Spherical harmonics                                                      */
/* ------------------------------------------------------------------------ */

/* State types.  In C++ the enumeration has a fixed 32-bit type, so any
 * value a caller passes (2, 7, -1, ...) is a valid VekrSHType that the
 * functions refuse with vekStsSelector. */
#ifdef __cplusplus
typedef enum VekrSHType : int32_t {
#else
typedef enum VekrSHType {
#endif
    vekrSHDirect = 0,     /* closed-form polynomials, bands 0..15 */
    vekrSHRecurrence = 1  /* tabulated three-term recurrence */
} VekrSHType;

/* Header of the caller-allocated state; the tables follow it in the same block. */
typedef struct VekrSHState {
    uint32_t order;
    uint32_t type;
    float* pTableA;
    float* pTableB;
} VekrSHState;

/* ------------------------------------------------------------------------ */
/* Volumes                                                                  */
/* ------------------------------------------------------------------------ */

typedef struct VekVolumeSize {
    int32_t width;
    int32_t height;
    int32_t depth;
} VekVolumeSize;

typedef struct VekCuboid {
    int32_t x, y, z;
    int32_t width, height, depth;
} VekCuboid;

enum {
    vekInterNearest = 1,
    vekInterLinear = 2,
    vekInterCubic = 4,
    vekInterCubicBSpline = 5,
    vekInterCubicCatmullRom = 6,
    vekInterCubicB05C03 = 7
};

/* ------------------------------------------------------------------------ */
/* Record sizes are part of the ABI                                         */
/* ------------------------------------------------------------------------ */

#ifdef __cplusplus
#  define VEKR_STATIC_ASSERT(c, m) static_assert(c, #m)
#else
#  define VEKR_STATIC_ASSERT(c, m) typedef char vekr_static_assert_##m[(c) ? 1 : -1]
#endif
VEKR_STATIC_ASSERT(sizeof(VekrKDTreeNode) == 8, node_is_8_bytes);
VEKR_STATIC_ASSERT(sizeof(VekrTriangleAccel) == 40, accel_is_40_bytes);
VEKR_STATIC_ASSERT(sizeof(VekrBox3D) == 24, box_is_24_bytes);
VEKR_STATIC_ASSERT(sizeof(VekrSHState) == 24, sh_header_is_24_bytes);
VEKR_STATIC_ASSERT(sizeof(VekSize) == 8, size_is_8_bytes);
VEKR_STATIC_ASSERT(sizeof(VekrHitBlockSize) == 12, hit_block_is_12_bytes);
#undef VEKR_STATIC_ASSERT

/* ------------------------------------------------------------------------ */
/* Version                                                                  */
/* ------------------------------------------------------------------------ */

VEKR_API const VekLibraryVersion* vekrGetLibVersion(void);

/* ------------------------------------------------------------------------ */
/* Acceleration structures                                                  */
/* ------------------------------------------------------------------------ */

VEKR_API VekStatus vekrSetBoundBox_32f(const float* pVertices, int vertexCount, VekrBox3D* pBox);

VEKR_API VekStatus vekrTriangleAccelGetSize(int* pSize);
VEKR_API VekStatus vekrTriangleAccelInit(VekrTriangleAccel* pAccel, const float* pVertices,
                                         const int* pTriangles, int triangleCount);

VEKR_API VekStatus vekrKDTreeBuildAlloc(VekrKDTreeNode** ppTree, const float* pVertices,
                                        const int* pTriangles, int vertexCount, int triangleCount,
                                        int* pTreeSize, const VekrKDTreeBuildParams* pParams);
VEKR_API void vekrKDTreeFree(VekrKDTreeNode* pTree);

/* ------------------------------------------------------------------------ */
/* Ray casting and intersection                                             */
/* ------------------------------------------------------------------------ */

VEKR_API VekStatus vekrCastEye_32f(const float corner[3], const float stepX[3],
                                   const float stepY[3], int blockX, int blockY,
                                   VekSize blockStep, float* const pDirections[3],
                                   VekSize extent);

VEKR_API VekStatus vekrIntersectEyeSO_32f(const float eye[3], const float* const pDirections[3],
                                          float* pDistances, float* const pHits[2],
                                          int* pTriangles, const VekrIntersectContext* pContext,
                                          VekSize extent);

VEKR_API VekStatus vekrIntersectMultipleSO_32f(const float origin[3],
                                               const float* const pDirections[3],
                                               float* pDistances, float* const pHits[2],
                                               int* pTriangles, VekrHitBlockSize size,
                                               const VekrIntersectContext* pContext);

VEKR_API VekStatus vekrIntersectAnySO_32f(const float origin[3],
                                          const float* const pDirections[3], int* pTriangles,
                                          int* pMask, VekSize size,
                                          const VekrIntersectContext* pContext);

VEKR_API VekStatus vekrIntersectMO_32f(const float* const pOrigins[3],
                                       const float* const pDirections[3], float* pDistances,
                                       float* const pHits[2], int* pTriangles,
                                       const VekrIntersectContext* pContext, VekSize size);

VEKR_API VekStatus vekrHitPoint3DEpsS0_32f_M(const float origin[3],
                                             const float* const pDirections[3],
                                             const float* pDistances, const int* pMask,
                                             float* const pPoints[3], int count, float eps);
VEKR_API VekStatus vekrHitPoint3DEpsM0_32f_M(const float* const pOrigins[3],
                                             const float* const pDirections[3],
                                             const float* pDistances, const int* pMask,
                                             float* const pPoints[3], int count, float eps);

/* ------------------------------------------------------------------------ */
/* Shading                                                                  */
/* ------------------------------------------------------------------------ */

VEKR_API VekStatus vekrTriangleNormal_32f(const float* pVertices, const int* pTriangles,
                                          float* pNormals, int triangleCount);
VEKR_API VekStatus vekrSurfFlatNormal_32f(const float* pTriNormals, const int* pTriIndex,
                                          float* const pNormals[3], int count);
VEKR_API VekStatus vekrSurfSmoothNormal_32f(const float* pVertNormals, const int* pTriangles,
                                            const int* pTriIndex, const float* const pUV[2],
                                            float* const pNormals[3], int count, int triStride);

VEKR_API VekStatus vekrCastReflectionRay_32f(const float* const pIncident[3], const int* pMask,
                                             const float* const pNormals[3],
                                             float* const pReflected[3], int count);
VEKR_API VekStatus vekrCastShadowSO_32f(const float light[3], const float* pSideFactor,
                                        const float* const pNormals[3],
                                        const float* const pPoints[3], int* pMask,
                                        float* pCosine, float* const pShadow[3], int count);
VEKR_API VekStatus vekrDistAttenuationSO_32f_M(const float light[3],
                                               const float* const pPoints[3], const int* pMask,
                                               float* pDist, int count);

VEKR_API VekStatus vekrDot_32f_P3C1M(const float* const pSrc1[3], const float* const pSrc2[3],
                                     const int* pMask, float* pDst, int count);
VEKR_API VekStatus vekrDotChangeNorm_32f_IM(const float* const pSrc[3], const int* pMask,
                                            float* const pSrcDst[3], float* pDot, int count);
VEKR_API VekStatus vekrMul_32f_C1P3IM(const float* pSrc, const int* pMask,
                                      float* const pSrcDst[3], int count);
VEKR_API VekStatus vekrMul_32f_C1IM(const float* pSrc, const int* pMask, float* pSrcDst,
                                    int count);
VEKR_API VekStatus vekrDiv_32f_C1IM(const float* pSrc, const int* pMask, float* pSrcDst,
                                    int count);
VEKR_API VekStatus vekrAddMulMul_32f_AC1P3IM(const float k[3], const float* pSrc,
                                             const float* const pSrc3[3], const int* pMask,
                                             float* const pSrcDst[3], int count);

/* ------------------------------------------------------------------------ */
/* Spherical harmonics                                                      */
/* ------------------------------------------------------------------------ */

/* The recurrence size is 32-bit arithmetic and wraps from order 32767 on;
 * vekrSHInit_32f refuses such an order with vekStsSize rather than write past
 * the block.  The block may have any alignment: the tables start at the
 * 16-byte boundaries after the header whenever the reported size leaves
 * room for that (always for a 16-byte-aligned block), otherwise at 4-byte
 * boundaries inside the reported size. */
VEKR_API VekStatus vekrSHGetSize_32f(uint32_t order, VekrSHType type, uint32_t* pSize);
VEKR_API VekStatus vekrSHInit_32f(VekrSHState* pState, uint32_t order, VekrSHType type);

VEKR_API VekStatus vekrSH_32f(const float* pX, const float* pY, const float* pZ, uint32_t count,
                              float* pDst, uint32_t L, const VekrSHState* pState);
VEKR_API VekStatus vekrSHBand_32f(const float* pX, const float* pY, const float* pZ, int count,
                                  float* pDst, uint32_t l);

/* Transforms: the checks are null pointers (-8), count 0 (-6), L above the
 * state's order (-7), then a state type other than 0 or 1 (-7, as
 * vekrSH_32f gives), then a negative count (0, nothing done). */
VEKR_API VekStatus vekrSHTFwd_32f_C1I(const float* pX, const float* pY, const float* pZ,
                                      const float* pSrc, int count, float* pSrcDstCoeffs,
                                      uint32_t L, const VekrSHState* pState);
VEKR_API VekStatus vekrSHTFwd_32f_C3P3I(const float* pX, const float* pY, const float* pZ,
                                        const float* pSrc, int count,
                                        float* const pSrcDstCoeffs[3], uint32_t L,
                                        const VekrSHState* pState);
VEKR_API VekStatus vekrSHTFwd_32f_P3I(const float* pX, const float* pY, const float* pZ,
                                      const float* const pSrc[3], int count,
                                      float* const pSrcDstCoeffs[3], uint32_t L,
                                      const VekrSHState* pState);
VEKR_API VekStatus vekrSHTInv_32f_C1(const float* pSrcCoeffs, uint32_t L, const float* pX,
                                     const float* pY, const float* pZ, float* pDst, int count,
                                     const VekrSHState* pState);
VEKR_API VekStatus vekrSHTInv_32f_P3(const float* const pSrcCoeffs[3], uint32_t L,
                                     const float* pX, const float* pY, const float* pZ,
                                     float* const pDst[3], int count, const VekrSHState* pState);
VEKR_API VekStatus vekrSHTInv_32f_P3C3(const float* const pSrcCoeffs[3], uint32_t L,
                                       const float* pX, const float* pY, const float* pZ,
                                       float* pDst, int count, const VekrSHState* pState);

/* ------------------------------------------------------------------------ */
/* Volumes                                                                  */
/* ------------------------------------------------------------------------ */

VEKR_API VekStatus vekrResizeGetBufSize(const VekCuboid* pSrcVoi, const VekCuboid* pDstVoi,
                                        int nChannel, int interpolation, int* pSize);
VEKR_API VekStatus vekrWarpAffineGetBufSize(const VekCuboid* pSrcVoi, const VekCuboid* pDstVoi,
                                            int nChannel, int interpolation, int* pSize);

/* Resize: the checks are null pointers (-8), sizes and regions (-6), factors
 * (-23), the mode (-22), the source origin (40), the empty destination (1).
 * A factor or a shift that is NaN or infinite fails the factor check with
 * vekStsResizeFactor, like a factor <= 0.  After these, two calls that the
 * buffer arithmetic cannot hold are refused with vekStsSize, nothing
 * written: a destination box that ends past voxel 2^31 - 1, and a call
 * whose work would need more than vekrResizeGetBufSize reports for it now
 * (its 32-bit size wraps for huge destination regions; the resize never
 * uses more than the reported size). */
VEKR_API VekStatus vekrResize_8u_C1V(const uint8_t* pSrc, const VekVolumeSize* pSrcVolume,
                                     int srcStep, int srcPlaneStep, const VekCuboid* pSrcVoi,
                                     uint8_t* pDst, int dstStep, int dstPlaneStep,
                                     const VekCuboid* pDstVoi, double xFactor, double yFactor,
                                     double zFactor, double xShift, double yShift,
                                     double zShift, int interpolation, uint8_t* pBuffer);
VEKR_API VekStatus vekrResize_16u_C1V(const uint16_t* pSrc, const VekVolumeSize* pSrcVolume,
                                      int srcStep, int srcPlaneStep, const VekCuboid* pSrcVoi,
                                      uint16_t* pDst, int dstStep, int dstPlaneStep,
                                      const VekCuboid* pDstVoi, double xFactor, double yFactor,
                                      double zFactor, double xShift, double yShift,
                                      double zShift, int interpolation, uint8_t* pBuffer);
VEKR_API VekStatus vekrResize_32f_C1V(const float* pSrc, const VekVolumeSize* pSrcVolume,
                                      int srcStep, int srcPlaneStep, const VekCuboid* pSrcVoi,
                                      float* pDst, int dstStep, int dstPlaneStep,
                                      const VekCuboid* pDstVoi, double xFactor, double yFactor,
                                      double zFactor, double xShift, double yShift,
                                      double zShift, int interpolation, uint8_t* pBuffer);
VEKR_API VekStatus vekrResize_8u_C1PV(const uint8_t* const pSrc[],
                                      const VekVolumeSize* pSrcVolume, int srcStep,
                                      const VekCuboid* pSrcVoi, uint8_t* const pDst[],
                                      int dstStep, const VekCuboid* pDstVoi, double xFactor,
                                      double yFactor, double zFactor, double xShift,
                                      double yShift, double zShift, int interpolation,
                                      uint8_t* pBuffer);
VEKR_API VekStatus vekrResize_16u_C1PV(const uint16_t* const pSrc[],
                                       const VekVolumeSize* pSrcVolume, int srcStep,
                                       const VekCuboid* pSrcVoi, uint16_t* const pDst[],
                                       int dstStep, const VekCuboid* pDstVoi, double xFactor,
                                       double yFactor, double zFactor, double xShift,
                                       double yShift, double zShift, int interpolation,
                                       uint8_t* pBuffer);
VEKR_API VekStatus vekrResize_32f_C1PV(const float* const pSrc[],
                                       const VekVolumeSize* pSrcVolume, int srcStep,
                                       const VekCuboid* pSrcVoi, float* const pDst[],
                                       int dstStep, const VekCuboid* pDstVoi, double xFactor,
                                       double yFactor, double zFactor, double xShift,
                                       double yShift, double zShift, int interpolation,
                                       uint8_t* pBuffer);

VEKR_API VekStatus vekrWarpAffine_8u_C1PV(const uint8_t* const pSrc[],
                                          const VekVolumeSize* pSrcVolume, int srcStep,
                                          const VekCuboid* pSrcVoi, uint8_t* const pDst[],
                                          int dstStep, const VekCuboid* pDstVoi,
                                          const double coeffs[3][4], int interpolation);
VEKR_API VekStatus vekrWarpAffine_16u_C1PV(const uint16_t* const pSrc[],
                                           const VekVolumeSize* pSrcVolume, int srcStep,
                                           const VekCuboid* pSrcVoi, uint16_t* const pDst[],
                                           int dstStep, const VekCuboid* pDstVoi,
                                           const double coeffs[3][4], int interpolation);
VEKR_API VekStatus vekrWarpAffine_32f_C1PV(const float* const pSrc[],
                                           const VekVolumeSize* pSrcVolume, int srcStep,
                                           const VekCuboid* pSrcVoi, float* const pDst[],
                                           int dstStep, const VekCuboid* pDstVoi,
                                           const double coeffs[3][4], int interpolation);

VEKR_API VekStatus vekrRemap_8u_C1PV(const uint8_t* const pSrc[], const VekVolumeSize* pSrcVolume,
                                     int srcStep, const VekCuboid* pSrcVoi,
                                     const float* const pxMap[], const float* const pyMap[],
                                     const float* const pzMap[], int mapStep,
                                     uint8_t* const pDst[], int dstStep,
                                     const VekVolumeSize* pDstRoiSize, int interpolation);
VEKR_API VekStatus vekrRemap_16u_C1PV(const uint16_t* const pSrc[],
                                      const VekVolumeSize* pSrcVolume, int srcStep,
                                      const VekCuboid* pSrcVoi, const float* const pxMap[],
                                      const float* const pyMap[], const float* const pzMap[],
                                      int mapStep, uint16_t* const pDst[], int dstStep,
                                      const VekVolumeSize* pDstRoiSize, int interpolation);
VEKR_API VekStatus vekrRemap_32f_C1PV(const float* const pSrc[], const VekVolumeSize* pSrcVolume,
                                      int srcStep, const VekCuboid* pSrcVoi,
                                      const float* const pxMap[], const float* const pyMap[],
                                      const float* const pzMap[], int mapStep,
                                      float* const pDst[], int dstStep,
                                      const VekVolumeSize* pDstRoiSize, int interpolation);

/* The buffer size is signed 32-bit arithmetic that wraps for huge widths or
 * kernels; vekrFilter_16s_C1PV refuses with vekStsSize, writing nothing, a
 * call whose work would need more buffer than that size.  Power-of-two
 * divisors round exactly (half to even) for every 32-bit sum. */
VEKR_API VekStatus vekrFilterGetBufSize(const VekVolumeSize* pDstRoiSize,
                                        const VekVolumeSize* pKernelSize, int nChannel,
                                        int* pSize);
VEKR_API VekStatus vekrFilter_16s_C1PV(const int16_t* const pSrc[], int srcStep,
                                       int16_t* const pDst[], int dstStep,
                                       const VekVolumeSize* pDstRoiSize, const int32_t* pKernel,
                                       const VekVolumeSize* pKernelSize, const int32_t anchor[3],
                                       int divisor, uint8_t* pBuffer);

#ifdef __cplusplus
}
#endif

#endif /* VEKR_H */
