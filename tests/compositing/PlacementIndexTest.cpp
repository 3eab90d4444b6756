#include "vidloom/compositing/PlacementIndex.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <limits>
#include <random>

namespace vidloom {
namespace {

using Span = PlacementIndex::Span;

/// Looks at every span of every row, in order.
class NaiveIndex {
 public:
  size_t addRow() {
    rows_.emplace_back();
    return rows_.size() - 1;
  }
  void occupy(size_t row, const Span& span) { rows_[row].push_back(span); }
  std::optional<size_t> firstRowWithRoom(const Span& span) const {
    for (size_t row = 0; row < rows_.size(); ++row) {
      const auto disjoint = [&](const Span& other) {
        return other.endSeconds < span.startSeconds || span.endSeconds < other.startSeconds;
      };
      if (std::all_of(rows_[row].begin(), rows_[row].end(), disjoint)) return row;
    }
    return std::nullopt;
  }

 private:
  std::vector<std::vector<Span>> rows_;
};

/// Spans as timelines have them: on a grid so that they often touch; sorted by end or not; now and then of negative length, endless
/// or not a number.
std::vector<Span> randomSpans(std::mt19937& random, bool sorted, bool odd) {
  std::uniform_int_distribution<int> count(1, 120), start(-10, 200), length(0, 30), oneIn(0, 19);
  std::vector<Span> spans(static_cast<size_t>(count(random)));
  for (Span& span : spans) {
    span.startSeconds = start(random) / 10.0;
    span.endSeconds = span.startSeconds + length(random) / 10.0;
    if (!odd || oneIn(random) != 0) continue;
    const double values[] = {std::numeric_limits<double>::quiet_NaN(), std::numeric_limits<double>::infinity(),
                             -std::numeric_limits<double>::infinity(), span.startSeconds - 2};
    (oneIn(random) % 2 ? span.startSeconds : span.endSeconds) = values[oneIn(random) % 4];
  }
  if (sorted)
    std::stable_sort(spans.begin(), spans.end(), [](const Span& a, const Span& b) { return a.endSeconds < b.endSeconds; });
  return spans;
}

template <class Index>
std::vector<size_t> rowsChosen(const std::vector<Span>& spans) {
  Index index;
  std::vector<size_t> rows;
  for (const Span& span : spans) {
    const auto found = index.firstRowWithRoom(span);
    rows.push_back(found ? *found : index.addRow());
    index.occupy(rows.back(), span);
  }
  return rows;
}

TEST(PlacementIndex, ChoosesTheRowsThatLookingAtEverySpanChooses) {
  const auto seed = std::random_device{}();
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::mt19937 random(seed);
  for (int round = 0; round < 2000; ++round) {
    const bool sorted = round % 2 == 0;
    const auto spans = randomSpans(random, sorted && round % 4 == 0, round % 3 == 0);
    ASSERT_EQ(rowsChosen<PlacementIndex>(spans), rowsChosen<NaiveIndex>(spans)) << "round " << round;
  }
}

TEST(PlacementIndex, AgreesOnRowsWhoseSpansOverlap) {
  const auto seed = std::random_device{}();
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::mt19937 random(seed);
  for (int round = 0; round < 500; ++round) {
    PlacementIndex index;
    NaiveIndex naive;
    for (int row = 0; row < 6; ++row) {
      index.addRow();
      naive.addRow();
      if (row == 4) continue;  // stays empty
      const auto spans = randomSpans(random, false, true);
      for (size_t i = 0; i < spans.size() % 7; ++i) {
        index.occupy(static_cast<size_t>(row), spans[i]);
        naive.occupy(static_cast<size_t>(row), spans[i]);
      }
    }
    for (const Span& span : randomSpans(random, false, true)) ASSERT_EQ(index.firstRowWithRoom(span), naive.firstRowWithRoom(span));
  }
}

TEST(PlacementIndex, AddsStartAndLengthInSeconds) {
  const auto span = PlacementIndex::spanOf({CMTimeMake(1, 3), CMTimeMake(1, 7)});
  EXPECT_EQ(span.startSeconds, 1.0 / 3);
  EXPECT_EQ(span.endSeconds, 1.0 / 3 + 1.0 / 7);
  EXPECT_FALSE(PlacementIndex::leaveRoom(PlacementIndex::spanOf(kCMTimeRangeInvalid), {5, 6}));
}

}  // namespace
}  // namespace vidloom
