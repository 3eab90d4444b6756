// Collects what one output frame is made of.
#pragma once

#include <memory>
#include <optional>
#include <unordered_map>
#include <vector>

#include "vidloom/platform/avfoundation/AVVideoComposition.h"
#include "vidloom/platform/pixels/LayerCompositor.h"
#include "vidloom/platform/reading/VideoCursor.h"

namespace vidloom {

/// The picture of one track at an output time.
struct SourceFrame {
  CMPersistentTrackID trackID;
  SourcePicture source;
};

/// What goes into one output frame.
struct GatheredFrame {
  CMTime time;
  /// Null outside every instruction: a black frame.
  std::shared_ptr<AVVideoCompositionInstruction> instruction;
  /// True: `sources` are for the custom compositor. False: `layers`, the bottom one first, make the frame.
  bool isForCompositor = false;
  bool isPostProcessed = false;  ///< the composition's layer tree is drawn over it
  std::vector<SourceFrame> sources;
  std::vector<PictureLayer> layers;
};

/// Decodes the tracks that a frame shows, and only those: layers that are invisible at its time cost nothing. One thread at a time;
/// cancel() from any.
class FrameGatherer {
 public:
  FrameGatherer(const std::vector<std::shared_ptr<AVAssetTrack>>& videoTracks,
                std::shared_ptr<const AVMutableVideoComposition> composition, VideoDecoderPool::Opener opener);

  /// The frame at `exactTime`, of which `time` is the name. Nullopt with an error that names file, time and cause.
  std::optional<GatheredFrame> gather(const CMTime& time, const ExactTime& exactTime, std::optional<NSError>* error);
  void cancel() { pool_.cancel(); }
  /// Closes the decoders. They are opened again when needed.
  void close() { pool_.close(); }
  const VideoDecoderPool& pool() const { return pool_; }

  /// Size of the output in pixels: render size x render scale.
  int width() const { return width_; }
  int height() const { return height_; }
  /// Puts a picture of that size into the middle of the output, as large as it fits.
  static CGAffineTransform fitting(const CGSize& size, int width, int height);

 private:
  struct Track {
    CMPersistentTrackID trackID;
    VideoCursor cursor;
  };
  std::shared_ptr<AVVideoCompositionInstruction> instructionAt(const CMTime& time);
  bool gatherSources(const AVVideoCompositionInstruction& instruction, const ExactTime& time, GatheredFrame& frame,
                     std::optional<NSError>* error);
  bool gatherLayers(const AVMutableVideoCompositionInstruction& instruction, const ExactTime& time, GatheredFrame& frame,
                    std::optional<NSError>* error);
  bool gatherPassthrough(CMPersistentTrackID trackID, const ExactTime& time, GatheredFrame& frame, std::optional<NSError>* error);
  bool isInSight(const CGSize& displaySize, const CGAffineTransform& transform) const;
  VideoCursor* cursorOf(CMPersistentTrackID trackID);

  std::shared_ptr<const AVMutableVideoComposition> composition_;
  VideoDecoderPool pool_;
  std::vector<Track> tracks_;
  std::unordered_map<CMPersistentTrackID, size_t> trackNumbers_;
  size_t currentInstruction_ = 0;
  int width_, height_;
};

}  // namespace vidloom
