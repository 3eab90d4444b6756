#include "vidloom/platform/reading/AudioPlan.h"

#include <algorithm>
#include <cmath>

#include "vidloom/platform/ffmpeg/MediaFile.h"
#include "vidloom/platform/reading/SegmentWalk.h"

namespace vidloom {

namespace {

constexpr double kHalfGlideSeconds = 0.005;
constexpr int kFractionBits = 24;
constexpr int64_t kTouchesPerSecond = 1'000'000;
constexpr double kWholeTolerance = 1e-6;  // source frames

int64_t sourceRate(const MediaSegment& segment) {
  return std::llround(segment.file->tracks()[static_cast<size_t>(segment.trackIndex)].sampleRate);
}

AudioPiece pieceOf(const MediaSegment& segment, const ExactTime& rangeStart, int64_t sampleCount, int64_t rate) {
  const ExactTime start = ExactTime(segment.target.start) - rangeStart;
  AudioPiece piece;
  piece.first = std::max<int64_t>(0, start.ceilTicks(rate));
  piece.end = std::min(sampleCount, (start + ExactTime(segment.target.duration)).ceilTicks(rate));
  piece.file = segment.file;
  piece.trackIndex = segment.trackIndex;
  const int64_t ofSource = sourceRate(segment);
  const ExactTime mediaTime = SegmentWalk::mediaTime(segment, rangeStart + ExactTime(piece.first, rate));
  const int64_t fine = mediaTime.floorTicks(ofSource << kFractionBits);
  piece.sourceFrame = fine >> kFractionBits;
  piece.sourceFraction = std::ldexp(static_cast<double>(fine - (piece.sourceFrame << kFractionBits)), -kFractionBits);
  const double scaling = (ExactTime(segment.media.duration) / ExactTime(segment.target.duration)).seconds();
  piece.speed = scaling * static_cast<double>(ofSource) / static_cast<double>(rate);
  piece.border = (start + ExactTime(segment.target.duration)).seconds() * static_cast<double>(rate);
  piece.length = ExactTime(segment.target.duration).seconds() * static_cast<double>(rate);
  return piece;
}

/// Whether `next` begins where `range` ends, but for the rounding of borders that no timescale holds.
bool touches(const CMTimeRange& range, const CMTimeRange& next) {
  const ExactTime gap = ExactTime(range.start) + ExactTime(range.duration) - ExactTime(next.start);
  const ExactTime tolerance(1, kTouchesPerSecond);
  return gap <= tolerance && ExactTime() - tolerance <= gap;
}

/// Whether `next` goes on with the sound where `segment` ends.
bool continues(const MediaSegment& segment, const MediaSegment& next) {
  return segment.file == next.file && segment.trackIndex == next.trackIndex && touches(segment.media, next.media) &&
         touches(segment.target, next.target);
}

void setGlide(AudioPiece& piece, const AudioPiece& next, int64_t rate) {
  piece.speedChange = next.speed - piece.speed;
  piece.halfGlide = std::min(kHalfGlideSeconds * static_cast<double>(rate), std::min(piece.length, next.length) / 2);
}

/// Decides how the pieces of one uninterrupted run are read.
void finishRun(std::vector<AudioPiece>& pieces, size_t runStart, int64_t rate) {
  const auto begin = pieces.begin() + static_cast<std::ptrdiff_t>(runStart);
  const auto hasSourceSpeed = [](const AudioPiece& piece) { return std::abs(piece.speed - 1) < 1e-12; };
  if (std::all_of(begin, pieces.end(), hasSourceSpeed)) {
    for (auto piece = begin; piece != pieces.end(); ++piece) {
      if (piece->sourceFraction >= 0.5) ++piece->sourceFrame;
      piece->sourceFraction = 0;
      piece->isCopy = true;
    }
    return;
  }
  for (auto piece = begin; piece != pieces.end(); ++piece) {
    const double fromWhole = std::min(piece->sourceFraction, 1 - piece->sourceFraction);
    if (hasSourceSpeed(*piece) && fromWhole < kWholeTolerance) {
      if (piece->sourceFraction > 0.5) ++piece->sourceFrame;
      piece->sourceFraction = 0;
      piece->isCopy = true;
    }
    if (piece + 1 != pieces.end() && piece->speed != (piece + 1)->speed) setGlide(*piece, *(piece + 1), rate);
  }
}

/// Where the glide at the border of a piece moves the position that a constant speed would give, at `distance` samples from it.
double glide(const AudioPiece& piece, double distance) {
  const double reach = piece.halfGlide - std::abs(distance);
  return reach > 0 ? piece.speedChange * reach * reach / (4 * piece.halfGlide) : 0;
}

}  // namespace

std::vector<AudioPiece> planAudio(const std::vector<MediaSegment>& segments, const ExactTime& rangeStart, int64_t sampleCount,
                                  int64_t rate) {
  std::vector<AudioPiece> pieces;
  size_t runStart = 0;
  const MediaSegment* before = nullptr;
  for (const MediaSegment& segment : segments) {
    if (segment.isEmpty()) continue;
    AudioPiece piece = pieceOf(segment, rangeStart, sampleCount, rate);
    if (piece.first >= piece.end) continue;
    if (!before || !continues(*before, segment)) {
      finishRun(pieces, runStart, rate);
      runStart = pieces.size();
    }
    pieces.push_back(std::move(piece));
    before = &segment;
  }
  finishRun(pieces, runStart, rate);
  return pieces;
}

double sourcePosition(const std::vector<AudioPiece>& pieces, size_t index, int64_t n) {
  const AudioPiece& piece = pieces[index];
  double position = piece.sourceFraction + static_cast<double>(n - piece.first) * piece.speed;
  if (piece.halfGlide > 0) position += glide(piece, static_cast<double>(n) - piece.border);
  if (index > 0 && pieces[index - 1].halfGlide > 0) {
    position += glide(pieces[index - 1], static_cast<double>(n) - pieces[index - 1].border);
  }
  return position;
}

}  // namespace vidloom
