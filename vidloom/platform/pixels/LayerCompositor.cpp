#include "vidloom/platform/pixels/LayerCompositor.h"

#include <array>
#include <cstring>
#include <mutex>
#include <span>
#include <utility>

#include "vidloom/platform/pixels/LayerPainter.h"
#include "vidloom/platform/pixels/LayerPlacement.h"
#include "vidloom/platform/pixels/PicturePool.h"

namespace vidloom {
namespace {

constexpr int kOpaque = 256;
constexpr int kLimitedBlack = 16;
constexpr int kNeutralChroma = 128;

struct PlacedLayer {
  PictureRef picture;
  LayerPlacement placement;
};

bool hides(const PlacedLayer& layer, int width, int height) {
  if (layer.picture->hasAlpha() || layer.placement.opacity != kOpaque) return false;
  return layer.placement.coverage(false).fills({0, 0, width, height});
}

bool coversAll(const PlacedLayer& layer, const Picture& output) {
  return layer.placement.coverage(false).fills({0, 0, output.width, output.height}) &&
         layer.placement.coverage(true).fills({0, 0, output.chromaWidth(), output.chromaHeight()});
}

/// The layers that can be seen, from the bottom, and whether the lowest of them fills the output.
std::pair<std::vector<PlacedLayer>, bool> visibleLayers(const std::vector<PictureLayer>& layers, int width, int height) {
  std::vector<PlacedLayer> visible;
  bool filled = false;
  for (const PictureLayer& layer : layers) {
    PlacedLayer placed{layer.picture, LayerPlacement::of(layer)};
    if (placed.placement.opacity == 0) continue;
    if (placed.placement.coverage(false).bounds({0, 0, width, height}).isEmpty()) continue;
    if (hides(placed, width, height)) {
      visible.clear();
      filled = true;
    }
    visible.push_back(std::move(placed));
  }
  return {std::move(visible), filled};
}

PicturePlane movedPlane(const PicturePlane& plane, ptrdiff_t x, ptrdiff_t y) {
  return {plane.data + y * plane.stride + x, plane.stride};
}

/// The picture that a single layer is without any work on its samples; null if there is some.
PictureRef untouched(const PlacedLayer& layer, int width, int height, const PictureColor& color) {
  const Picture& picture = *layer.picture;
  if (!layer.placement.isTranslation() || !sameCodes(picture.color, color)) return nullptr;
  const int x = -static_cast<int>(layer.placement.map.tx), y = -static_cast<int>(layer.placement.map.ty);
  if (x % 2 != 0 || y % 2 != 0) return nullptr;
  const bool whole = x == 0 && y == 0 && picture.width == width && picture.height == height;
  if (whole && picture.color == color) return layer.picture;
  auto part = std::make_shared<Picture>(picture);
  part->width = width;
  part->height = height;
  part->color = color;
  part->y = movedPlane(picture.y, x, y);
  part->cb = movedPlane(picture.cb, x / 2, y / 2);
  part->cr = movedPlane(picture.cr, x / 2, y / 2);
  part->owner = layer.picture;
  return part;
}

void fillRow(const MutablePlaneView& plane, int y, int begin, int end, int value) {
  if (begin < end) std::memset(plane.row(y) + begin, value, static_cast<size_t>(end - begin));
}

/// Paints all but the given luma and chroma rectangles black.
void fillBlack(MutablePicture& picture, const std::array<SampleRect, 2>& except) {
  for (int index = 0; index < 3; ++index) {
    const MutablePlaneView plane = planeOf(picture, index);
    const SampleRect& hole = except[index > 0];
    const int value = index > 0 ? kNeutralChroma : picture.color.fullRange ? 0 : kLimitedBlack;
    for (int y = 0; y < plane.height; ++y) {
      const bool beside = !hole.isEmpty() && y >= hole.y0 && y < hole.y1;
      fillRow(plane, y, 0, beside ? hole.x0 : plane.width, value);
      if (beside) fillRow(plane, y, hole.x1, plane.width, value);
    }
  }
}

/// The samples of the output that the layer covers entirely, as far as that is a rectangle.
std::array<SampleRect, 2> opaqueRects(const PlacedLayer& layer, const MutablePicture& output) {
  if (layer.picture->hasAlpha() || layer.placement.opacity != kOpaque) return {};
  return {layer.placement.coverage(false).solid({0, 0, output.width, output.height}),
          layer.placement.coverage(true).solid({0, 0, output.chromaWidth(), output.chromaHeight()})};
}

/// Paints the visible layers; if `filled`, the lowest one fills the output.
bool paintLayers(MutablePicture& output, std::span<const PlacedLayer> layers, bool filled, const DrawingMemory& memory) {
  LayerPainter painter(output, memory);
  if (!filled) fillBlack(output, opaqueRects(layers[0], output));
  // A second layer over all of the first reads that one where it is, instead of a copy.
  if (filled && layers.size() > 1 && coversAll(layers[1], output)) {
    if (PictureRef beneath = untouched(layers[0], output.width, output.height, output.color)) {
      painter.setBeneath(std::move(beneath));
      layers = layers.subspan(1);
    }
  }
  for (const PlacedLayer& layer : layers) {
    if (!painter.paint(layer.picture, layer.placement)) return false;
  }
  return true;
}

/// A layer as it was asked for, without keeping its picture alive.
struct RememberedLayer {
  std::weak_ptr<const Picture> picture;
  const Picture* address;
  CGSize displaySize;
  CGAffineTransform transform;
  double opacity;
  std::optional<CGRect> clip;

  explicit RememberedLayer(const PictureLayer& layer)
      : picture(layer.picture),
        address(layer.picture.get()),
        displaySize(layer.displaySize),
        transform(layer.transform),
        opacity(layer.opacity),
        clip(layer.clip) {}

  bool isSame(const PictureLayer& layer) const {
    return address == layer.picture.get() && !picture.owner_before(layer.picture) && !layer.picture.owner_before(picture) &&
           displaySize == layer.displaySize && transform == layer.transform && opacity == layer.opacity && clip == layer.clip;
  }
};

bool fits(const PictureRef& picture, int width, int height, const PictureColor& color) {
  return picture && picture->width == width && picture->height == height && picture->color == color;
}

}  // namespace

/// What is kept from call to call.
class LayerCompositor::Memory {
 public:
  PictureRef recall(const std::vector<PictureLayer>& layers, int width, int height, const PictureColor& color) const {
    std::lock_guard lock(mutex_);
    if (!fits(result_, width, height, color) || layers.size() != layers_.size()) return nullptr;
    for (size_t i = 0; i < layers.size(); ++i) {
      if (!layers_[i].isSame(layers[i])) return nullptr;
    }
    return result_;
  }

  void remember(const std::vector<PictureLayer>& layers, const PictureRef& result) {
    std::vector<RememberedLayer> remembered(layers.begin(), layers.end());
    PictureRef previous = result;
    std::lock_guard lock(mutex_);
    layers_ = std::move(remembered);
    result_.swap(previous);
  }

  ScalePlanCache& plans() { return plans_; }

  PictureRef black(int width, int height, const PictureColor& color, PicturePool& pool) {
    std::lock_guard lock(mutex_);
    if (fits(black_, width, height, color)) return black_;
    const auto picture = pool.make(width, height, color, false);
    if (picture) fillBlack(*picture, {});
    return black_ = picture;
  }

 private:
  mutable std::mutex mutex_;
  std::vector<RememberedLayer> layers_;
  PictureRef result_;
  PictureRef black_;
  ScalePlanCache plans_;
};

LayerCompositor::LayerCompositor() : LayerCompositor(PicturePool::shared()) {}
LayerCompositor::LayerCompositor(PicturePool& pool) : pool_(pool), memory_(std::make_unique<Memory>()) {}
LayerCompositor::~LayerCompositor() = default;

PictureRef LayerCompositor::compose(const std::vector<PictureLayer>& bottomToTop, int width, int height,
                                    const PictureColor& outputColor) {
  const auto [visible, filled] = visibleLayers(bottomToTop, width, height);
  if (visible.empty()) return memory_->black(width, height, outputColor, pool_);
  if (visible.size() == 1 && filled) {
    if (PictureRef same = untouched(visible[0], width, height, outputColor)) return same;
  }
  if (PictureRef known = memory_->recall(bottomToTop, width, height, outputColor)) return known;
  const auto output = pool_.make(width, height, outputColor, false);
  if (!output) return nullptr;
  if (!paintLayers(*output, visible, filled, {pool_, memory_->plans()})) return nullptr;
  memory_->remember(bottomToTop, output);
  return output;
}

}  // namespace vidloom
