#include "hostkit/TextPicture.h"

#include <fontconfig/fontconfig.h>
#include <pango/pangocairo.h>
#include <pango/pangofc-fontmap.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <mutex>

#include "vidloom/platform/foundation/NSBundle.h"
#include "vidloom/platform/foundation/NSLog.h"

namespace vidloom {
namespace {

constexpr const char* kOwnFamily = "Liberation Sans";
constexpr int kDefaultSizePixels = 48;
constexpr int kLargestSidePixels = 8192;
constexpr double kLargestFontPixels = 4096;

struct Unref {
  void operator()(void* object) const { g_object_unref(object); }
  void operator()(PangoFontDescription* font) const { pango_font_description_free(font); }
  void operator()(cairo_t* canvas) const { cairo_destroy(canvas); }
  void operator()(cairo_font_options_t* options) const { cairo_font_options_destroy(options); }
};
template <class Object>
using Owned = std::unique_ptr<Object, Unref>;

std::filesystem::path fontFile(const std::string& name) {
  const auto installed = NSBundle::bundleForLibrary().pathForResource("fonts/" + name, "ttf");
  return installed.empty() ? NSBundle({VIDLOOM_HOSTKIT_SOURCE}).pathForResource("fonts/" + name, "ttf") : installed;
}

/// The fonts of the machine and our own. One at a time may use them.
PangoFontMap* fontMap() {
  static PangoFontMap* const map = [] {
    FcConfig* const config = FcConfigCreate();
    const bool isConfigured = FcConfigParseAndLoad(config, nullptr, FcFalse) == FcTrue;
    if (isConfigured) FcConfigBuildFonts(config);
    for (const char* const name : {"LiberationSans-Regular", "LiberationSans-Bold"}) {
      const std::string file = fontFile(name).string();
      const bool isAdded =
          !file.empty() && FcConfigAppFontAddFile(config, reinterpret_cast<const FcChar8*>(file.c_str())) == FcTrue;
      if (!isAdded) NSLog(std::string("The font ") + name + " of the host kit is missing");
    }
    // Cairo asks for the process's own configuration, which is looked for with complaints where the machine has none.
    if (!isConfigured) FcConfigSetCurrent(config);
    PangoFontMap* const made = pango_cairo_font_map_new_for_font_type(CAIRO_FONT_TYPE_FT);
    pango_fc_font_map_set_config(PANGO_FC_FONT_MAP(made), config);
    FcConfigDestroy(config);
    return made;
  }();
  return map;
}

/// The font asked for with our own family behind it; null where its size is none.
Owned<PangoFontDescription> fontOf(const std::string& name, double scale) {
  Owned<PangoFontDescription> font(pango_font_description_from_string(name.c_str()));
  const char* const given = pango_font_description_get_family(font.get());
  std::string family = given == nullptr ? "" : given;
  std::string lower = family;
  std::transform(lower.begin(), lower.end(), lower.begin(),
                 [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c; });
  const bool isOurs = lower.empty() || lower == "sans" || lower == "sans-serif";
  family = isOurs ? kOwnFamily : family + "," + kOwnFamily;
  pango_font_description_set_family(font.get(), family.c_str());
  const double asked = pango_font_description_get_size(font.get());
  const double size = asked > 0 ? asked / PANGO_SCALE : kDefaultSizePixels;
  if (size * scale > kLargestFontPixels) return nullptr;
  pango_font_description_set_absolute_size(font.get(), size * scale * PANGO_SCALE);
  return font;
}

Owned<PangoLayout> layoutOf(const std::string& text, const PangoFontDescription* font) {
  const Owned<PangoContext> context(pango_font_map_create_context(fontMap()));
  // Whatever the machine prefers: glyphs keep their shapes and distances.
  const Owned<cairo_font_options_t> options(cairo_font_options_create());
  cairo_font_options_set_antialias(options.get(), CAIRO_ANTIALIAS_GRAY);
  cairo_font_options_set_hint_style(options.get(), CAIRO_HINT_STYLE_NONE);
  cairo_font_options_set_hint_metrics(options.get(), CAIRO_HINT_METRICS_OFF);
  pango_cairo_context_set_font_options(context.get(), options.get());
  pango_cairo_context_set_resolution(context.get(), 72);
  pango_context_set_language(context.get(), pango_language_from_string("en"));
  Owned<PangoLayout> layout(pango_layout_new(context.get()));
  pango_layout_set_font_description(layout.get(), font);
  pango_layout_set_text(layout.get(), text.c_str(), static_cast<int>(text.size()));
  return layout;
}

void setColor(cairo_t* canvas, uint32_t rgba) {
  const auto part = [rgba](int shift) { return (rgba >> shift & 0xff) / 255.0; };
  cairo_set_source_rgba(canvas, part(24), part(16), part(8), part(0));
}

/// The pixels of `area`, a part of the layout's plane. Null where memory has run out.
CGImageRef drawn(PangoLayout* layout, const PangoRectangle& area, const PangoRectangle& box, const TextStyle& style) {
  const int stride = cairo_format_stride_for_width(CAIRO_FORMAT_ARGB32, area.width);
  const std::shared_ptr<cairo_surface_t> surface(cairo_image_surface_create(CAIRO_FORMAT_ARGB32, area.width, area.height),
                                                 cairo_surface_destroy);
  const Owned<cairo_t> canvas(cairo_create(surface.get()));
  cairo_translate(canvas.get(), -area.x, -area.y);
  if ((style.backgroundRGBA & 0xff) != 0) {
    setColor(canvas.get(), style.backgroundRGBA);
    cairo_rectangle(canvas.get(), box.x, box.y, box.width, box.height);
    cairo_fill(canvas.get());
  }
  setColor(canvas.get(), style.colorRGBA);
  pango_cairo_show_layout(canvas.get(), layout);
  cairo_surface_flush(surface.get());
  if (cairo_surface_status(surface.get()) != CAIRO_STATUS_SUCCESS) return nullptr;
  const std::shared_ptr<const uint8_t> bytes(surface, cairo_image_surface_get_data(surface.get()));
  return CGImageCreate(static_cast<size_t>(area.width), static_cast<size_t>(area.height), static_cast<size_t>(stride), bytes,
                       kCGImageAlphaPremultipliedFirst, CGColorSpaceCreateWithName(kCGColorSpaceSRGB));
}

PangoRectangle unionOf(const PangoRectangle& a, const PangoRectangle& b) {
  const int x = std::min(a.x, b.x), y = std::min(a.y, b.y);
  return {x, y, std::max(a.x + a.width, b.x + b.width) - x, std::max(a.y + a.height, b.y + b.height) - y};
}

}  // namespace

std::optional<TextPicture> pictureOfText(const std::string& text, const TextStyle& style, double scale, std::string& problem) {
  static std::mutex& oneAtATime = *std::make_unique<std::mutex>().release();
  const std::lock_guard lock(oneAtATime);
  const auto font = fontOf(style.font, scale);
  if (!font) {
    problem = "the font size of \"" + style.font + "\" is too large";
    return std::nullopt;
  }
  const auto layout = layoutOf(text, font.get());
  PangoRectangle ink, box;
  pango_layout_get_pixel_extents(layout.get(), &ink, &box);
  const PangoRectangle area = unionOf({ink.x - 1, ink.y - 1, ink.width + 2, ink.height + 2}, box);
  if (area.width > kLargestSidePixels || area.height > kLargestSidePixels) {
    problem = NSStringWithFormat("the text is too large: %d x %d pixels, at most %d on a side", area.width, area.height,
                                 kLargestSidePixels);
    return std::nullopt;
  }
  TextPicture picture;
  picture.image = drawn(layout.get(), area, box, style);
  if (!picture.image) {
    problem = "no memory for the text";
    return std::nullopt;
  }
  picture.frame = CGRectMake((area.x - box.x) / scale, (area.y - box.y) / scale, area.width / scale, area.height / scale);
  return picture;
}

}  // namespace vidloom
