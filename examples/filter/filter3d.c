/*
 * Smooths a noisy signed 16-bit volume with a 3x3x3 binomial kernel
 * ([1 2 1] along each axis, sum 64, divisor 64).  The filter does no border
 * handling: the source is allocated one voxel larger on every side, and both
 * the slice pointers and the array holding them are offset so that index 0
 * is the first voxel of the block (the filter reads slices -1 .. D too).
 * Prints the noise before and after, and checks one voxel by hand.
 */
#include <stdio.h>
#include <stdlib.h>

#include "vekr.h"
#include "vekr_status.h"

enum { W = 48, H = 40, D = 32, B = 1 }; /* block size; border B = kernel reach */
enum { SW = W + 2 * B, SH = H + 2 * B, SD = D + 2 * B };

static int16_t clean(int x, int y, int z) /* a ball of 1000 in a field of 0 */
{
    const int dx = x - SW / 2, dy = y - SH / 2, dz = z - SD / 2;
    return dx * dx + dy * dy + dz * dz < 15 * 15 ? 1000 : 0;
}

int main(void)
{
    int16_t* src = malloc(sizeof(int16_t) * SW * SH * SD);
    int16_t* dst = malloc(sizeof(int16_t) * W * H * D);
    srand(1);
    for (int z = 0; z < SD; ++z)
        for (int y = 0; y < SH; ++y)
            for (int x = 0; x < SW; ++x)
                src[(z * SH + y) * SW + x] = (int16_t)(clean(x, y, z) + rand() % 201 - 100);

    const int16_t* srcAll[SD];
    int16_t* dstSlices[D];
    for (int z = 0; z < SD; ++z) srcAll[z] = src + (z * SH + B) * SW + B; /* voxel (B, B, z) */
    const int16_t* const* srcSlices = srcAll + B;  /* srcSlices[-1 .. D] are valid */
    for (int z = 0; z < D; ++z) dstSlices[z] = dst + z * W * H;
    int32_t kernel[27];
    const int w1[3] = {1, 2, 1};
    for (int k = 0; k < 3; ++k)
        for (int j = 0; j < 3; ++j)
            for (int i = 0; i < 3; ++i) kernel[(k * 3 + j) * 3 + i] = w1[k] * w1[j] * w1[i];
    const VekVolumeSize block = {W, H, D}, kernelSize = {3, 3, 3};
    const int32_t anchor[3] = {1, 1, 1}; /* the kernel's centre sits on the voxel */

    int bufSize = 0;
    VekStatus s = vekrFilterGetBufSize(&block, &kernelSize, 1, &bufSize);
    uint8_t* buffer = s == vekStsOk ? malloc(bufSize) : NULL;
    if (s == vekStsOk)
        s = vekrFilter_16s_C1PV(srcSlices, SW * sizeof(int16_t), dstSlices, W * sizeof(int16_t), &block,
                                kernel, &kernelSize, anchor, 64, buffer);
    if (s != vekStsOk) {
        fprintf(stderr, "filter: %s (%s)\n", vekrStatusName(s), vekrStatusMessage(s));
        return 1;
    }

    double before = 0, after = 0;
    for (int z = 0; z < D; ++z)
        for (int y = 0; y < H; ++y)
            for (int x = 0; x < W; ++x) {
                const int truth = clean(x + B, y + B, z + B);
                before += abs(srcSlices[z][y * SW + x] - truth);
                after += abs(dstSlices[z][y * W + x] - truth);
            }
    printf("mean deviation from the clean ball: %.1f before, %.1f after smoothing\n",
           before / (W * H * D), after / (W * H * D));

    /* Voxel (5, 6, 7) by hand: the kernel is symmetric, so mirroring does not matter. */
    long sum = 0;
    for (int k = -1; k <= 1; ++k)
        for (int j = -1; j <= 1; ++j)
            for (int i = -1; i <= 1; ++i)
                sum += (long)kernel[((k + 1) * 3 + j + 1) * 3 + i + 1] * srcSlices[7 + k][(6 + j) * SW + 5 + i];
    const int expect = (int)((sum + 32 - 1 + ((sum >> 6) & 1)) >> 6); /* divide by 64, ties to even */
    const int got = dstSlices[7][6 * W + 5];
    printf("voxel (5, 6, 7): %d, by hand %d\n", got, expect);
    free(buffer), free(dst), free(src);
    return got == expect && after < before ? 0 : 1;
}
