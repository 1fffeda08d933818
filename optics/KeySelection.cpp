//===- KeySelection.cpp - Weighted order statistics in passes -------------===//

#include "KeySelection.h"

#include <algorithm>
#include <cmath>

namespace {

constexpr int WordBits = 64;
/// Bins of a digit at the most, and the room of every search's bins together.
constexpr int MostDigitBits = 12;
constexpr size_t BinsRoom = size_t(8) << 20;
/// Candidates few enough to be gathered and sorted, over all searches.
constexpr size_t FewEnough = size_t(1) << 18;

/// The first `bits` bits of a key, the others zero.
SelectionKey leading(const SelectionKey &key, int bits) {
  SelectionKey head{};
  for (int w = 0; w < int(head.size()); ++w) {
    const int kept = std::clamp(bits - w * WordBits, 0, WordBits);
    if (kept > 0)
      head[size_t(w)] =
          key[size_t(w)] & (kept == WordBits ? ~uint64_t(0) : ~(~uint64_t(0) >> kept));
  }
  return head;
}

struct Search {
  KeySearch asked;
  SelectionKey prefix{}; ///< the leading bits of its key, known so far
  double below = 0;      ///< the weight of its sample's keys that begin below the prefix
  size_t candidates;     ///< its sample's keys that begin with the prefix
};

/// The searches of each sample (AnySample first), in order of their weights: their
/// prefixes then never decrease.
class SearchIndex {
public:
  explicit SearchIndex(const std::vector<Search> &searches) {
    for (size_t j = 0; j < searches.size(); ++j) {
      const size_t list = size_t(searches[j].asked.sample + 1);
      if (ofSample.size() <= list)
        ofSample.resize(list + 1);
      ofSample[list].push_back(j);
    }
    for (std::vector<size_t> &list : ofSample)
      std::stable_sort(list.begin(), list.end(), [&](size_t a, size_t b) {
        return searches[a].asked.weight < searches[b].asked.weight;
      });
  }
  /// Calls visit(j) for each search of the sample, and of every sample, whose prefix the
  /// key's leading bits are.
  template <typename Visit>
  void forEachWithin(const std::vector<Search> &searches, const SelectionKey &head, int sample,
                     Visit visit) const {
    for (int list : {0, sample + 1}) {
      if (size_t(list) >= ofSample.size())
        continue;
      const std::vector<size_t> &js = ofSample[size_t(list)];
      auto first =
          std::lower_bound(js.begin(), js.end(), head,
                           [&](size_t j, const SelectionKey &k) { return searches[j].prefix < k; });
      for (; first != js.end() && searches[*first].prefix == head; ++first)
        visit(*first);
    }
  }

private:
  std::vector<std::vector<size_t>> ofSample;
};

/// One pass: each search's keys by the next digit after `known` bits, and the search
/// narrowed to the digit where its weight is reached.
void narrow(const KeyPass &pass, std::vector<Search> &searches, const SearchIndex &index, int known,
            int digit) {
  const size_t bins = size_t(1) << digit;
  const size_t word = size_t(known / WordBits);
  const int shift = WordBits - known % WordBits - digit;
  std::vector<double> weights(searches.size() * bins);
  std::vector<size_t> counts(searches.size() * bins);
  pass([&](const SelectionKey &key, double w, int sample) {
    const size_t bin = size_t(key[word] >> shift) & (bins - 1);
    index.forEachWithin(searches, leading(key, known), sample, [&](size_t j) {
      weights[j * bins + bin] += w;
      ++counts[j * bins + bin];
    });
  });
  for (size_t j = 0; j < searches.size(); ++j) {
    Search &s = searches[j];
    const double *weight = &weights[j * bins];
    const size_t *count = &counts[j * bins];
    size_t bin = 0, last = 0;
    for (; bin < bins; ++bin) {
      if (count[bin] == 0)
        continue;
      last = bin;
      if (s.below + weight[bin] >= s.asked.weight)
        break;
      s.below += weight[bin];
    }
    if (bin == bins) { // short of the weight by rounding: the largest key
      bin = last;
      s.below -= weight[bin];
    }
    s.prefix[word] |= uint64_t(bin) << shift;
    s.candidates = count[bin];
  }
}

} // namespace

std::vector<std::optional<SelectionKey>>
selectKeys(const KeyPass &pass, const std::vector<KeySearch> &asked, int keyBits) {
  std::vector<Search> searches;
  for (const KeySearch &a : asked)
    searches.push_back({a, {}, 0, a.values});
  const SearchIndex index(searches);
  // Bins few enough that every search's bins stay within their room.
  const int digitBits = std::clamp(
      int(std::log2(double(BinsRoom) / (16.0 * double(std::max<size_t>(1, searches.size()))))), 1,
      MostDigitBits);
  auto candidates = [&] {
    size_t sum = 0;
    for (const Search &s : searches)
      sum += s.candidates;
    return sum;
  };
  int known = 0; // bits of every search's prefix
  while (known < keyBits && candidates() > FewEnough) {
    const int digit = std::min({digitBits, WordBits - known % WordBits, keyBits - known});
    narrow(pass, searches, index, known, digit);
    known += digit;
  }
  std::vector<std::optional<SelectionKey>> keys;
  if (known == keyBits) {
    // Every key known whole: each search's candidates are one key, however many.
    for (const Search &s : searches)
      keys.push_back(s.candidates > 0 ? std::optional<SelectionKey>(s.prefix) : std::nullopt);
    return keys;
  }
  // The candidates of each search, sorted: the first whose weight reaches the search's.
  std::vector<std::vector<std::pair<SelectionKey, double>>> gathered(searches.size());
  pass([&](const SelectionKey &key, double w, int sample) {
    index.forEachWithin(searches, leading(key, known), sample,
                        [&](size_t j) { gathered[j].emplace_back(key, w); });
  });
  for (size_t j = 0; j < searches.size(); ++j) {
    std::sort(gathered[j].begin(), gathered[j].end());
    double reached = searches[j].below;
    std::optional<SelectionKey> found;
    for (const auto &[key, w] : gathered[j]) {
      found = key;
      reached += w;
      if (reached >= searches[j].asked.weight)
        break;
    }
    keys.push_back(found);
  }
  return keys;
}
