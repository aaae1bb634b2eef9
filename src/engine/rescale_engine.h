// The built-in rescale engine and its seven reconstruction filters.
//
// Resampling is separable: one pass along rows and one along columns, each
// driven by a weight table built once for the pass. The arithmetic rule is
// picked once per call from the pixel format:
//   fixed point  1 to 4 unsigned channels of 8, 16 or 32 bits (normalized or
//                plain integers) and the packed 5-6-5, 1-5-5-5, 4-4-4-4,
//                5-5-5-1, 2-10-10-10 and 10-10-10-2 layouts: weights x 2048,
//                sum in 64 bits, (sum + 1024) >> 11, clamped to the channel
//                range;
//   floating     all channels 16-, 32- or 64-bit floats of one width: sums in
//                double, stored back with the processor's rounding (and
//                float -> half with ties to even for 16 bits), no clamping;
//   general      any other uncompressed format: each bit field decoded to a
//                double, summed and encoded back.
// Results are bit-exact for a given table, so rows are walked in whatever
// order is fastest but every sum adds its terms in source order.
#pragma once

#include <cstdint>
#include <vector>

#include "lumo/image/engines.h"

namespace lumo::image {

// A reconstruction kernel. width is its support radius in source samples at
// scale 1; Evaluate gives the kernel at distance x.
class BuiltInFilter {
 public:
  explicit BuiltInFilter(double width) noexcept : width_(width) {}
  BuiltInFilter(const BuiltInFilter&) = default;
  BuiltInFilter& operator=(const BuiltInFilter&) = default;
  virtual ~BuiltInFilter();

  virtual double Evaluate(double x) const = 0;
  double Width() const { return width_; }

 protected:
  double width_;
};

// 1 inside |x| <= 0.5 (the edge belongs to the box).
class BuiltInBoxFilter final : public BuiltInFilter {
 public:
  BuiltInBoxFilter() noexcept : BuiltInFilter(0.5) {}
  double Evaluate(double x) const override;
};

// Mitchell-Netravali cubic with B = C = 1/3.
class BuiltInBicubicFilter final : public BuiltInFilter {
 public:
  BuiltInBicubicFilter() noexcept;
  double Evaluate(double x) const override;

 private:
  double p0_, p2_, p3_;
  double q0_, q1_, q2_, q3_;
};

// Tent of radius 1.
class BuiltInBilinearFilter final : public BuiltInFilter {
 public:
  BuiltInBilinearFilter() noexcept : BuiltInFilter(1.0) {}
  double Evaluate(double x) const override;
};

// Cubic B-spline (smooth, never negative).
class BuiltInBSplineFilter final : public BuiltInFilter {
 public:
  BuiltInBSplineFilter() noexcept : BuiltInFilter(2.0) {}
  double Evaluate(double x) const override;
};

// Interpolating cubic; evaluated on the signed distance, one polynomial per
// unit interval, so both sides round exactly as written.
class BuiltInCatmullRomFilter final : public BuiltInFilter {
 public:
  BuiltInCatmullRomFilter() noexcept : BuiltInFilter(2.0) {}
  double Evaluate(double x) const override;
};

// sinc(x) * sinc(x / 3) inside |x| < 3.
class BuiltInLanczos3Filter final : public BuiltInFilter {
 public:
  BuiltInLanczos3Filter() noexcept : BuiltInFilter(3.0) {}
  double Evaluate(double x) const override;
};

// Nearest sample: width 0 makes every span a single sample.
class BuiltInPointFilter final : public BuiltInFilter {
 public:
  BuiltInPointFilter() noexcept : BuiltInFilter(0.0) {}
  double Evaluate(double x) const override;
};

// Filter weights of one pass from `source` to `destination` samples. Entry u
// covers source samples [spans[u].first, spans[u].last); its weights start at
// u * capacity in both lists. The fixed-point list is taken from the span
// before its trailing zero weights are trimmed; the trimmed entries are zero,
// so both lists give the same sums over the trimmed span.
struct RescaleWeightTable {
  struct Span {
    std::uint32_t first;
    std::uint32_t last;  // one past the last sample
  };

  std::uint32_t capacity = 0;          // 2 * ceil(w) + 1 entries per span
  std::vector<Span> spans;             // one per destination sample
  std::vector<double> weights;         // spans.size() * capacity
  std::vector<std::int32_t> fixed;     // weights x 2048, truncated toward zero
  std::int64_t max_fixed_abs_sum = 0;  // largest sum of |fixed| over one span
  std::int32_t max_fixed_abs = 0;      // largest |fixed| of any entry

  // Throws std::bad_alloc. source must not be 0.
  void Build(const BuiltInFilter& filter, std::uint32_t source, std::uint32_t destination);
};

class BuiltInRescaleEngine : public RescaleEngine {
 public:
  // Refuses (one log line, false) compressed sources, a destination in
  // another format and undecodable formats; a same-size call copies rows
  // whatever the filter; an unknown filter is refused next. A destination
  // without pixels needs no work (true). Unlogged false, before anything is
  // written: a source without pixels, more than 2^32 - 1 samples on a side,
  // a null buffer or rows shorter than their pixels. Once the passes start
  // the result is true, except that an allocation failure of a weight table
  // or scratch row returns false with the destination partly written; no
  // exception leaves.
  bool Rescale(const SurfaceData* source, SurfaceData* destination, FilterType filter) override;

  // The engine's filter object for a type, or null outside 0..6.
  const BuiltInFilter* Filter(FilterType filter) const;

 private:
  BuiltInBoxFilter box_;
  BuiltInBicubicFilter bicubic_;
  BuiltInBilinearFilter bilinear_;
  BuiltInBSplineFilter bspline_;
  BuiltInCatmullRomFilter catmull_rom_;
  BuiltInLanczos3Filter lanczos3_;
  BuiltInPointFilter point_;
};

}  // namespace lumo::image
