#pragma once

#include <kestrel/Export.h>
#include <kestrel/LMFFFormat.h>
#include <kestrel/LMFFVideoColor.h>
#include <kestrel/Scaler.h>

#include <cstdint>
#include <memory>
#include <optional>

struct AVFrame;

namespace kestrel {

class BitmapContext;
class BitmapImage;
class Image;

/// Turns pictures of any kind (decoded frames, raw bytes, bitmap contexts, images) into frames of a
/// fixed size and pixel format.
///
/// The first conversion fixes the output's size and pixel format for the converter's lifetime;
/// another size needs another converter. While the wanted width or height is 0, nothing is
/// converted. Errors are not reported: what cannot be converted leaves the output unchanged, or
/// black if it was empty.
///
/// The output's pixels are reference-counted. An encoder or host that holds a reference keeps its
/// picture: conversions never write into pixels that were handed out. A source picture that already
/// has the output's form is passed on by reference, without copying pixels.
///
/// Colour: a YUV source has the matrix and range given in its frame. If they are unspecified,
/// BT.709 is assumed from 720 lines up, otherwise BT.601, and limited range except for the "J"
/// pixel formats. RGB is full range. The output frame is tagged with its own colours.
///
/// Images are drawn onto the converter's own bitmap context, each over the previous one, and the
/// context is converted. If the output has YUV planes and nobody has asked for the context, recipes
/// are rendered into the planes directly, with the same result.
///
/// `outputFormat` and `outputColor` may be read while another thread sets them; use the rest from
/// one thread at a time.
class KESTREL_API LMFFImageColorspaceConverter {
 public:
  /// The wanted output is `AV_PIX_FMT_RGBA` of size 0 × 0; the output is empty.
  LMFFImageColorspaceConverter();
  ~LMFFImageColorspaceConverter();
  LMFFImageColorspaceConverter(const LMFFImageColorspaceConverter&) = delete;
  LMFFImageColorspaceConverter& operator=(const LMFFImageColorspaceConverter&) = delete;

  /// The wanted output. Setting it does not change an output that is not empty.
  LMFFVideoFormat outputFormat() const;
  void setOutputFormat(const LMFFVideoFormat& format);

  /// The colours wanted from the next conversion on. Pictures are converted to `matrix` and
  /// `range`; `primaries` and `transfer` are only tagged. Unspecified values are taken from the
  /// source; if an RGB source becomes YUV, the output is limited range, and BT.709 or BT.601
  /// depending on its own height. RGB output is always full range.
  LMFFVideoColor outputColor() const;
  void setOutputColor(const LMFFVideoColor& color);

  /// How frames are brought to another size. Unless it is set, `convertFrame` scales bilinearly.
  /// Where it is, frames in luma and chroma planes whose samples mean the same are scaled plane by
  /// plane, as `Image` does it, and all others by libswscale with the nearest of its curves.
  std::optional<Scaler> scaler() const;
  void setScaler(const std::optional<Scaler>& scaler);

  /// Where chroma of pictures that are drawn right into planes lies, `AVCHROMA_LOC_…` (0: with the
  /// left sample of luma, half way between rows), and whether it is by fields: as in the frames
  /// that they are made of, so that what is not drawn on stays as it is.
  void setChromaPlace(int32_t location, bool byFields);

  /// The converter's output frame, owned by it. Its pixels are those of the last conversion and
  /// must not be modified. Size, format, pixels and colours are set; everything else, including
  /// time stamps, is as in a new frame.
  AVFrame* outputFrame() const;

  /// True if the output frame has no pixels.
  bool isOutputEmpty() const;

  /// Converts a decoded frame. Null does nothing.
  void convertFrame(const AVFrame* frame);

  /// Converts a buffer of pixels without gaps, in `format` (`AV_PIX_FMT_…`) and of the current size
  /// in `outputFormat`; planes follow each other. The caller keeps the buffer.
  void convertBytes(const void* bytes, int32_t format);

  /// Converts the pixels of a bitmap context as RGBA of the current size in `outputFormat`. The
  /// context must have 32 bits per pixel unless the converter's own context has the output's width
  /// or height, and at least as much memory as such a picture; otherwise it is ignored.
  void convertContext(const BitmapContext* context);

  /// A new bitmap context of the output size, without alpha or gaps between rows; null for a size
  /// of 0.
  std::unique_ptr<BitmapContext> createCGContext() const;

  /// Creates the converter's own context unless it exists; it is never resized.
  void createContext();

  /// The converter's own context, owned by it; null before `createContext`.
  BitmapContext* cgcontext() const;

  /// Draws an image stretched over a whole context: a bitmap replaces its contents, the extent of a
  /// recipe is drawn over them. Null draws nothing.
  void drawImage(const std::shared_ptr<const BitmapImage>& image, BitmapContext* context) const;
  void drawImage(const std::shared_ptr<const Image>& image, BitmapContext* context) const;

  /// Draws an image on the converter's own context like `drawImage` and converts the context. Where
  /// a recipe is transparent, the previous contents remain.
  void convertImage(const std::shared_ptr<const BitmapImage>& image);
  void convertImage(const std::shared_ptr<const Image>& image);

  /// The same, but draws the bitmap over the previous contents.
  void convertBitmapImage(const std::shared_ptr<const BitmapImage>& image);

  /// The output's pixels, borrowed: valid until the next conversion. Null if the output is empty or
  /// its rows have less than four bytes per pixel.
  std::shared_ptr<const BitmapImage> outputImage() const;

 private:
  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace kestrel
