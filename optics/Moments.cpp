//===- Moments.cpp - Weighted centred moments up to a given order ---------===//

#include "Moments.h"

#include <algorithm>
#include <cmath>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <numeric>

namespace {

double binomial(int n, int k) {
  double c = 1;
  for (int i = 1; i <= k; ++i)
    c = c * (n - k + i) / i;
  return c;
}

/// The sum of w[p] m[p] in four interleaved partial sums, added pairwise: the same
/// order in every build, which the processor may still take four lanes at a time. With
/// unit weights the products are the values themselves, bit for bit.
template <bool UnitWeights> double weightedSum(const double *w, const double *m, int count) {
  double a[4] = {0, 0, 0, 0};
  int p = 0;
  for (; p + 4 <= count; p += 4)
    for (int lane = 0; lane < 4; ++lane)
      a[lane] += UnitWeights ? m[p + lane] : w[p + lane] * m[p + lane];
  for (; p < count; ++p)
    a[0] += UnitWeights ? m[p] : w[p] * m[p];
  return (a[0] + a[1]) + (a[2] + a[3]);
}

} // namespace

int Moments::Shape::key(const Exponents &a) {
  int key = 0;
  for (int i = MaximumDimension - 1; i >= 0; --i) {
    if (a[size_t(i)] < 0 || a[size_t(i)] > 4)
      return -1;
    key = 5 * key + a[size_t(i)];
  }
  return key;
}

int Moments::Shape::index(const Exponents &a) const {
  const int k = key(a);
  return k < 0 ? -1 : positions[size_t(k)];
}

const Moments::Shape *Moments::shapeOf(int dimension, int order) {
  // One table per shape for the whole process; shapes are few and small.
  static std::mutex mutex;
  static std::map<std::pair<int, int>, std::unique_ptr<Shape>> shapes;
  std::lock_guard<std::mutex> lock(mutex);
  std::unique_ptr<Shape> &found = shapes[{dimension, order}];
  if (found)
    return found.get();
  auto shape = std::make_unique<Shape>();
  shape->dimension = dimension;
  shape->order = order;
  // Graded order: a monomial's parent (one power less) always comes before it.
  for (int total = 0; total <= order; ++total) {
    Exponents a{};
    std::vector<Exponents> level;
    // Every split of `total` over the coordinates, the first coordinate's power highest.
    std::function<void(int, int)> split = [&](int i, int left) {
      if (i == dimension - 1) {
        a[size_t(i)] = left;
        level.push_back(a);
        return;
      }
      for (int e = left; e >= 0; --e) {
        a[size_t(i)] = e;
        split(i + 1, left - e);
      }
    };
    split(0, total);
    shape->monomials.insert(shape->monomials.end(), level.begin(), level.end());
  }
  shape->positions.fill(-1);
  for (size_t k = 0; k < shape->monomials.size(); ++k)
    shape->positions[size_t(Shape::key(shape->monomials[k]))] = int(k);
  for (const Exponents &a : shape->monomials) {
    int variable = -1;
    for (int i = 0; i < dimension && variable < 0; ++i)
      if (a[size_t(i)] > 0)
        variable = i;
    Exponents parent = a;
    if (variable >= 0)
      --parent[size_t(variable)];
    shape->parent.push_back(variable >= 0 ? shape->index(parent) : -1);
    shape->variable.push_back(variable);

    std::vector<Shape::Term> terms;
    for (size_t k = 0; k < shape->monomials.size(); ++k) {
      const Exponents &b = shape->monomials[k];
      Exponents rest{};
      double coefficient = 1;
      bool below = true;
      for (int i = 0; i < dimension; ++i) {
        below = below && b[size_t(i)] <= a[size_t(i)];
        rest[size_t(i)] = a[size_t(i)] - b[size_t(i)];
        coefficient *= below ? binomial(a[size_t(i)], b[size_t(i)]) : 0;
      }
      if (below)
        terms.push_back({int(k), shape->index(rest), coefficient});
    }
    shape->shiftTerms.push_back(terms);
  }
  shape->secondOrderCount = 0;
  for (const Exponents &a : shape->monomials)
    shape->secondOrderCount += std::accumulate(a.begin(), a.end(), 0) <= 2;
  for (int i = 0; i < dimension; ++i) {
    Exponents square{};
    square[size_t(i)] = 2;
    shape->square.push_back(size_t(shape->index(square)));
  }
  found = std::move(shape);
  return found.get();
}

Moments::Moments(int dimension, int order)
    : shape(shapeOf(dimension, order)),
      numbers(size_t(dimension) + shape->secondOrderCount + shape->monomials.size()) {}

void Moments::add(const double *values, double weight) {
  const double *columns[MaximumDimension];
  for (int i = 0; i < dimension(); ++i)
    columns[i] = &values[i];
  addBlock(columns, &weight, 1);
}

void Moments::addBlock(const double *const *columns, const double *w, int count) {
  if (count > Block) {
    const double *rest[MaximumDimension];
    for (int first = 0; first < count; first += Block) {
      for (int i = 0; i < dimension(); ++i)
        rest[i] = columns[i] + first;
      addBlock(rest, w ? w + first : nullptr, std::min(Block, count - first));
    }
    return;
  }
  if (!(sums()[0] > 0))
    centreOnMean(columns, w, count);
  if (w)
    addCentred<false>(columns, w, count);
  else
    addCentred<true>(columns, w, count);
  recentreIfWandered();
}

void Moments::centreOnMean(const double *const *columns, const double *w, int count) {
  double blockWeight = 0;
  for (int p = 0; p < count; ++p)
    blockWeight += w ? w[p] : 1.0;
  for (int i = 0; i < dimension(); ++i) {
    centre()[i] = 0;
    for (int p = 0; p < count; ++p)
      centre()[i] += (w ? w[p] : 1.0) / blockWeight * columns[i][p];
  }
}

template <bool UnitWeights>
void Moments::addCentred(const double *const *columns, const double *w, int count) {
  // Each monomial of the whole block at once: its parent times one centred coordinate.
  double u[MaximumDimension][Block], monomial[MaximumMonomials][Block], w2[Block];
  for (int i = 0; i < dimension(); ++i)
    for (int p = 0; p < count; ++p)
      u[i][p] = columns[i][p] - centre()[i];
  for (int p = 0; p < count; ++p) {
    monomial[0][p] = 1;
    if (!UnitWeights)
      w2[p] = w[p] * w[p];
  }
  const size_t size = shape->monomials.size(), low = shape->secondOrderCount;
  for (size_t k = 0; k < size; ++k) {
    if (k > 0) {
      const double *parent = monomial[shape->parent[k]], *factor = u[shape->variable[k]];
      for (int p = 0; p < count; ++p)
        monomial[k][p] = parent[p] * factor[p];
    }
    if (UnitWeights) {
      // The sum and the squared-weight sum are one and the same.
      const double sum = weightedSum<true>(w, monomial[k], count);
      if (k < low)
        sums()[k] += sum;
      sums2()[k] += sum;
      continue;
    }
    if (k < low)
      sums()[k] += weightedSum<false>(w, monomial[k], count);
    sums2()[k] += weightedSum<false>(w2, monomial[k], count);
  }
}

void Moments::recentreIfWandered() {
  // Sums about a centre within half a standard deviation of the mean lose no digits;
  // a mean that wanders farther moves the centre to it. A coordinate whose spread is
  // only the rounding of its values (1e-9 of them) has no digits to lose.
  for (int i = 0; i < dimension(); ++i) {
    double offset = sums()[size_t(1 + i)] / sums()[0];
    double variance = sums()[shape->square[size_t(i)]] / sums()[0] - offset * offset;
    if (offset * offset > 0.25 * variance && std::fabs(offset) > 1e-9 * std::fabs(centre()[i])) {
      recentre();
      return;
    }
  }
}

void Moments::recentre() {
  const int n = dimension();
  if (!(sums()[0] > 0))
    return;
  double d[MaximumDimension] = {};
  bool centred = true;
  for (int i = 0; i < n; ++i) {
    d[i] = sums()[size_t(1 + i)] / sums()[0];
    centred = centred && d[i] == 0;
  }
  if (centred)
    return;
  const size_t low = shape->secondOrderCount, size = shape->monomials.size();
  const Sums a = shift(sums(), d, low), b = shift(sums2(), d, size);
  std::copy(a.begin(), a.begin() + long(low), sums());
  std::copy(b.begin(), b.begin() + long(size), sums2());
  for (int i = 0; i < n; ++i) {
    centre()[i] += d[i];
    sums()[size_t(1 + i)] = 0; // about the mean, up to rounding
  }
}

Moments::Sums Moments::shift(const double *from, const double *d, size_t count) const {
  // (v - c - d)^a = sum over b <= a of C(a, b) (v - c)^b (-d)^(a - b), per coordinate.
  Sums power, to{};
  power[0] = 1;
  for (size_t k = 1; k < count; ++k)
    power[k] = power[size_t(shape->parent[k])] * -d[shape->variable[k]];
  for (size_t k = 0; k < count; ++k)
    for (const Shape::Term &term : shape->shiftTerms[k])
      to[k] += term.coefficient * from[size_t(term.lower)] * power[size_t(term.rest)];
  return to;
}

void Moments::combine(const double *otherCentre, const double *otherSums,
                      const double *otherSums2) {
  if (!(otherSums[0] > 0))
    return;
  const int n = dimension();
  if (!(sums()[0] > 0)) {
    std::copy(otherCentre, otherCentre + n, centre());
    std::copy(otherSums, otherSums + shape->secondOrderCount, sums());
    std::copy(otherSums2, otherSums2 + shape->monomials.size(), sums2());
    return;
  }
  // The other set's sums moved to this set's centre and added: one shift, where moving
  // both to the joint mean would take two. The centre follows the mean as it does for
  // points, when the mean wanders from it. The first-order sums of a set about its own
  // centre are not assumed zero, so any centre is exact.
  double d[MaximumDimension];
  for (int i = 0; i < n; ++i)
    d[i] = centre()[i] - otherCentre[i];
  const size_t low = shape->secondOrderCount, size = shape->monomials.size();
  const Sums a = shift(otherSums, d, low), b = shift(otherSums2, d, size);
  for (size_t k = 0; k < low; ++k)
    sums()[k] += a[k];
  for (size_t k = 0; k < size; ++k)
    sums2()[k] += b[k];
  recentreIfWandered();
}

void Moments::merge(const Moments &other) {
  combine(other.centre(), other.sums(), other.sums2());
}

Moments Moments::centred() const {
  Moments copy = *this;
  copy.recentre();
  return copy;
}

double Moments::mean(int i) const {
  return centre()[i] + (sums()[0] > 0 ? sums()[size_t(1 + i)] / sums()[0] : 0);
}

double Moments::covariance(int i, int j) const {
  // About the centre, less the product of the mean's offsets from it.
  Exponents a{};
  ++a[size_t(i)];
  ++a[size_t(j)];
  double di = sums()[size_t(1 + i)] / sums()[0], dj = sums()[size_t(1 + j)] / sums()[0];
  return sum(a) / sums()[0] - di * dj;
}

double Moments::sum(const Exponents &a) const {
  return sums()[size_t(shape->index(a))];
}

double Moments::sum2(const Exponents &a) const {
  return sums2()[size_t(shape->index(a))];
}

std::vector<double> Moments::state() const {
  return centred().numbers;
}

bool Moments::setState(const std::vector<double> &state) {
  if (state.size() != numbers.size())
    return false;
  numbers = state;
  return true;
}
