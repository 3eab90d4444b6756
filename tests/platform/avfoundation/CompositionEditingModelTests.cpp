// Random edits against a model that is only a function from track time to media time.
#include <algorithm>
#include <optional>
#include <random>

#include "tests/platform/avfoundation/CompositionFixtures.h"
#include "vidloom/platform/avfoundation/AVComposition.h"
#include "vidloom/platform/coremedia/CMTimeRational.h"

namespace vidloom {
namespace {

using test::DescribedFile;
using test::DescribedTrack;

struct Fraction {
  __int128 top = 0, bottom = 1;
  Fraction(__int128 numerator = 0, __int128 denominator = 1) {
    const __int128 common = detail::greatestCommonDivisor(numerator, denominator);
    top = numerator / common;
    bottom = denominator / common;
  }
  explicit Fraction(const CMTime& time) : Fraction(time.value, time.timescale) {}
  CMTime time() const { return CMTimeMake(static_cast<int64_t>(top), static_cast<CMTimeScale>(bottom)); }
  friend Fraction operator+(Fraction a, Fraction b) { return {a.top * b.bottom + b.top * a.bottom, a.bottom * b.bottom}; }
  friend Fraction operator-(Fraction a, Fraction b) { return {a.top * b.bottom - b.top * a.bottom, a.bottom * b.bottom}; }
  friend Fraction operator*(Fraction a, Fraction b) { return {a.top * b.top, a.bottom * b.bottom}; }
  friend Fraction operator/(Fraction a, Fraction b) {
    return b.top < 0 ? Fraction(-a.top * b.bottom, a.bottom * -b.top) : Fraction(a.top * b.bottom, a.bottom * b.top);
  }
  friend bool operator<(Fraction a, Fraction b) { return a.top * b.bottom < b.top * a.bottom; }
  friend bool operator==(Fraction a, Fraction b) { return a.top == b.top && a.bottom == b.bottom; }
  double value() const { return static_cast<double>(top) / static_cast<double>(bottom); }
};

struct Shown {
  const MediaFile* file;
  Fraction mediaTime;
  friend bool operator==(const Shown&, const Shown&) = default;
};
using Content = std::function<std::optional<Shown>(Fraction)>;

/// What a track shows at every time, and every time at which that may change.
struct Model {
  Content at = [](Fraction) { return std::nullopt; };
  std::vector<Fraction> borders{Fraction(0)};
  Fraction end;

  void settle() {
    std::sort(borders.begin(), borders.end());
    borders.erase(std::unique(borders.begin(), borders.end()), borders.end());
    while (borders.size() > 1 && !at((borders[borders.size() - 2] + borders.back()) / 2)) borders.pop_back();
    end = borders.back();
  }
  void insert(Fraction from, Fraction length, const Model& source, Fraction time) {
    const Fraction stop = source.end < from + length ? source.end : from + length;
    if (!(from < stop)) return;
    put(time, stop - from, [inner = source.at, from](Fraction t) { return inner(t + from); });
    for (const Fraction border : source.borders) {
      if (from < border && border < stop) borders.push_back(border - from + time);
    }
    settle();
  }
  void insertEmpty(Fraction time, Fraction length) {
    if (!(time < end)) return;
    put(time, length, [](Fraction) { return std::nullopt; });
    settle();
  }
  void remove(Fraction from, Fraction length) {
    if (!(from < end)) return;
    const Fraction stop = from + length;
    at = [old = at, from, length](Fraction t) { return old(t < from ? t : t + length); };
    map([&](Fraction b) { return b < from ? b : b < stop ? from : b - length; });
  }
  void scale(Fraction from, Fraction length, Fraction newLength) {
    if (!(from < end)) return;
    if (end < from + length) {
      newLength = newLength * (end - from) / length;
      length = end - from;
    }
    const Fraction ratio = newLength / length, stop = from + length, newStop = from + newLength;
    at = [=, old = at](Fraction t) { return old(t < from ? t : t < newStop ? from + (t - from) / ratio : t - newLength + length); };
    borders.push_back(from);
    map([&](Fraction b) { return b < from ? b : b < stop ? from + (b - from) * ratio : b - length + newLength; });
  }

 private:
  void put(Fraction time, Fraction length, Content inserted) {
    at = [=, old = at, oldEnd = end](Fraction t) -> std::optional<Shown> {
      if (!(t < time) && t < time + length) return inserted(t - time);
      const Fraction before = t < time ? t : t - length;
      return before < oldEnd ? old(before) : std::nullopt;
    };
    for (Fraction& border : borders) {
      if (!(border < time)) border = border + length;
    }
    borders.push_back(time);
    borders.push_back(time + length);
  }
  template <class Mapping>
  void map(Mapping mapping) {
    for (Fraction& border : borders) border = mapping(border);
    borders.push_back(Fraction(0));
    settle();
  }
};

std::optional<Shown> shownBy(const AVCompositionTrack& track, Fraction time) {
  for (const MediaSegment& segment : track.segmentList()) {
    const Fraction start(segment.target.start), length(segment.target.duration);
    if (time < start || !(time < start + length) || segment.isEmpty()) continue;
    const Fraction rate = Fraction(segment.media.duration) / length;
    return Shown{segment.file.get(), Fraction(segment.media.start) + (time - start) * rate};
  }
  return std::nullopt;
}

void expectSoundList(const AVCompositionTrack& track) {
  const auto& segments = track.segmentList();
  CMTime end = kCMTimeZero;
  bool emptyBefore = false;
  for (const MediaSegment& segment : segments) {
    EXPECT_EQ(CMTimeCompare(segment.target.start, end), 0) << "a gap or an overlap at " << end;
    EXPECT_GT(CMTimeCompare(segment.target.duration, kCMTimeZero), 0);
    EXPECT_FALSE(emptyBefore && segment.isEmpty()) << "two empty segments meet at " << end;
    EXPECT_FALSE(CMTIME_HAS_BEEN_ROUNDED(segment.target.start)) << segment.target;
    EXPECT_FALSE(CMTIME_HAS_BEEN_ROUNDED(segment.media.start)) << segment.media;
    emptyBefore = segment.isEmpty();
    end = CMTimeRangeGetEnd(segment.target);
  }
  EXPECT_FALSE(emptyBefore) << "the last segment is empty";
}

class RandomEdits {
 public:
  explicit RandomEdits(uint32_t seed) : random_(seed) {
    tracks_ = {composition_->addMutableTrackWithMediaType(AVMediaTypeVideo, 0),
               composition_->addMutableTrackWithMediaType(AVMediaTypeVideo, 0)};
    models_.resize(2);
  }
  void edit(bool mayScale) {
    const size_t which = pick(2);
    AVMutableCompositionTrack& track = *tracks_[which];
    Model& model = models_[which];
    const Fraction from = time(12), length = time(6) + Fraction(1, 600);
    const CMTimeRange range{from.time(), length.time()};
    switch (pick(mayScale ? 6 : 5)) {
      case 0:
        track.insertEmptyTimeRange(range);
        return model.insertEmpty(from, length);
      case 1:
        track.removeTimeRange(range);
        return model.remove(from, length);
      case 2:
        return insertFrom(tracks_[1 - which], Model(models_[1 - which]), track, model, range);
      case 5: {
        const Fraction newLength = length * Fraction(static_cast<int>(1 + pick(6)), static_cast<int>(1 + pick(4)));
        track.scaleTimeRange(range, newLength.time());
        return model.scale(from, length, newLength);
      }
      default:
        return insertFrom(source_, sourceModel_, track, model, range);
    }
  }
  void check() {
    for (size_t i = 0; i < 2; ++i) {
      expectSoundList(*tracks_[i]);
      const Model& model = models_[i];
      ASSERT_EQ(Fraction(CMTimeRangeGetEnd(tracks_[i]->timeRange())).value(), model.end.value());
      for (size_t b = 0; b + 1 < model.borders.size(); ++b) {
        const Fraction length = model.borders[b + 1] - model.borders[b];
        for (const Fraction part : {Fraction(0), Fraction(1, 3), Fraction(999, 1000)}) {
          const Fraction probe = model.borders[b] + length * part;
          ASSERT_EQ(shownBy(*tracks_[i], probe), model.at(probe)) << "track " << i << " at " << probe.value() << " s";
        }
      }
    }
  }

 private:
  void insertFrom(const std::shared_ptr<AVAssetTrack>& source, const Model& sourceModel, AVMutableCompositionTrack& track,
                  Model& model, const CMTimeRange& range) {
    const Fraction at = time(14);
    const bool inserted = track.insertTimeRange(range, source, at.time(), nullptr);
    EXPECT_EQ(inserted, Fraction(range.start) < sourceModel.end);
    model.insert(Fraction(range.start), Fraction(range.duration), sourceModel, at);
  }
  size_t pick(size_t count) { return random_() % count; }
  Fraction time(int mostSeconds) {
    static constexpr int kTimescales[] = {1, 2, 3, 5, 24, 25, 30, 600};
    const int timescale = kTimescales[pick(std::size(kTimescales))];
    return {static_cast<int>(pick(static_cast<size_t>(mostSeconds * timescale))), timescale};
  }

  std::mt19937 random_;
  std::shared_ptr<AVMutableComposition> composition_ = AVMutableComposition::composition();
  std::vector<std::shared_ptr<AVMutableCompositionTrack>> tracks_;
  std::vector<Model> models_;
  static inline const auto file_ = std::make_shared<DescribedFile>("source.mov");
  static inline const auto other_ = std::make_shared<DescribedFile>("other.mov");
  /// Late by half a second, with a gap and media that comes out of order.
  static inline const std::shared_ptr<AVAssetTrack> source_ =
      DescribedTrack::withSegments({{test::range(0, 0.5), kCMTimeRangeInvalid, nullptr, 0},
                                    {test::range(0.5, 3.5), test::range(20, 3.5), file_, 0},
                                    {test::range(4, 1), kCMTimeRangeInvalid, nullptr, 0},
                                    {test::range(5, 5), test::range(2, 5), other_, 0}});
  static inline const Model sourceModel_ = [] {
    Model model;
    model.at = [](Fraction t) -> std::optional<Shown> {
      if (!(t < Fraction(1, 2)) && t < Fraction(4)) return Shown{file_.get(), t - Fraction(1, 2) + Fraction(20)};
      if (!(t < Fraction(5)) && t < Fraction(10)) return Shown{other_.get(), t - Fraction(3)};
      return std::nullopt;
    };
    model.borders = {0, {1, 2}, 4, 5, 10};
    model.settle();
    return model;
  }();
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
