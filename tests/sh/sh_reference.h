// Independent double-precision reference for the real spherical harmonics:
// associated Legendre functions by their recurrence in l (Condon-Shortley
// phase included), angles from atan2, normalisation from factorials.
#pragma once

#include <cmath>
#include <random>
#include <vector>

namespace shref {

constexpr double kPi = 3.14159265358979323846;

// All (L+1)^2 values for the direction (x, y, z), which is normalised here.
inline std::vector<double> basis(double x, double y, double z, int L)
{
    const double r = std::sqrt(x * x + y * y + z * z);
    x /= r;
    y /= r;
    z /= r;
    const double sinTheta = std::sqrt(x * x + y * y);
    const double phi = std::atan2(y, x);
    std::vector<double> out((L + 1) * (L + 1));
    for (int m = 0; m <= L; ++m) {
        // P(m, m) = (-1)^m (2m-1)!! sin^m, then upwards in l.
        double pmm = 1.0;
        for (int i = 1; i <= m; ++i) pmm *= -(2.0 * i - 1.0) * sinTheta;
        double prev = 0.0, cur = pmm;
        for (int l = m; l <= L; ++l) {
            if (l == m + 1) {
                prev = cur;
                cur = z * (2.0 * m + 1.0) * pmm;
            } else if (l > m + 1) {
                const double next = ((2.0 * l - 1.0) * z * cur - (l + m - 1.0) * prev) / (l - m);
                prev = cur;
                cur = next;
            }
            // K(l, m) = sqrt((2l+1)/(4 pi) (l-m)!/(l+m)!)
            double ratio = 1.0;
            for (int i = l - m + 1; i <= l + m; ++i) ratio /= i;
            const double k = std::sqrt((2.0 * l + 1.0) / (4.0 * kPi) * ratio);
            const int c = l * l + l;
            if (m == 0) {
                out[c] = k * cur;
            } else {
                out[c + m] = std::sqrt(2.0) * k * cur * std::cos(m * phi);
                out[c - m] = std::sqrt(2.0) * k * cur * std::sin(m * phi);
            }
        }
    }
    return out;
}

// Random unit directions as float planes (normalised in double, rounded).
struct Directions {
    std::vector<float> x, y, z;
    explicit Directions(int n, unsigned seed = 1)
    {
        std::mt19937 rng(seed);
        std::normal_distribution<double> g;
        for (int i = 0; i < n; ++i) {
            double a, b, c, r;
            do {
                a = g(rng);
                b = g(rng);
                c = g(rng);
                r = std::sqrt(a * a + b * b + c * c);
            } while (r < 1e-3);
            x.push_back(float(a / r));
            y.push_back(float(b / r));
            z.push_back(float(c / r));
        }
    }
    int size() const { return int(x.size()); }
};

}  // namespace shref
