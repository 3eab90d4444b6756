// Counts seconds of media against an expected total.
#pragma once

#include <atomic>
#include <memory>

namespace vidloom {

/// May be read on any thread while one other counts.
class SAProgress {
 public:
  static std::shared_ptr<SAProgress> progressTotalUnitCount(double totalUnitCount);

  /// A percentage, in spite of the name: 100 when everything is done. Not a number, or infinite, for a total of zero.
  double fractionComplete() const { return completedUnitCount() * 100.0 / totalCount(); }
  double completedUnitCount() const { return completedUnitCount_; }
  void setCompletedUnitCount(double completedUnitCount) { completedUnitCount_ = completedUnitCount; }
  double totalCount() const { return totalCount_; }
  void setTotalCount(double totalCount) { totalCount_ = totalCount; }

 protected:
  SAProgress() = default;

 private:
  std::atomic<double> completedUnitCount_{0.0};
  std::atomic<double> totalCount_{0.0};
};

}  // namespace vidloom
