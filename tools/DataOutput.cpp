#include "tools/DataOutput.h"

#include <unistd.h>

#include <array>
#include <cerrno>
#include <charconv>
#include <cmath>
#include <span>
#include <system_error>

#include "tools/Console.h"
#include "tools/Interruption.h"
#include "tools/OutputFile.h"

namespace vidloom {
namespace {

constexpr size_t kPortionBytes = 1U << 16U;

/// Not a signal that came while standard output was being written: that one has ended the program.
bool isInterrupted() { return Interruption::count() > 0; }

int writeToDescriptor(int descriptor, std::string_view data) {
  while (!data.empty()) {
    const ssize_t written = ::write(descriptor, data.data(), data.size());
    if (written < 0 && errno == EINTR) continue;
    if (written < 0) return errno;
    data.remove_prefix(static_cast<size_t>(written));
  }
  return 0;
}

/// The shortest digits that read back as the same number. JSON has no word for what is none.
template <class Number>
void append(std::string& text, Number number) {
  if constexpr (std::is_floating_point_v<Number>) {
    if (!std::isfinite(number)) {
      text += "null";
      return;
    }
    number += Number{0};  // no negative zero
  }
  std::array<char, 64> digits{};
  text.append(digits.data(), std::to_chars(digits.data(), digits.data() + digits.size(), number).ptr);
}

}  // namespace

DataOutput::DataOutput(const std::filesystem::path& path) : path_(behindLink(path)) {
  waiting_.reserve(kPortionBytes + 64);
  if (path_.empty()) return;
  Interruption::onlyCount();
  int errnoValue = 0;
  file_ = ScratchFile::openFor(path_, errnoValue);
  if (!file_) failure_ = errnoValue;
}

void DataOutput::write(std::string_view data) {
  waiting_ += data;
  flush();
}

void DataOutput::write(float number) {
  append(waiting_, number);
  flush();
}

void DataOutput::write(double number) {
  append(waiting_, number);
  flush();
}

void DataOutput::write(int64_t number) {
  append(waiting_, number);
  flush();
}

void DataOutput::flush() {
  if (waiting_.size() >= kPortionBytes && writeOut() == 0 && isInterrupted()) failure_ = ECANCELED;
}

int DataOutput::writeOut() {
  if (failure_ == 0) {
    const std::span<const uint8_t> bytes(reinterpret_cast<const uint8_t*>(waiting_.data()), waiting_.size());
    failure_ = file_ ? file_->append(bytes) : writeToDescriptor(STDOUT_FILENO, waiting_);
  }
  waiting_.clear();
  return failure_;
}

ExitCode DataOutput::finish() {
  writeOut();
  if (isInterrupted()) {
    Console::message("cancelled");
    return ExitCode::cancelled;
  }
  if (failure_ == 0 && file_) failure_ = file_->moveTo(path_);
  if (failure_ == 0) return ExitCode::done;
  const std::string name = path_.empty() ? "standard output" : path_.string();
  Console::message(name + ": " + std::error_code(failure_, std::generic_category()).message());
  return ExitCode::output;
}

ExitCode writeData(const std::filesystem::path& path, std::string_view data) {
  DataOutput output(path);
  output.write(data);
  return output.finish();
}

std::string problemWithDerivedFile(const std::filesystem::path& output, const std::filesystem::path& media) {
  if (output.empty()) return "";
  if (isSameFile(output, media)) return output.string() + ": is the media file itself";
  return problemWithOutput(output, true);
}

}  // namespace vidloom
