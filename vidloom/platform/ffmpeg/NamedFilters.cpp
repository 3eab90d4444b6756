#include "vidloom/platform/ffmpeg/NamedFilters.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>

namespace vidloom {

namespace {

using Values = NamedFilter::Values;
using Kind = NamedFilter::Kind;

const std::string kUnchanged = "null";

/// Whatever the process' locale.
std::string text(double number) {
  std::array<char, 64> digits{};
  const auto end = std::to_chars(digits.data(), digits.data() + digits.size(), number, std::chars_format::fixed, 6).ptr;
  return std::string(digits.data(), end);
}

std::string whole(double number) { return std::to_string(std::lround(number)); }

/// Every channel through an expression of `val`, 0..255.
std::string curve(const std::string& expression) {
  const std::string bounded = "='clip(round(" + expression + "),0,255)'";
  return "lutrgb=r" + bounded + ":g" + bounded + ":b" + bounded;
}

using ColorMatrix3 = std::array<std::array<double, 3>, 3>;

std::string mixer(const ColorMatrix3& matrix) {
  constexpr std::string_view kNames = "rgb";
  std::string chain = "colorchannelmixer=";
  for (size_t out = 0; out < 3; ++out) {
    for (size_t in = 0; in < 3; ++in) {
      chain += std::string(out + in == 0 ? "" : ":") + kNames[out] + kNames[in] + '=' + text(matrix[out][in]);
    }
  }
  return chain;
}

constexpr std::array<double, 3> kLuma{0.2126, 0.7152, 0.0722};

/// The way from grey (0) by the colours themselves (1) to stronger ones.
ColorMatrix3 saturation(double amount) {
  ColorMatrix3 matrix;
  for (size_t out = 0; out < 3; ++out) {
    for (size_t in = 0; in < 3; ++in) matrix[out][in] = kLuma[in] * (1 - amount) + (out == in ? amount : 0);
  }
  return matrix;
}

/// Turns hues about the grey axis so that luma stays.
ColorMatrix3 hueTurn(double radians) {
  constexpr ColorMatrix3 kSine{{{-0.2126, -0.7152, 0.9278}, {0.143, 0.14, -0.283}, {-0.7874, 0.7152, 0.0722}}};
  ColorMatrix3 matrix;
  for (size_t out = 0; out < 3; ++out) {
    for (size_t in = 0; in < 3; ++in) {
      matrix[out][in] = kLuma[in] + std::cos(radians) * ((out == in ? 1 : 0) - kLuma[in]) + std::sin(radians) * kSine[out][in];
    }
  }
  return matrix;
}

ColorMatrix3 sepia(double intensity) {
  constexpr ColorMatrix3 kSepia{{{0.393, 0.769, 0.189}, {0.349, 0.686, 0.168}, {0.272, 0.534, 0.131}}};
  ColorMatrix3 matrix;
  for (size_t out = 0; out < 3; ++out) {
    for (size_t in = 0; in < 3; ++in) matrix[out][in] = intensity * kSepia[out][in] + (out == in ? 1 - intensity : 0);
  }
  return matrix;
}

/// Every channel along the line from `black`, the value that 0 becomes, to `white`, that of 1, cut at both ends.
std::string line(double black, double white) {
  const double rise = white - black;
  double fromIn = 0, toIn = 1;
  if (rise > 0 && black < 0 && white > 0) fromIn = -black / rise;
  if (rise > 0 && black < 1 && white > 1) toIn = (1 - black) / rise;
  const std::string low = text(std::clamp(black, 0.0, 1.0)), high = text(std::clamp(white, 0.0, 1.0));
  std::string chain = "colorlevels=";
  for (const std::string channel : {"r", "g", "b"}) {
    if (channel != "r") chain += ':';
    chain += channel + "imin=" + text(fromIn) + ':' + channel + "imax=" + text(toIn) + ':' + channel + "omin=" + low + ':' +
             channel + "omax=" + high;
  }
  return chain;
}

std::string contrast(double factor, double brightness) {
  return line(0.5 - factor / 2 + brightness, 0.5 + factor / 2 + brightness);
}

std::string repeated(const std::string& filter, double times) {
  std::string chain = kUnchanged;
  for (long i = 0; i < std::lround(times); ++i) chain += "," + filter;
  return chain;
}

std::string sharpening(double sharpness) {
  const std::string side = whole(-100 * sharpness),
                    kernel = "'0 " + side + " 0 " + side + ' ' + whole(100 + 400 * sharpness) + ' ' + side + " 0 " + side + " 0'";
  std::string chain = "convolution=";
  for (const char* plane : {"0", "1", "2"}) chain += std::string(plane) + "m=" + kernel + ':' + plane + "rdiv=0.01:";
  return chain.substr(0, chain.size() - 1);
}

int radius(const Values& values) { return static_cast<int>(std::ceil(values[0])); }
int gaussianReach(const Values& values) { return static_cast<int>(std::ceil(3 * values[0])); }
int onePixel(const Values&) { return 1; }

void addBlurs(std::vector<NamedFilter>& filters) {
  filters.push_back({"CIGaussianBlur",
                     "Blurs by a bell curve",
                     Kind::area,
                     {{"inputRadius", 10, 0, 100, "standard deviation in pixels"}},
                     [](const Values& v) { return v[0] < 0.05 ? kUnchanged : "gblur=steps=2:sigma=" + text(v[0]); },
                     gaussianReach});
  filters.push_back({"CIBoxBlur",
                     "Blurs by the mean of a square",
                     Kind::area,
                     {{"inputRadius", 10, 0, 200, "half the side of the square in pixels, rounded"}},
                     [](const Values& v) { return v[0] < 0.5 ? kUnchanged : "avgblur=sizeX=" + whole(v[0]); },
                     radius});
  filters.push_back({"CIMedianFilter",
                     "Takes the median of the pixels around, which removes specks",
                     Kind::wholeImage,
                     {{"inputRadius", 1, 1, 20, "half the side of the square in pixels, rounded"}},
                     [](const Values& v) { return "median=radius=" + whole(v[0]); },
                     {}});
  filters.push_back({"CINoiseReduction",
                     "Smooths small differences and keeps edges",
                     Kind::detail,
                     {{"inputNoiseLevel", 0.05, 0, 1, "differences that are noise, as a part of the range"}},
                     [](const Values& v) { return v[0] == 0 ? kUnchanged : "bilateral=sigmaS=3:planes=7:sigmaR=" + text(v[0]); },
                     [](const Values&) { return 12; }});
}

void addColors(std::vector<NamedFilter>& filters) {
  filters.push_back({"CIColorControls",
                     "Saturation, brightness and contrast",
                     Kind::color,
                     {{"inputSaturation", 1, 0, 2, "0 grey, 1 unchanged"},
                      {"inputBrightness", 0, -1, 1, "added to every channel, 1 the whole range"},
                      {"inputContrast", 1, 0, 4, "factor of the distance from middle grey"}},
                     [](const Values& v) { return mixer(saturation(v[0])) + ',' + contrast(v[2], v[1]); },
                     {}});
  filters.push_back({"CIVibrance",
                     "Strengthens weak colours more than strong ones",
                     Kind::color,
                     {{"inputAmount", 0, -1, 1, "0 unchanged"}},
                     [](const Values& v) { return "vibrance=intensity=" + text(v[0]); },
                     {}});
  filters.push_back({"CIHueAdjust",
                     "Turns all hues",
                     Kind::color,
                     {{"inputAngle", 0, -3.1415926536, 3.1415926536, "radians"}},
                     [](const Values& v) { return mixer(hueTurn(v[0])); },
                     {}});
  filters.push_back({"CISepiaTone",
                     "The brown of old photographs",
                     Kind::color,
                     {{"inputIntensity", 1, 0, 1, "0 unchanged"}},
                     [](const Values& v) { return mixer(sepia(v[0])); },
                     {}});
  filters.push_back({"CIPhotoEffectMono", "Grey", Kind::color, {}, [](const Values&) { return mixer(saturation(0)); }, {}});
  filters.push_back({"CIPhotoEffectNoir",
                     "Grey with strong contrast",
                     Kind::color,
                     {},
                     [](const Values&) { return mixer(saturation(0)) + ',' + contrast(1.5, 0); },
                     {}});
  filters.push_back({"CIPhotoEffectTransfer",
                     "Warm and faded as an old print",
                     Kind::color,
                     {},
                     [](const Values&) { return "curves=preset=vintage"; },
                     {}});
  filters.push_back({"CIColorTemperature",
                     "Tints white as the light of a glowing body",
                     Kind::color,
                     {{"inputTemperature", 6500, 1000, 40000, "kelvins; 6500 is neutral"}},
                     [](const Values& v) { return "colortemperature=temperature=" + text(v[0]); },
                     {}});
}

void addTones(std::vector<NamedFilter>& filters) {
  filters.push_back({"CIExposureAdjust",
                     "Makes light stronger or weaker",
                     Kind::color,
                     {{"inputEV", 0, -10, 10, "stops of linear light, taking values as encoded with a power of 2.2"}},
                     [](const Values& v) { return line(0, std::exp2(v[0] / 2.2)); },
                     {}});
  filters.push_back({"CIGammaAdjust",
                     "Raises values to a power",
                     Kind::color,
                     {{"inputPower", 1, 0.1, 10, "above 1 darkens the middle"}},
                     [](const Values& v) { return curve("255*pow(val/255," + text(v[0]) + ")"); },
                     {}});
  filters.push_back({"CIColorInvert", "The negative", Kind::color, {}, [](const Values&) { return std::string("negate"); }, {}});
  filters.push_back({"CIColorPosterize",
                     "Leaves only some values of each channel",
                     Kind::color,
                     {{"inputLevels", 6, 2, 30, "how many, rounded"}},
                     [](const Values& v) {
                       const std::string levels = whole(v[0]), steps = whole(v[0] - 1);
                       return curve("floor(min(val*" + levels + "/256," + steps + "))*255/" + steps);
                     },
                     {}});
}

void addShapes(std::vector<NamedFilter>& filters) {
  filters.push_back({"CISharpenLuminance",
                     "Raises the contrast of fine detail",
                     Kind::detail,
                     {{"inputSharpness", 0.4, 0, 2, "0 unchanged"}},
                     [](const Values& v) { return sharpening(v[0]); },
                     onePixel});
  filters.push_back({"CIEdges",
                     "Shows how much neighbouring pixels differ",
                     Kind::detail,
                     {{"inputIntensity", 1, 0, 10, "factor"}},
                     [](const Values& v) { return "sobel=planes=7:scale=" + text(v[0]); },
                     onePixel});
  filters.push_back({"CIMorphologyMaximum",
                     "Spreads bright places",
                     Kind::area,
                     {{"inputRadius", 1, 0, 10, "pixels, rounded"}},
                     [](const Values& v) { return repeated("dilation", v[0]); },
                     radius});
  filters.push_back({"CIMorphologyMinimum",
                     "Spreads dark places",
                     Kind::wholeImage,
                     {{"inputRadius", 1, 0, 10, "pixels, rounded"}},
                     [](const Values& v) { return repeated("erosion", v[0]); },
                     {}});
  filters.push_back({"CIPixellate",
                     "Squares of one colour, the first one at the top left of the image",
                     Kind::wholeImage,
                     {{"inputScale", 8, 1, 256, "side in pixels, rounded"}},
                     [](const Values& v) { return "pixelize=w=" + whole(v[0]) + ":h=" + whole(v[0]); },
                     {}});
}

std::vector<NamedFilter> makeFilters() {
  std::vector<NamedFilter> filters;
  addBlurs(filters);
  addColors(filters);
  addTones(filters);
  addShapes(filters);
  std::sort(filters.begin(), filters.end(), [](const NamedFilter& a, const NamedFilter& b) { return a.name < b.name; });
  return filters;
}

}  // namespace

const std::vector<NamedFilter>& namedFilters() {
  static const std::vector<NamedFilter> filters = makeFilters();
  return filters;
}

const NamedFilter* namedFilter(const std::string& name) {
  const auto& filters = namedFilters();
  const auto found = std::find_if(filters.begin(), filters.end(), [&](const NamedFilter& filter) { return filter.name == name; });
  return found == filters.end() ? nullptr : &*found;
}

}  // namespace vidloom
