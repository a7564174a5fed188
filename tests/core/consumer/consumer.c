#include <stdio.h>
#include <vekr.h>

int main(void)
{
    const float v[9] = {0, 0, 0, 1, 0, 0, 0, 1, 0};
    VekrBox3D box;
    if (vekrSetBoundBox_32f(v, 3, &box) != vekStsOk) return 1;
    printf("%s %g\n", vekrGetLibVersion()->version, box.maxX);
    return 0;
}
