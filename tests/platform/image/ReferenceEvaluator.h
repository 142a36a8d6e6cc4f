#pragma once

#include <kestrel/Image.h>

#include <cstdint>
#include <memory>
#include <vector>

namespace kestrel::test {

/// A colour multiplied by its alpha.
struct Sample {
  double r = 0;
  double g = 0;
  double b = 0;
  double a = 0;
};

/// The pixel from (x, y) to (x + 1, y + 1) of a recipe, by the definitions and in doubles, without
/// any of the engine's arithmetic. It takes its time.
Sample evaluate(const Image& image, int x, int y);

/// The largest difference, in steps of 1/255 of colours multiplied by alpha, between `pixels` (the
/// pixels of `bounds`, the top row first, R, G, B, A not multiplied by alpha) and the recipe.
/// `isFine`: it has more than 8 bits, and the pixels have the noise that hides their loss, which is
/// no difference.
double largestError(const Image& image, const Rect& bounds, const uint8_t* pixels, int bytesPerRow,
                    bool isFine = false);

/// The same for the engine's own rendering of the recipe.
double largestError(const std::shared_ptr<const Image>& image, const Rect& bounds,
                    bool isFine = false);

}  // namespace kestrel::test
