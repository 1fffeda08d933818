//===- KeySelectionTest.cpp - Weighted order statistics in passes ----------===//

#include "KeySelection.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <random>

namespace {

struct Value {
  SelectionKey key;
  double weight;
  int sample;
};

KeyPass passOver(const std::vector<Value> &values) {
  return [&values](const auto &take) {
    for (const Value &v : values)
      take(v.key, v.weight, v.sample);
  };
}

/// Each search's key by sorting its sample and walking up its weight: the independent
/// way.
class SortedWalk {
public:
  explicit SortedWalk(const std::vector<Value> &values) {
    for (int sample : {AnySample, 0, 1, 2}) {
      std::vector<std::pair<SelectionKey, double>> &sorted = ofSample[sample + 1];
      for (const Value &v : values)
        if (sample == AnySample || v.sample == sample)
          sorted.emplace_back(v.key, v.weight);
      std::sort(sorted.begin(), sorted.end());
      double reached = 0;
      for (const auto &[key, w] : sorted)
        reachedAt[sample + 1].push_back(reached += w);
    }
  }
  std::optional<SelectionKey> operator()(const KeySearch &search) const {
    const std::vector<double> &reached = reachedAt[search.sample + 1];
    if (reached.empty())
      return std::nullopt;
    const size_t k =
        size_t(std::lower_bound(reached.begin(), reached.end(), search.weight) - reached.begin());
    return ofSample[search.sample + 1][std::min(k, reached.size() - 1)].first;
  }

private:
  std::vector<std::pair<SelectionKey, double>> ofSample[4];
  std::vector<double> reachedAt[4];
};

/// Keys of three words over few distinct first and second words, so that the passes
/// narrow them down past a word's end; the values of three samples.
std::vector<Value> manyValues(size_t count, bool unitWeights) {
  std::mt19937_64 random(17);
  std::uniform_real_distribution<double> uniform(0.5, 1.5);
  std::vector<Value> values;
  for (size_t k = 0; k < count; ++k) {
    const uint64_t first = uint64_t(k % 5) << 60 | uint64_t(k % 3);
    const uint64_t second = random() % 7 == 0 ? 0 : random() >> (random() % 40);
    values.push_back(
        {{first, second, random() % 1000}, unitWeights ? 1 : uniform(random), int(k % 3)});
  }
  return values;
}

void expectSortedWalk(const std::vector<Value> &values, const std::vector<KeySearch> &searches,
                      int keyBits) {
  const std::vector<std::optional<SelectionKey>> found =
      selectKeys(passOver(values), searches, keyBits);
  ASSERT_EQ(found.size(), searches.size());
  const SortedWalk sortedWalk(values);
  for (size_t j = 0; j < searches.size(); ++j)
    EXPECT_EQ(found[j], sortedWalk(searches[j]))
        << "search " << j << " of sample " << searches[j].sample << " up to " << searches[j].weight;
}

} // namespace

TEST(KeySelectionTest, smallSamplesBySortingAlone) {
  const std::vector<Value> values = {
      {{3, 0, 0}, 1, 0}, {{1, 5, 0}, 1, 1}, {{1, 4, 9}, 2, 0}, {{2, 0, 0}, 1, 1}};
  // Every value: 1.4.9 (2), 1.5 (1), 2 (1), 3 (1); sample 0: 1.4.9 (2), 3 (1).
  const std::vector<std::optional<SelectionKey>> found = selectKeys(
      passOver(values),
      {{AnySample, 2, 4}, {AnySample, 2.5, 4}, {0, 3, 2}, {1, 1, 2}, {1, 1.5, 2}, {2, 1, 0}}, 192);
  EXPECT_EQ(found, (std::vector<std::optional<SelectionKey>>{
                       SelectionKey{1, 4, 9}, SelectionKey{1, 5, 0}, SelectionKey{3, 0, 0},
                       SelectionKey{1, 5, 0}, SelectionKey{2, 0, 0}, std::nullopt}));
  // Short of the weight asked by rounding: the largest key.
  EXPECT_EQ(selectKeys(passOver(values), {{0, 3.0000001, 2}}, 192)[0], (SelectionKey{3, 0, 0}));
}

TEST(KeySelectionTest, ranksOfEachSampleInPassesOverManyKeys) {
  // More values than are sorted at once: ranks (unit weights) of every value and of each
  // sample, the first, the last and in between.
  const std::vector<Value> values = manyValues(400000, true);
  std::vector<KeySearch> searches;
  for (int sample : {AnySample, 0, 1, 2}) {
    const size_t size = sample == AnySample ? values.size() : values.size() / 3 + (sample == 0);
    for (size_t rank : {size_t(0), size_t(1), size / 7, size / 2, size - 2, size - 1})
      searches.push_back({sample, double(rank + 1), size});
  }
  expectSortedWalk(values, searches, 192);
}

TEST(KeySelectionTest, weightedSearchesManyAtOnce) {
  // So many searches that each pass takes fewer bits for their bins to stay small; their
  // candidates together are more than are sorted at once.
  const std::vector<Value> values = manyValues(30000, false);
  double total[3] = {};
  for (const Value &v : values)
    total[v.sample] += v.weight;
  std::vector<KeySearch> searches;
  for (int j = 0; j < 3000; ++j) {
    const int sample = j % 3;
    searches.push_back({sample, total[sample] * (j + 0.5) / 3000, values.size() / 3});
  }
  expectSortedWalk(values, searches, 192);
}

TEST(KeySelectionTest, keysKnownWholeBeforeFewAreLeft) {
  // More equal keys than are sorted at once: the passes end with the key known whole, its
  // first word alone when the others are not part of it.
  std::vector<Value> values(300000, Value{{7, 0, 0}, 1, 0});
  std::fill(values.begin() + 100000, values.end(), Value{{9, 0, 0}, 1, 0});
  EXPECT_EQ(
      selectKeys(passOver(values), {{0, 100000, 300000}, {0, 100001, 300000}}, 64),
      (std::vector<std::optional<SelectionKey>>{SelectionKey{7, 0, 0}, SelectionKey{9, 0, 0}}));
}
