// A deterministic photo-like picture for encoder measurements: fractal noise
// shading (large soft shapes down to grain), colour that drifts with it, hard
// edges of objects and fine texture, so encoders face what photographs give
// them rather than flat colour or pure noise.
#pragma once

#include <cmath>
#include <cstdint>
#include <vector>

namespace lumo::image::bench {

namespace detail {

inline std::uint32_t Hash(std::uint32_t x, std::uint32_t y, std::uint32_t seed) {
  std::uint32_t h = x * 0x8da6b343u ^ y * 0xd8163841u ^ seed * 0xcb1ab31fu;
  h ^= h >> 13;
  h *= 0x5bd1e995u;
  return h ^ (h >> 15);
}

// Smooth value noise in [0, 1] on a lattice of `cell` pixels.
inline float ValueNoise(float x, float y, float cell, std::uint32_t seed) {
  const float fx = x / cell, fy = y / cell;
  const auto ix = static_cast<std::uint32_t>(fx), iy = static_cast<std::uint32_t>(fy);
  float tx = fx - static_cast<float>(ix), ty = fy - static_cast<float>(iy);
  tx = tx * tx * (3 - 2 * tx);
  ty = ty * ty * (3 - 2 * ty);
  const auto v = [&](std::uint32_t a, std::uint32_t b) { return (Hash(a, b, seed) & 0xffff) / 65535.0f; };
  const float top = v(ix, iy) + (v(ix + 1, iy) - v(ix, iy)) * tx;
  const float bottom = v(ix, iy + 1) + (v(ix + 1, iy + 1) - v(ix, iy + 1)) * tx;
  return top + (bottom - top) * ty;
}

inline float Fractal(float x, float y, float cell, int octaves, std::uint32_t seed) {
  float sum = 0, weight = 0.5f, total = 0;
  for (int i = 0; i < octaves; ++i, cell *= 0.5f, weight *= 0.5f) {
    sum += ValueNoise(x, y, cell, seed + static_cast<std::uint32_t>(i)) * weight;
    total += weight;
  }
  return sum / total;
}

}  // namespace detail

// width x height pixels of R, G, B, A bytes (alpha 255 unless `with_alpha`).
inline std::vector<std::uint8_t> PhotoPicture(unsigned width, unsigned height, bool with_alpha = false) {
  std::vector<std::uint8_t> rgba(static_cast<std::size_t>(width) * height * 4);
  const float scale = static_cast<float>(width < height ? width : height) / 512.0f;
  for (unsigned y = 0; y < height; ++y) {
    for (unsigned x = 0; x < width; ++x) {
      const float fx = static_cast<float>(x), fy = static_cast<float>(y);
      const float light = detail::Fractal(fx, fy, 256 * scale, 7, 1);
      const float hue = detail::Fractal(fx, fy, 384 * scale, 4, 11);
      const float grain = (detail::Hash(x, y, 31) & 0xff) / 255.0f - 0.5f;
      const float texture = detail::Fractal(fx, fy, 12.0f, 3, 41) - 0.5f;
      // Background: soft shading whose colour drifts from warm to cool.
      float r = 0.1f + 1.1f * light * (0.3f + 1.0f * hue);
      float g = 0.1f + 1.0f * light * (0.9f - 0.2f * hue);
      float b = 0.15f + 1.0f * light * (1.4f - 1.1f * hue);
      float detail_amount = 0.06f;
      // Objects: where coarse noises cross a level a region takes its own
      // colour, with a hard edge between (red objects, textured foliage).
      if (detail::Fractal(fx, fy, 160 * scale, 3, 21) > 0.58f) {
        r = 0.35f + 0.8f * light;
        g = 0.12f + 0.3f * light * hue;
        b = 0.08f + 0.2f * light;
        detail_amount = 0.10f;
      } else if (detail::Fractal(fx, fy, 120 * scale, 3, 61) > 0.6f) {
        r = 0.05f + 0.35f * light;
        g = 0.2f + 0.7f * light * (1.2f - hue);
        b = 0.05f + 0.25f * light;
        detail_amount = 0.25f;
      }
      // Thin dark lines, like branches or wires across the picture.
      const float warp = detail::Fractal(fx, fy, 90 * scale, 3, 71) * 40.0f * scale;
      if (std::fabs(std::sin((fx + fy * 0.35f + warp) / (37.0f * scale))) < 0.03f) {
        r *= 0.25f;
        g *= 0.25f;
        b *= 0.3f;
      }
      r += detail_amount * texture + 0.03f * grain;
      g += detail_amount * texture + 0.03f * grain;
      b += detail_amount * texture + 0.03f * grain;
      std::uint8_t* p = &rgba[(static_cast<std::size_t>(y) * width + x) * 4];
      const auto byte = [](float v) {
        return static_cast<std::uint8_t>(std::lround((v < 0 ? 0 : v > 1 ? 1 : v) * 255.0f));
      };
      p[0] = byte(r);
      p[1] = byte(g);
      p[2] = byte(b);
      p[3] = with_alpha ? byte(detail::Fractal(fx, fy, 200 * scale, 4, 51) * 1.6f - 0.3f) : 255;
    }
  }
  return rgba;
}

}  // namespace lumo::image::bench
