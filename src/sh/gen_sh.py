#!/usr/bin/env python3
"""Writes sh_closed_forms.inc: the real orthonormal spherical harmonics of
bands 0..15 (Condon-Shortley phase) as closed-form polynomials in x, y, z.

Everything is derived here from the definition with exact rational
arithmetic:

  P(l)(z)       = 1 / (2^l l!) * d^l/dz^l (z^2 - 1)^l          (Rodrigues)
  P(l, m)(z)    = (-1)^m (1 - z^2)^(m/2) d^m/dz^m P(l)(z)
  K(l, m)       = sqrt((2l + 1) / (4 pi) * (l - m)! / (l + m)!)
  Y(l,  m > 0)  = sqrt(2) K(l, m) P(l, m)(z) cos(m phi)
  Y(l,  0)      = K(l, 0) P(l)(z)
  Y(l, -m < 0)  = sqrt(2) K(l, m) P(l, m)(z) sin(m phi)

On the unit sphere (1 - z^2)^(m/2) cos(m phi) = Re (x + iy)^m and
(1 - z^2)^(m/2) sin(m phi) = Im (x + iy)^m, so every basis function is

  Y(l, +-m) = q(z) * Re or Im (x + iy)^m

where each coefficient of q is the normalisation sqrt(2) K(l, m) (or K(l, 0))
times a rational coefficient of the Legendre factor.  The radicand stays an
exact fraction until the end; only the final square root (and pi) are
evaluated, with 60 decimal digits, and rounded correctly to a double.

Usage:  gen_sh.py [OUTPUT]          write OUTPUT (default: stdout)
        gen_sh.py --check FILE      exit 1 when FILE differs from the output
"""

import sys
from decimal import Decimal, getcontext
from fractions import Fraction
from math import comb, factorial

MAX_BAND = 15
getcontext().prec = 60


# ---- exact polynomials ------------------------------------------------------

def legendre_factor(l, m):
    """(-1)^m d^m/dz^m P(l)(z) as {power: Fraction}."""
    order = l + m
    poly = {}
    for k in range(l + 1):
        power = 2 * k
        if power < order:
            continue
        coef = comb(l, k) * (-1) ** (l - k)
        falling = 1
        for i in range(order):
            falling *= power - i
        poly[power - order] = poly.get(power - order, 0) + coef * falling
    scale = Fraction((-1) ** m, 2 ** l * factorial(l))
    return {p: c * scale for p, c in poly.items() if c != 0}


def sectoral(m, imaginary):
    """Re or Im of (x + iy)^m as {(power of x, power of y): int}."""
    poly = {}
    for j in range(m + 1):
        if (j % 2 == 1) != imaginary:
            continue
        sign = (-1) ** (j // 2)
        poly[(m - j, j)] = sign * comb(m, j)
    return poly


# ---- constants ----------------------------------------------------------------

def arctan_inverse(n):
    """atan(1/n) by its Taylor series, in the current decimal context."""
    x = Decimal(1) / n
    x2 = x * x
    total, term, k = Decimal(0), x, 1
    eps = Decimal(10) ** (-getcontext().prec - 2)
    while abs(term) > eps:
        total += term / k
        term = -term * x2
        k += 2
    return total


PI = 16 * arctan_inverse(5) - 4 * arctan_inverse(239)  # Machin


def constant(radicand, factor):
    """sqrt(radicand / (4 pi)) * factor, correctly rounded to a double."""
    value = (Decimal(radicand.numerator) / Decimal(radicand.denominator) / (4 * PI)).sqrt()
    value *= Decimal(factor.numerator) / Decimal(factor.denominator)
    return float(value)  # Decimal -> float rounds correctly


def literal(value):
    text = repr(float(value))
    return text if ("e" in text or "." in text) else text + ".0"


# ---- code emission --------------------------------------------------------------

def product(terms):
    return " * ".join(terms)


def polynomial_expr(poly, factor_of):
    """Sum of integer-coefficient terms, highest key first, as C++."""
    parts = []
    for key in sorted(poly, reverse=True):
        c = poly[key]
        factors = factor_of(key)
        mag = abs(c)
        if mag != 1 or not factors:
            factors = ["D(%s)" % literal(mag)] + factors
        text = product(factors)
        if not parts:
            parts.append(("-" if c < 0 else "") + text)
        else:
            parts.append(("- " if c < 0 else "+ ") + text)
    return " ".join(parts)


def z_power(p):
    return [] if p == 0 else ["t.z[%d]" % p]


def xy_power(key):
    a, b = key
    out = []
    if a:
        out.append("t.x[%d]" % a)
    if b:
        out.append("t.y[%d]" % b)
    return out


def emit_terms(lines):
    lines.append("// Shared terms of one direction: powers of the coordinates and the")
    lines.append("// polynomials Re (x+iy)^m (c) and Im (x+iy)^m (s), which equal")
    lines.append("// sin^m(theta) cos(m phi) and sin^m(theta) sin(m phi) on the unit sphere.")
    lines.append("template <class D>")
    lines.append("struct ShTerms {")
    lines.append("    D x[%d], y[%d], z[%d], c[%d], s[%d];" % ((MAX_BAND + 1,) * 5))
    lines.append("};")
    lines.append("")
    lines.append("// Fills the terms that bands 0..L need.")
    lines.append("template <class D>")
    lines.append("inline void shTerms(ShTerms<D>& t, D x, D y, D z, unsigned L)")
    lines.append("{")
    lines.append("    if (L < 1) return;")
    lines.append("    t.x[1] = x;")
    lines.append("    t.y[1] = y;")
    lines.append("    t.z[1] = z;")
    lines.append("    t.c[1] = x;")
    lines.append("    t.s[1] = y;")
    for m in range(2, MAX_BAND + 1):
        lo, hi = m // 2, m - m // 2
        lines.append("    if (L < %d) return;" % m)
        for v in "xyz":
            lines.append("    t.%s[%d] = t.%s[%d] * t.%s[%d];" % (v, m, v, lo, v, hi))
        for name, imag in (("c", False), ("s", True)):
            lines.append("    t.%s[%d] = %s;" % (name, m, polynomial_expr(sectoral(m, imag), xy_power)))
    lines.append("}")
    lines.append("")


def emit_band(lines, l):
    lines.append("template <class D, class Out>")
    lines.append("inline void shBand%d(const ShTerms<D>& t, Out& out, int base)" % l)
    lines.append("{")
    if l == 0:
        lines.append("    out(base, D(%s));" % literal(constant(Fraction(1), Fraction(1))))
        lines.append("    (void)t;")
        lines.append("}")
        lines.append("")
        return
    stores = {}
    for m in range(l, -1, -1):
        # q(z) with the normalisation folded into every coefficient.
        radicand = Fraction((2 if m else 1) * (2 * l + 1) * factorial(l - m), factorial(l + m))
        q = {p: constant(radicand, c) for p, c in legendre_factor(l, m).items()}
        terms = []
        for p in sorted(q, reverse=True):
            c = q[p]
            if not terms:
                terms.append(product(["D(%s)" % literal(c)] + z_power(p)))
            else:
                text = product(["D(%s)" % literal(abs(c))] + z_power(p))
                terms.append(("- " if c < 0 else "+ ") + text)
        if m == 0:
            stores[0] = " ".join(terms)
            continue
        if len(q) == 1 and l - m == 0:
            factor = ["D(%s)" % literal(q[0])]
        else:
            lines.append("    const D q%d = %s;" % (m, " ".join(terms)))
            factor = ["q%d" % m]
        stores[m] = product(factor + ["t.c[%d]" % m])
        stores[-m] = product(factor + ["t.s[%d]" % m])
    for m in range(-l, l + 1):
        lines.append("    out(base + %d, %s);" % (l + m, stores[m]))
    lines.append("}")
    lines.append("")


def generate():
    lines = [
        "// Generated by gen_sh.py from the definition of the real orthonormal",
        "// spherical harmonics; do not edit.  Regenerate with",
        "//     python3 src/sh/gen_sh.py src/sh/sh_closed_forms.inc",
        "//",
        "// Y(l, +-m) = q(z) * Re or Im (x+iy)^m, the normalisation folded into the",
        "// coefficients of q; evaluated in the arithmetic of D (double, or several",
        "// doubles at once).",
        "// Out is called as out(index, value) with index = base + l + m.",
        "// No namespace here: the including file decides where this lives.",
        "",
    ]
    emit_terms(lines)
    for l in range(MAX_BAND + 1):
        emit_band(lines, l)
    lines.append("// Bands 0..L (L <= %d) at indices 0..(L+1)^2-1." % MAX_BAND)
    lines.append("template <class D, class Out>")
    lines.append("inline void shAllBands(const ShTerms<D>& t, unsigned L, Out& out)")
    lines.append("{")
    lines.append("    shBand0(t, out, 0);")
    for l in range(1, MAX_BAND + 1):
        lines.append("    if (L < %d) return;" % l)
        lines.append("    shBand%d(t, out, %d);" % (l, l * l))
    lines.append("}")
    lines.append("")
    lines.append("// Band l alone (l <= %d) at indices 0..2l." % MAX_BAND)
    lines.append("template <class D, class Out>")
    lines.append("inline void shOneBand(const ShTerms<D>& t, unsigned l, Out& out)")
    lines.append("{")
    lines.append("    switch (l) {")
    for l in range(MAX_BAND + 1):
        lines.append("    case %d: shBand%d(t, out, 0); break;" % (l, l))
    lines.append("    default: break;")
    lines.append("    }")
    lines.append("}")
    return "\n".join(lines) + "\n"


def main(argv):
    text = generate()
    if len(argv) >= 2 and argv[0] == "--check":
        with open(argv[1], encoding="utf-8") as f:
            if f.read() != text:
                sys.stderr.write("%s is out of date: run gen_sh.py\n" % argv[1])
                return 1
        return 0
    if argv:
        with open(argv[0], "w", encoding="utf-8") as f:
            f.write(text)
    else:
        sys.stdout.write(text)
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
