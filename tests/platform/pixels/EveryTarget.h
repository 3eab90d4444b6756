// Runs a test on every instruction set that the kernels are built for and this processor has.
#pragma once

#include <gtest/gtest.h>
#include <hwy/targets.h>

#include <functional>
#include <string>

namespace vidloom::test {

/// Calls body once for every instruction set, the portable fallback first; kernels called meanwhile use that one.
inline void onEveryTarget(const std::function<void()>& body) {
  const int64_t supported = hwy::SupportedTargets();
  hwy::GetChosenTarget().Update(0);
  {
    SCOPED_TRACE("portable");
    body();
  }
  for (int64_t rest = supported; rest != 0; rest &= rest - 1) {
    const int64_t target = rest & -rest;
    hwy::GetChosenTarget().Update(target);
    SCOPED_TRACE(hwy::TargetName(target));
    body();
  }
  hwy::GetChosenTarget().Update(supported);
}

}  // namespace vidloom::test
