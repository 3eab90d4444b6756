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

/// Asks for the rows from both ends: they may be asked for in any order.
Plane scaled(const Plane& source, const AxisMap& map, const SampleRect& rect) {
  PlaneScaler scaler(source.view(), std::make_shared<ScalePlan>(source.width(), source.height(), map, rect));
  Plane result(rect.width(), rect.height());
  for (int i = 0; i < rect.height(); ++i) {
    const int row = i % 2 == 0 ? i / 2 : rect.height() - 1 - i / 2;
    scaler.row(rect.y0 + row, result.writable().row(row));
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
      {"moved by whole samples, beyond the edges", 40, 20, {1, 1, 3, -2}, {0, 0, 50, 20}},
      {"moved by parts of samples", 40, 20, {1, 1, 0.25, -0.6}, {0, 0, 41, 20}},
      {"4:3 down", 64, 40, {0.75, 0.75, 0, 0}, {0, 0, 48, 30}},
      {"2:1 up at an offset, clipped", 64, 40, {2, 2, -31.3, 10.7}, {5, 12, 70, 60}},
      {"nearly 2:1 down", 90, 60, {0.51, 0.52, 1.4, 0.3}, {1, 1, 46, 31}},
      {"exactly 2:1 down at an odd phase", 90, 60, {0.5, 0.5, 0.25, 0.5}, {0, 0, 45, 30}},
      {"far up", 7, 5, {9.7, 11.3, 0.5, 0.5}, {0, 0, 68, 57}},
      {"up across, down down", 50, 32, {1.3, 0.6, 0.1, 0.2}, {0, 0, 65, 19}},
      {"narrower than a vector", 3, 9, {1.4, 0.9, 0, 0}, {0, 0, 5, 8}},
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
      EXPECT_EQ(scaled(Plane(test.width, test.height, 235), test.map, test.rect), Plane(result.width(), result.height(), 235))
          << test.what << " of a flat plane";
      EXPECT_LE(sum / (result.width() * result.height()), 0.45) << test.what;
    });
  }
}

TEST(PlaneHalving, TakesMeansAndRepeatsALastSample) {
  for (const auto& [width, height] : {std::pair{64, 32}, {65, 33}, {1, 1}, {2, 1}, {7, 64}, {200, 3}}) {
    const Plane source = noisePlane(width, height, 9);
    const auto sample = [&](int x, int y) { return source.at(std::min(x, source.width() - 1), std::min(y, source.height() - 1)); };
    for (const auto& [across, down] : {std::pair{2, 2}, {2, 1}, {1, 2}}) {
      Plane result((width + across - 1) / across, (height + down - 1) / down);
      halvePlane(source.view(), across == 2, down == 2, result.writable());
      for (int y = 0; y < result.height(); ++y) {
        for (int x = 0; x < result.width(); ++x) {
          int sum = 0;
          for (const int i : {0, across - 1}) sum += sample(across * x + i, down * y) + sample(across * x + i, down * y + down - 1);
          ASSERT_EQ(result.at(x, y), (sum + 2) / 4) << width << "x" << height << " at " << x << "," << y;
        }
      }
    }
  }
}

}  // namespace
}  // namespace vidloom
