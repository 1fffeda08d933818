//===- Moments.cpp - Weighted centred moments up to a given order ---------===//

#include "Moments.h"

#include <algorithm>
#include <functional>
#include <map>
#include <memory>
#include <mutex>

namespace {

double binomial(int n, int k) {
  double c = 1;
  for (int i = 1; i <= k; ++i)
    c = c * (n - k + i) / i;
  return c;
}

} // namespace

int Moments::Shape::index(const Exponents &a) const {
  for (size_t k = 0; k < monomials.size(); ++k)
    if (monomials[k] == a)
      return int(k);
  return -1;
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
  found = std::move(shape);
  return found.get();
}

Moments::Moments(int dimension, int order)
    : shape(shapeOf(dimension, order)), sums(shape->monomials.size()),
      sums2(shape->monomials.size()) {
  pending.reserve(size_t(BlockSize * (dimension + 1)));
}

void Moments::add(const double *values, double weight) {
  pending.insert(pending.end(), values, values + dimension());
  pending.push_back(weight);
  if (++pendingCount == BlockSize)
    fold();
}

void Moments::fold() const {
  if (pendingCount == 0)
    return;
  const int n = dimension(), stride = n + 1;
  const size_t size = shape->monomials.size();
  // The block's weighted mean first, then its moments about it: two passes over a
  // few values that are still in the cache.
  double blockCentre[MaximumDimension] = {}, blockWeight = 0;
  for (int p = 0; p < pendingCount; ++p) {
    const double *v = &pending[size_t(p * stride)];
    blockWeight += v[n];
  }
  for (int p = 0; p < pendingCount; ++p) {
    const double *v = &pending[size_t(p * stride)];
    for (int i = 0; i < n; ++i)
      blockCentre[i] += v[n] / blockWeight * v[i];
  }
  std::vector<double> blockSums(size), blockSums2(size), monomial(size);
  monomial[0] = 1;
  for (int p = 0; p < pendingCount; ++p) {
    const double *v = &pending[size_t(p * stride)];
    double u[MaximumDimension];
    for (int i = 0; i < n; ++i)
      u[i] = v[i] - blockCentre[i];
    const double w = v[n], w2 = w * w;
    blockSums[0] += w;
    blockSums2[0] += w2;
    for (size_t k = 1; k < size; ++k) {
      monomial[k] = monomial[size_t(shape->parent[k])] * u[shape->variable[k]];
      blockSums[k] += w * monomial[k];
      blockSums2[k] += w2 * monomial[k];
    }
  }
  pending.clear();
  pendingCount = 0;
  combine(blockCentre, blockSums, blockSums2);
}

void Moments::shift(const std::vector<double> &from, const double *d,
                    std::vector<double> &to) const {
  // (v - c - d)^a = sum over b <= a of C(a, b) (v - c)^b (-d)^(a - b), per coordinate.
  const size_t size = shape->monomials.size();
  std::vector<double> power(size);
  power[0] = 1;
  for (size_t k = 1; k < size; ++k)
    power[k] = power[size_t(shape->parent[k])] * -d[shape->variable[k]];
  to.assign(size, 0);
  for (size_t k = 0; k < size; ++k)
    for (const Shape::Term &term : shape->shiftTerms[k])
      to[k] += term.coefficient * from[size_t(term.lower)] * power[size_t(term.rest)];
}

void Moments::combine(const double *otherCentre, const std::vector<double> &otherSums,
                      const std::vector<double> &otherSums2) const {
  const int n = dimension();
  double total = sums[0] + otherSums[0];
  if (!(otherSums[0] > 0))
    return;
  // The combined mean, then both sets' sums moved to it. The first-order sums of a
  // set about its own centre are not assumed zero, so any centre is exact.
  double target[MaximumDimension], dThis[MaximumDimension], dOther[MaximumDimension];
  for (int i = 0; i < n; ++i) {
    double own = centre[size_t(i)] + sums[size_t(1 + i)] / (sums[0] > 0 ? sums[0] : 1);
    double their = otherCentre[i] + otherSums[size_t(1 + i)] / otherSums[0];
    target[i] = own + otherSums[0] / total * (their - own);
    dThis[i] = target[i] - centre[size_t(i)];
    dOther[i] = target[i] - otherCentre[i];
  }
  std::vector<double> a, b;
  shift(sums, dThis, a);
  shift(otherSums, dOther, b);
  for (size_t k = 0; k < a.size(); ++k)
    sums[k] = a[k] + b[k];
  shift(sums2, dThis, a);
  shift(otherSums2, dOther, b);
  for (size_t k = 0; k < a.size(); ++k)
    sums2[k] = a[k] + b[k];
  for (int i = 0; i < n; ++i) {
    centre[size_t(i)] = target[i];
    sums[size_t(1 + i)] = 0; // about the mean, up to rounding
  }
}

void Moments::merge(const Moments &other) {
  fold();
  other.fold();
  combine(other.centre.data(), other.sums, other.sums2);
}

double Moments::weight() const {
  fold();
  return sums[0];
}

double Moments::weight2() const {
  fold();
  return sums2[0];
}

double Moments::mean(int i) const {
  fold();
  return centre[size_t(i)];
}

double Moments::sum(const Exponents &a) const {
  fold();
  return sums[size_t(shape->index(a))];
}

double Moments::sum2(const Exponents &a) const {
  fold();
  return sums2[size_t(shape->index(a))];
}

double Moments::covariance(int i, int j) const {
  Exponents a{};
  ++a[size_t(i)];
  ++a[size_t(j)];
  return sum(a) / weight();
}

std::vector<double> Moments::state() const {
  fold();
  std::vector<double> numbers(centre.begin(), centre.begin() + dimension());
  numbers.insert(numbers.end(), sums.begin(), sums.end());
  numbers.insert(numbers.end(), sums2.begin(), sums2.end());
  return numbers;
}

bool Moments::setState(const std::vector<double> &numbers) {
  const size_t n = size_t(dimension()), size = sums.size();
  if (numbers.size() != n + 2 * size)
    return false;
  pending.clear();
  pendingCount = 0;
  std::copy(numbers.begin(), numbers.begin() + long(n), centre.begin());
  std::copy(numbers.begin() + long(n), numbers.begin() + long(n + size), sums.begin());
  std::copy(numbers.begin() + long(n + size), numbers.end(), sums2.begin());
  return true;
}
