#pragma once

#include <set>
#include <string>

#include "hostkit/ProjectFile.h"
#include "hostkit/ProjectJson.h"

namespace vidloom {

/// Turns a document into a ProjectFile. Goes on after a problem, so that one pass finds all of them.
class ProjectParser {
 public:
  ProjectParser(const std::filesystem::path& file, const ProjectOptions& options, ProjectProblems& problems);

  /// Nullopt where the document is not even an object. What could not be read keeps its default.
  std::optional<ProjectFile> parse(const nlohmann::json& document);

 private:
  using TrackReader = void (ProjectParser::*)(const ProjectJsonNode& value, ProjectTrack& track);
  struct TrackKey {
    const char* name;
    const char* types;  ///< of tracks that have it: m(edia), i(mage), t(ext)
    TrackReader read;
  };
  static const TrackKey kTrackKeys[];

  void readHead(const ProjectJsonNode& root);
  void readRenderSize(const ProjectJsonNode& value);
  ProjectInstruction readInstruction(const ProjectJsonNode& node);
  ProjectTrack readTrack(const ProjectJsonNode& node);
  /// Nullopt, with a note, for a type that is not known or cannot be honoured.
  std::optional<ProjectTrackType> readType(const ProjectJsonNode& node);
  void readTrackKey(const ProjectJsonNode& node, const std::string& key, ProjectTrack& track);
  void requireTrackKeys(const ProjectJsonNode& node, const ProjectTrack& track);
  void refuseNatively(const ProjectJsonNode& value, const std::string& what);
  void readId(const ProjectJsonNode& owner, uint64_t& id, std::set<uint64_t>& used, const std::string& what);
  void readTime(const ProjectJsonNode& value, CMTime& time);

  void readNothing(const ProjectJsonNode& value, ProjectTrack& track);
  void readSource(const ProjectJsonNode& value, ProjectTrack& track);
  void readStart(const ProjectJsonNode& value, ProjectTrack& track);
  void readLeftTrim(const ProjectJsonNode& value, ProjectTrack& track);
  void readRightTrim(const ProjectJsonNode& value, ProjectTrack& track);
  void readFit(const ProjectJsonNode& value, ProjectTrack& track);
  void readTransform(const ProjectJsonNode& value, ProjectTrack& track);
  void readSpeed(const ProjectJsonNode& value, ProjectTrack& track);
  void readMute(const ProjectJsonNode& value, ProjectTrack& track);
  void readCrop(const ProjectJsonNode& value, ProjectTrack& track);
  void readDuration(const ProjectJsonNode& value, ProjectTrack& track);
  void readText(const ProjectJsonNode& value, ProjectTrack& track);
  void readFont(const ProjectJsonNode& value, ProjectTrack& track);
  void readColor(const ProjectJsonNode& value, ProjectTrack& track);
  void readPosition(const ProjectJsonNode& value, ProjectTrack& track);

  ProjectOptions options_;
  ProjectJsonReader reader_;
  ProjectFile result_;
  std::filesystem::path folder_;  ///< of the project file, links resolved
  std::set<uint64_t> instructionIds_, trackIds_;
};

}  // namespace vidloom
