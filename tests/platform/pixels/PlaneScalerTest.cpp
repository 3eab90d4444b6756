#include "vidloom/platform/pixels/PlaneScaler.h"

#include <cmath>

#include "tests/platform/pixels/EveryTarget.h"
#include "tests/platform/pixels/TestPictures.h"
#include "vidloom/platform/pixels/PlaneHalving.h"

namespace vidloom {
namespace {

using namespace test;

/// The mean of the linearly continued axis over what a destination sample covers, at least one sample wide.
double filtered(const std::vector<double>& samples, double scale, double offset, int index) {
  const double center = (index + 0.5 - offset) / scale, reach = std::max(1.0, 1 / scale) / 2;
  double sum = 0;
  for (int i = static_cast<int>(std::floor(center - reach)); i < center + reach; ++i) {
    const double part = std::min(center + reach, i + 1.0) - std::max(center - reach, double(i));
    sum += part * samples[static_cast<size_t>(std::clamp(i, 0, static_cast<int>(samples.size()) - 1))];
  }
  return sum / (2 * reach);
}

double reference(const Plane& source, const AxisMap& map, int x, int y) {
  std::vector<double> column;
  for (int row = 0; row < source.height(); ++row) {
    std::vector<double> samples;
    for (int i = 0; i < source.width(); ++i) samples.push_back(source.at(i, row));
    column.push_back(filtered(samples, map.scaleX, map.offsetX, x));
  }
  return filtered(column, map.scaleY, map.offsetY, y);
}

Plane scaled(const Plane& source, const AxisMap& map, const SampleRect& rect) {
  PlaneScaler scaler(source.view(), std::make_shared<ScalePlan>(source.width(), source.height(), map, rect));
  Plane result(rect.width(), rect.height());
  for (const int direction : {1, -1}) {  // rows may be asked for in any order
    for (int i = 0; i < rect.height(); ++i) {
      const int row = direction > 0 ? i : rect.height() - 1 - i;
      std::vector<uint8_t> samples(static_cast<size_t>(rect.width()));
      scaler.row(rect.y0 + row, samples.data());
      const auto place = result.writable().row(row);
      EXPECT_TRUE(direction > 0 || std::equal(samples.begin(), samples.end(), place)) << "row " << row;
      std::copy(samples.begin(), samples.end(), place);
    }
  }
  return result;
}

struct ScaleCase {
  const char* what;
  int width, height;
  AxisMap map;
  SampleRect rect;
};

TEST(PlaneScaler, AgreesWithTheDefinitionOfItsFilter) {
  const ScaleCase cases[] = {
      {"unchanged", 40, 20, {1, 1, 0, 0}, {0, 0, 40, 20}},
      {"moved by whole samples, beyond the edges", 40, 20, {1, 1, 3, -2}, {0, 0, 50, 20}},
      {"moved by parts of samples", 40, 20, {1, 1, 0.25, -0.6}, {0, 0, 41, 20}},
      {"4:3 down", 64, 40, {0.75, 0.75, 0, 0}, {0, 0, 48, 30}},
      {"2:3 up", 64, 40, {1.5, 1.5, 0, 0}, {0, 0, 96, 60}},
      {"2:1 up at an offset, clipped", 64, 40, {2, 2, -31.3, 10.7}, {5, 12, 70, 60}},
      {"nearly 2:1 down", 90, 60, {0.51, 0.52, 1.4, 0.3}, {1, 1, 46, 31}},
      {"exactly 2:1 down at an odd phase", 90, 60, {0.5, 0.5, 0.25, 0.5}, {0, 0, 45, 30}},
      {"far up", 7, 5, {9.7, 11.3, 0.5, 0.5}, {0, 0, 68, 57}},
      {"only across", 50, 12, {0.8, 1, 0, 0}, {0, 0, 40, 12}},
      {"only down", 50, 12, {1, 1.7, 0, 0}, {0, 0, 50, 20}},
      {"up across, down down", 50, 32, {1.3, 0.6, 0.1, 0.2}, {0, 0, 65, 19}},
      {"narrower than a vector", 3, 9, {1.4, 0.9, 0, 0}, {0, 0, 5, 8}},
      {"one sample", 1, 1, {5.5, 3.5, 0, 0}, {0, 0, 6, 4}},
      {"one sample wide at the right end", 33, 33, {0.9, 0.9, 0, 0}, {29, 29, 30, 30}},
  };
  for (const ScaleCase& test : cases) {
    const Plane source = noisePlane(test.width, test.height, 11);
    onEveryTarget([&] {
      const Plane result = scaled(source, test.map, test.rect);
      double sum = 0, worst = 0;
      for (int y = 0; y < result.height(); ++y) {
        for (int x = 0; x < result.width(); ++x) {
          const double error = std::abs(result.at(x, y) - reference(source, test.map, x + test.rect.x0, y + test.rect.y0));
          worst = std::max(worst, error);
          sum += error;
        }
      }
      EXPECT_LE(worst, 1.75) << test.what;
      EXPECT_LE(sum / (result.width() * result.height()), 0.45) << test.what;
    });
  }
}

TEST(PlaneScaler, KeepsFlatPlanesFlat) {
  for (const int code : {0, 1, 16, 127, 235, 255}) {
    for (const double scale : {0.5, 0.6180339, 0.999, 1.001, 1.37, 3.3}) {
      const Plane result = scaled(Plane(37, 23, uint8_t(code)), {scale, scale, 0.3, -0.3}, {0, 0, 18, 11});
      EXPECT_EQ(result, Plane(18, 11, uint8_t(code))) << scale;
    }
  }
}

TEST(PlaneHalving, TakesMeansAndRepeatsALastSample) {
  for (const auto& [width, height] : {std::pair{64, 32}, {65, 33}, {1, 1}, {2, 1}, {1, 2}, {7, 64}, {200, 3}}) {
    const Plane source = noisePlane(width, height, 9);
    const auto sample = [&](int x, int y) { return source.at(std::min(x, source.width() - 1), std::min(y, source.height() - 1)); };
    for (const auto& [across, down] : {std::pair{true, true}, {true, false}, {false, true}}) {
      Plane result(across ? (width + 1) / 2 : width, down ? (height + 1) / 2 : height);
      halvePlane(source.view(), across, down, result.writable());
      for (int y = 0; y < result.height(); ++y) {
        for (int x = 0; x < result.width(); ++x) {
          const int left = across ? 2 * x : x, top = down ? 2 * y : y;
          const int right = across ? left + 1 : left, bottom = down ? top + 1 : top;
          const int sum = sample(left, top) + sample(right, top) + sample(left, bottom) + sample(right, bottom);
          ASSERT_EQ(result.at(x, y), (sum + 2) / 4) << width << "x" << height << " at " << x << "," << y;
        }
      }
    }
  }
}

}  // namespace
}  // namespace vidloom
