/* Prints the library version and the bounding box of a built-in mesh. */
#include <stdio.h>

#include "vekr.h"

int main(void)
{
    /* An octahedron centred at (1, 2, 3). */
    static const float vertices[] = {2, 2, 3, 0, 2, 3, 1, 3, 3, 1, 1, 3, 1, 2, 4, 1, 2, 2};
    const VekLibraryVersion* v = vekrGetLibVersion();
    VekrBox3D box;
    printf("%s %s (%s)\n", v->name, v->version, v->buildDate);
    if (vekrSetBoundBox_32f(vertices, 6, &box) != vekStsOk) return 1;
    printf("box: (%g, %g, %g) .. (%g, %g, %g)\n", box.minX, box.minY, box.minZ, box.maxX,
           box.maxY, box.maxZ);
    return 0;
}
