#include <filesystem>
#include <memory>
#include <nlohmann/json.hpp>

#include "hostkit/TimeText.h"
#include "tools/Commands.h"
#include "tools/Console.h"
#include "vidloom/platform/avfoundation/AVURLAsset.h"
#include "vidloom/platform/ffmpeg/MediaFile.h"

namespace vidloom {
namespace {

using Json = nlohmann::ordered_json;

Json jsonOfTime(const CMTime& time) { return {{"seconds", CMTimeGetSeconds(time)}, {"rational", exactTextFromTime(time)}}; }

Json jsonOfRange(const CMTimeRange& range) {
  return {{"start", jsonOfTime(range.start)}, {"duration", jsonOfTime(range.duration)}};
}

Json jsonOfColour(const MediaTrack& track) {
  return {{"range", track.color.fullRange ? "full" : "limited"},
          {"matrix", track.color.matrixName},
          {"primaries", track.color.primaries},
          {"transfer", track.color.transfer},
          {"tagged", track.colorIsTagged}};
}

void addPicture(Json& json, const MediaTrack& track) {
  const CGAffineTransform& t = track.preferredTransform;
  json["naturalSize"] = {track.naturalSize.width, track.naturalSize.height};
  json["codedSize"] = {track.codedWidth, track.codedHeight};
  json["preferredTransform"] = {t.a, t.b, t.c, t.d, t.tx, t.ty};
  json["nominalFrameRate"] = track.nominalFrameRate;
  json["variableFrameRate"] = track.variableFrameRate;
  json["colour"] = jsonOfColour(track);
  json["highDynamicRange"] = track.highDynamicRange;
  json["alpha"] = track.hasAlpha;
  json["interlaced"] = track.interlaced;
}

Json jsonOfTrack(const MediaTrack& track) {
  const char* const types[] = {"video", "audio", "other"};
  Json json = {{"id", track.trackID},
               {"type", types[static_cast<size_t>(track.kind)]},
               {"codec", track.codec},
               {"enabled", track.enabled},
               {"timeRange", jsonOfRange(track.timeRange)}};
  if (track.kind == MediaKind::video) addPicture(json, track);
  if (track.kind == MediaKind::audio) {
    json["channels"] = track.channels;
    json["sampleRate"] = track.sampleRate;
  }
  return json;
}

ExitCode probe(const std::filesystem::path& path) {
  const auto asset = AVURLAsset::initWithURL(path);
  if (asset->mediaFile() == nullptr) {
    const std::string cause = asset->openError() ? textOf(*asset->openError()) : "cannot be opened";
    const bool isNamed = cause.find(path.filename().string()) != std::string::npos;
    Console::message(isNamed ? cause : path.string() + ": " + cause);
    return ExitCode::input;
  }
  const MediaFile& file = *asset->mediaFile();
  Json json = {{"file", path.string()}, {"container", file.container()}, {"duration", jsonOfTime(file.duration())}};
  json["tracks"] = Json::array();
  for (const MediaTrack& track : file.tracks()) json["tracks"].push_back(jsonOfTrack(track));
  constexpr int kIndent = 2;
  const std::string text = json.dump(kIndent, ' ', false, Json::error_handler_t::replace) + "\n";
  return writeToStandardOutput(text) ? ExitCode::done : ExitCode::output;
}

}  // namespace

void addProbeCommand(CLI::App& app, CommandRun& run) {
  auto* const command = app.add_subcommand("probe", "Describe a media file as JSON");
  const auto path = std::make_shared<std::filesystem::path>();
  command->add_option("FILE", *path, "The media file")->required();
  command->callback([path, &run] { run = [path] { return probe(*path); }; });
}

}  // namespace vidloom
