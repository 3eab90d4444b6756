#include "vidloom/audio/LevelReducer.h"

#include <algorithm>

namespace vidloom {

namespace {

constexpr float kZeroReference = 32767.0f, kNoiseFloor = -50.0f, kCeiling = 0.0f;
/// From here on one logarithm for several samples is faster than one for each.
constexpr int64_t kLongGroup = 16;
constexpr size_t kSamplesAtOnce = 4096;
/// What the arithmetic may lack to full scale, in decibels: a sixth of what a step of 16 bits is there.
constexpr double kRounding = 4e-5;

}  // namespace

LevelReducer::LevelReducer(int64_t samplesPerLevel)
    : decibels_(kZeroReference, kNoiseFloor, kCeiling), samplesPerLevel_(std::max<int64_t>(1, samplesPerLevel)) {}

void LevelReducer::reserve(int64_t levelCount) { levels_.reserve(static_cast<size_t>(std::max<int64_t>(0, levelCount))); }

void LevelReducer::append(const int16_t* samples, size_t count) {
  if (samplesPerLevel_ >= kLongGroup) return addGroups(samples, count);
  each_.resize(kSamplesAtOnce);
  for (size_t at = 0; at < count; at += kSamplesAtOnce) addShortGroups(samples + at, std::min(kSamplesAtOnce, count - at));
}

void LevelReducer::addGroups(const int16_t* samples, size_t count) {
  while (count > 0) {
    const auto part = static_cast<size_t>(std::min<int64_t>(static_cast<int64_t>(count), samplesPerLevel_ - inGroup_));
    sumAboveLow_ += decibels_.sumAboveLow(samples, part);
    inGroup_ += static_cast<int64_t>(part);
    samples += part;
    count -= part;
    if (inGroup_ == samplesPerLevel_) finishGroup();
  }
}

void LevelReducer::addShortGroups(const int16_t* samples, size_t count) {
  decibels_.ofEach(samples, count, each_.data());
  for (size_t i = 0; i < count; ++i) {
    sumAboveLow_ += static_cast<double>(each_[i] - kNoiseFloor);
    if (++inGroup_ == samplesPerLevel_) finishGroup();
  }
}

void LevelReducer::finishGroup() {
  const double mean = kNoiseFloor + sumAboveLow_ / static_cast<double>(samplesPerLevel_);
  levels_.push_back(mean > kCeiling - kRounding ? kCeiling : static_cast<float>(mean));
  sumAboveLow_ = 0;
  inGroup_ = 0;
}

std::vector<float> LevelReducer::takeLevels() {
  for (float& level : levels_) level /= kNoiseFloor;
  return std::move(levels_);
}

}  // namespace vidloom
