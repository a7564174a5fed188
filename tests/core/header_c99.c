/* The public header compiles as strict C99 and its functions link from C. */
#include <stdio.h>
#include <string.h>

#include "vekr.h"

int main(void)
{
    const VekLibraryVersion* v = vekrGetLibVersion();
    const float vertices[6] = {1.0f, 2.0f, 3.0f, -1.0f, -2.0f, -3.0f};
    VekrBox3D box;
    VekrKDTreeBuildParams params;
    VekrIntersectContext ctx;
    VekSize size = {4, 4};
    VekCuboid voi = {0, 0, 0, 1, 1, 1};

    memset(&params, 0, sizeof params);
    params.magic = VEKR_KDTREE_SAH_MAGIC;
    ctx.pBound = &box;
    ctx.pAccel = NULL;
    ctx.pRootNode = NULL;
    (void)size;
    (void)voi;
    (void)ctx;

    if (v->major != 6 || strcmp(v->version, "6.1 build 137.36") != 0) return 1;
    if (vekrSetBoundBox_32f(vertices, 2, &box) != vekStsOk) return 2;
    if (!(box.maxX > 1.0f && box.minZ < -3.0f)) return 3;
    if (vekrSetBoundBox_32f(NULL, 2, &box) != vekStsNullPtr) return 4;
    if (sizeof(VekrKDTreeNode) != 8 || sizeof(VekrTriangleAccel) != 40) return 5;
    printf("ok\n");
    return 0;
}
