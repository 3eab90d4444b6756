#include "hostkit/PixelCanvas.h"

#include <pango/pangocairo.h>

#include <algorithm>
#include <cmath>
#include <cstring>

#include "hostkit/PlotText.h"
#include "hostkit/TextPicture.h"

namespace vidloom {
namespace {

constexpr uint32_t kTextColorRGBA = 0x222222ff;
constexpr double kAscent = 0.905;  // of the font, above the baseline, in sizes

void setColor(cairo_t* canvas, uint32_t rgba) {
  const auto part = [rgba](int shift) { return (rgba >> shift & 0xff) / 255.0; };
  cairo_set_source_rgba(canvas, part(24), part(16), part(8), part(0));
}

}  // namespace

struct PixelCanvas::Surface {
  Surface(int width, int height)
      : pixels(cairo_image_surface_create(CAIRO_FORMAT_RGB24, width, height), cairo_surface_destroy),
        canvas(cairo_create(pixels.get()), cairo_destroy) {}

  std::shared_ptr<cairo_surface_t> pixels;
  std::shared_ptr<cairo_t> canvas;
};

PixelCanvas::PixelCanvas(int width, int height)
    : surface_(std::make_unique<Surface>(width, height)), width_(width), height_(height) {
  cairo_set_source_rgb(surface_->canvas.get(), 1, 1, 1);
  cairo_paint(surface_->canvas.get());
}

PixelCanvas::~PixelCanvas() = default;

void PixelCanvas::fill(const CGRect& area, uint32_t colorRGBA) {
  cairo_t* const canvas = surface_->canvas.get();
  setColor(canvas, colorRGBA);
  cairo_rectangle(canvas, area.origin.x, area.origin.y, area.size.width, area.size.height);
  cairo_fill(canvas);
}

void PixelCanvas::band(double left, std::span<const PlotColumn> columns, uint32_t colorRGBA) {
  cairo_t* const canvas = surface_->canvas.get();
  setColor(canvas, colorRGBA);
  for (const PlotColumn& column : columns) {
    if (column.isDrawn) cairo_rectangle(canvas, left, column.top, 1, column.bottom - column.top);
    ++left;
  }
  cairo_fill(canvas);
}

void PixelCanvas::text(const std::string& text, const CGPoint& point, PlotAnchor anchor, double sizePixels, bool isBold) {
  TextStyle style;
  style.font = plotFont(sizePixels, isBold);
  style.colorRGBA = kTextColorRGBA;
  std::string problem;
  const auto picture = pictureOfText(readableText(text), style, 1, problem);
  if (!picture) return;
  const double width = picture->frame.size.width;
  const double shift = anchor == PlotAnchor::left ? 0 : anchor == PlotAnchor::middle ? width / 2 : width;
  const double left = std::round(point.x - shift + picture->frame.origin.x);
  const double top = std::round(point.y - kAscent * sizePixels + picture->frame.origin.y);
  const std::shared_ptr<cairo_surface_t> glyphs(
      cairo_image_surface_create_for_data(const_cast<uint8_t*>(CGImageGetBytes(picture->image)), CAIRO_FORMAT_ARGB32,
                                          static_cast<int>(CGImageGetWidth(picture->image)),
                                          static_cast<int>(CGImageGetHeight(picture->image)),
                                          static_cast<int>(CGImageGetBytesPerRow(picture->image))),
      cairo_surface_destroy);
  cairo_set_source_surface(surface_->canvas.get(), glyphs.get(), left, top);
  cairo_paint(surface_->canvas.get());
}

void PixelCanvas::pixels(int left, int top, int width, int height, std::span<const uint32_t> rows) {
  cairo_surface_t* const surface = surface_->pixels.get();
  if (cairo_surface_status(surface) != CAIRO_STATUS_SUCCESS) return;
  cairo_surface_flush(surface);
  const auto stride = static_cast<ptrdiff_t>(cairo_image_surface_get_stride(surface));
  uint8_t* const bytes = cairo_image_surface_get_data(surface);
  for (int y = 0; y < height; ++y) {
    std::memcpy(bytes + (top + y) * stride + ptrdiff_t{4} * left, rows.data() + static_cast<size_t>(y) * static_cast<size_t>(width),
                sizeof(uint32_t) * static_cast<size_t>(width));
  }
  cairo_surface_mark_dirty(surface);
}

CGImageRef PixelCanvas::image() const {
  cairo_surface_t* const surface = surface_->pixels.get();
  cairo_surface_flush(surface);
  const bool isDrawn =
      cairo_status(surface_->canvas.get()) == CAIRO_STATUS_SUCCESS && cairo_surface_status(surface) == CAIRO_STATUS_SUCCESS;
  if (!isDrawn) return nullptr;
  const std::shared_ptr<const uint8_t> bytes(surface_->pixels, cairo_image_surface_get_data(surface));
  return CGImageCreate(static_cast<size_t>(width_), static_cast<size_t>(height_),
                       static_cast<size_t>(cairo_image_surface_get_stride(surface)), bytes, kCGImageAlphaNone,
                       CGColorSpaceCreateWithName(kCGColorSpaceSRGB));
}

}  // namespace vidloom
