/*
 * Resizes the skull volume (64^3 floats after a 256-byte INRIMAGE header,
 * from Debian's libcgal-demo; scripts/fetch-data.sh puts it in data/) by 1.5
 * with Catmull-Rom interpolation, turns it 30 degrees about its z axis with
 * an affine warp, and writes the middle z slice of each step as an 8-bit PNG.
 *
 *   vekr-volume-slices [skull_2.9.inr [output-prefix]]
 *
 * Exit code 77 when the volume file cannot be opened.
 */
#include <math.h>
#include <stdio.h>
#include <stdlib.h>

#include <stb_image_write.h>

#include "vekr.h"
#include "vekr_status.h"

enum { N = 64, M = 96 }; /* source and resized edge lengths */

static int check(const char* what, VekStatus s)
{
    if (s != vekStsOk) fprintf(stderr, "%s: %s (%s)\n", what, vekrStatusName(s), vekrStatusMessage(s));
    return s != vekStsOk;
}

/* Writes slice z of an n^3 volume as a grey PNG, scaled from [lo, hi]. */
static int writeSlice(const char* prefix, const char* name, const float* v, int n, float lo, float hi)
{
    char path[1024];
    unsigned char* grey = malloc((size_t)n * n);
    const float* slice = v + (size_t)n * n * (n / 2);
    for (int i = 0; i < n * n; ++i) {
        const float t = (slice[i] - lo) / (hi - lo);
        grey[i] = (unsigned char)(t <= 0 ? 0 : t >= 1 ? 255 : t * 255 + 0.5f);
    }
    snprintf(path, sizeof path, "%s%s.png", prefix, name);
    const int ok = stbi_write_png(path, n, n, 1, grey, n);
    free(grey);
    if (ok) printf("wrote %s (%dx%d)\n", path, n, n);
    return !ok;
}

int main(int argc, char** argv)
{
    const char* path = argc > 1 ? argv[1] : "data/skull_2.9.inr";
    const char* prefix = argc > 2 ? argv[2] : "skull_";
    FILE* f = fopen(path, "rb");
    if (!f) {
        fprintf(stderr, "cannot open %s (run scripts/fetch-data.sh)\n", path);
        return 77;
    }
    float* src = malloc(sizeof(float) * N * N * N);
    float* big = calloc((size_t)M * M * M, sizeof(float));
    float* turned = calloc((size_t)M * M * M, sizeof(float));
    /* The file is little-endian, as is every x86-64 machine. */
    const int read = fseek(f, 256, SEEK_SET) == 0 && fread(src, sizeof(float), N * N * N, f) == N * N * N;
    fclose(f);
    if (!read) return fprintf(stderr, "%s is not a 64^3 float volume\n", path), 1;
    float lo = src[0], hi = src[0];
    for (int i = 1; i < N * N * N; ++i) lo = fminf(lo, src[i]), hi = fmaxf(hi, src[i]);

    /* Resize: the whole source into the whole destination, factor 1.5, no shift. */
    const VekVolumeSize srcSize = {N, N, N};
    const VekCuboid srcVoi = {0, 0, 0, N, N, N}, bigVoi = {0, 0, 0, M, M, M};
    int bufSize = 0;
    if (check("vekrResizeGetBufSize",
              vekrResizeGetBufSize(&srcVoi, &bigVoi, 1, vekInterCubicCatmullRom, &bufSize)))
        return 1;
    uint8_t* buffer = malloc(bufSize);
    const int row = M * sizeof(float), plane = M * row;
    if (check("vekrResize_32f_C1V",
              vekrResize_32f_C1V(src, &srcSize, N * sizeof(float), N * N * sizeof(float), &srcVoi,
                                 big, row, plane, &bigVoi, 1.5, 1.5, 1.5, 0, 0, 0,
                                 vekInterCubicCatmullRom, buffer)))
        return 1;

    /* Warp: the slice-pointer layout, a rotation about the centre c. */
    const float* bigSlices[M];
    float* turnedSlices[M];
    for (int z = 0; z < M; ++z) bigSlices[z] = big + (size_t)z * M * M, turnedSlices[z] = turned + (size_t)z * M * M;
    const double a = 30 * 3.14159265358979 / 180, c = (M - 1) / 2.0;
    const double coeffs[3][4] = {{cos(a), -sin(a), 0, c - c * cos(a) + c * sin(a)},
                                 {sin(a), cos(a), 0, c - c * sin(a) - c * cos(a)},
                                 {0, 0, 1, 0}};
    const VekVolumeSize bigSize = {M, M, M};
    if (check("vekrWarpAffine_32f_C1PV",
              vekrWarpAffine_32f_C1PV(bigSlices, &bigSize, row, &bigVoi, turnedSlices, row, &bigVoi,
                                      coeffs, vekInterLinear)))
        return 1;

    int failed = writeSlice(prefix, "source", src, N, lo, hi);
    failed |= writeSlice(prefix, "resized", big, M, lo, hi);
    failed |= writeSlice(prefix, "turned", turned, M, lo, hi);
    free(buffer), free(turned), free(big), free(src);
    return failed;
}
