// Random edits against a plain list of what a track shows in every tick.
#include <algorithm>
#include <numeric>
#include <random>

#include "tests/platform/avfoundation/CompositionFixtures.h"
#include "vidloom/platform/avfoundation/AVComposition.h"

namespace vidloom {
namespace {

using test::DescribedFile;
using test::DescribedTrack;

constexpr int kTicksPerSecond = 120;

/// What is shown where a tick begins.
struct Tick {
  const MediaFile* file = nullptr;
  double mediaTicks = 0, rate = 1;
};

/// One entry for every tick of a track; the last one shows something.
class Model : public std::vector<Tick> {
 public:
  void addMedia(const MediaFile* file, int mediaTicks, int length) {
    for (int i = 0; i < length; ++i) push_back({file, static_cast<double>(mediaTicks + i), 1});
  }
  void insertTicks(size_t at, std::vector<Tick> ticks) {
    if (at > size()) resize(at);
    insert(begin() + static_cast<std::ptrdiff_t>(at), ticks.begin(), ticks.end());
    trim();
  }
  std::vector<Tick> part(size_t from, size_t length) const {
    return {begin() + static_cast<std::ptrdiff_t>(std::min(from, size())),
            begin() + static_cast<std::ptrdiff_t>(std::min(from + length, size()))};
  }
  void removeTicks(size_t from, size_t length) {
    const auto first = begin() + static_cast<std::ptrdiff_t>(std::min(from, size()));
    erase(first, begin() + static_cast<std::ptrdiff_t>(std::min(from + length, size())));
    trim();
  }
  void stretch(size_t from, size_t length, int factor) {
    std::vector<Tick> slower;
    for (const Tick& tick : part(from, length)) {
      for (int i = 0; i < factor; ++i) slower.push_back({tick.file, tick.mediaTicks + i * tick.rate / factor, tick.rate / factor});
    }
    removeTicks(from, length);
    if (!slower.empty()) insertTicks(from, slower);
  }

 private:
  void trim() {
    while (!empty() && !back().file) pop_back();
  }
};

class RandomEdits {
 public:
  explicit RandomEdits(uint32_t seed) : random_(seed) {
    sourceModel_.resize(kTicksPerSecond / 2);
    sourceModel_.addMedia(file_.get(), 20 * kTicksPerSecond, 7 * kTicksPerSecond / 2);
    sourceModel_.resize(5 * kTicksPerSecond);
    sourceModel_.addMedia(other_.get(), 2 * kTicksPerSecond, 5 * kTicksPerSecond);
  }
  void edit(bool mayScale) {
    const size_t which = random_() % 2;
    AVMutableCompositionTrack& track = *tracks_[which];
    Model& model = models_[which];
    const size_t from = ticks(12), length = ticks(6) + 1;
    const CMTimeRange range{time(from), time(length)};
    switch (random_() % (mayScale ? 6 : 5)) {
      case 0:
        track.insertEmptyTimeRange(range);
        if (from < model.size()) model.insertTicks(from, std::vector<Tick>(length));
        return;
      case 1:
        track.removeTimeRange(range);
        return model.removeTicks(from, length);
      case 2: {  // of the other track or of itself
        const size_t source = random_() % 2;
        return insertFrom(tracks_[source], Model(models_[source]), track, model, from, length);
      }
      case 5: {
        const int factor = 1 + static_cast<int>(random_() % 4);
        track.scaleTimeRange(range, time(length * static_cast<size_t>(factor)));
        return model.stretch(from, length, factor);
      }
      default:
        return insertFrom(source_, sourceModel_, track, model, from, length);
    }
  }
  void check() const {
    for (size_t i = 0; i < tracks_.size(); ++i) {
      const auto& segments = tracks_[i]->segmentList();
      size_t tick = 0;
      for (const MediaSegment& segment : segments) {
        ASSERT_EQ(CMTimeCompare(segment.target.start, time(tick)), 0) << "a gap or an overlap at " << segment.target.start;
        ASSERT_FALSE(CMTIME_HAS_BEEN_ROUNDED(segment.media.start)) << segment.media;
        ASSERT_TRUE(tick == 0 || !segment.isEmpty() || !(&segment - 1)->isEmpty()) << "two empty segments meet at " << tick;
        const CMTime end = CMTimeRangeGetEnd(segment.target);
        const double rate = CMTimeGetSeconds(segment.media.duration) / CMTimeGetSeconds(segment.target.duration);
        double media = CMTimeGetSeconds(segment.media.start) * kTicksPerSecond;
        for (; CMTimeCompare(time(tick), end) < 0; ++tick, media += rate) {
          ASSERT_LT(tick, models_[i].size());
          const Tick& expected = models_[i][tick];
          ASSERT_EQ(segment.file.get(), expected.file) << "track " << i << " at tick " << tick;
          ASSERT_NEAR(expected.file ? media : expected.mediaTicks, expected.mediaTicks, 1e-6)
              << "track " << i << " at tick " << tick;
        }
      }
      ASSERT_EQ(tick, models_[i].size()) << "track " << i;
    }
  }

 private:
  void insertFrom(const std::shared_ptr<AVAssetTrack>& source, const Model& sourceModel, AVMutableCompositionTrack& track,
                  Model& model, size_t from, size_t length) {
    const size_t at = ticks(14);
    EXPECT_EQ(track.insertTimeRange({time(from), time(length)}, source, time(at), nullptr), from < sourceModel.size());
    if (from < sourceModel.size()) model.insertTicks(at, sourceModel.part(from, length));
  }
  size_t ticks(size_t mostSeconds) {
    static constexpr size_t kTimescales[] = {1, 2, 3, 5, 24, 30, 120};
    const size_t timescale = kTimescales[random_() % std::size(kTimescales)];
    return random_() % (mostSeconds * timescale) * (kTicksPerSecond / timescale);
  }
  /// In the coarsest timescale that holds it.
  static CMTime time(size_t ticks) {
    const auto value = static_cast<int64_t>(ticks), common = std::gcd(value, int64_t{kTicksPerSecond});
    return CMTimeMake(value / common, static_cast<CMTimeScale>(kTicksPerSecond / common));
  }

  std::mt19937 random_;
  const std::shared_ptr<AVMutableComposition> composition_ = AVMutableComposition::composition();
  const std::vector<std::shared_ptr<AVMutableCompositionTrack>> tracks_{
      composition_->addMutableTrackWithMediaType(AVMediaTypeVideo, 0),
      composition_->addMutableTrackWithMediaType(AVMediaTypeVideo, 0)};
  Model models_[2];
  const std::shared_ptr<DescribedFile> file_ = std::make_shared<DescribedFile>("source.mov"),
                                       other_ = std::make_shared<DescribedFile>("other.mov");
  /// Late by half a second, with a gap and media that comes out of order.
  const std::shared_ptr<AVAssetTrack> source_ =
      DescribedTrack::withSegments({{test::range(0, 0.5), kCMTimeRangeInvalid, nullptr, 0},
                                    {test::range(0.5, 3.5), test::range(20, 3.5), file_, 0},
                                    {test::range(4, 1), kCMTimeRangeInvalid, nullptr, 0},
                                    {test::range(5, 5), test::range(2, 5), other_, 0}});
  Model sourceModel_;
};

TEST(CompositionEditing, agreesWithTheModelAfterEveryRandomEdit) {
  for (uint32_t seed = 1; seed <= 400; ++seed) {
    SCOPED_TRACE("seed " + std::to_string(seed));
    RandomEdits edits(seed);
    for (int step = 0; step < 14; ++step) {
      edits.edit(step == 6 || step == 10);
      edits.check();
      if (testing::Test::HasFailure()) FAIL() << "after step " << step;
    }
  }
}

class CompositionBorders : public testing::Test {
 protected:
  const std::shared_ptr<AVAssetTrack> source =
      DescribedTrack::ofLength(CMTimeMake(100, 1), std::make_shared<DescribedFile>("f.mov"));
  const std::shared_ptr<AVMutableCompositionTrack> track =
      AVMutableComposition::composition()->addMutableTrackWithMediaType(AVMediaTypeVideo, 0);
};

TEST_F(CompositionBorders, bordersStayExactWhereTimescalesGetTooFine) {
  for (const CMTime& length : {CMTimeMake(44099, 44100), CMTimeMake(81919, 81920), CMTimeMake(89999, 90000), CMTimeMake(3, 1)}) {
    ASSERT_TRUE(track->insertTimeRange({kCMTimeZero, length}, source, kCMTimeInvalid, nullptr));
  }
  track->scaleTimeRange({kCMTimeZero, CMTimeRangeGetEnd(track->segmentList()[2].target)}, CMTimeMake(7, 30));
  EXPECT_EQ(CMTimeCompare(CMTimeRangeGetEnd(track->timeRange()), CMTimeMake(97, 30)), 0) << track->timeRange();
  EXPECT_EQ(CMTimeCompare(track->segmentList()[3].target.start, CMTimeMake(7, 30)), 0);
  EXPECT_EQ(CMTimeCompare(track->segmentList()[3].target.duration, CMTimeMake(3, 1)), 0);
}

TEST_F(CompositionBorders, aWalkOfStretchesMeetsItsOwnBordersWhereSumsAreRounded) {
  const CMTimeRange used{CMTimeMake(12'001, 11'988), CMTimeMake(120'011, 11'988)};
  const CMTime begin = CMTimeMake(12'345, 36'259);
  ASSERT_TRUE(track->insertTimeRange(used, source, begin, nullptr));
  CMTime cursor = begin;
  for (int i = 0; i < 100; ++i) {
    const CMTime duration = CMTimeMultiplyByFloat64(CMTimeMake(1, 10), 1 / (1 + 0.031 * i));
    track->scaleTimeRange({cursor, CMTimeMake(1, 10)}, duration);
    cursor = CMTimeAdd(cursor, duration);
  }
  ASSERT_TRUE(CMTIME_HAS_BEEN_ROUNDED(cursor));
  ASSERT_EQ(cursor.timescale, kCMTimeMaxTimescale) << "sums are to be rounded here";
  EXPECT_EQ(track->segmentList().size(), 102u) << "a hole, a hundred pieces and the rest";
  for (const MediaSegment& segment : track->segmentList()) EXPECT_GT(CMTimeGetSeconds(segment.target.duration), 1e-4);
}

TEST_F(CompositionBorders, aStretchFillsItsNewLengthWithoutGapsHoweverManySegmentsItHolds) {
  for (int i = 0; i < 10'000; ++i) {
    ASSERT_TRUE(track->insertTimeRange({CMTimeMake(i, 1000), CMTimeMake(1001, 30000)}, source, kCMTimeInvalid, nullptr));
  }
  track->scaleTimeRange({CMTimeMake(1, 7), CMTimeMake(300, 1)}, CMTimeMake(1000, 13));
  CMTime end = kCMTimeZero;
  for (const MediaSegment& segment : track->segmentList()) {
    ASSERT_NEAR(CMTimeGetSeconds(segment.target.start), CMTimeGetSeconds(end), 1e-9);
    end = CMTimeRangeGetEnd(segment.target);
  }
  const double expected = 10'000 * 1001 / 30000.0 - 300 + 1000 / 13.0;
  EXPECT_NEAR(CMTimeGetSeconds(end), expected, 2e-9);
}

}  // namespace
}  // namespace vidloom
