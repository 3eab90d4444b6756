#include "tools/ExportProgress.h"

#include <algorithm>
#include <cmath>
#include <nlohmann/json.hpp>

#include "tools/Console.h"
#include "vidloom/platform/foundation/NSLog.h"

namespace vidloom {
namespace {

constexpr std::chrono::milliseconds kInterval{250};
constexpr double kWhole = 100;
constexpr double kMicroseconds = 1e6;

std::string clockText(double seconds) {
  const auto whole = static_cast<long>(std::ceil(seconds));
  constexpr long kMinute = 60;
  constexpr long kHour = 3600;
  if (whole < kHour) return NSStringWithFormat("%ld:%02ld", whole / kMinute, whole % kMinute);
  return NSStringWithFormat("%ld:%02ld:%02ld", whole / kHour, whole % kHour / kMinute, whole % kMinute);
}

double rounded(double value, double digits) { return std::round(value * digits) / digits; }

}  // namespace

ExportProgress::ExportProgress(ProgressFormat format) : format_(format) {}

void ExportProgress::report(const ExportPosition& position) {
  const bool isNewPhase = position.phase != position_.phase;
  advance(position);
  const auto now = Clock::now();
  if (lastReport_ && !isNewPhase && now - *lastReport_ < kInterval) return;
  lastReport_ = now;
  write(false);
}

void ExportProgress::end(const ExportPosition& position) {
  advance(position);
  write(true);
}

void ExportProgress::advance(const ExportPosition& position) {
  position_.phase = position.phase;
  position_.frameCount = std::max(position_.frameCount, position.frameCount);
  position_.outTimeUs = std::max(position_.outTimeUs, position.outTimeUs);
  position_.percent = std::clamp(position.percent, position_.percent, kWhole);
}

ExportProgress::Figures ExportProgress::figures() const {
  const double elapsedSeconds = std::chrono::duration<double>(Clock::now() - began_).count();
  Figures result;
  if (elapsedSeconds <= 0) return result;
  result.framesPerSecond = static_cast<double>(position_.frameCount) / elapsedSeconds;
  result.speed = static_cast<double>(position_.outTimeUs) / kMicroseconds / elapsedSeconds;
  if (position_.percent > 0) result.etaSeconds = elapsedSeconds * (kWhole - position_.percent) / position_.percent;
  return result;
}

void ExportProgress::write(bool isEnd) {
  const Figures now = figures();
  switch (format_) {
    case ProgressFormat::bar:
      Console::status(bar(now));
      if (isEnd) Console::status("");
      break;
    case ProgressFormat::blocks:
      Console::raw(block(now, isEnd));
      break;
    case ProgressFormat::json:
      Console::raw(object(now, isEnd));
      break;
    case ProgressFormat::none:
      break;
  }
}

std::string ExportProgress::bar(const Figures& figures) const {
  const std::string rest =
      figures.etaSeconds ? NSStringWithFormat("eta %s", clockText(*figures.etaSeconds).c_str()) : position_.phase;
  const std::string text =
      NSStringWithFormat(" %5.1f %%  %6lld frames  %6.1f fps  %5.2fx  %-9s", position_.percent,
                         static_cast<long long>(position_.frameCount), figures.framesPerSecond, figures.speed, rest.c_str());
  constexpr int kNarrowest = 10;
  constexpr int kWidest = 40;
  const int frame = static_cast<int>(text.size()) + 3;  // brackets, and the last column stays free
  const int room = std::clamp(Console::columns() - frame, kNarrowest, kWidest);
  const int filled = static_cast<int>(position_.percent / kWhole * room);
  return NSStringWithFormat("[%s%s]%s", std::string(static_cast<size_t>(filled), '=').c_str(),
                            std::string(static_cast<size_t>(room - filled), ' ').c_str(), text.c_str());
}

std::string ExportProgress::block(const Figures& figures, bool isEnd) const {
  return NSStringWithFormat("frame=%lld\nfps=%.2f\nout_time_us=%lld\nspeed=%.3gx\npercent=%.2f\neta_s=%s\nphase=%s\nprogress=%s\n",
                            static_cast<long long>(position_.frameCount), figures.framesPerSecond,
                            static_cast<long long>(position_.outTimeUs), figures.speed, position_.percent,
                            figures.etaSeconds ? NSStringWithFormat("%.1f", *figures.etaSeconds).c_str() : "N/A",
                            position_.phase.c_str(), isEnd ? "end" : "continue");
}

std::string ExportProgress::object(const Figures& figures, bool isEnd) const {
  nlohmann::ordered_json line;
  line["frame"] = position_.frameCount;
  line["fps"] = rounded(figures.framesPerSecond, 100);
  line["out_time_us"] = position_.outTimeUs;
  line["speed"] = rounded(figures.speed, 1000);
  line["percent"] = rounded(position_.percent, 100);
  line["eta_s"] = figures.etaSeconds ? nlohmann::ordered_json(rounded(*figures.etaSeconds, 10)) : nlohmann::ordered_json();
  line["phase"] = position_.phase;
  line["progress"] = isEnd ? "end" : "continue";
  return line.dump() + "\n";
}

}  // namespace vidloom
