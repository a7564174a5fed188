/**
 * @file vekr.h
 * @brief vekr: CPU rendering primitives for x86-64 with a flat C ABI.
 *
 * KD-tree acceleration over triangle meshes, packets of rays (nearest hit,
 * any hit, successive hits, rays with their own origins), hit points,
 * normals and lighting terms, real spherical harmonics (bands 0..15), and
 * resize / warp / remap / filter of 3D volumes.  The header compiles as C99
 * and as C++; vekr_status.h turns a status into a name and a message.
 *
 * Conventions shared by every function:
 * - Status: every function but vekrGetLibVersion and vekrKDTreeFree returns a
 *   ::VekStatus: 0 success, negative error, positive warning (nothing done).
 * - Checks run in one order (required pointers in argument order, then
 *   counts and sizes, then selectors and record fields, then allocation);
 *   the first failure returns at once and nothing is written.  Many functions
 *   deliberately check fewer pointers than they use (each comment lists what
 *   is checked); null checks test the record pointer of a planar array, not
 *   its planes, unless a comment says so.  The intersection functions check
 *   nothing.
 * - Meshes: vertices are 3 floats (x, y, z) per vertex; triangles are 4
 *   int32 per triangle, 3 vertex indices in winding order and a 4th that is
 *   never read (free for the caller).  A triangle's number is its position.
 *   Indices are never range-checked.
 * - Planar 3-vector array: `p[3]` = pointers to the x, y and z float planes,
 *   one element per ray or point.  ::VekSize blocks hold width x height
 *   elements row after row.
 * - Mask: one int32 per element; negative = inactive (each function says
 *   what an inactive element receives), 0 or positive = active.
 * - Counts: ray and shading functions return vekStsOk without writing for a
 *   count below 1; the spherical-harmonic functions give vekStsSize for a
 *   count of exactly 0 and vekStsOk for a negative one.
 * - Fast paths: where stated, 16-byte aligned arrays and counts (or block
 *   width and height) that are multiples of 4 take a 4-wide SIMD path.  Paths
 *   marked "last bits" may differ from the general path in the last bits.
 * - Threads: the library starts no threads of its own and keeps no mutable
 *   global state; every function may run concurrently on different data.
 *   OpenMP regions run in the KD-tree build, vekrTriangleNormal_32f,
 *   vekrResize_32f_C1V, the warps and the remaps, with the thread count
 *   that ownGetNumThreads() of libvekcore gives (OpenMP's maximum, so
 *   OMP_NUM_THREADS or omp_set_num_threads() set it).
 * - Ownership: the caller allocates and frees everything except the KD-tree
 *   block, which vekrKDTreeBuildAlloc allocates and vekrKDTreeFree releases.
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

/** @brief Result of every function: 0 success, negative error, positive warning. */
typedef int32_t VekStatus;

/** @brief The status codes the library returns. */
enum {
    vekStsVoiOutside = 40,        /**< warning: source VOI origin outside the source volume */
    vekStsEmptyDestination = 1,   /**< warning: mapped destination region is empty */
    vekStsOk = 0,                 /**< success (also for nothing to do) */
    vekStsNoMem = -4,             /**< allocation failed, or KD-tree budget too small */
    vekStsBadArg = -5,            /**< unknown magic in a parameters record */
    vekStsSize = -6,              /**< invalid count or size */
    vekStsSelector = -7,          /**< spherical harmonics: bad state type, order or band */
    vekStsNullPtr = -8,           /**< a required pointer is null */
    vekStsMemBudget = -9,         /**< KD-tree build ran out of its memory budget */
    vekStsOutOfRange = -11,       /**< KD-tree parameter field out of range */
    vekStsInterpolation = -22,    /**< unsupported interpolation mode */
    vekStsResizeFactor = -23,     /**< resize factor zero or negative */
    vekStsChannelCount = -53,     /**< channel count other than 1 */
    vekStsAffineCoeff = -56       /**< degenerate affine coefficients */
};

/* ------------------------------------------------------------------------ */
/* Version                                                                  */
/* ------------------------------------------------------------------------ */

/** @brief The library's constant version record (see vekrGetLibVersion). */
typedef struct VekLibraryVersion {
    int32_t major;          /**< 6 */
    int32_t minor;          /**< 1 */
    int32_t majorBuild;     /**< 137 */
    int32_t build;          /**< 683 (not the number in the version string) */
    char targetCpu[4];      /**< "w5" and two zero bytes */
    const char* name;       /**< "vekrw5-6.1.dll" */
    const char* version;    /**< "6.1 build 137.36" */
    const char* buildDate;  /**< "Sep 29 2009" */
} VekLibraryVersion;

/* ------------------------------------------------------------------------ */
/* Shared ray-tracing records                                               */
/* ------------------------------------------------------------------------ */

/** @brief A block of rays: width x height, row after row (passed by value). */
typedef struct VekSize {
    int32_t width;   /**< columns */
    int32_t height;  /**< rows */
} VekSize;

/** @brief A block of rays with several hit layers per ray (passed by value). */
typedef struct VekrHitBlockSize {
    int32_t width;   /**< columns */
    int32_t height;  /**< rows */
    int32_t count;   /**< hit layers per ray */
} VekrHitBlockSize;

/** @brief Axis-aligned box; empty when a minimum exceeds its maximum. */
typedef struct VekrBox3D {
    float minX; /**< lower corner x */
    float minY; /**< lower corner y */
    float minZ; /**< lower corner z */
    float maxX; /**< upper corner x */
    float maxY; /**< upper corner y */
    float maxZ; /**< upper corner z */
} VekrBox3D;

/** @brief One KD-tree node: 8 bytes.  w0 < 0 marks a leaf.  Opaque to callers. */
typedef struct VekrKDTreeNode {
    int32_t w0;  /**< inner: axis (bits 0-1) and byte offset to the children; leaf: negative */
    int32_t w1;  /**< inner: split coordinate (float bits); leaf: count or packed numbers */
} VekrKDTreeNode;

/** @brief Per-triangle acceleration record (40 bytes), made by vekrTriangleAccelInit. */
typedef struct VekrTriangleAccel {
    uint32_t axes;  /**< bits 0-1 v, 2-3 u, 4-5 k, bit 31: plane perpendicular to k; 0: degenerate */
    float nu;       /**< N[u] / N[k] */
    float ck;       /**< C[k] */
    float nv;       /**< N[v] / N[k] */
    float cu;       /**< C[u] */
    float cv;       /**< C[v] */
    float e2u;      /**< e2[u] * s */
    float e2v;      /**< e2[v] * s */
    float e1u;      /**< e1[u] * s */
    float e1v;      /**< e1[v] * s */
} VekrTriangleAccel;

/**
 * @brief What the intersection functions need to trace one mesh; borrowed, never written.
 *
 * All three must describe the same mesh and stay alive while tracing.
 */
typedef struct VekrIntersectContext {
    const VekrBox3D* pBound;            /**< scene box from vekrSetBoundBox_32f */
    const VekrTriangleAccel* pAccel;    /**< one record per triangle */
    const VekrKDTreeNode* pRootNode;    /**< root returned by vekrKDTreeBuildAlloc */
} VekrIntersectContext;

/** @brief VekrKDTreeBuildParams::magic of the single-leaf build. */
#define VEKR_KDTREE_SIMPLE_MAGIC 0x499D3DC2u
/** @brief VekrKDTreeBuildParams::magic of the surface-area-cost build. */
#define VEKR_KDTREE_SAH_MAGIC 0x2D07705Bu

/** @brief Selects and tunes a KD-tree build; the single-leaf build reads only magic and depthParam. */
typedef struct VekrKDTreeBuildParams {
    uint32_t magic;          /**< VEKR_KDTREE_SIMPLE_MAGIC or VEKR_KDTREE_SAH_MAGIC */
    int32_t depthParam;      /**< 0..50: maximum depth of the cost-driven build */
    float splitThreshold;    /**< 0..1: 0 demands the largest gain per split */
    uint32_t memoryMB;       /**< memory budget of the cost-driven build (at least 33) */
    const VekrBox3D* region; /**< optional: cut triangles to this box first */
} VekrKDTreeBuildParams;

/* ------------------------------------------------------------------------ */
/* Spherical harmonics                                                      */
/* ------------------------------------------------------------------------ */

/**
 * @brief How a spherical-harmonic state evaluates the basis.
 *
 * In C++ the enumeration has a fixed 32-bit type, so any value a caller
 * passes (2, 7, -1, ...) is a valid VekrSHType that the functions refuse
 * with vekStsSelector.
 */
#ifdef __cplusplus
typedef enum VekrSHType : int32_t {
#else
typedef enum VekrSHType {
#endif
    vekrSHDirect = 0,     /**< closed-form polynomials, bands 0..15 */
    vekrSHRecurrence = 1  /**< tabulated three-term recurrence */
} VekrSHType;

/**
 * @brief Header of the caller-allocated state; the tables follow it in the same block.
 *
 * The table pointers point into the block itself: copy a state only by
 * initialising the copy again.
 */
typedef struct VekrSHState {
    uint32_t order;   /**< highest band the state serves */
    uint32_t type;    /**< a ::VekrSHType */
    float* pTableA;   /**< recurrence factors (recurrence type only) */
    float* pTableB;   /**< recurrence factors (recurrence type only) */
} VekrSHState;

/* ------------------------------------------------------------------------ */
/* Volumes                                                                  */
/* ------------------------------------------------------------------------ */

/** @brief Size of a volume or block, in voxels (passed by address). */
typedef struct VekVolumeSize {
    int32_t width;   /**< voxels along x */
    int32_t height;  /**< rows along y */
    int32_t depth;   /**< slices along z */
} VekVolumeSize;

/** @brief A volume of interest: origin >= 0 and sizes > 0, in its own volume's voxels. */
typedef struct VekCuboid {
    int32_t x;       /**< origin x */
    int32_t y;       /**< origin y */
    int32_t z;       /**< origin z */
    int32_t width;   /**< voxels along x */
    int32_t height;  /**< rows along y */
    int32_t depth;   /**< slices along z */
} VekCuboid;

/** @brief Interpolation modes of the volume functions (3 is not a mode). */
enum {
    vekInterNearest = 1,          /**< nearest neighbour */
    vekInterLinear = 2,           /**< trilinear */
    vekInterCubic = 4,            /**< four-point Lagrange cubic */
    vekInterCubicBSpline = 5,     /**< cubic B-spline (B = 1, C = 0), smooths */
    vekInterCubicCatmullRom = 6,  /**< Catmull-Rom (B = 0, C = 1/2) */
    vekInterCubicB05C03 = 7       /**< cubic with B = 1/2, C = 3/10, smooths */
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

/**
 * @brief The constant version record: 6, 1, 137, 683, "w5", "vekrw5-6.1.dll",
 * "6.1 build 137.36", "Sep 29 2009".
 *
 * Never fails, allocates nothing, any thread; the same pointer every call.
 * Do not modify or free it.
 */
VEKR_API const VekLibraryVersion* vekrGetLibVersion(void);

/* ------------------------------------------------------------------------ */
/* Acceleration structures                                                  */
/* ------------------------------------------------------------------------ */

/**
 * @brief Bounding box of @p vertexCount vertices (3 floats each), widened on every side.
 *
 * Checks only pVertices (vekStsNullPtr); pBox is not checked.  The margin is
 * one value for all axes, 1e-4 times the largest absolute coordinate of the
 * box (at least FLT_MIN): it grows with the distance from the origin, not
 * with the extent.  NaN coordinates are skipped.  A count below 1 still
 * writes an inverted (empty) box and returns vekStsOk.
 */
VEKR_API VekStatus vekrSetBoundBox_32f(const float* pVertices, int vertexCount, VekrBox3D* pBox);

/**
 * @brief Writes 40, the size in bytes of one ::VekrTriangleAccel record, to @p pSize.
 *
 * pSize null: vekStsNullPtr.  Allocate triangleCount records.
 */
VEKR_API VekStatus vekrTriangleAccelGetSize(int* pSize);
/**
 * @brief Fills one acceleration record per triangle (in: vertices, 4-int triangles; out: pAccel).
 *
 * Checks nothing and always returns vekStsOk; a count below 1 writes
 * nothing.  Computed in double precision.  A degenerate triangle (zero
 * normal) gets ten zero words and is never hit.
 */
VEKR_API VekStatus vekrTriangleAccelInit(VekrTriangleAccel* pAccel, const float* pVertices,
                                         const int* pTriangles, int triangleCount);

/**
 * @brief Builds a KD-tree over a mesh into one block it allocates; out: *ppTree, *pTreeSize (bytes).
 *
 * Checks, in order: ppTree, pVertices, pTriangles, pTreeSize null
 * (vekStsNullPtr); a negative count (vekStsSize); pParams null (vekStsNullPtr,
 * tested after the counts).  Single-leaf magic: depthParam outside 0..50 gives
 * vekStsOutOfRange.  Cost-driven magic: depthParam outside 0..50 or
 * splitThreshold outside 0..1 (NaN passes) gives vekStsOutOfRange; then
 * (memoryMB << 19) in 32 bits below 16 MiB gives vekStsNoMem (so only
 * memoryMB modulo 8192 matters; 8192..8223 fail), and memoryMB << 20 also
 * wraps (4096 and more).  Any other magic: vekStsBadArg, whatever the fields.
 * The build then needs 84*t + 12*v + 32 MiB + 480 bytes of the budget
 * (vekStsNoMem if not; 33 is the smallest budget that builds), fails with
 * vekStsMemBudget when a further 16 MiB unit does not fit, and with
 * vekStsNoMem when an allocation fails.  Only success writes the outputs;
 * release the block with vekrKDTreeFree.  The build runs on ownGetNumThreads()
 * threads (independent subtrees, and the axes of large nodes, at the same
 * time); the tree, the status and the budget charged do not depend on the
 * thread count.  Depth stays within the 50-entry stack of the traversal.
 */
VEKR_API VekStatus vekrKDTreeBuildAlloc(VekrKDTreeNode** ppTree, const float* pVertices,
                                        const int* pTriangles, int vertexCount, int triangleCount,
                                        int* pTreeSize, const VekrKDTreeBuildParams* pParams);
/**
 * @brief Releases a block returned by vekrKDTreeBuildAlloc; tests nothing (null is accepted).
 */
VEKR_API void vekrKDTreeFree(VekrKDTreeNode* pTree);

/* ------------------------------------------------------------------------ */
/* Ray casting and intersection                                             */
/* ------------------------------------------------------------------------ */

/**
 * @brief Writes the eye-ray directions of an image block (out: pDirections, extent.width x height).
 *
 * Element (i, j) = stepY * (j + offY) + corner + stepX * (i + offX) with
 * offX = blockX * blockStep.width and offY = blockY * blockStep.height; not
 * normalised, so distances are in units of each direction's length.  Checks
 * only pDirections (vekStsNullPtr); an empty extent writes nothing.  Fast path
 * when extent.width is a multiple of 4 (rows accumulated; last bits).
 */
VEKR_API VekStatus vekrCastEye_32f(const float corner[3], const float stepX[3],
                                   const float stepY[3], int blockX, int blockY,
                                   VekSize blockStep, float* const pDirections[3],
                                   VekSize extent);

/**
 * @brief Nearest hit for a block of rays sharing the origin @p eye.
 *
 * In: pDirections (planar, extent.width x height, any length).  In/out:
 * pDistances, the limit going in and the nearest distance coming out.  Out:
 * pHits (u and v planes: barycentric weights of the triangle's first and
 * second vertex) and pTriangles (number, or -1).  A miss keeps the distance
 * and u, v and writes -1.  A hit needs 0 < t < distance (strict: of equal
 * distances the first tested stays); both faces are hit.  Checks nothing,
 * always vekStsOk.  Packet path when width and height are multiples of 4 and
 * the seven arrays are 16-byte aligned: it skips rays whose input distance is
 * <= 0 and agrees with the single-ray path to refined-reciprocal precision
 * (grazing rays may differ).  Safe from several threads on one context.
 */
VEKR_API VekStatus vekrIntersectEyeSO_32f(const float eye[3], const float* const pDirections[3],
                                          float* pDistances, float* const pHits[2],
                                          int* pTriangles, const VekrIntersectContext* pContext,
                                          VekSize extent);

/**
 * @brief The first size.count hits along each ray from @p origin, nearest first.
 *
 * pDistances, pHits planes and pTriangles hold size.count layers of
 * width x height, layer l from element l * width * height.  Layer 0's
 * distance is the limit going in; every layer's distance is measured from
 * origin.  All triangle layers are first set to -1; after the first missing
 * layer the ray stops (that layer's distance becomes FLT_MAX unless it is
 * layer 0, later layers are untouched).  The previous layer's triangle and up
 * to 8 earlier ones are excluded (at layers 8, 16, ... only the previous one).
 * Split tolerance 1.9e-4, so layer 0 may differ from vekrIntersectEyeSO_32f
 * near split planes.  Checks nothing; packet path as vekrIntersectEyeSO_32f.
 */
VEKR_API VekStatus vekrIntersectMultipleSO_32f(const float origin[3],
                                               const float* const pDirections[3],
                                               float* pDistances, float* const pHits[2],
                                               int* pTriangles, VekrHitBlockSize size,
                                               const VekrIntersectContext* pContext);

/**
 * @brief Occlusion of segments origin + t * direction, 0 < t < 1 (e.g. shadow rays).
 *
 * The direction spans the whole segment (pass target - origin).  In/out:
 * pMask (negative skips the ray; a blocked ray gets -1).  Out: pTriangles,
 * the blocker found first (not the nearest), -1 if none or skipped.  No box
 * test: pBound is not read.  Checks nothing, always vekStsOk.  Packet path
 * when width and height are multiples of 4 and pTriangles, pMask and the
 * direction planes are 16-byte aligned.
 */
VEKR_API VekStatus vekrIntersectAnySO_32f(const float origin[3],
                                          const float* const pDirections[3], int* pTriangles,
                                          int* pMask, VekSize size,
                                          const VekrIntersectContext* pContext);

/**
 * @brief Nearest hit for rays with their own origins (pOrigins planar, one per ray).
 *
 * Arguments and results as vekrIntersectEyeSO_32f, with these differences:
 * an axis-parallel ray misses unless its origin lies strictly inside that
 * slab of the box; a ray nearly in a triangle's plane does not hit it; a
 * later candidate replaces the nearest only when nearer by more than 1e-5;
 * a surface at t = 0 is not hit (start secondary rays off the surface, e.g.
 * with vekrHitPoint3DEpsS0_32f_M's eps).  Checks nothing, always vekStsOk.
 * Packet path when width and height are multiples of 4 and the origin,
 * direction, distance, u, v and triangle arrays are 16-byte aligned.
 */
VEKR_API VekStatus vekrIntersectMO_32f(const float* const pOrigins[3],
                                       const float* const pDirections[3], float* pDistances,
                                       float* const pHits[2], int* pTriangles,
                                       const VekrIntersectContext* pContext, VekSize size);

/**
 * @brief Hit points origin + direction * eps * distance for active rays; (0, 0, 0) for masked ones.
 *
 * Out: pPoints (planar).  Checks pDistances, pMask, pDirections, pPoints
 * (vekStsNullPtr); origin is not checked; count < 1 writes nothing.  eps
 * slightly below 1 keeps points in front of the surface.  Fast path when
 * every array is 16-byte aligned and count is a multiple of 4 (last bits).
 */
VEKR_API VekStatus vekrHitPoint3DEpsS0_32f_M(const float origin[3],
                                             const float* const pDirections[3],
                                             const float* pDistances, const int* pMask,
                                             float* const pPoints[3], int count, float eps);
/**
 * @brief As vekrHitPoint3DEpsS0_32f_M with one origin per ray (pOrigins, checked last).
 */
VEKR_API VekStatus vekrHitPoint3DEpsM0_32f_M(const float* const pOrigins[3],
                                             const float* const pDirections[3],
                                             const float* pDistances, const int* pMask,
                                             float* const pPoints[3], int count, float eps);

/* ------------------------------------------------------------------------ */
/* Shading                                                                  */
/* ------------------------------------------------------------------------ */

/**
 * @brief One unit normal per triangle, normalize((A - C) x (B - C)), 3 floats each (out: pNormals).
 *
 * Checks the three pointers (vekStsNullPtr); count < 1 writes nothing.
 * Double precision; a degenerate triangle gets (0, 0, 0).  Runs an OpenMP
 * region with ownGetNumThreads() threads (same result for any count).
 */
VEKR_API VekStatus vekrTriangleNormal_32f(const float* pVertices, const int* pTriangles,
                                          float* pNormals, int triangleCount);
/**
 * @brief Copies the normal of each ray's hit triangle to the planes pNormals (not normalised).
 *
 * In: pTriNormals (3 floats per triangle), pTriIndex (per ray; negative
 * gives (0, 0, 0)).  Checks pTriNormals and pTriIndex only.  Fast path
 * (count a multiple of 4, all arrays 16-byte aligned) gives equal results.
 */
VEKR_API VekStatus vekrSurfFlatNormal_32f(const float* pTriNormals, const int* pTriIndex,
                                          float* const pNormals[3], int count);
/**
 * @brief Smooth normal per ray: normalize(N0 * u + N1 * v + N2 * (1 - u - v)).
 *
 * In: pVertNormals (3 floats per vertex), pTriangles (records triStride ints
 * apart; 4 for the library's layout), pTriIndex (per ray; negative gives
 * (0, 0, 0)), pUV (u and v planes).  A sum of squares below FLT_EPSILON
 * gives (0, 0, 0).  Checks the five pointer arguments.  Fast path (count a
 * multiple of 4, all arrays 16-byte aligned) normalises by a refined
 * approximate reciprocal square root (last bits).
 */
VEKR_API VekStatus vekrSurfSmoothNormal_32f(const float* pVertNormals, const int* pTriangles,
                                            const int* pTriIndex, const float* const pUV[2],
                                            float* const pNormals[3], int count, int triStride);

/**
 * @brief Mirrored directions R = D - 2 (D . N) N, not normalised; masked rays get (0, 0, 0).
 *
 * Checks pIncident, pMask, pNormals, pReflected.  Fast path when count is a
 * multiple of 4 (equal results).
 */
VEKR_API VekStatus vekrCastReflectionRay_32f(const float* const pIncident[3], const int* pMask,
                                             const float* const pNormals[3],
                                             float* const pReflected[3], int count);
/**
 * @brief Shadow rays from a point light: S = P - light, c = |N . S|, or the ray switched off.
 *
 * In: pSideFactor (per ray; e.g. the dot product of incident direction and
 * normal), pNormals, pPoints.  In/out: pMask.  Out: pCosine, pShadow
 * (unnormalised; the point lies at t = 1, the form vekrIntersectAnySO_32f
 * takes with the light as origin).  Every ray first gets c = 0, S = 0; an
 * active ray passes when side * q > 0 and |q| >= 0.0017453292 (q = N . S),
 * else its mask becomes -1.  Quirk: for the first count rounded down to 4
 * rays an already negative mask also becomes -1; the rest keep it.  Checks
 * every pointer but light.
 */
VEKR_API VekStatus vekrCastShadowSO_32f(const float light[3], const float* pSideFactor,
                                        const float* const pNormals[3],
                                        const float* const pPoints[3], int* pMask,
                                        float* pCosine, float* const pShadow[3], int count);
/**
 * @brief Distance divisor d = max(1, |P - light|) per point; 1 for masked points.
 *
 * Checks pPoints, pMask, pDist (not light).  Exact square root.
 */
VEKR_API VekStatus vekrDistAttenuationSO_32f_M(const float light[3],
                                               const float* const pPoints[3], const int* pMask,
                                               float* pDist, int count);

/**
 * @brief pDst[i] = pSrc1[i] . pSrc2[i] (planar vectors); 0 for masked rays.
 *
 * Checks every pointer.  Fast path (count a multiple of 4, all arrays
 * 16-byte aligned) gives equal results; the same holds for the masked
 * functions below unless stated.
 */
VEKR_API VekStatus vekrDot_32f_P3C1M(const float* const pSrc1[3], const float* const pSrc2[3],
                                     const int* pMask, float* pDst, int count);
/**
 * @brief q = D . N; flips N (in/out) where q > 0 and writes -q, else writes q: normals face the ray.
 *
 * Masked rays: pDot = 0, N unchanged.  Checks every pointer.
 */
VEKR_API VekStatus vekrDotChangeNorm_32f_IM(const float* const pSrc[3], const int* pMask,
                                            float* const pSrcDst[3], float* pDot, int count);
/**
 * @brief Scales planar vectors in place by pSrc[i]; masked rays get (0, 0, 0).  Checks every pointer.
 */
VEKR_API VekStatus vekrMul_32f_C1P3IM(const float* pSrc, const int* pMask,
                                      float* const pSrcDst[3], int count);
/**
 * @brief pSrcDst[i] *= pSrc[i]; masked rays get 0.  Checks no pointer at all; no fast path.
 */
VEKR_API VekStatus vekrMul_32f_C1IM(const float* pSrc, const int* pMask, float* pSrcDst,
                                    int count);
/**
 * @brief pSrcDst[i] /= pSrc[i]; masked rays get 0.  Checks pSrc and pSrcDst, not pMask.
 *
 * A zero divisor is no error: x > 0 gives +inf, x < 0 -inf, 0 or NaN the
 * NaN 0xFFC00000.  No fast path.
 */
VEKR_API VekStatus vekrDiv_32f_C1IM(const float* pSrc, const int* pMask, float* pSrcDst,
                                    int count);
/**
 * @brief Accumulates C[c] += A[c] * k[c] * s[i] into pSrcDst; masked rays stay unchanged.
 *
 * Checks pSrc, pSrc3, pMask, pSrcDst (not k).  The fast path is chosen from
 * count, pSrc, pMask and pSrcDst alone but loads pSrc3 aligned: then its
 * planes must be 16-byte aligned too.  It forms (A * s) * k (last bits).
 */
VEKR_API VekStatus vekrAddMulMul_32f_AC1P3IM(const float k[3], const float* pSrc,
                                             const float* const pSrc3[3], const int* pMask,
                                             float* const pSrcDst[3], int count);

/* ------------------------------------------------------------------------ */
/* Spherical harmonics                                                      */
/* ------------------------------------------------------------------------ */

/**
 * @brief Bytes of a ::VekrSHState for @p order and @p type (out: *pSize).
 *
 * Checks: pSize null (vekStsNullPtr); direct type with order > 15
 * (vekStsSize, else 16 bytes); recurrence type: no order limit here; other
 * types: vekStsSelector.  The recurrence size is 32-bit arithmetic and wraps
 * from order 32767 on; vekrSHInit_32f refuses such an order (vekStsSize)
 * rather than write past the block.  The block may have any alignment: the
 * tables start at the 16-byte boundaries after the header whenever the
 * reported size leaves room (always for a 16-byte-aligned block), otherwise
 * at 4-byte boundaries inside the reported size.
 */
VEKR_API VekStatus vekrSHGetSize_32f(uint32_t order, VekrSHType type, uint32_t* pSize);
/**
 * @brief Initialises a caller-allocated state block of vekrSHGetSize_32f bytes (any alignment).
 *
 * Checks in the same order as vekrSHGetSize_32f, pState first; then an order
 * whose true size does not fit in 32 bits (vekStsSize).  The state is
 * read-only afterwards and may be shared by threads.  Evaluation never serves
 * bands above 15, whatever the order.
 */
VEKR_API VekStatus vekrSHInit_32f(VekrSHState* pState, uint32_t order, VekrSHType type);

/**
 * @brief Basis of bands 0..L for @p count unit directions (not normalised here).
 *
 * Out: pDst, (L+1)^2 floats per direction, Y(l, m) at l*l + l + m (real,
 * orthonormal, Condon-Shortley phase).  Checks: any pointer null
 * (vekStsNullPtr); count 0 (vekStsSize); L above the state's order, a bad
 * state type or L > 15 (vekStsSelector); count negative as int32: vekStsOk,
 * nothing written.
 */
VEKR_API VekStatus vekrSH_32f(const float* pX, const float* pY, const float* pZ, uint32_t count,
                              float* pDst, uint32_t L, const VekrSHState* pState);
/**
 * @brief The 2l+1 values of band @p l alone per direction, Y(l, m) at l + m (closed forms).
 *
 * Equal to entries l*l .. l*l + 2l of vekrSH_32f with a direct state.
 * Checks: pointer null (vekStsNullPtr); l > 15 (vekStsSelector); count 0
 * (vekStsSize); count < 0: vekStsOk, nothing written.
 */
VEKR_API VekStatus vekrSHBand_32f(const float* pX, const float* pY, const float* pZ, int count,
                                  float* pDst, uint32_t l);

/**
 * @brief Projection: adds sum_i pSrc[i] * Y(d_i) to the (L+1)^2 coefficients (in/out).
 *
 * No weighting: clear the coefficients first and scale by 4 pi / N for N
 * uniform samples; samples may be fed in several calls.  The transforms
 * check, in order: null pointers (the planes, samples or output, the
 * coefficients, the state, and the inner pointers of three-channel sets and
 * planar arrays; vekStsNullPtr), count 0 (vekStsSize), L above the state's
 * order (vekStsSelector), a state type other than 0 or 1 (vekStsSelector, as
 * vekrSH_32f gives); a negative count does nothing.  Keep L <= 15: a
 * recurrence state of higher order passes the checks and gives meaningless
 * results.
 */
VEKR_API VekStatus vekrSHTFwd_32f_C1I(const float* pX, const float* pY, const float* pZ,
                                      const float* pSrc, int count, float* pSrcDstCoeffs,
                                      uint32_t L, const VekrSHState* pState);
/**
 * @brief Projection of 3 interleaved channels per sample into 3 coefficient vectors (in/out).
 */
VEKR_API VekStatus vekrSHTFwd_32f_C3P3I(const float* pX, const float* pY, const float* pZ,
                                        const float* pSrc, int count,
                                        float* const pSrcDstCoeffs[3], uint32_t L,
                                        const VekrSHState* pState);
/**
 * @brief Projection of 3 sample planes into 3 coefficient vectors (in/out).
 */
VEKR_API VekStatus vekrSHTFwd_32f_P3I(const float* pX, const float* pY, const float* pZ,
                                      const float* const pSrc[3], int count,
                                      float* const pSrcDstCoeffs[3], uint32_t L,
                                      const VekrSHState* pState);
/**
 * @brief Reconstruction: pDst[i] = coefficients . Y(d_i) over bands 0..L (out: pDst).
 *
 * Checks as vekrSHTFwd_32f_C1I.  Partial sums in float: the last bits may
 * differ from a sequential sum.
 */
VEKR_API VekStatus vekrSHTInv_32f_C1(const float* pSrcCoeffs, uint32_t L, const float* pX,
                                     const float* pY, const float* pZ, float* pDst, int count,
                                     const VekrSHState* pState);
/**
 * @brief Reconstruction of 3 channels into 3 output planes.
 */
VEKR_API VekStatus vekrSHTInv_32f_P3(const float* const pSrcCoeffs[3], uint32_t L,
                                     const float* pX, const float* pY, const float* pZ,
                                     float* const pDst[3], int count, const VekrSHState* pState);
/**
 * @brief Reconstruction of 3 channels, interleaved: pDst[3 i + c].
 */
VEKR_API VekStatus vekrSHTInv_32f_P3C3(const float* const pSrcCoeffs[3], uint32_t L,
                                       const float* pX, const float* pY, const float* pZ,
                                       float* pDst, int count, const VekrSHState* pState);

/* ------------------------------------------------------------------------ */
/* Volumes                                                                  */
/* ------------------------------------------------------------------------ */

/**
 * @brief Bytes of the work buffer of the resize functions (out: *pSize).
 *
 * Checks: pSize null (vekStsNullPtr); a field of pSrcVoi then pDstVoi
 * invalid (x < 0, width <= 0, y, height, z, depth alike; vekStsSize);
 * nChannel not 1 (vekStsChannelCount); mode not 1, 2, 4..7
 * (vekStsInterpolation).  The size depends on the destination VOI, the mode
 * and ownGetNumThreads() at this call: ask again if the thread count changes.
 */
VEKR_API VekStatus vekrResizeGetBufSize(const VekCuboid* pSrcVoi, const VekCuboid* pDstVoi,
                                        int nChannel, int interpolation, int* pSize);
/**
 * @brief Same checks as vekrResizeGetBufSize; always writes 0 (the warps take no buffer).
 */
VEKR_API VekStatus vekrWarpAffineGetBufSize(const VekCuboid* pSrcVoi, const VekCuboid* pDstVoi,
                                            int nChannel, int interpolation, int* pSize);

/**
 * @brief Scales a source VOI by per-axis factors and shifts into a destination VOI (contiguous volumes).
 *
 * Voxel (x, y, z) is at base + z * planeStep + y * step + x (steps in bytes).
 * Destination voxel d maps to source (d + 0.5) / factor - 0.5 - shift / factor
 * per axis; only the mapped source VOI (cut to the volume) inside the
 * destination VOI is written.  Checks, in order: pSrc, pDst, pBuffer null
 * (vekStsNullPtr); source size, pSrcVoi, pDstVoi (vekStsSize); a factor not
 * above 0, or a factor or shift that is NaN or infinite (vekStsResizeFactor);
 * mode (vekStsInterpolation); source VOI origin outside the volume (warning
 * vekStsVoiOutside); empty mapped region (warning vekStsEmptyDestination);
 * then two calls the buffer arithmetic cannot hold are refused with
 * vekStsSize: a destination box ending past voxel 2^31 - 1, and a call whose
 * work needs more than vekrResizeGetBufSize reports for it (that 32-bit size
 * wraps for huge destination regions).  Failures and warnings write nothing.
 * Border taps clamp to the whole source volume; cubic modes need 3 voxels per
 * axis.  Integer results add 0.50000012, truncate and saturate.  pBuffer needs
 * vekrResizeGetBufSize bytes (not checked).
 */
VEKR_API VekStatus vekrResize_8u_C1V(const uint8_t* pSrc, const VekVolumeSize* pSrcVolume,
                                     int srcStep, int srcPlaneStep, const VekCuboid* pSrcVoi,
                                     uint8_t* pDst, int dstStep, int dstPlaneStep,
                                     const VekCuboid* pDstVoi, double xFactor, double yFactor,
                                     double zFactor, double xShift, double yShift,
                                     double zShift, int interpolation, uint8_t* pBuffer);
/** @brief vekrResize_8u_C1V for unsigned 16-bit voxels. */
VEKR_API VekStatus vekrResize_16u_C1V(const uint16_t* pSrc, const VekVolumeSize* pSrcVolume,
                                      int srcStep, int srcPlaneStep, const VekCuboid* pSrcVoi,
                                      uint16_t* pDst, int dstStep, int dstPlaneStep,
                                      const VekCuboid* pDstVoi, double xFactor, double yFactor,
                                      double zFactor, double xShift, double yShift,
                                      double zShift, int interpolation, uint8_t* pBuffer);
/**
 * @brief vekrResize_8u_C1V for float voxels (stored unclamped); the one parallel resize.
 *
 * Splits destination slices over ownGetNumThreads() threads when the
 * written box is at least 16 in every axis.
 */
VEKR_API VekStatus vekrResize_32f_C1V(const float* pSrc, const VekVolumeSize* pSrcVolume,
                                      int srcStep, int srcPlaneStep, const VekCuboid* pSrcVoi,
                                      float* pDst, int dstStep, int dstPlaneStep,
                                      const VekCuboid* pDstVoi, double xFactor, double yFactor,
                                      double zFactor, double xShift, double yShift,
                                      double zShift, int interpolation, uint8_t* pBuffer);
/**
 * @brief vekrResize_8u_C1V for volumes as slice pointers: voxel (x, y, z) at pSrc[z] + y * step + x.
 */
VEKR_API VekStatus vekrResize_8u_C1PV(const uint8_t* const pSrc[],
                                      const VekVolumeSize* pSrcVolume, int srcStep,
                                      const VekCuboid* pSrcVoi, uint8_t* const pDst[],
                                      int dstStep, const VekCuboid* pDstVoi, double xFactor,
                                      double yFactor, double zFactor, double xShift,
                                      double yShift, double zShift, int interpolation,
                                      uint8_t* pBuffer);
/** @brief vekrResize_8u_C1PV for unsigned 16-bit voxels. */
VEKR_API VekStatus vekrResize_16u_C1PV(const uint16_t* const pSrc[],
                                       const VekVolumeSize* pSrcVolume, int srcStep,
                                       const VekCuboid* pSrcVoi, uint16_t* const pDst[],
                                       int dstStep, const VekCuboid* pDstVoi, double xFactor,
                                       double yFactor, double zFactor, double xShift,
                                       double yShift, double zShift, int interpolation,
                                       uint8_t* pBuffer);
/** @brief vekrResize_8u_C1PV for float voxels (single-threaded). */
VEKR_API VekStatus vekrResize_32f_C1PV(const float* const pSrc[],
                                       const VekVolumeSize* pSrcVolume, int srcStep,
                                       const VekCuboid* pSrcVoi, float* const pDst[],
                                       int dstStep, const VekCuboid* pDstVoi, double xFactor,
                                       double yFactor, double zFactor, double xShift,
                                       double yShift, double zShift, int interpolation,
                                       uint8_t* pBuffer);

/**
 * @brief Affine warp: each destination VOI voxel is mapped back through the inverse of @p coeffs.
 *
 * coeffs maps source to destination: xd = c[0][0] x + c[0][1] y + c[0][2] z
 * + c[0][3], rows for y and z alike.  Voxels whose source point lies outside
 * the source VOI (cut to the volume) keep their value; the destination VOI is
 * not cut (it must lie inside pDst).  Checks, in order: pSrc, pDst null
 * (vekStsNullPtr; coeffs is not checked); source size, pSrcVoi, pDstVoi
 * (vekStsSize); all three diagonal terms within 1e-100 of 0 (even for an
 * invertible permutation) or parallel y and z rows (vekStsAffineCoeff); mode
 * (vekStsInterpolation); VOI origin outside (vekStsVoiOutside).  A source
 * under 4 voxels on an axis turns cubic into linear, under 2 any mode into
 * nearest.  |det| < 1e-10 returns vekStsOk writing nothing.  Integers round
 * to nearest even and saturate; cubic uses 0.01-step kernel tables (differs
 * slightly from resize) and may read one voxel below the source VOI.
 * Parallel over slices when the destination VOI is >= 16 on every axis.
 */
VEKR_API VekStatus vekrWarpAffine_8u_C1PV(const uint8_t* const pSrc[],
                                          const VekVolumeSize* pSrcVolume, int srcStep,
                                          const VekCuboid* pSrcVoi, uint8_t* const pDst[],
                                          int dstStep, const VekCuboid* pDstVoi,
                                          const double coeffs[3][4], int interpolation);
/** @brief vekrWarpAffine_8u_C1PV for unsigned 16-bit voxels. */
VEKR_API VekStatus vekrWarpAffine_16u_C1PV(const uint16_t* const pSrc[],
                                           const VekVolumeSize* pSrcVolume, int srcStep,
                                           const VekCuboid* pSrcVoi, uint16_t* const pDst[],
                                           int dstStep, const VekCuboid* pDstVoi,
                                           const double coeffs[3][4], int interpolation);
/** @brief vekrWarpAffine_8u_C1PV for float voxels (stored unclamped). */
VEKR_API VekStatus vekrWarpAffine_32f_C1PV(const float* const pSrc[],
                                           const VekVolumeSize* pSrcVolume, int srcStep,
                                           const VekCuboid* pSrcVoi, float* const pDst[],
                                           int dstStep, const VekCuboid* pDstVoi,
                                           const double coeffs[3][4], int interpolation);

/**
 * @brief Fills a destination block from source positions given per voxel by three maps.
 *
 * Destination voxel (i, j, k) at pDst[k] + j * dstStep + i, for the
 * pDstRoiSize block from (0, 0, 0), takes the source value at the absolute
 * coordinates (pxMap, pyMap, pzMap)[k] + j * mapStep + i (float slices).
 * Positions outside the source VOI (cut to the volume), or NaN, leave the
 * voxel unchanged.  Checks, in order: pSrc, pDst, the three maps null
 * (vekStsNullPtr); source size, pSrcVoi, pDstRoiSize (vekStsSize); mode
 * (vekStsInterpolation); VOI origin outside (vekStsVoiOutside).  Small
 * sources and integer results as vekrWarpAffine_8u_C1PV; nearest rounds
 * ties to even.  Parallel over slices when the block is >= 16 on every axis.
 */
VEKR_API VekStatus vekrRemap_8u_C1PV(const uint8_t* const pSrc[], const VekVolumeSize* pSrcVolume,
                                     int srcStep, const VekCuboid* pSrcVoi,
                                     const float* const pxMap[], const float* const pyMap[],
                                     const float* const pzMap[], int mapStep,
                                     uint8_t* const pDst[], int dstStep,
                                     const VekVolumeSize* pDstRoiSize, int interpolation);
/** @brief vekrRemap_8u_C1PV for unsigned 16-bit voxels. */
VEKR_API VekStatus vekrRemap_16u_C1PV(const uint16_t* const pSrc[],
                                      const VekVolumeSize* pSrcVolume, int srcStep,
                                      const VekCuboid* pSrcVoi, const float* const pxMap[],
                                      const float* const pyMap[], const float* const pzMap[],
                                      int mapStep, uint16_t* const pDst[], int dstStep,
                                      const VekVolumeSize* pDstRoiSize, int interpolation);
/** @brief vekrRemap_8u_C1PV for float voxels (stored unclamped). */
VEKR_API VekStatus vekrRemap_32f_C1PV(const float* const pSrc[], const VekVolumeSize* pSrcVolume,
                                      int srcStep, const VekCuboid* pSrcVoi,
                                      const float* const pxMap[], const float* const pyMap[],
                                      const float* const pzMap[], int mapStep,
                                      float* const pDst[], int dstStep,
                                      const VekVolumeSize* pDstRoiSize, int interpolation);

/**
 * @brief Bytes of the work buffer of vekrFilter_16s_C1PV (out: *pSize).
 *
 * Checks: pSize null (vekStsNullPtr); a destination or kernel dimension
 * below 1 (vekStsSize); nChannel not 1 (vekStsChannelCount).  The size is
 * 32-bit arithmetic that wraps for huge widths or kernels;
 * vekrFilter_16s_C1PV refuses (vekStsSize, nothing written) a call whose
 * work would need more buffer than that size.
 */
VEKR_API VekStatus vekrFilterGetBufSize(const VekVolumeSize* pDstRoiSize,
                                        const VekVolumeSize* pKernelSize, int nChannel,
                                        int* pSize);
/**
 * @brief 3D convolution of int16 slices with an int32 kernel, divided by @p divisor.
 *
 * dst(x, y, z) = Scale(sum K[k][j][i] * src(x + ax - i, y + ay - j, z + az - k)),
 * a true (mirrored) convolution; K[k][j][i] at (k * kh + j) * kw + i.  No
 * border handling: pSrc and its rows must be readable that far, including
 * negative slice and row offsets.  divisor 1 saturates; 2^n rounds half to
 * even; any other (also negative) value gives rint(S * (1.0f / divisor)),
 * then saturates.  Checks: pSrc, pDst, pKernel, pBuffer null
 * (vekStsNullPtr); a destination dimension below 1, a kernel dimension below
 * 1 or divisor 0 (vekStsSize).  anchor is not checked.  A 32-bit sum overflow
 * is not detected.  pBuffer needs vekrFilterGetBufSize bytes.
 */
VEKR_API VekStatus vekrFilter_16s_C1PV(const int16_t* const pSrc[], int srcStep,
                                       int16_t* const pDst[], int dstStep,
                                       const VekVolumeSize* pDstRoiSize, const int32_t* pKernel,
                                       const VekVolumeSize* pKernelSize, const int32_t anchor[3],
                                       int divisor, uint8_t* pBuffer);

#ifdef __cplusplus
}
#endif

#endif /* VEKR_H */
