#include "vidloom/audio/LevelReducer.h"

#include <algorithm>
#include <numeric>

namespace vidloom {

namespace {

constexpr float kZeroReference = 32767.0f, kNoiseFloor = -50.0f, kCeiling = 0.0f;
/// From here on one logarithm for several samples is faster than one for each.
constexpr int64_t kLongGroup = 64;
constexpr size_t kSamplesAtOnce = 4096;
/// Means that are so near to an end are there but for the rounding of the arithmetic: a step of 16 bits is 2.6e-4 dB or more.
constexpr double kRounding = 4e-5;

}  // namespace

LevelReducer::LevelReducer(int64_t samplesPerLevel)
    : decibels_(kZeroReference, kNoiseFloor, kCeiling),
      samplesPerLevel_(std::max<int64_t>(1, samplesPerLevel)),
      levelsPerSample_(1 / static_cast<double>(samplesPerLevel_)) {}

void LevelReducer::reserve(int64_t levelCount) { levels_.reserve(static_cast<size_t>(std::max<int64_t>(0, levelCount))); }

template <class SumOf>
void LevelReducer::addGroups(size_t count, const SumOf& sumOf) {
  for (size_t at = 0; at < count;) {
    const auto part = static_cast<size_t>(std::min<int64_t>(static_cast<int64_t>(count - at), samplesPerLevel_ - inGroup_));
    sum_ += sumOf(at, part);
    inGroup_ += static_cast<int64_t>(part);
    at += part;
    if (inGroup_ == samplesPerLevel_) finishGroup();
  }
}

void LevelReducer::append(const int16_t* samples, size_t count) {
  if (samplesPerLevel_ >= kLongGroup) {
    addGroups(count, [&](size_t at, size_t part) { return decibels_.sum(samples + at, part); });
    return;
  }
  each_.resize(kSamplesAtOnce);
  for (size_t at = 0; at < count; at += kSamplesAtOnce) addShortGroups(samples + at, std::min(kSamplesAtOnce, count - at));
}

void LevelReducer::addShortGroups(const int16_t* samples, size_t count) {
  decibels_.ofEach(samples, count, each_.data());
  const auto first = each_.begin();
  if (samplesPerLevel_ == 1) {
    levels_.insert(levels_.end(), first, first + static_cast<ptrdiff_t>(count));
    return;
  }
  addGroups(count, [&](size_t at, size_t part) {
    return std::accumulate(first + static_cast<ptrdiff_t>(at), first + static_cast<ptrdiff_t>(at + part), 0.0);
  });
}

void LevelReducer::finishGroup() {
  const double mean = sum_ * levelsPerSample_;
  const bool isSilence = mean<kNoiseFloor + kRounding, isFullScale = mean> kCeiling - kRounding;
  levels_.push_back(isSilence ? kNoiseFloor : isFullScale ? kCeiling : static_cast<float>(mean));
  sum_ = 0;
  inGroup_ = 0;
}

std::vector<float> LevelReducer::takeLevels() {
  for (float& level : levels_) level /= kNoiseFloor;
  return std::move(levels_);
}

}  // namespace vidloom
