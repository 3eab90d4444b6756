// Runs libav filters on single pictures of one plane a channel.
#pragma once

#include <list>
#include <memory>
#include <mutex>
#include <string>

#include "vidloom/platform/ffmpeg/FilterGraph.h"
#include "vidloom/platform/pixels/BgraPlanes.h"

namespace vidloom {

/// Planes and who keeps their memory.
struct FilteredPlanes {
  MutableBgraPlaneViews planes;
  std::shared_ptr<const void> owner;
};

/// Keeps the last few filter graphs for pictures of the same size. Any thread; concurrent calls run side by side.
class PlaneFilter {
 public:
  /// The planes, which are left as they are, through a chain in libav's notation that keeps their size. With `isOpaque` the alpha
  /// plane is left out, and the result's is a null one. False with libav's words.
  bool run(const std::string& chain, const BgraPlaneViews& planes, bool isOpaque, FilteredPlanes& result, std::string& problem);

 private:
  struct Graph {
    std::string chain;
    std::unique_ptr<FilterGraph> graph;
  };
  std::unique_ptr<FilterGraph> take(const std::string& chain, const FilterGraph::Input& input, int& avError);
  void giveBack(const std::string& chain, std::unique_ptr<FilterGraph> graph);

  std::mutex mutex_;
  std::list<Graph> graphs_;
};

}  // namespace vidloom
