#include "hostkit/ProjectParser.h"

#include <algorithm>
#include <cmath>
#include <system_error>

namespace vidloom {
namespace {

constexpr uint64_t kFormatVersion = 1;
constexpr double kMaxSide = 8192;
constexpr double kRounding = 1e-9;

/// Whether `path` lies in `folder` or below it; both absolute and free of links.
bool isInside(const std::filesystem::path& path, const std::filesystem::path& folder) {
  return std::mismatch(folder.begin(), folder.end(), path.begin(), path.end()).first == folder.end();
}

}  // namespace

const ProjectParser::TrackKey ProjectParser::kTrackKeys[] = {
    {"id", "mit", &ProjectParser::readNothing},      {"type", "mit", &ProjectParser::readNothing},
    {"source", "mi", &ProjectParser::readSource},    {"start", "mit", &ProjectParser::readStart},
    {"leftTrim", "m", &ProjectParser::readLeftTrim}, {"rightTrim", "m", &ProjectParser::readRightTrim},
    {"fit", "mi", &ProjectParser::readFit},          {"transform", "mi", &ProjectParser::readTransform},
    {"mute", "m", &ProjectParser::readMute},         {"crop", "mi", &ProjectParser::readCrop},
    {"speed", "m", &ProjectParser::readSpeed},       {"duration", "it", &ProjectParser::readDuration},
    {"text", "t", &ProjectParser::readText},         {"font", "t", &ProjectParser::readFont},
    {"color", "t", &ProjectParser::readColor},       {"position", "t", &ProjectParser::readPosition},
};

ProjectParser::ProjectParser(const std::filesystem::path& file, const ProjectOptions& options, ProjectProblems& problems)
    : options_(options), reader_(file, problems) {
  result_.file = file;
  std::error_code failure;
  folder_ = std::filesystem::canonical(std::filesystem::absolute(file, failure).parent_path(), failure);
}

std::optional<ProjectFile> ProjectParser::parse(const nlohmann::json& document) {
  const ProjectJsonNode root{&document, ""};
  if (!reader_.isObject(root)) return std::nullopt;
  reader_.refuseOtherKeys(root, "a project", {"vidloom", "renderSize", "fps", "instructions"});
  readHead(root);
  const ProjectJsonNode instructions = reader_.required(root, "instructions");
  if (instructions && reader_.isArray(instructions)) {
    for (size_t i = 0; i < instructions.value->size(); ++i) {
      result_.instructions.push_back(readInstruction(instructions.element(i)));
    }
  }
  return result_;
}

void ProjectParser::readHead(const ProjectJsonNode& root) {
  if (const auto node = reader_.required(root, "vidloom")) {
    const auto version = reader_.wholeNumber(node);
    if (version && *version != kFormatVersion) {
      reader_.note(node.pointer, "version " + std::to_string(*version) + " of project files is not known; this is version 1");
    }
  }
  if (const auto node = reader_.required(root, "renderSize")) readRenderSize(node);
  if (const auto node = reader_.required(root, "fps")) {
    const auto fps = reader_.wholeNumber(node);
    constexpr uint64_t kRates[] = {15, 25, 30, 60};
    if (fps && std::find(std::begin(kRates), std::end(kRates), *fps) == std::end(kRates)) {
      reader_.note(node.pointer, "must be 15, 25, 30 or 60, not " + std::to_string(*fps));
    }
    result_.fps = fps.value_or(0);
  }
}

void ProjectParser::readRenderSize(const ProjectJsonNode& value) {
  const auto size = reader_.numbers(value, 2);
  if (!size) return;
  for (const double side : *size) {
    if (side != std::floor(side) || side < 2 || side > kMaxSide) {
      reader_.note(value.pointer, "width and height must be whole numbers from 2 to 8192");
      return;
    }
  }
  result_.renderSize = CGSizeMake((*size)[0], (*size)[1]);
}

ProjectInstruction ProjectParser::readInstruction(const ProjectJsonNode& node) {
  ProjectInstruction instruction;
  if (!reader_.isObject(node)) return instruction;
  reader_.refuseOtherKeys(node, "an instruction", {"id", "start", "tracks"});
  readId(node, instruction.id, instructionIds_, "instruction");
  if (const auto start = node.member("start")) readTime(start, instruction.start);
  const ProjectJsonNode tracks = node.member("tracks");
  if (!tracks || !reader_.isArray(tracks)) return instruction;
  for (size_t i = 0; i < tracks.value->size(); ++i) {
    instruction.tracks.push_back(readTrack(tracks.element(i)));
  }
  return instruction;
}

ProjectTrack ProjectParser::readTrack(const ProjectJsonNode& node) {
  ProjectTrack track;
  track.pointer = node.pointer;
  if (!reader_.isObject(node)) return track;
  readId(node, track.id, trackIds_, "track");
  const auto type = readType(node);
  if (!type) return track;
  track.type = *type;
  for (const auto& [key, value] : node.value->items()) readTrackKey({&value, jsonPointerTo(node.pointer, key)}, key, track);
  requireTrackKeys(node, track);
  return track;
}

void ProjectParser::readTrackKey(const ProjectJsonNode& node, const std::string& key, ProjectTrack& track) {
  constexpr const char* kKinds[] = {"a media track", "an image track", "a text track"};
  const auto type = static_cast<size_t>(track.type);
  const auto* const known =
      std::find_if(std::begin(kTrackKeys), std::end(kTrackKeys), [&](const TrackKey& k) { return key == k.name; });
  if (known == std::end(kTrackKeys) || std::string(known->types).find("mit"[type]) == std::string::npos) {
    reader_.note(node.pointer, "\"" + key + "\" is no key of " + kKinds[type]);
  } else {
    (this->*known->read)(node, track);
  }
}

void ProjectParser::requireTrackKeys(const ProjectJsonNode& node, const ProjectTrack& track) {
  reader_.required(node, track.type == ProjectTrackType::text ? "text" : "source");
  if (track.type != ProjectTrackType::media) reader_.required(node, "duration");
  if (node.member("fit") && node.member("transform")) {
    reader_.note(node.pointer, "\"fit\" and \"transform\" cannot both be given");
  }
}

std::optional<ProjectTrackType> ProjectParser::readType(const ProjectJsonNode& node) {
  const ProjectJsonNode type = node.member("type");
  if (!type) return ProjectTrackType::media;
  constexpr const char* kTypes[] = {"media", "image", "text"};
  const auto choice = reader_.choice(type, {kTypes[0], kTypes[1], kTypes[2]});
  if (!choice) return std::nullopt;
  if (options_.native && *choice > 0) {
    refuseNatively(type, std::string("\"type\": \"") + kTypes[*choice] + "\"");
    return std::nullopt;
  }
  return static_cast<ProjectTrackType>(*choice);
}

void ProjectParser::refuseNatively(const ProjectJsonNode& value, const std::string& what) {
  reader_.note(value.pointer, what + " is not supported by native composition");
}

void ProjectParser::readId(const ProjectJsonNode& owner, uint64_t& id, std::set<uint64_t>& used, const std::string& what) {
  const ProjectJsonNode node = reader_.required(owner, "id");
  const auto number = node ? reader_.wholeNumber(node) : std::nullopt;
  if (!number) return;
  id = *number;
  if (!used.insert(id).second) reader_.note(node.pointer, "another " + what + " has the id " + std::to_string(id) + " too");
}

void ProjectParser::readTime(const ProjectJsonNode& value, CMTime& time) { time = reader_.time(value).value_or(kCMTimeZero); }

void ProjectParser::readNothing(const ProjectJsonNode&, ProjectTrack&) {}

void ProjectParser::readSource(const ProjectJsonNode& value, ProjectTrack& track) {
  track.source = reader_.string(value).value_or("");
  if (track.source.empty() || track.source.find('\0') != std::string::npos) {
    if (value.value->is_string()) reader_.note(value.pointer, "must be the path of a file");
    track.source.clear();
    return;
  }
  std::error_code failure;
  track.path = std::filesystem::weakly_canonical(folder_ / track.source, failure);
  if (failure) {
    reader_.note(value.pointer, track.source + ": " + failure.message());
  } else if (!options_.allowOutside && !isInside(track.path, folder_)) {
    reader_.note(value.pointer, track.source + " lies outside the project's folder (--allow-outside permits that)");
  } else if (!std::filesystem::exists(track.path, failure)) {
    reader_.note(value.pointer, track.source + ": " + (failure ? failure.message() : "the file does not exist"));
  }
}

void ProjectParser::readStart(const ProjectJsonNode& value, ProjectTrack& track) { readTime(value, track.start); }
void ProjectParser::readLeftTrim(const ProjectJsonNode& value, ProjectTrack& track) { readTime(value, track.leftTrim); }
void ProjectParser::readRightTrim(const ProjectJsonNode& value, ProjectTrack& track) { readTime(value, track.rightTrim); }

void ProjectParser::readFit(const ProjectJsonNode& value, ProjectTrack& track) {
  constexpr ProjectFit kFits[] = {ProjectFit::contain, ProjectFit::cover, ProjectFit::none};
  track.fit = kFits[reader_.choice(value, {"contain", "cover", "none"}).value_or(0)];
}

void ProjectParser::readTransform(const ProjectJsonNode& value, ProjectTrack& track) {
  const auto n = reader_.numbers(value, 6);
  if (n) track.transform = CGAffineTransformMake((*n)[0], (*n)[1], (*n)[2], (*n)[3], (*n)[4], (*n)[5]);
}

void ProjectParser::readSpeed(const ProjectJsonNode& value, ProjectTrack& track) {
  track.speed = vidloom::readSpeed(reader_, value);
}

void ProjectParser::readMute(const ProjectJsonNode& value, ProjectTrack& track) {
  track.mute = reader_.boolean(value).value_or(false);
}

void ProjectParser::readCrop(const ProjectJsonNode& value, ProjectTrack& track) {
  if (options_.native) return refuseNatively(value, "\"crop\"");
  if (!reader_.isObject(value)) return;
  reader_.refuseOtherKeys(value, "a crop", {"percent", "absolute"});
  const ProjectJsonNode percent = value.member("percent"), absolute = value.member("absolute");
  if (static_cast<bool>(percent) == static_cast<bool>(absolute)) {
    return reader_.note(value.pointer, "needs either \"percent\" or \"absolute\"");
  }
  const ProjectJsonNode& given = percent ? percent : absolute;
  const auto n = reader_.numbers(given, 4);
  if (!n) return;
  const CGRect rect = CGRectMake((*n)[0], (*n)[1], (*n)[2], (*n)[3]);
  if (rect.origin.x < 0 || rect.origin.y < 0 || !(rect.size.width > 0) || !(rect.size.height > 0)) {
    return reader_.note(given.pointer, "must be [x, y, width, height] with x and y from 0 and a size above 0");
  }
  if (percent && (CGRectGetMaxX(rect) > 1 + kRounding || CGRectGetMaxY(rect) > 1 + kRounding)) {
    return reader_.note(given.pointer, "reaches beyond the picture: \"percent\" counts in fractions from 0 to 1");
  }
  track.crop = ProjectCrop{static_cast<bool>(percent), rect};
}

void ProjectParser::readDuration(const ProjectJsonNode& value, ProjectTrack& track) {
  const auto duration = reader_.time(value);
  if (!duration) return;
  track.duration = *duration;
  if (CMTimeCompare(*duration, kCMTimeZero) == 0) reader_.note(value.pointer, "must be longer than 0");
}

void ProjectParser::readText(const ProjectJsonNode& value, ProjectTrack& track) {
  track.text = reader_.string(value).value_or("");
  const bool isBlank = track.text.find_first_not_of(" \t\r\n") == std::string::npos;
  if (value.value->is_string() && (isBlank || track.text.find('\0') != std::string::npos)) {
    reader_.note(value.pointer, "must be a text with something to see, without NUL characters");
  }
}

void ProjectParser::readFont(const ProjectJsonNode& value, ProjectTrack& track) {
  track.font = reader_.string(value).value_or("");
  if (track.font.empty() && value.value->is_string())
    reader_.note(value.pointer, "must be family, style and size: \"Sans Bold 64\"");
}

void ProjectParser::readColor(const ProjectJsonNode& value, ProjectTrack& track) {
  const auto text = reader_.string(value);
  if (!text) return;
  const bool isHex = (text->size() == 7 || text->size() == 9) && text->front() == '#' &&
                     text->find_first_not_of("0123456789abcdefABCDEF", 1) == std::string::npos;
  if (!isHex) return reader_.note(value.pointer, "must be a colour \"#rrggbb\" or \"#rrggbbaa\"");
  const auto number = static_cast<uint32_t>(std::stoul(text->substr(1), nullptr, 16));
  track.colorRGBA = text->size() == 7 ? number << 8 | 0xff : number;
}

void ProjectParser::readPosition(const ProjectJsonNode& value, ProjectTrack& track) {
  if (const auto n = reader_.numbers(value, 2)) track.position = CGPointMake((*n)[0], (*n)[1]);
}

}  // namespace vidloom
