#include "hostkit/TimelineSnapshot.h"

#include "hostkit/TrackCrop.h"
#include "vidloom/platform/coreimage/CIContext.h"
#include "vidloom/platform/foundation/NSLog.h"
#include "vidloom/timeline/LUMComposition.h"
#include "vidloom/timeline/LUMInstruction.h"
#include "vidloom/timeline/LUMTrack.h"

namespace vidloom {
namespace {

/// The bitmap that the recipe gives; null, with a word in the log, where it gives none.
CGImageRef worked(const CIImageRef& image, uint64_t objectId) {
  std::optional<NSError> error;
  CGImageRef bitmap = CIContext::context()->createCGImage(image, image->extent(), &error);
  if (!bitmap) {
    NSLog("The image of track " + std::to_string(objectId) +
          " cannot be drawn: " + (error ? error->localizedDescription() : std::string("it is empty")));
  }
  return bitmap;
}

/// False for a still without a picture.
bool takePicture(const LUMTrack& track, SnapshotTrack& taken) {
  taken.isStill = track.isContentStatic();
  if (!taken.isStill) return true;
  taken.layer.image = track.staticSourceCGImageRef();
  if (!taken.layer.image) taken.layer.pixelBuffer = track.staticSourceCVPixelBuffer();
  const CIImageRef recipe = taken.layer ? nullptr : track.staticSourceCIImage();
  if (recipe) taken.layer.image = worked(recipe, track.objectId());
  return static_cast<bool>(taken.layer);
}

}  // namespace

std::shared_ptr<const TimelineSnapshot> TimelineSnapshot::ofTimeline(const std::shared_ptr<LUMComposition>& timeline) {
  const std::shared_ptr<TimelineSnapshot> snapshot(new TimelineSnapshot);
  if (!timeline) return snapshot;
  for (const auto& track : timeline->allTracks()) {
    SnapshotTrack taken;
    const CGSize size = track->aspectSize();
    if (track->ignoreRendering() || track->isOnlyAudioTrack() || !(size.width > 0 && size.height > 0)) continue;
    if (!takePicture(*track, taken)) continue;
    taken.marker = LUMTrack::initWithId(track->objectId());
    taken.start = track->start();
    taken.end = CMTimeAdd(track->start(), track->duration());
    const PicturePart part = partOfPicture(track->cropData().get(), size, track->preferredTransform(), track->transform());
    taken.layer.size = size;
    taken.layer.part = part.part;
    taken.layer.transform = part.transform;
    snapshot->tracks_.push_back(std::move(taken));
  }
  return snapshot;
}

}  // namespace vidloom
