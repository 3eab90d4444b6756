#include <mutex>

#include "tests/support/Fixtures.h"
#include "vidloom/platform/foundation/NSLog.h"

namespace vidloom::testing {

struct LogCapture::State {
  std::mutex mutex;
  std::vector<std::string> lines;
};

LogCapture::LogCapture() : state_(std::make_shared<State>()) {
  previous_ = NSLogSetSink([state = state_](const std::string& line) {
    const std::lock_guard lock(state->mutex);
    state->lines.push_back(line);
  });
}

LogCapture::~LogCapture() { NSLogSetSink(previous_); }

std::vector<std::string> LogCapture::lines() const {
  const std::lock_guard lock(state_->mutex);
  return state_->lines;
}

bool LogCapture::contains(const std::vector<std::string>& texts) const {
  for (const std::string& line : lines()) {
    bool all = true;
    for (const std::string& text : texts) all = all && line.find(text) != std::string::npos;
    if (all) return true;
  }
  return false;
}

}  // namespace vidloom::testing
