#pragma once

#include <kestrel/AttributedString.h>
#include <kestrel/BitmapImage.h>
#include <kestrel/Color.h>
#include <kestrel/Export.h>
#include <kestrel/Filter.h>
#include <kestrel/Font.h>
#include <kestrel/Geometry.h>
#include <kestrel/Image.h>
#include <kestrel/LMFFFormat.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

struct AVFrame;

namespace kestrel {

class LMFFMedia;
struct MovieLook;

/// Turns a movie's decoded frames into the pictures that are shown or encoded.
///
/// Each frame is converted to the output's pixel format (never to another size), kept, and copied
/// into memory of the host's where it offers some. `currentEffectImage` is what the movie's look
/// makes of it: bitmap subtitle, crop, display shape, turn, mirrors, fit into the output, colours,
/// named effect, black behind it, watermark, text subtitle. It is a recipe: no pixel is computed
/// before somebody renders it.
///
/// A frame in planes of luma and chroma is not converted before somebody asks for its bytes (a data
/// provider or `currentImage`): recipes read the planes themselves. They keep the pixels that they
/// need, so they may be rendered at any later time, in any thread.
///
/// Rectangles and images have their origin at the lower left, y upwards, in pixels: of the source
/// before the picture is fitted into the output, of the output after.
///
/// One frame at a time, on the movie's decode queue; every setting may be read and written from
/// other threads, and counts from the next picture on. Failures show as an empty picture.
class KESTREL_API LMFFEffectVideoStream {
 public:
  using DataBuffer = std::shared_ptr<std::vector<uint8_t>>;

  /// Given the size of the converted frame, returns a buffer of exactly that many bytes, or null.
  using DataProvider = std::function<DataBuffer(int32_t size)>;

  LMFFEffectVideoStream();
  ~LMFFEffectVideoStream();
  LMFFEffectVideoStream(const LMFFEffectVideoStream&) = delete;
  LMFFEffectVideoStream& operator=(const LMFFEffectVideoStream&) = delete;

  void free_graph();
  void free_frame_image_buffer();

  /// Builds the converter for the media's frames and the output's pixel format; to be called
  /// whenever either has changed. What cannot be converted leaves the stream without a converter.
  void updateConverter();

  /// Converts a frame; the previous picture is gone even when there is no new one. The caller keeps
  /// its frame.
  void writeFrame(const AVFrame* frame);
  void writeFrame(const AVFrame* frame, const DataProvider& dataProvider);

  /// A frame's first plane as an RGBA picture that borrows its pixels; null without pixels.
  std::shared_ptr<const BitmapImage> imageForFrame(const AVFrame* frame) const;

  /// The converted frame, in the host's buffer where there is one; valid until the next write. Null
  /// without a frame, or with a buffer that is too small for it.
  std::shared_ptr<const BitmapImage> currentImage() const;

  /// The same as a recipe with its lower-left corner at the origin.
  std::shared_ptr<const Image> currentCIImage() const;

  /// What a data provider's buffer receives: the output's pixel format at the media's size.
  LMFFVideoFormat outputDataFormat() const;

  Size videoSize() const;  ///< the media's picture, pixels
  /// The same with the width that `displayAspect` or, without one, `aspectType` makes.
  Size displayVideoSize() const;

  // The finished picture.

  /// The picture of the output, its extent {0, 0, output width, output height}; null without a
  /// frame. In this order: `mediaSubtitleImage` over the frame; `cropRect` cut out and its centre
  /// moved to the origin; scaled to the display shape; mirrored, then turned by `rotate`; fitted by
  /// `zoomType`; `effectFilter` applied; laid over black; `watermark` over it, as it lies;
  /// `currentSubtitleImage` over it; cut to the output.
  std::shared_ptr<const Image> currentEffectImage() const;

  /// The picture with its centre and size brought to those of a rectangle inside of `rect`: with
  /// `zoomType` 1 `rect` itself, 2 and 5 the picture's shape fitted into it, 3 and 4 the largest
  /// centred 16:9 or 4:3 box, 6 the picture's shape as wide as `rect`, anything else a box of size
  /// 0. The factors have single precision. Null for null.
  std::shared_ptr<const Image> image(const std::shared_ptr<const Image>& image, int32_t zoomType,
                                     const Rect& rect) const;

  /// A rectangle of the shape of `source`, as large as fits into `destination`, in its middle.
  /// `source` is divided by max(its width / destination's, its height / destination's, 0.001),
  /// which has single precision.
  Rect scaleRectIn(const Rect& source, const Rect& destination) const;

  /// The same by the widths alone: as wide as `destination`, whatever height that makes.
  Rect scaleRectPanscan(const Rect& source, const Rect& destination) const;

  /// Origin and size of `rect` multiplied.
  Rect scaleRect(const Rect& rect, float xScale, float yScale) const;

  /// The colour settings as two new filters: CIColorControls (saturation × 2, (brightness - 0.5) ×
  /// 2, contrast × 4) and CIHueAdjust ((hue - 0.5) × 6.28), in single precision.
  std::vector<std::shared_ptr<Filter>> colorFilter() const;

  /// `colorFilter`, then the catalogue's filter for `effectName` where it has one.
  std::vector<std::shared_ptr<Filter>> effectFilter() const;

  /// What the filters make of the picture, one after another.
  std::shared_ptr<const Image> image(const std::shared_ptr<const Image>& image,
                                     const std::vector<std::shared_ptr<Filter>>& filters) const;

  /// What the filter of that name makes of two pictures; null without such a filter or one of them.
  std::shared_ptr<const Image> composition(const std::string& filterName,
                                           const std::shared_ptr<const Image>& image,
                                           const std::shared_ptr<const Image>& background) const;
  std::shared_ptr<const Image> sourceOverImage(
      const std::shared_ptr<const Image>& image,
      const std::shared_ptr<const Image>& background) const;
  std::shared_ptr<const Image> sourceInImage(const std::shared_ptr<const Image>& image,
                                             const std::shared_ptr<const Image>& background) const;

  /// A colour without bounds.
  std::shared_ptr<const Image> imagewithColor(const Color& color) const;

  /// The picture moved by (`size.width`, `size.height`), or scaled by them about the origin.
  std::shared_ptr<const Image> translateImage(const std::shared_ptr<const Image>& image,
                                              const Size& size) const;
  std::shared_ptr<const Image> scaleImage(const std::shared_ptr<const Image>& image,
                                          const Size& size) const;

  // The text subtitle.

  /// `subtitleCurrentString` without the white space at its ends, in font and colour of the
  /// settings, centred. With `subtitleMarkup` its marks become looks.
  AttributedString subtitleAttributedText() const;

  /// The text drawn on transparent ground, as large as it is when wrapped between the margins;
  /// cut where it would reach above the output's upper edge. Null when nothing is left of it.
  std::shared_ptr<const BitmapImage> subtitleImageWithAttributedString(
      const std::optional<AttributedString>& string) const;

  /// The text of the current time as a picture in the output: centred, its lower edge at
  /// `subtitlePosition` of the height. Null without a text. Drawn when the text is another one than
  /// that of `subtitleImageString`, else the one drawn before.
  std::shared_ptr<const Image> currentSubtitleImage() const;

  /// Forgets the drawn text, so that the next picture draws it anew; to be called when a setting
  /// that it depends on has changed.
  void updateSubtitle();

  // Settings.

  std::shared_ptr<LMFFMedia> media() const;
  void setMedia(std::shared_ptr<LMFFMedia> media);
  LMFFVideoFormat outputFormat() const;
  void setOutputFormat(const LMFFVideoFormat& format);
  DataBuffer dataBuffer() const;
  void setDataBuffer(DataBuffer buffer);

  /// All settings of the look as one. Setting it also forgets the drawn text (`updateSubtitle`).
  MovieLook look() const;
  void setLook(MovieLook look);

  // The same one by one.

  /// The display shape: 1 four by three, 2 sixteen by nine, anything else the source's.
  int64_t aspectType() const;
  void setAspectType(int64_t type);
  /// The display shape of the whole source, width / height, in place of `aspectType`; 0: that
  /// counts. For sources whose shape is neither of the two that it knows.
  double displayAspect() const;
  void setDisplayAspect(double aspect);
  /// What is kept of the source, pixels.
  Rect cropRect() const;
  void setCropRect(const Rect& rect);
  bool hflip() const;
  void setHflip(bool flip);
  bool vflip() const;
  void setVflip(bool flip);
  float rotate() const;  ///< degrees
  void setRotate(float degrees);
  float saturation() const;  ///< 0.5 changes nothing
  void setSaturation(float value);
  float brightness() const;  ///< 0.5 changes nothing
  void setBrightness(float value);
  float contrast() const;  ///< 0.25 changes nothing
  void setContrast(float value);
  float hue() const;  ///< 0.5 changes nothing
  void setHue(float value);
  int32_t zoomType() const;  ///< how the picture fits the output; 5 at first
  void setZoomType(int32_t type);
  /// The name of a catalogue effect; absent: none.
  std::optional<std::string> effectName() const;
  void setEffectName(std::optional<std::string> name);
  /// Laid over every picture; null: none.
  std::shared_ptr<const Image> watermark() const;
  void setWatermark(std::shared_ptr<const Image> image);

  // Subtitles of the current time.

  std::shared_ptr<const Image> mediaSubtitleImage() const;  ///< the file's own, a bitmap
  void setMediaSubtitleImage(std::shared_ptr<const Image> image);
  std::shared_ptr<const Image> subtitleImage() const;  ///< the text's, drawn
  void setSubtitleImage(std::shared_ptr<const Image> image);
  std::optional<std::string> subtitleImageString() const;  ///< the text that was drawn
  void setSubtitleImageString(std::optional<std::string> text);
  std::optional<std::string> subtitleCurrentString() const;  ///< the text to show
  void setSubtitleCurrentString(std::optional<std::string> text);
  /// 80 pixels of the system's font where none is set.
  Font subtitleFont() const;
  void setSubtitleFont(const std::optional<Font>& font);
  /// White where none is set.
  Color subtitleColor() const;
  void setSubtitleColor(const std::optional<Color>& color);
  /// Where the text's lower edge is: 0 at the output's lower edge, 1 at its upper.
  float subtitlePosition() const;
  void setSubtitlePosition(float position);
  /// In `subtitleCurrentString`, "<b>", "<i>", "<u>" and "<s>" up to their "</…>" mean bold,
  /// italic, underlined and struck through, and "&lt;", "&gt;", "&amp;" stand for what marks are
  /// made of. Off at first: the text shows as it stands.
  bool subtitleMarkup() const;
  void setSubtitleMarkup(bool markup);
  /// How far a black outline reaches around the text; pixels. 0 at first: there is none.
  float subtitleOutline() const;
  void setSubtitleOutline(float width);
  /// What stays free of text at the left and at the right, of the output's width. 0 at first.
  float subtitleMargin() const;
  void setSubtitleMargin(float share);

 private:
  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace kestrel
