#pragma once

#include <kestrel/Export.h>

#include <array>
#include <functional>
#include <memory>

namespace kestrel {

class BitmapImage;

/// How much a picture looks like its original: SSIMULACRA 2.1, a score that was fitted to the
/// judgement of people. 100 means the same picture, 90 one that cannot be told apart, 70 high
/// quality, 50 medium, 30 low; there is no lowest score.
///
/// Both pictures are taken to linear light, from there to XYB, the colour space of JPEG XL, and
/// compared at six sizes, each half of the one before: their structure, the edges that one has and
/// the other has not. Formulas, norms and weights are those that Cloudinary published with the
/// metric (github.com/cloudinary/ssimulacra2, version 2.1). Their program blurs by a recursive
/// filter, whose rounding shows in its scores; this one adds up the same curve value by value.
///
/// It keeps memory for pictures of one size, about 10 bytes a pixel and 1 more for each thread. Use
/// it from one thread at a time; it divides its work among several. The score is the same with any
/// number of them.
class KESTREL_API Ssimulacra2 {
 public:
  /// Writes row `y` of a picture, R, G and B in linear light with BT.709's primaries, 1 for white.
  using RowReader = std::function<void(int y, const std::array<float*, 3>& rgb)>;

  /// For pictures of one size, at least 8 pixels a side; `threads`: how many to use, 0: as many as
  /// the machine runs at once. Throws std::invalid_argument for smaller pictures.
  Ssimulacra2(int width, int height, int threads = 0);
  ~Ssimulacra2();
  Ssimulacra2(const Ssimulacra2&) = delete;
  Ssimulacra2& operator=(const Ssimulacra2&) = delete;

  int width() const;   ///< pixels
  int height() const;  ///< pixels

  /// The score of `distorted`, a copy of `original`: both in sRGB, without alpha. Throws
  /// std::invalid_argument if one has another size.
  double score(const BitmapImage& original, const BitmapImage& distorted);

  /// The same of pictures that are read row by row, each row once or twice and from several threads
  /// at a time.
  double score(const RowReader& original, const RowReader& distorted);

 private:
  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace kestrel
