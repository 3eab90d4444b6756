#include "tools/ExportRun.h"

#include <chrono>
#include <cstdlib>
#include <memory>
#include <string>
#include <system_error>

#include "hostkit/ProjectFile.h"
#include "hostkit/ProjectTimeline.h"
#include "hostkit/TimelineDrawer.h"
#include "tools/Console.h"
#include "tools/ExportProgress.h"
#include "tools/Interruption.h"
#include "tools/OutputFile.h"
#include "tools/ProjectOpening.h"
#include "vidloom/export/LUMRender.h"
#include "vidloom/platform/dispatch/RunLoop.h"
#include "vidloom/timeline/LUMAVAssetTrack.h"
#include "vidloom/timeline/LUMComposition.h"

namespace vidloom {
namespace {

constexpr uint64_t kTickNs = 50'000'000;
constexpr int kTicksUntilStalled = 20 * 60 * 10;  ///< ten minutes without the slightest advance
constexpr std::chrono::milliseconds kCancelPatience{500};

int64_t microseconds(const CMTime& time) { return CMTimeConvertScale(time, 1'000'000).value; }

/// One export. Everything runs on the main thread except the blocks on the set-up queue, which take what they need along.
class ExportRun : public std::enable_shared_from_this<ExportRun> {
 public:
  explicit ExportRun(ExportOptions options) : options_(std::move(options)), progress_(options_.progress) {
    options_.output = behindLink(options_.output);
  }

  ExitCode run();

 private:
  struct Opened {
    std::shared_ptr<LUMComposition> timeline;
    ProjectProblems problems;
  };

  bool refuseOutput();
  void open(ProjectFile project);
  void didOpen(const Opened& opened);
  bool takeRange();
  void start();
  void didSetUp();
  void listen();
  void didComplete();
  void didCancel();

  void end(ExitCode code, const std::string& message);
  void endWithError(const NSError& error);
  void tick();
  void followCancellation();
  /// The movie was completed although a signal had come: true, and it is gone.
  bool removeInterruptedMovie() const;
  [[noreturn]] void leaveAtOnce();
  ExportPosition position() const;
  bool isStalled();

  ExportOptions options_;
  ExportProgress progress_;
  dispatch_queue_t setUpQueue_ = dispatch_queue_create("vidloom.command.setup", DISPATCH_QUEUE_SERIAL);
  std::shared_ptr<LUMComposition> timeline_;
  bool hasSound_ = false;
  CMTimeRange range_;
  std::shared_ptr<LUMRender> render_;
  std::shared_ptr<TimelineDrawer> drawer_ = TimelineDrawer::init();
  std::shared_ptr<LUMRenderDelegate> listener_ = std::make_shared<LUMRenderDelegate>();
  bool isSettingUp_ = false;
  std::optional<ExitCode> outcome_;
  bool isCancelling_ = false;
  std::chrono::steady_clock::time_point cancelledAt_;
  int idleTicks_ = 0;
  ExportPosition lastPosition_;
};

ExitCode ExportRun::run() {
  if (refuseOutput()) return *outcome_;
  ProjectProblems problems;
  auto project = ProjectFile::read(options_.project, {.allowOutside = options_.allowOutside, .native = options_.native}, problems);
  if (!project) {
    for (const ProjectProblem& problem : problems) Console::line(problem.text());
    return ExitCode::input;
  }
  Interruption::onlyCount();
  open(std::move(*project));
  if (!outcome_) progress_.report(position());
  while (!outcome_ || isSettingUp_) {
    RunLoop::main().runUntil([this] { return outcome_ && !isSettingUp_; }, kTickNs);
    tick();
  }
  progress_.end(position());
  return *outcome_;
}

bool ExportRun::refuseOutput() {
  const std::string problem = problemWithOutput(options_.output, options_.overwrite);
  if (!problem.empty()) end(ExitCode::output, problem);
  return outcome_.has_value();
}

void ExportRun::open(ProjectFile project) {
  const std::string problem = problemWithReplacing(options_.output, project);
  if (!problem.empty()) return end(ExitCode::output, problem);
  isSettingUp_ = true;
  dispatch_async(setUpQueue_, [self = shared_from_this(), project = std::move(project)] {
    const auto opened = std::make_shared<Opened>();
    opened->timeline = timelineOfProject(
        project, [] { return Interruption::count() > 0; }, opened->problems);
    dispatch_async(dispatch_get_main_queue(), [self, opened] { self->didOpen(*opened); });
  });
}

void ExportRun::didOpen(const Opened& opened) {
  isSettingUp_ = false;
  for (const ProjectProblem& problem : opened.problems) Console::line(problem.text());
  if (!opened.problems.empty()) return end(ExitCode::input, "");
  if (Interruption::count() > 0 || opened.timeline == nullptr) return end(ExitCode::cancelled, "cancelled");
  timeline_ = opened.timeline;
  for (const auto& track : timeline_->allTracks()) {
    const auto media = std::dynamic_pointer_cast<LUMAVAssetTrack>(track);
    hasSound_ |= media != nullptr && media->audioTrack() != nullptr && !media->muteAudioFlag();
  }
  if (!hasPicture(*timeline_)) return end(ExitCode::input, options_.project.string() + ": " + kNothingToShow);
  if (takeRange()) start();
}

bool ExportRun::takeRange() {
  const CMTimeRange whole = CMTimeRangeMake(kCMTimeZero, timeline_->duration());
  range_ = options_.range ? CMTimeRangeGetIntersection(*options_.range, whole) : whole;
  if (!CMTIMERANGE_IS_EMPTY(range_)) return true;
  end(ExitCode::usage, "--range: the timeline ends before it begins");
  return false;
}

void ExportRun::start() {
  render_ = LUMRender::initWithComposition(timeline_, options_.output);
  render_->setUseNativeComposition(options_.native);
  drawer_->takeTimeline(timeline_);
  render_->setAsyncDelegate(drawer_);
  render_->setVideoEncoderOptions(options_.encoder);
  if (options_.range) {
    render_->setTimeRange(range_);
    render_->setSessionStart(range_.start);
  }
  listen();
  // The exporter removes an earlier file and logs where it cannot, which is no news where there is none.
  std::error_code failure;
  if (!std::filesystem::exists(std::filesystem::symlink_status(options_.output, failure)))
    Console::muteLog("cannot clean file from url");
  isSettingUp_ = true;
  dispatch_async(setUpQueue_, [self = shared_from_this(), render = render_] {
    render->generate();
    dispatch_async(dispatch_get_main_queue(), [self] { self->didSetUp(); });
  });
}

void ExportRun::listen() {
  const std::weak_ptr<ExportRun> weakSelf = weak_from_this();
  const auto onMain = [weakSelf](const std::function<void(ExportRun&)>& action) {
    if (const auto self = weakSelf.lock()) action(*self);
  };
  listener_->renderDidCompleteWithURL = [onMain](const std::filesystem::path&) {
    onMain([](ExportRun& self) { self.didComplete(); });
  };
  // The failure to make the writer comes on the set-up queue; didSetUp finds it in setUpError().
  listener_->renderDidFailedWithError = [onMain, setUpQueue = setUpQueue_](const NSError& error) {
    if (dispatch_queue_is_current(setUpQueue)) return;
    onMain([&error](ExportRun& self) { self.endWithError(error); });
  };
  listener_->renderDidCancelRendering = [onMain] { onMain([](ExportRun& self) { self.didCancel(); }); };
  render_->setDelegate(listener_);
}

void ExportRun::didSetUp() {
  isSettingUp_ = false;
  if (const auto error = render_->setUpError()) return endWithError(*error);
  // An exporter that is cancelled before it has begun to set up begins all the same.
  if (isCancelling_ && !outcome_) render_->cancel();
}

void ExportRun::didCancel() {
  if (!isSettingUp_) end(ExitCode::cancelled, "cancelled");
}

void ExportRun::didComplete() {
  const auto writer = render_->writer();
  if (removeInterruptedMovie()) return end(ExitCode::cancelled, "cancelled");
  if (writer != nullptr && writer->status() == AVAssetWriterStatusCompleted) return end(ExitCode::done, "");
  if (isCancelling_) return end(ExitCode::cancelled, "cancelled");
  const auto error = writer != nullptr ? writer->error() : std::nullopt;
  if (error) return endWithError(*error);
  end(ExitCode::output, options_.output.string() + ": the movie was not completed");
}

void ExportRun::endWithError(const NSError& error) {
  const ExitCode code = isCancelling_ ? ExitCode::cancelled : exitCodeOf(error);
  if (code == ExitCode::cancelled) return end(code, "cancelled");
  std::string text = textOf(error);
  if (code == ExitCode::output && text.find(options_.output.filename().string()) == std::string::npos) {
    text = options_.output.string() + ": " + text;
  }
  end(code, text);
}

/// What ends the export first counts.
void ExportRun::end(ExitCode code, const std::string& message) {
  if (outcome_) return;
  outcome_ = code;
  if (!message.empty()) Console::message(message);
}

void ExportRun::tick() {
  if (Interruption::count() > 0) followCancellation();
  if (outcome_) return;
  progress_.report(position());
  if (isStalled()) {
    Console::message("internal error: the export does not get on");
    removeTemporaryFilesOf(options_.output);
    std::_Exit(static_cast<int>(ExitCode::internal));
  }
}

void ExportRun::followCancellation() {
  if (!isCancelling_) {
    isCancelling_ = true;
    cancelledAt_ = std::chrono::steady_clock::now();
    if (render_ != nullptr && !outcome_) render_->cancel();
  }
  const bool isLate = std::chrono::steady_clock::now() - cancelledAt_ > kCancelPatience;
  if ((!outcome_ || isSettingUp_) && (isLate || Interruption::count() > 1)) leaveAtOnce();
}

/// A signal may come while the movie is getting its name, or between two looks at the count.
bool ExportRun::removeInterruptedMovie() const {
  const auto writer = render_ != nullptr ? render_->writer() : nullptr;
  if (Interruption::count() == 0 || writer == nullptr || writer->status() != AVAssetWriterStatusCompleted) return false;
  std::error_code failure;
  std::filesystem::remove(options_.output, failure);
  return !failure;
}

void ExportRun::leaveAtOnce() {
  removeInterruptedMovie();
  removeTemporaryFilesOf(options_.output);
  Console::message("cancelled");
  std::_Exit(static_cast<int>(ExitCode::cancelled));
}

ExportPosition ExportRun::position() const {
  ExportPosition result;
  if (outcome_ == ExitCode::done) {
    result.percent = 100;
    result.phase = "finish";
  }
  if (render_ == nullptr) return result;
  using Phase = LUMRenderStatistics::Phase;
  const LUMRenderStatistics now = render_->statistics();
  if (now.phase == Phase::video) result.phase = "video";
  if (now.phase == Phase::audio) result.phase = "audio";
  if (now.phase == Phase::finish || now.phase == Phase::done) result.phase = "finish";
  const auto done = [this](const CMTime& mediaTime) {
    return std::max(0.0, CMTimeGetSeconds(CMTimeSubtract(mediaTime, range_.start)) / CMTimeGetSeconds(range_.duration));
  };
  // Sound takes that part of the time: with it the percentage advances evenly.
  const double soundShare = hasSound_ ? 0.04 : 0;
  result.frameCount = now.video.frameCount;
  result.outTimeUs = std::max<int64_t>(0, microseconds(CMTimeSubtract(now.video.mediaTime, range_.start)));
  const double whole =
      (1 - soundShare) * std::min(1.0, done(now.video.mediaTime)) + soundShare * std::min(1.0, done(now.audio.mediaTime));
  result.percent = std::max(result.percent, 100 * whole);
  return result;
}

bool ExportRun::isStalled() {
  const ExportPosition now = position();
  const bool isSame =
      now.phase == lastPosition_.phase && now.frameCount == lastPosition_.frameCount && now.percent == lastPosition_.percent;
  idleTicks_ = isSame ? idleTicks_ + 1 : 0;
  lastPosition_ = now;
  return idleTicks_ > kTicksUntilStalled;
}

}  // namespace

ExitCode runExport(const ExportOptions& options) { return std::make_shared<ExportRun>(options)->run(); }

}  // namespace vidloom
