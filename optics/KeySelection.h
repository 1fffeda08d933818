//===- KeySelection.h - Weighted order statistics in passes ----*- C++ -*-===//
//
// Which of many millions of values holds a given share of their weight, found within
// bounded memory: the values come as keys whose binary form orders as they do, and each
// pass over them narrows every search down by the next bits of its key, until few enough
// are left to be sorted. A search may count the values of one sample only.
//
//===----------------------------------------------------------------------------===//
#ifndef OPTICS_KEYSELECTION_H
#define OPTICS_KEYSELECTION_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <vector>

/// A key of three 64-bit words, compared as one number, the first word the most
/// significant.
using SelectionKey = std::array<uint64_t, 3>;

/// Hands every value's key, weight and sample (0 or more) to `take`, in the same order on
/// every call.
using KeyPass = std::function<void(const std::function<void(const SelectionKey &, double, int)> &)>;

/// The sample of a search that counts every value.
constexpr int AnySample = -1;

/// A search for the smallest key whose weight and that of every smaller key of its sample
/// reach `weight`.
struct KeySearch {
  int sample; ///< the sample whose values count, or AnySample
  double weight;
  size_t values; ///< the values of its sample
};

/// The key each search finds, of keys whose bits after the first `keyBits` are zero:
/// where the weight of its sample falls short of the search's by rounding, its largest
/// key; none where its sample has no value.
std::vector<std::optional<SelectionKey>>
selectKeys(const KeyPass &pass, const std::vector<KeySearch> &searches, int keyBits);

#endif // OPTICS_KEYSELECTION_H
