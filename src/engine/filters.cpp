// The seven reconstruction kernels of the rescale engine and the weight table
// of one resampling pass. Every expression is evaluated in double precision
// in the order written: the fixed-point weights and therefore the rescaled
// pixels depend on the last bit of each kernel value.
#include <cmath>
#include <cstdint>
#include <limits>
#include <new>

#include "engine/rescale_engine.h"

namespace lumo::image {

BuiltInFilter::~BuiltInFilter() = default;

double BuiltInBoxFilter::Evaluate(double x) const { return std::fabs(x) <= width_ ? 1.0 : 0.0; }

BuiltInBicubicFilter::BuiltInBicubicFilter() noexcept : BuiltInFilter(2.0) {
  constexpr double b = 1.0 / 3.0;
  constexpr double c = 1.0 / 3.0;
  p0_ = (6.0 - 2.0 * b) / 6.0;
  p2_ = (-18.0 + 12.0 * b + 6.0 * c) / 6.0;
  p3_ = (12.0 - 9.0 * b - 6.0 * c) / 6.0;
  q0_ = (8.0 * b + 24.0 * c) / 6.0;
  q1_ = (-12.0 * b - 48.0 * c) / 6.0;
  q2_ = (6.0 * b + 30.0 * c) / 6.0;
  q3_ = (-b - 6.0 * c) / 6.0;
}

double BuiltInBicubicFilter::Evaluate(double x) const {
  const double a = std::fabs(x);
  if (a < 1.0) return (a * p3_ + p2_) * (a * a) + p0_;
  if (a < 2.0) return ((a * q3_ + q2_) * a + q1_) * a + q0_;
  return 0.0;
}

double BuiltInBilinearFilter::Evaluate(double x) const {
  const double a = std::fabs(x);
  return a < width_ ? width_ - a : 0.0;
}

double BuiltInBSplineFilter::Evaluate(double x) const {
  const double a = std::fabs(x);
  if (a < 1.0) return ((a * a) * (3.0 * a - 6.0) + 4.0) / 6.0;
  if (a < 2.0) {
    const double t = 2.0 - a;
    return t * t * t / 6.0;
  }
  return 0.0;
}

double BuiltInCatmullRomFilter::Evaluate(double x) const {
  if (x < -2.0) return 0.0;
  if (x < -1.0) return (((x + 5.0) * x + 8.0) * x + 4.0) * 0.5;
  if (x < 0.0) return ((-5.0 - 3.0 * x) * (x * x) + 2.0) * 0.5;
  if (x < 1.0) return ((x * x) * (3.0 * x - 5.0) + 2.0) * 0.5;
  if (x < 2.0) return (((5.0 - x) * x - 8.0) * x + 4.0) * 0.5;
  return 0.0;
}

namespace {

double Sinc(double t) {
  if (t == 0.0) return 1.0;
  const double pt = 3.141592653589793 * t;
  return std::sin(pt) / pt;
}

}  // namespace

double BuiltInLanczos3Filter::Evaluate(double x) const {
  const double a = std::fabs(x);
  return a < width_ ? Sinc(a) * Sinc(a / width_) : 0.0;
}

double BuiltInPointFilter::Evaluate(double) const { return 1.0; }

namespace {

// Truncation toward zero of a value that may lie far outside int64.
std::int64_t TruncateToInt64(double v) {
  if (!(v > -9.2e18)) return std::numeric_limits<std::int64_t>::min();
  if (!(v < 9.2e18)) return std::numeric_limits<std::int64_t>::max();
  return static_cast<std::int64_t>(v);
}

std::int32_t FixedWeight(double weight) {
  const double v = weight * 2048.0;
  // Only a degenerate normalisation (a tiny positive sum of large weights of
  // both signs) can leave int32; saturate rather than wrap.
  if (!(v > -2147483648.0)) return std::numeric_limits<std::int32_t>::min();
  if (!(v < 2147483647.0)) return std::numeric_limits<std::int32_t>::max();
  return static_cast<std::int32_t>(v);
}

}  // namespace

void RescaleWeightTable::Build(const BuiltInFilter& filter, std::uint32_t source, std::uint32_t destination) {
  const double scale = static_cast<double>(destination) / static_cast<double>(source);
  double w = filter.Width();
  double f = 1.0;
  if (scale < 1.0) {
    w = filter.Width() / scale;
    f = scale;
  }
  const double cap = 2.0 * std::ceil(w) + 1.0;
  if (!(cap < 4294967295.0)) throw std::bad_alloc();
  capacity = static_cast<std::uint32_t>(cap);
  const std::size_t n = static_cast<std::size_t>(destination);
  if (n != 0 && capacity > std::numeric_limits<std::size_t>::max() / sizeof(double) / n) throw std::bad_alloc();

  spans.assign(n, Span{0, 0});
  weights.assign(n * capacity, 0.0);
  fixed.assign(n * capacity, 0);
  max_fixed_abs_sum = 0;
  max_fixed_abs = 0;

  const std::int64_t size = source;
  for (std::uint32_t u = 0; u < destination; ++u) {
    double* wu = weights.data() + static_cast<std::size_t>(u) * capacity;
    std::int32_t* fu = fixed.data() + static_cast<std::size_t>(u) * capacity;
    const double center = static_cast<double>(u) / scale + 0.5 / scale;
    std::int64_t left = TruncateToInt64(center - w + 0.5);
    if (left < 0) left = 0;
    std::int64_t right = TruncateToInt64(center + w + 0.5);
    if (right > size) right = size;
    if (left > right) left = right;  // not reached for finite centers; keeps the span well formed

    std::int64_t count = 0;
    if (left == right) {
      left = left < size - 1 ? left : size - 1;
      right = left + 1;
      wu[0] = 1.0;
      count = 1;
    } else {
      // Rounding in center +- w can at most reach the capacity; never exceed it.
      if (right - left > static_cast<std::int64_t>(capacity)) right = left + capacity;
      count = right - left;
      double sum = 0.0;
      for (std::int64_t k = 0; k < count; ++k) {
        const double x = static_cast<double>(left + k) + 0.5 - center;
        wu[k] = f * filter.Evaluate(f * x);
        sum += wu[k];
      }
      if (sum > 0.0 && sum != 1.0) {
        for (std::int64_t k = 0; k < count; ++k) wu[k] /= sum;
      }
    }

    std::int64_t abs_sum = 0;
    for (std::int64_t k = 0; k < count; ++k) {
      fu[k] = FixedWeight(wu[k]);
      const std::int64_t a = fu[k] < 0 ? -static_cast<std::int64_t>(fu[k]) : fu[k];
      abs_sum += a;
      if (a > max_fixed_abs) max_fixed_abs = static_cast<std::int32_t>(a > 2147483647 ? 2147483647 : a);
    }
    if (abs_sum > max_fixed_abs_sum) max_fixed_abs_sum = abs_sum;

    // Trailing zero weights add nothing; leading ones stay.
    while (right > left && wu[right - left - 1] == 0.0) --right;
    spans[u] = Span{static_cast<std::uint32_t>(left), static_cast<std::uint32_t>(right)};
  }
}

}  // namespace lumo::image
