#include "hostkit/ProjectTimeline.h"

#include <map>

#include "hostkit/PictureFit.h"
#include "hostkit/ProjectMediaTrack.h"
#include "hostkit/TimeText.h"
#include "vidloom/platform/avfoundation/AVURLAsset.h"
#include "vidloom/speed/SpeedProblem.h"
#include "vidloom/timeline/LUMComposition.h"
#include "vidloom/timeline/LUMInstruction.h"

namespace vidloom {
namespace {

/// The assets of a project's files.
class SourceShelf {
 public:
  std::shared_ptr<AVURLAsset> assetAt(const std::filesystem::path& path) {
    auto& asset = assets_[path];
    if (asset == nullptr) asset = AVURLAsset::initWithURL(path);
    return asset;
  }

 private:
  std::map<std::filesystem::path, std::shared_ptr<AVURLAsset>> assets_;
};

class TimelineMaker {
 public:
  TimelineMaker(const ProjectFile& project, ProjectProblems& problems) : project_(project), problems_(problems) {}

  /// Null, with a note, for a source that cannot be used.
  std::shared_ptr<LUMTrack> make(const ProjectTrack& track, const CMTime& instructionStart) {
    const auto asset = shelf_.assetAt(track.path);
    if (asset->openError()) return refuse(track, causeOf(*asset->openError()));
    const auto made = ProjectMediaTrack::initWithAVAsset(asset, track.id);
    if (made->videoTrack() == nullptr && made->audioTrack() == nullptr) return refuse(track, "neither picture nor sound in it");
    made->setStart(CMTimeAdd(instructionStart, track.start));
    made->setLeftTrimOffset(track.leftTrim);
    made->setRightTrimOffset(track.rightTrim);
    made->setMuteAudioFlag(track.mute);
    if (track.transform) {
      made->setTransform(*track.transform);
    } else if (made->videoTrack() != nullptr) {
      made->setTransform(transformOfFit(track.fit, made->aspectSize(), made->preferredTransform(), project_.renderSize));
    }
    if (CMTimeCompare(made->internalDuration(), kCMTimeZero) <= 0) {
      return refuse(track, "the trims leave nothing of its " + exactTextFromTime(made->assetDuration()) + " seconds");
    }
    if (track.speed) made->setScaleContext(scaleContextOf(*track.speed));
    if (const auto problem = speedProblemOf(made)) return refuse(track, *problem);
    return made;
  }

 private:
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
