/*
 * Projects an environment (brightness per direction) onto spherical
 * harmonics of bands 0..2 and reconstructs it: the usual way to light
 * diffuse surfaces from a sky.  Prints the nine coefficients and the largest
 * reconstruction error over a set of test directions.
 */
#include <math.h>
#include <stdio.h>
#include <stdlib.h>

#include "vekr.h"
#include "vekr_status.h"

#define BANDS 2                        /* highest band L */
#define NCOEF ((BANDS + 1) * (BANDS + 1))
#define NSAMPLES 4096

/* A band-limited sky: brighter overhead, a warm side towards +x. */
static float environment(float x, float y, float z)
{
    return 0.8f + 0.6f * z + 0.3f * (3 * z * z - 1) + 0.2f * x * y;
}

/* Evenly spread unit directions (a Fibonacci spiral). */
static void directions(int n, float* x, float* y, float* z)
{
    for (int i = 0; i < n; ++i) {
        const double zz = 1.0 - (2.0 * i + 1.0) / n, r = sqrt(1.0 - zz * zz);
        const double phi = i * 2.399963229728653; /* golden angle */
        x[i] = (float)(r * cos(phi));
        y[i] = (float)(r * sin(phi));
        z[i] = (float)zz;
    }
}

static int check(const char* what, VekStatus s)
{
    if (s != vekStsOk) fprintf(stderr, "%s: %s (%s)\n", what, vekrStatusName(s), vekrStatusMessage(s));
    return s != vekStsOk;
}

int main(void)
{
    static float x[NSAMPLES], y[NSAMPLES], z[NSAMPLES], value[NSAMPLES], back[NSAMPLES];
    float coeffs[NCOEF] = {0}; /* the forward transform adds to these */
    uint32_t size = 0;
    if (check("vekrSHGetSize_32f", vekrSHGetSize_32f(BANDS, vekrSHRecurrence, &size))) return 1;
    VekrSHState* state = malloc(size);
    if (!state || check("vekrSHInit_32f", vekrSHInit_32f(state, BANDS, vekrSHRecurrence))) return 1;

    directions(NSAMPLES, x, y, z);
    for (int i = 0; i < NSAMPLES; ++i) value[i] = environment(x[i], y[i], z[i]);
    if (check("vekrSHTFwd_32f_C1I",
              vekrSHTFwd_32f_C1I(x, y, z, value, NSAMPLES, coeffs, BANDS, state)))
        return 1;
    /* The transform sums value * basis; uniform samples weigh 4 pi / N each. */
    for (int k = 0; k < NCOEF; ++k) coeffs[k] *= (float)(4.0 * 3.14159265358979 / NSAMPLES);

    if (check("vekrSHTInv_32f_C1",
              vekrSHTInv_32f_C1(coeffs, BANDS, x, y, z, back, NSAMPLES, state)))
        return 1;
    float worst = 0;
    for (int i = 0; i < NSAMPLES; ++i) worst = fmaxf(worst, fabsf(back[i] - value[i]));

    for (int l = 0; l <= BANDS; ++l) {
        printf("band %d:", l);
        for (int m = -l; m <= l; ++m) printf(" %+.4f", coeffs[l * l + l + m]);
        printf("\n");
    }
    printf("largest reconstruction error over %d directions: %.2e\n", NSAMPLES, worst);
    free(state);
    return worst < 1e-2f ? 0 : 1;
}
