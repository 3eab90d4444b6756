// Encodes pictures and sound and writes one MPEG-4 file.
#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>

#include "vidloom/platform/coremedia/CMTimeRange.h"
#include "vidloom/platform/foundation/NSError.h"
#include "vidloom/platform/pixels/Picture.h"

namespace vidloom {

/// What reaches the H.264 encoder beside the picture size. Unset values: veryfast, crf 20, threads by machine.
struct VideoEncoderOptions {
  std::optional<double> crf;
  std::optional<std::string> preset;  ///< x264's names
  std::optional<int> threads;
};

/// One movie file with at most one video and one audio track. Packets of a track that runs ahead wait in bounded memory, then in a
/// temporary file; finish() interleaves them with the index in front. Nothing exists at the destination before finish() succeeds:
/// the data lies in unnamed or temporary files of the same folder, which go when the object goes. Each track is used by one thread
/// at a time, the two tracks may be used by two threads at once. Errors have the published AVFoundation codes, name the
/// destination and carry the cause under NSUnderlyingErrorKey (POSIX errors as NSPOSIXErrorDomain). A full disk, a quota and the
/// process' file-size limit are AVErrorDiskFull; the limit's signal does not reach the process.
class MovieWriter {
 public:
  struct VideoSettings {
    int width = 0, height = 0;  ///< any size from 2x2 on; odd ones are padded inside the encoder and cropped by the stream
    VideoEncoderOptions encoder;
  };
  struct AudioSettings {
    double sampleRate = 44100;
    int channels = 2;
    int64_t bitRate = 128000;
  };

  /// Why these settings cannot be written, whatever the destination; empty where they can. Sides of 2 to 16384; the sample rates of
  /// AAC from 7350 to 96000 Hz; 1 to 6 or 8 channels; bit rates of 4000 to 1000000.
  static std::string problemWith(const std::optional<VideoSettings>& video, const std::optional<AudioSettings>& audio);
  /// Opens the temporary files in the destination's folder. The destination itself is neither created nor touched.
  static std::unique_ptr<MovieWriter> create(const std::filesystem::path& destination, const std::optional<VideoSettings>& video,
                                             const std::optional<AudioSettings>& audio, std::optional<NSError>* error);
  virtual ~MovieWriter() = default;

  /// Encodes one picture; returns when the encoder has taken its copy. Times relative to the session start, strictly increasing.
  /// Another size is scaled to the video size. The tags of the first picture become the stream's tags; limited range is
  /// written, full-range pictures are converted. `duration` counts for the last picture only; invalid: that of the one before.
  virtual bool appendVideo(const PictureRef& picture, const CMTime& time, const CMTime& duration,
                           std::optional<NSError>* error) = 0;
  /// Interleaved float frames in the settings' rate and channels that start at `time`; a start later than the end of what came
  /// before is filled with silence, an overlap is cut.
  virtual bool appendAudio(const float* interleaved, int frameCount, const CMTime& time, std::optional<NSError>* error) = 0;
  /// Flushes the encoder of one track: nothing more will come. Harmless when repeated.
  virtual bool endVideo(std::optional<NSError>* error) = 0;
  virtual bool endAudio(std::optional<NSError>* error) = 0;
  /// Ends both tracks, writes the file and moves it into place (an existing file is replaced). Returns false with an error, or
  /// when cancel() came first.
  virtual bool finish(std::optional<NSError>* error) = 0;
  /// Makes running and later calls return false soon. Any thread.
  virtual void cancel() = 0;
};

}  // namespace vidloom
