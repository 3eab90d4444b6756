#include "hostkit/ProjectTimeline.h"

#include <map>

#include "hostkit/PictureFit.h"
#include "hostkit/ProjectMediaTrack.h"
#include "hostkit/TextTrack.h"
#include "hostkit/TimeText.h"
#include "hostkit/TrackCrop.h"
#include "vidloom/platform/avfoundation/AVURLAsset.h"
#include "vidloom/speed/SpeedProblem.h"
#include "vidloom/timeline/LUMCGImageTrack.h"
#include "vidloom/timeline/LUMComposition.h"
#include "vidloom/timeline/LUMCropData.h"
#include "vidloom/timeline/LUMInstruction.h"

namespace vidloom {
namespace {

/// What a project's files hold, each opened once.
class SourceShelf {
 public:
  std::shared_ptr<AVURLAsset> assetAt(const std::filesystem::path& path) {
    auto& asset = assets_[path];
    if (asset == nullptr) asset = AVURLAsset::initWithURL(path);
    return asset;
  }

  /// Null with an error for a file that is no picture.
  CGImageRef imageAt(const std::filesystem::path& path, std::optional<NSError>* error) {
    auto& image = images_[path];
    if (image == nullptr) image = CGImageCreateWithContentsOfURL(path, error);
    return image;
  }

 private:
  std::map<std::filesystem::path, std::shared_ptr<AVURLAsset>> assets_;
  std::map<std::filesystem::path, CGImageRef> images_;
};

class TimelineMaker {
 public:
  TimelineMaker(const ProjectFile& project, ProjectProblems& problems) : project_(project), problems_(problems) {}

  /// Null, with a note, for a track that cannot be made.
  std::shared_ptr<LUMTrack> make(const ProjectTrack& track, const CMTime& instructionStart) {
    const CMTime start = CMTimeAdd(instructionStart, track.start);
    if (track.type == ProjectTrackType::image) return makeImage(track, CMTimeRangeMake(start, track.duration));
    if (track.type == ProjectTrackType::text) return makeText(track, CMTimeRangeMake(start, track.duration));
    return makeMedia(track, start);
  }

 private:
  std::shared_ptr<LUMTrack> makeMedia(const ProjectTrack& track, const CMTime& start) {
    const auto asset = shelf_.assetAt(track.path);
    if (asset->openError()) return refuse(track, causeOf(*asset->openError()));
    const auto made = ProjectMediaTrack::initWithAVAsset(asset, track.id);
    if (made->videoTrack() == nullptr && made->audioTrack() == nullptr) return refuse(track, "neither picture nor sound in it");
    made->setStart(start);
    made->setLeftTrimOffset(track.leftTrim);
    made->setRightTrimOffset(track.rightTrim);
    made->setMuteAudioFlag(track.mute);
    if (made->videoTrack() != nullptr && !place(*made, track)) return nullptr;
    if (CMTimeCompare(made->internalDuration(), kCMTimeZero) <= 0) {
      return refuse(track, "the trims leave nothing of its " + exactTextFromTime(made->assetDuration()) + " seconds");
    }
    if (track.speed) made->setScaleContext(scaleContextOf(*track.speed));
    if (const auto problem = speedProblemOf(made)) return refuse(track, *problem);
    return made;
  }

  std::shared_ptr<LUMTrack> makeImage(const ProjectTrack& track, const CMTimeRange& range) {
    std::optional<NSError> error;
    const CGImageRef image = shelf_.imageAt(track.path, &error);
    if (!image) return refuse(track, error ? causeOf(*error) : "the picture cannot be read");
    const auto made = LUMCGImageTrack::initWithCGImageRef(image, track.id, range);
    return place(*made, track) ? made : nullptr;
  }

  std::shared_ptr<LUMTrack> makeText(const ProjectTrack& track, const CMTimeRange& range) {
    std::string problem;
    const TextStyle style{track.font, track.colorRGBA};
    const auto made = TextTrack::initWithText(track.text, style, track.id, range, problem);
    if (!made) {
      problems_.push_back({project_.file, track.pointer, problem});
      return nullptr;
    }
    made->setPosition(track.position);
    made->setTransform(made->transformAt(track.position));
    made->sizeToFit();
    return made;
  }

  /// Crops and places a picture. False, with a note, where the crop reaches beyond it.
  bool place(LUMTrack& made, const ProjectTrack& track) {
    CGSize size = uprightSize(made.aspectSize(), made.preferredTransform());
    if (track.crop) {
      const CGRect& rect = track.crop->rect;
      const auto crop = LUMCropData::initWithTransform(CGAffineTransformIdentity, track.crop->isPercent ? CGRectZero : rect,
                                                       track.crop->isPercent ? rect : CGRectZero, 0, CGSizeZero);
      made.setCropData(crop);
      const CGRect cropped = croppedRect(*crop, size).value_or(CGRectZero);
      constexpr double kRoundingPixels = 1e-3;
      if (CGRectGetMaxX(cropped) > size.width + kRoundingPixels || CGRectGetMaxY(cropped) > size.height + kRoundingPixels) {
        refuse(track, "the crop reaches beyond the picture, whose size is " + NSStringFromCGSize(size));
        return false;
      }
      size = cropped.size;
    }
    const CGAffineTransform fitted = transformOfFit(track.fit, size, CGAffineTransformIdentity, project_.renderSize);
    made.setTransform(track.transform ? *track.transform : CGAffineTransformConcat(made.preferredTransform(), fitted));
    return true;
  }

  std::shared_ptr<LUMTrack> refuse(const ProjectTrack& track, const std::string& cause) {
    problems_.push_back({project_.file, track.pointer, track.source + ": " + cause});
    return nullptr;
  }

  /// The error's words without the path, which the note starts with in the project's own words.
  static std::string causeOf(const NSError& error) { return error.localizedDescription(); }

  const ProjectFile& project_;
  ProjectProblems& problems_;
  SourceShelf shelf_;
};

}  // namespace

std::shared_ptr<LUMComposition> timelineOfProject(const ProjectFile& project, const std::function<bool()>& isCancelled,
                                                  ProjectProblems& problems) {
  const size_t before = problems.size();
  TimelineMaker maker(project, problems);
  const auto composition = LUMComposition::initWithSize(project.renderSize, project.fps);
  for (const ProjectInstruction& instruction : project.instructions) {
    std::vector<std::shared_ptr<LUMTrack>> tracks;
    for (const ProjectTrack& track : instruction.tracks) {
      if (isCancelled && isCancelled()) return nullptr;
      if (auto made = maker.make(track, instruction.start)) tracks.push_back(std::move(made));
    }
    const auto made = LUMInstruction::initWithId(instruction.id);
    made->addTracks(tracks);
    composition->addInstructions({made});
  }
  return problems.size() == before ? composition : nullptr;
}

}  // namespace vidloom
