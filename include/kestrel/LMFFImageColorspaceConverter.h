#pragma once

#include <kestrel/Export.h>
#include <kestrel/LMFFFormat.h>
#include <kestrel/LMFFVideoColor.h>

#include <cstdint>
#include <memory>

struct AVFrame;

namespace kestrel {

class BitmapContext;
class BitmapImage;
class Image;

/// Turns any picture that the engine meets (a decoded frame, raw bytes, a bitmap context, an image)
/// into one frame of a fixed size and pixel format.
///
/// The first conversion fixes the output's size and pixel format for the converter's lifetime: a
/// new output size needs a new converter. While the wanted width or height is 0, nothing is
/// converted. What can't be converted leaves the output as it was; no conversion reports an error.
///
/// The output's pixels are counted references. An encoder or a host that holds one keeps its
/// picture: a conversion never writes into pixels that were given out. A source picture that
/// already is what the output should be is passed on by reference, without copying its pixels.
///
/// Colour: a YUV source counts as what its frame says of matrix and range; where it says nothing,
/// as BT.709 from 720 lines up, else BT.601, and as limited range except for the "J" pixel formats.
/// RGB is full range. The output frame says what its picture is.
///
/// Images are drawn on a bitmap context of the converter's own, one over another, and what that
/// shows is converted. A recipe goes right into the planes of an output that has them instead, with
/// the same result, as long as nobody has asked for the context.
///
/// `outputFormat` and `outputColor` may be read while another thread sets them; the rest is used by
/// one thread at a time.
class KESTREL_API LMFFImageColorspaceConverter {
 public:
  /// Wants `AV_PIX_FMT_RGBA` of size 0 × 0; the output is empty.
  LMFFImageColorspaceConverter();
  ~LMFFImageColorspaceConverter();
  LMFFImageColorspaceConverter(const LMFFImageColorspaceConverter&) = delete;
  LMFFImageColorspaceConverter& operator=(const LMFFImageColorspaceConverter&) = delete;

  /// The wanted output. Setting it doesn't touch an output that is not empty.
  LMFFVideoFormat outputFormat() const;
  void setOutputFormat(const LMFFVideoFormat& format);

  /// The wanted meaning of the output's samples, from the next conversion on. Pictures are
  /// converted to `matrix` and `range`; `primaries` and `transfer` only label them. What is
  /// unspecified stays as the source has it; where an RGB source becomes YUV, the output is limited
  /// range, and BT.709 or BT.601 by its own number of lines. An RGB output is full range always.
  LMFFVideoColor outputColor() const;
  void setOutputColor(const LMFFVideoColor& color);

  /// The converter's own output frame, valid as long as the converter lives; its pixels are those
  /// of the last conversion, for reading only. Size, format, pixels and colour are set; everything
  /// else, time stamps included, is as in a new frame.
  AVFrame* outputFrame() const;

  /// True while the output frame has no pixels.
  bool isOutputEmpty() const;

  /// Converts a decoded frame. Null is ignored.
  void convertFrame(const AVFrame* frame);

  /// Converts tightly packed pixels in the format `AV_PIX_FMT_…` of the size that `outputFormat`
  /// has now; planes follow each other. The caller keeps the buffer.
  void convertBytes(const void* bytes, int32_t format);

  /// Converts the pixels of a bitmap context as RGBA of the size that `outputFormat` has now. A
  /// context is taken when it has 32 bits per pixel, or when the converter's own context has the
  /// output's width or its height; one with less memory than such a picture needs is ignored.
  void convertContext(const BitmapContext* context);

  /// A new bitmap context of the output size, without alpha, rows packed; null for a size of 0.
  std::unique_ptr<BitmapContext> createCGContext() const;

  /// Makes the converter's own context, once; it is never resized.
  void createContext();

  /// The converter's own context, null before `createContext`.
  BitmapContext* cgcontext() const;

  /// Draws an image over all of a context, stretched: a bitmap replaces what is there, a recipe,
  /// taken from its extent, is laid over it. Null draws nothing.
  void drawImage(const std::shared_ptr<const BitmapImage>& image, BitmapContext* context) const;
  void drawImage(const std::shared_ptr<const Image>& image, BitmapContext* context) const;

  /// Draws an image on the own context as `drawImage` does and converts what that shows then. Where
  /// a recipe is transparent, what was drawn before stays.
  void convertImage(const std::shared_ptr<const BitmapImage>& image);
  void convertImage(const std::shared_ptr<const Image>& image);

  /// The same for a bitmap that is laid over what is there.
  void convertBitmapImage(const std::shared_ptr<const BitmapImage>& image);

  /// The output's pixels, borrowed: valid until the next conversion. Null while the output is empty
  /// and when its pixels have less than four bytes.
  std::shared_ptr<const BitmapImage> outputImage() const;

 private:
  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace kestrel
