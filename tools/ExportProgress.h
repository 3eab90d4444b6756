// How an export tells how far it is.
#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

namespace vidloom {

enum class ProgressFormat : uint8_t { bar, blocks, json, none };

struct ExportPosition {
  std::string phase = "open";  ///< open, video, audio or finish
  int64_t frameCount = 0;
  int64_t outTimeUs = 0;  ///< end of the last frame, from the start of the movie
  double percent = 0;
};

/// Writes to standard error. What it reports never goes backwards. One thread.
class ExportProgress {
 public:
  explicit ExportProgress(ProgressFormat format);
  /// At most every quarter of a second, and whenever the phase changes.
  void report(const ExportPosition& position);
  void end(const ExportPosition& position);

 private:
  struct Figures {
    double framesPerSecond = 0, speed = 0;
    std::optional<double> etaSeconds;
  };
  void advance(const ExportPosition& position);
  Figures figures() const;
  void write(bool isEnd);
  std::string bar(const Figures& figures) const;
  std::string block(const Figures& figures, bool isEnd) const;
  std::string object(const Figures& figures, bool isEnd) const;

  using Clock = std::chrono::steady_clock;
  ProgressFormat format_;
  Clock::time_point began_ = Clock::now();
  std::optional<Clock::time_point> lastReport_;
  ExportPosition position_;
};

}  // namespace vidloom
