//===- PhaseSpacePoints.h - Points and linear maps of phase space -*- C++ -*-===//
//
// Points of n-dimensional phase space and the matrices of linear maps on them, for the
// tests of the coupled measures: products, the map of a point, and the emittance of a
// pair of coordinates of a set of points worked by hand.
//
//===----------------------------------------------------------------------------===//
#ifndef TESTS_PHASESPACEPOINTS_H
#define TESTS_PHASESPACEPOINTS_H

#include <array>
#include <cmath>
#include <cstddef>
#include <vector>

template <size_t N> using PointOf = std::array<double, N>;
template <size_t N> using MapOf = std::array<PointOf<N>, N>;

template <size_t N> MapOf<N> identityMap() {
  MapOf<N> m{};
  for (size_t i = 0; i < N; ++i)
    m[i][i] = 1;
  return m;
}

template <size_t N> MapOf<N> product(const MapOf<N> &a, const MapOf<N> &b) {
  MapOf<N> c{};
  for (size_t i = 0; i < N; ++i)
    for (size_t j = 0; j < N; ++j)
      for (size_t k = 0; k < N; ++k)
        c[i][j] += a[i][k] * b[k][j];
  return c;
}

template <size_t N> PointOf<N> applied(const MapOf<N> &m, const PointOf<N> &v) {
  PointOf<N> r{};
  for (size_t i = 0; i < N; ++i)
    for (size_t k = 0; k < N; ++k)
      r[i] += m[i][k] * v[k];
  return r;
}

/// The points of a 2D beam: a ring of n points at three radii, its momenta sheared
/// against its positions.
inline std::vector<std::array<double, 2>> ring(int n, double size, double shear) {
  std::vector<std::array<double, 2>> points;
  for (int k = 0; k < n; ++k) {
    double phase = 2 * M_PI * (k + 0.3) / n, r = size * (1 + 0.5 * (k % 3));
    double x = r * std::cos(phase), u = r * std::sin(phase);
    points.push_back({x, u + shear * x});
  }
  return points;
}

/// sqrt(det C(a, b)) of the points, by hand.
template <size_t N> double emittance2(const std::vector<PointOf<N>> &beam, size_t a, size_t b) {
  double n = double(beam.size()), ma = 0, mb = 0;
  for (const PointOf<N> &v : beam) {
    ma += v[a] / n;
    mb += v[b] / n;
  }
  double aa = 0, bb = 0, ab = 0;
  for (const PointOf<N> &v : beam) {
    aa += (v[a] - ma) * (v[a] - ma) / n;
    bb += (v[b] - mb) * (v[b] - mb) / n;
    ab += (v[a] - ma) * (v[b] - mb) / n;
  }
  return std::sqrt(aa * bb - ab * ab);
}

#endif // TESTS_PHASESPACEPOINTS_H
