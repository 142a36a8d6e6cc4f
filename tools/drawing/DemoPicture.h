#pragma once

#include <kestrel/BitmapContext.h>

#include <cstdint>

/// The demo movie's pictures: colour bars and a grey scale, a dial whose hand goes round once a
/// second and that flashes white on the second, a ball that rolls to and fro, and a counter of
/// minutes, seconds and pictures.
class DemoPicture {
 public:
  /// Pictures of `width` × `height` pixels, `framesPerSecond` of them to the second.
  DemoPicture(int width, int height, int framesPerSecond);

  /// Draws all of a surface of that size; `frame` counts the pictures from 0.
  void draw(kestrel::BitmapContext& surface, int64_t frame) const;

 private:
  kestrel::BitmapContext background_;  // what stands still
  int framesPerSecond_;
};
