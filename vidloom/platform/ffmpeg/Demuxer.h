// A libav demuxer on a file that we opened: it opens nothing itself.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>

#include "vidloom/platform/ffmpeg/AvInputPointers.h"
#include "vidloom/platform/ffmpeg/AvLog.h"
#include "vidloom/platform/ffmpeg/SourceFile.h"

struct AVInputFormat;
struct AVPacket;

namespace vidloom {

/// One demuxer with a position of its own. One thread at a time.
class Demuxer {
 public:
  /// The container of the file by its content; null with a libav error where it is none, or none of those that we read: then
  /// *refusedName is its name where it was recognised.
  static const AVInputFormat* recognise(const std::shared_ptr<const SourceFile>& file, const std::string& logName,
                                        std::string* refusedName, int& avError);
  /// Null with a libav error. More than maxStreams streams are an error.
  static std::unique_ptr<Demuxer> open(std::shared_ptr<const SourceFile> file, const AVInputFormat* format, int maxStreams,
                                       const std::string& logName, int& avError);
  ~Demuxer();
  Demuxer(const Demuxer&) = delete;
  Demuxer& operator=(const Demuxer&) = delete;

  AVFormatContext& context() { return *format_; }
  /// The next packet of any stream that is not discarded. A libav error or 0; AVERROR_EOF at the end, AVERROR_EXIT when cancelled.
  int read(AVPacket& packet);
  /// Reading fails soon after the flag, which must outlive the demuxer, becomes true.
  void setCancelFlag(const std::atomic<bool>* flag) { cancelFlag_ = flag; }

 private:
  explicit Demuxer(std::shared_ptr<const SourceFile> file) : file_(std::move(file)) {}
  bool isCancelled() const { return cancelFlag_ && cancelFlag_->load(std::memory_order_relaxed); }
  bool makeIO();
  int openInput(const AVInputFormat* format, int maxStreams, const std::string& logName);
  void correctTime(AVPacket& packet);
  static int readBytes(void* self, uint8_t* bytes, int count);
  static int64_t seekBytes(void* self, int64_t offset, int whence);

  std::shared_ptr<const SourceFile> file_;
  int64_t position_ = 0;
  const std::atomic<bool>* cancelFlag_ = nullptr;
  AvIOPointer io_;
  AvFormatInputPointer format_;
  AvLogName logName_;
  int64_t lastTicks_ = 0, lastDuration_ = 0;  ///< of the packet before
};

/// The containers and codecs that we read, by libav's names.
bool isAllowedContainer(const std::string& name);
bool isAllowedCodec(int codecId);
bool isMovieContainer(const std::string& name);

}  // namespace vidloom
