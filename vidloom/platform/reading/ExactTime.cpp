#include "vidloom/platform/reading/ExactTime.h"

namespace vidloom {

ExactTime::ExactTime(const CMTime& time) : numerator_(time.value), denominator_(time.timescale) {}

ExactTime::ExactTime(int64_t count, int64_t perSecond) : numerator_(count), denominator_(perSecond) {}

ExactTime operator+(const ExactTime& a, const ExactTime& b) {
  if (a.denominator_ == b.denominator_) return {a.numerator_ + b.numerator_, a.denominator_};
  return {a.numerator_ * b.denominator_ + b.numerator_ * a.denominator_, a.denominator_ * b.denominator_};
}

ExactTime operator-(const ExactTime& a, const ExactTime& b) { return a + ExactTime(-b.numerator_, b.denominator_); }

ExactTime operator*(const ExactTime& a, const ExactTime& b) {
  return {a.numerator_ * b.numerator_, a.denominator_ * b.denominator_};
}

ExactTime operator/(const ExactTime& a, const ExactTime& b) {
  return {a.numerator_ * b.denominator_, a.denominator_ * b.numerator_};
}

std::strong_ordering operator<=>(const ExactTime& a, const ExactTime& b) {
  return a.numerator_ * b.denominator_ <=> b.numerator_ * a.denominator_;
}

int64_t ExactTime::floorTicks(int64_t ticksPerSecond) const {
  return WideInteger::floorQuotient(numerator_ * WideInteger(ticksPerSecond), denominator_);
}

int64_t ExactTime::ceilTicks(int64_t ticksPerSecond) const {
  return -WideInteger::floorQuotient(-numerator_ * WideInteger(ticksPerSecond), denominator_);
}

}  // namespace vidloom
