// Works recipes out, sample by sample.
#pragma once

#include <list>
#include <mutex>
#include <string>

#include "vidloom/platform/coreimage/CICanvas.h"
#include "vidloom/platform/coreimage/CIRecipe.h"
#include "vidloom/platform/ffmpeg/PlaneFilter.h"

namespace vidloom {

/// What rendering keeps from call to call. Any thread.
class CIRenderMemory {
 public:
  explicit CIRenderMemory(PicturePool& pool) : pool_(pool) {}

  DrawingMemory drawing() { return {pool_, plans_}; }
  PlaneFilter& filters() { return filters_; }
  /// The pixels of a source step; those of bitmaps are kept. Nothing where memory has run out.
  std::optional<CIRaster> source(const std::shared_ptr<const CIRecipe>& recipe, const CISource& source);

 private:
  struct Kept {
    std::weak_ptr<const CIRecipe> recipe;
    CIRaster raster;
  };
  std::optional<CIRaster> recall(const std::shared_ptr<const CIRecipe>& recipe);

  PicturePool& pool_;
  ScalePlanCache plans_;
  PlaneFilter filters_;
  std::mutex mutex_;
  std::list<Kept> kept_;
};

/// Renders one image. One thread at a time.
class CIRenderer {
 public:
  explicit CIRenderer(CIRenderMemory& memory) : memory_(memory) {}

  /// The image within those samples of the grid. Nothing with a problem.
  std::optional<CIRaster> render(const CIImageRef& image, const SampleRect& rect);
  const std::string& problem() const { return problem_; }

 private:
  struct Target {
    CGAffineTransform map;  ///< from the image's grid to the canvas'
    SampleRect clip;
    CICanvas& canvas;
  };

  std::optional<CIRaster> renderSource(const CIImageRef& image, const CISource& source, const SampleRect& rect);
  std::optional<CIRaster> renderClamped(const CIClamped& step, const SampleRect& rect);
  std::optional<CIRaster> renderFiltered(const CIFiltered& step, const SampleRect& rect);
  std::optional<CIRaster> renderPainted(const CIImageRef& image, const SampleRect& rect);
  bool paint(const CIImageRef& image, const Target& target);
  bool paintStep(const CIImageRef& image, const std::monostate& step, const Target& target);
  bool paintStep(const CIImageRef& image, const CISource& step, const Target& target);
  bool paintStep(const CIImageRef& image, const CIColorFill& step, const Target& target);
  bool paintStep(const CIImageRef& image, const CITransformed& step, const Target& target);
  bool paintStep(const CIImageRef& image, const CICropped& step, const Target& target);
  bool paintStep(const CIImageRef& image, const CIClamped& step, const Target& target);
  bool paintStep(const CIImageRef& image, const CIComposite& step, const Target& target);
  bool paintStep(const CIImageRef& image, const CIFiltered& step, const Target& target);
  bool paintRaster(const CIRaster& raster, const CGRect& visible, const Target& target);
  std::optional<CIRaster> filter(const CIFiltered& step, const CIRaster& input);
  bool fail(const std::string& problem);
  std::optional<CICanvas> makeCanvas(const SampleRect& rect);

  CIRenderMemory& memory_;
  std::string problem_;
};

}  // namespace vidloom
