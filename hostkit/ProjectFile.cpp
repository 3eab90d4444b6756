#include "hostkit/ProjectFile.h"

#include "hostkit/ProjectParser.h"

namespace vidloom {

std::optional<ProjectFile> ProjectFile::read(const std::filesystem::path& file, const ProjectOptions& options,
                                             ProjectProblems& problems) {
  const size_t before = problems.size();
  const auto document = ProjectJsonReader(file, problems).document();
  if (!document) return std::nullopt;
  auto project = ProjectParser(file, options, problems).parse(*document);
  return problems.size() == before ? project : std::nullopt;
}

}  // namespace vidloom
