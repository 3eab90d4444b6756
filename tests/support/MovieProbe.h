// What ffprobe and the file's own boxes say about a movie.
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

namespace vidloom::testing {

/// Times in ticks of the stream's time base.
struct ProbedPacket {
  int64_t presentation = 0;
  int64_t decode = 0;
  int64_t position = 0;
};

class MovieProbe {
 public:
  explicit MovieProbe(std::filesystem::path file) : file_(std::move(file)) {}

  /// `stream` is ffprobe's specifier: "v:0", "a:0".
  std::vector<ProbedPacket> packets(const std::string& stream) const;
  /// One field of a stream as ffprobe prints it; empty where there is none.
  std::string field(const std::string& stream, const std::string& name) const;
  int64_t number(const std::string& stream, const std::string& name) const;
  /// The denominator of the stream's time base.
  int64_t timescale(const std::string& stream) const;
  /// Presentation times of all packets in order, in seconds.
  std::vector<double> times(const std::string& stream) const;
  /// Names of the boxes at the top level, in order.
  std::vector<std::string> boxes() const;

 private:
  std::filesystem::path file_;
};

}  // namespace vidloom::testing
