#include "vidloom/platform/coreimage/CIRenderer.h"

#include "vidloom/platform/coreimage/CIGrid.h"
#include "vidloom/platform/ffmpeg/NamedFilters.h"
#include "vidloom/platform/pixels/PicturePool.h"

namespace vidloom {

namespace {

const std::string kNoMemory = "memory has run out";

std::string sizeText(const SampleRect& rect) { return std::to_string(rect.width()) + " x " + std::to_string(rect.height()); }

SampleRect grown(const SampleRect& rect, int by) { return {rect.x0 - by, rect.y0 - by, rect.x1 + by, rect.y1 + by}; }

SampleRect limitedTo(const CGRect& extent, const SampleRect& samples) {
  return CGRectIsInfinite(extent) ? samples : intersection(samplesTouched(flippedRect(extent)), samples);
}

bool hasWholeEdges(const CGRect& extent) { return CGRectIsInfinite(extent) || samplesTouched(extent) == samplesCovered(extent); }

/// The samples of the input that the filter has to see for those of its result.
SampleRect samplesSeen(const CIFiltered& step, const SampleRect& wanted) {
  const CGRect extent = step.input->extent();
  const int margin = step.filter->margin ? step.filter->margin(step.values) : 0;
  switch (step.filter->kind) {
    case NamedFilter::Kind::area:
      return grown(wanted, margin);
    case NamedFilter::Kind::wholeImage:
      return CGRectIsInfinite(extent) ? wanted : samplesTouched(flippedRect(extent));
    case NamedFilter::Kind::color:
    case NamedFilter::Kind::detail:
      break;
  }
  return limitedTo(extent, grown(wanted, margin));
}

}  // namespace

// Steps whose samples are there already, or become so, are not painted once more.
std::optional<CIRaster> CIRenderer::render(const CIImageRef& image, const SampleRect& rect) {
  const auto& step = CIRecipe::of(*image)->step();
  const bool isWithin = limitedTo(image->extent(), rect) == rect;
  if (const auto* source = std::get_if<CISource>(&step); source && isWithin) return renderSource(image, *source, rect);
  if (const auto* cropped = std::get_if<CICropped>(&step)) {
    if (samplesCovered(rectOf(rect)) == intersection(samplesCovered(flippedRect(cropped->rect)), rect)) {
      return render(cropped->input, rect);
    }
  }
  if (const auto* clamped = std::get_if<CIClamped>(&step)) return renderClamped(*clamped, rect);
  if (const auto* filtered = std::get_if<CIFiltered>(&step); filtered && isWithin && hasWholeEdges(image->extent())) {
    return renderFiltered(*filtered, rect);
  }
  return renderPainted(image, rect);
}

std::optional<CIRaster> CIRenderer::renderSource(const CIImageRef& image, const CISource& source, const SampleRect& rect) {
  const auto raster = memory_.source(CIRecipe::of(*image), source);
  if (raster) return raster->part(rect);
  fail(kNoMemory);
  return std::nullopt;
}

std::optional<CIRaster> CIRenderer::renderClamped(const CIClamped& step, const SampleRect& rect) {
  const CGRect extent = flippedRect(step.input->extent());
  const SampleRect covered = samplesCovered(extent).isEmpty() ? samplesTouched(extent) : samplesCovered(extent);
  if (intersection(covered, rect) == rect) return render(step.input, rect);
  const auto input = render(step.input, covered);
  auto canvas = input ? makeCanvas(rect) : std::nullopt;
  if (!canvas) return std::nullopt;
  canvas->extend(*input);
  return canvas->raster();
}

std::optional<CIRaster> CIRenderer::renderFiltered(const CIFiltered& step, const SampleRect& rect) {
  const auto input = render(step.input, samplesSeen(step, rect));
  const auto result = input ? filter(step, *input) : std::nullopt;
  return result ? std::optional(result->part(rect)) : std::nullopt;
}

std::optional<CIRaster> CIRenderer::renderPainted(const CIImageRef& image, const SampleRect& rect) {
  auto canvas = makeCanvas(rect);
  if (!canvas || !paint(image, {CGAffineTransformIdentity, rect, *canvas})) return std::nullopt;
  return canvas->raster();
}

std::optional<CICanvas> CIRenderer::makeCanvas(const SampleRect& rect) {
  auto canvas = CICanvas::make(rect, memory_.drawing());
  if (!canvas) fail("a picture of " + sizeText(rect) + " pixels cannot be made");
  return canvas;
}

bool CIRenderer::fail(const std::string& problem) {
  if (problem_.empty()) problem_ = problem;
  return false;
}

bool CIRenderer::paint(const CIImageRef& image, const Target& target) {
  const CGRect there = CGRectApplyAffineTransform(flippedRect(image->extent()), target.map);
  if (target.clip.isEmpty() || CGRectIsNull(CGRectIntersection(there, rectOf(target.clip)))) return true;
  return std::visit([&](const auto& step) { return paintStep(image, step, target); }, CIRecipe::of(*image)->step());
}

bool CIRenderer::paintRaster(const CIRaster& raster, const CGRect& visible, const Target& target) {
  return target.canvas.paint(raster, visible, target.map, target.clip, memory_.drawing()) || fail(kNoMemory);
}

bool CIRenderer::paintStep(const CIImageRef&, const std::monostate&, const Target&) { return true; }

bool CIRenderer::paintStep(const CIImageRef& image, const CISource& step, const Target& target) {
  const auto raster = memory_.source(CIRecipe::of(*image), step);
  return raster ? paintRaster(*raster, rectOf(raster->rect), target) : fail(kNoMemory);
}

bool CIRenderer::paintStep(const CIImageRef&, const CIColorFill& step, const Target& target) {
  target.canvas.fill(step.premultipliedBGRA, target.clip);
  return true;
}

bool CIRenderer::paintStep(const CIImageRef&, const CITransformed& step, const Target& target) {
  return paint(step.input, {CGAffineTransformConcat(flippedTransform(step.matrix), target.map), target.clip, target.canvas});
}

bool CIRenderer::paintStep(const CIImageRef&, const CIComposite& step, const Target& target) {
  return paint(step.bottom, target) && paint(step.top, target);
}

// Edges between samples need the picture as it is before the map; others are a matter of where to paint.
bool CIRenderer::paintStep(const CIImageRef&, const CICropped& step, const Target& target) {
  const CGRect visible = flippedRect(step.rect);
  const SampleRect touched = samplesTouched(visible);
  if (isWholeShift(target.map) && touched == samplesCovered(visible)) {
    const SampleRect there = moved(touched, static_cast<int>(target.map.tx), static_cast<int>(target.map.ty));
    return paint(step.input, {target.map, intersection(target.clip, there), target.canvas});
  }
  const auto& recipe = CIRecipe::of(*step.input);
  if (const auto* source = std::get_if<CISource>(&recipe->step())) {
    const auto raster = memory_.source(recipe, *source);
    return raster ? paintRaster(*raster, visible, target) : fail(kNoMemory);
  }
  const SampleRect needed = intersection(touched, samplesBefore(target.map, target.clip));
  if (needed.isEmpty()) return true;
  const auto raster = render(step.input, needed);
  return raster && paintRaster(*raster, visible, target);
}

bool CIRenderer::paintStep(const CIImageRef&, const CIClamped& step, const Target& target) {
  const SampleRect needed = samplesBefore(target.map, target.clip);
  const auto raster = renderClamped(step, needed);
  return raster && paintRaster(*raster, rectOf(needed), target);
}

bool CIRenderer::paintStep(const CIImageRef& image, const CIFiltered& step, const Target& target) {
  const SampleRect wanted = limitedTo(image->extent(), samplesBefore(target.map, target.clip));
  if (wanted.isEmpty() || samplesSeen(step, wanted).isEmpty()) return true;
  const auto raster = renderFiltered(step, wanted);
  const CGRect visible = CGRectIsInfinite(image->extent()) ? rectOf(wanted) : flippedRect(image->extent());
  return raster && paintRaster(*raster, visible, target);
}

std::optional<CIRaster> CIRenderer::filter(const CIFiltered& step, const CIRaster& input) {
  const bool isStraight = step.filter->kind == NamedFilter::Kind::color || step.filter->kind == NamedFilter::Kind::detail;
  const bool divides = isStraight && !input.isOpaque;
  std::optional<CICanvas> straight;
  if (divides) {
    straight = makeCanvas(input.rect);
    if (!straight) return std::nullopt;
    straight->extend(input);
    unpremultiplyPlanes(straight->planes());
  }
  FilteredPlanes filtered;
  std::string words;
  if (!memory_.filters().run(step.filter->chain(step.values), divides ? straight->raster().planes : input.planes, input.isOpaque,
                             filtered, words)) {
    fail("the image filter \"" + step.filter->name + "\" has failed: " + words);
    return std::nullopt;
  }
  if (divides) premultiplyPlanes(filtered.planes);
  CIRaster raster{input.rect, {}, filtered.owner, input.isOpaque};
  for (size_t i = 0; i < raster.planes.size(); ++i) raster.planes[i] = filtered.planes[i].view();
  if (!input.isOpaque) return raster;
  raster.planes[3] = input.planes[3];
  raster.owner = std::make_shared<std::pair<std::shared_ptr<const void>, std::shared_ptr<const void>>>(filtered.owner, input.owner);
  return raster;
}

}  // namespace vidloom
