// SPDX-License-Identifier: Apache-2.0
#include "picture/canvas.h"

#include <algorithm>
#include <cmath>
#include <cstddef>

namespace orva {
namespace {

/// Part of a pixel that lies inside a shape whose edge is `distance` pixels away from its centre, positive
/// outside.
float Coverage(float distance) {
  return std::clamp(0.5F - distance, 0.0F, 1.0F);
}

int Floor(float value) {
  return static_cast<int>(std::floor(value));
}

/// Length of the overlap of pixel [cell, cell + 1) with [low, high).
float Overlap(int cell, float low, float high) {
  const auto start = static_cast<float>(cell);
  return std::clamp(std::min(start + 1.0F, high) - std::max(start, low), 0.0F, 1.0F);
}

}  // namespace

Canvas::Canvas(int width, int height, Colour background)
    : width_(width),
      height_(height),
      clip_right_(width),
      clip_bottom_(height),
      pixels_(static_cast<std::size_t>(width) * static_cast<std::size_t>(height), background) {}

void Canvas::Clip(Spot corner, Spot opposite) {
  clip_left_ = std::clamp(Floor(corner.x), 0, width_);
  clip_top_ = std::clamp(Floor(corner.y), 0, height_);
  clip_right_ = std::clamp(Floor(opposite.x), 0, width_);
  clip_bottom_ = std::clamp(Floor(opposite.y), 0, height_);
}

void Canvas::ClipNothing() {
  clip_left_ = 0;
  clip_top_ = 0;
  clip_right_ = width_;
  clip_bottom_ = height_;
}

void Canvas::Rectangle(Spot corner, Spot opposite, Colour colour, float alpha) {
  const int right = std::min(clip_right_, Floor(opposite.x) + 1);
  const int bottom = std::min(clip_bottom_, Floor(opposite.y) + 1);
  for (int y = std::max(clip_top_, Floor(corner.y)); y < bottom; ++y) {
    for (int x = std::max(clip_left_, Floor(corner.x)); x < right; ++x) {
      Blend(x, y, colour, alpha * Overlap(x, corner.x, opposite.x) * Overlap(y, corner.y, opposite.y));
    }
  }
}

void Canvas::Disc(Spot centre, float radius, Colour colour, float alpha) {
  Line(centre, centre, 2.0F * radius, colour, alpha);
}

void Canvas::Line(Spot from, Spot to, float thickness, Colour colour, float alpha) {
  const float half = thickness / 2.0F;
  const float reach = half + 1.0F;
  const int left = std::max(clip_left_, Floor(std::min(from.x, to.x) - reach));
  const int right = std::min(clip_right_, Floor(std::max(from.x, to.x) + reach) + 1);
  const int top = std::max(clip_top_, Floor(std::min(from.y, to.y) - reach));
  const int bottom = std::min(clip_bottom_, Floor(std::max(from.y, to.y) + reach) + 1);
  const float dx = to.x - from.x;
  const float dy = to.y - from.y;
  const float square = dx * dx + dy * dy;
  for (int y = top; y < bottom; ++y) {
    for (int x = left; x < right; ++x) {
      const float px = static_cast<float>(x) + 0.5F - from.x;
      const float py = static_cast<float>(y) + 0.5F - from.y;
      const float along = square > 0.0F ? std::clamp((px * dx + py * dy) / square, 0.0F, 1.0F) : 0.0F;
      const float distance = std::hypot(px - along * dx, py - along * dy);
      Blend(x, y, colour, alpha * Coverage(distance - half));
    }
  }
}

void Canvas::Blend(int x, int y, Colour colour, float alpha) {
  Colour& pixel =
      pixels_[static_cast<std::size_t>(y) * static_cast<std::size_t>(width_) + static_cast<std::size_t>(x)];
  pixel.r += (colour.r - pixel.r) * alpha;
  pixel.g += (colour.g - pixel.g) * alpha;
  pixel.b += (colour.b - pixel.b) * alpha;
}

std::vector<std::uint8_t> Canvas::Bytes() const {
  const auto byte = [](float value) {
    return static_cast<std::uint8_t>(std::lround(std::clamp(value, 0.0F, 1.0F) * 255.0F));
  };
  std::vector<std::uint8_t> bytes;
  bytes.reserve(pixels_.size() * 3);
  for (const Colour& pixel : pixels_) {
    bytes.push_back(byte(pixel.r));
    bytes.push_back(byte(pixel.g));
    bytes.push_back(byte(pixel.b));
  }
  return bytes;
}

}  // namespace orva
