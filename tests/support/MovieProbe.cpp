#include "tests/support/MovieProbe.h"

#include <algorithm>
#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>

#include "tests/support/Fixtures.h"

namespace vidloom::testing {

namespace {

int64_t toNumber(const std::string& text) { return std::strtoll(text.c_str(), nullptr, 10); }

std::string asked(const std::filesystem::path& file, const std::string& stream, const std::string& entries) {
  std::string output;
  runProgram({"ffprobe", "-v", "error", "-select_streams", stream, "-show_entries", entries, "-of", "csv=p=0", file.string()},
             &output);
  return output;
}

}  // namespace

std::vector<ProbedPacket> MovieProbe::packets(const std::string& stream) const {
  std::vector<ProbedPacket> packets;
  std::istringstream lines(asked(file_, stream, "packet=pts,dts,pos"));
  for (std::string line; std::getline(lines, line);) {
    ProbedPacket packet;
    if (std::sscanf(line.c_str(), "%" SCNd64 ",%" SCNd64 ",%" SCNd64, &packet.presentation, &packet.decode, &packet.position) == 3)
      packets.push_back(packet);
  }
  return packets;
}

std::string MovieProbe::field(const std::string& stream, const std::string& name) const {
  std::string text = asked(file_, stream, "stream=" + name);
  while (!text.empty() && (text.back() == '\n' || text.back() == ',')) text.pop_back();
  return text;
}

int64_t MovieProbe::number(const std::string& stream, const std::string& name) const { return toNumber(field(stream, name)); }

int64_t MovieProbe::timescale(const std::string& stream) const {
  const std::string base = field(stream, "time_base");
  const size_t slash = base.find('/');
  return slash == std::string::npos ? 0 : toNumber(base.substr(slash + 1));
}

std::vector<double> MovieProbe::times(const std::string& stream) const {
  const auto scale = static_cast<double>(timescale(stream));
  std::vector<double> seconds;
  for (const ProbedPacket& packet : packets(stream)) seconds.push_back(static_cast<double>(packet.presentation) / scale);
  std::sort(seconds.begin(), seconds.end());
  return seconds;
}

std::vector<std::string> MovieProbe::boxes() const {
  const std::string bytes = readFile(file_);
  std::vector<std::string> names;
  for (size_t offset = 0; offset + 8 <= bytes.size();) {
    size_t size = 0;
    for (size_t i = 0; i < 4; ++i) size = size << 8 | static_cast<uint8_t>(bytes[offset + i]);
    names.push_back(bytes.substr(offset + 4, 4));
    offset += std::max<size_t>(size, 8);
  }
  return names;
}

}  // namespace vidloom::testing
