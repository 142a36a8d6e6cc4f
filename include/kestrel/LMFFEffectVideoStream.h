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
struct SubtitleCanvas;

/// Turns a movie's decoded frames into pictures for display or encoding.
///
/// Each frame is converted to the output's pixel format (its size stays), kept, and copied to a
/// buffer of the host if one is provided. `currentEffectImage` applies the movie's look: bitmap
/// subtitle, crop, display aspect, mirroring, rotation, fit into the output, colours, named effect,
/// black background, watermark, text subtitle. The result is a recipe: no pixel is computed until
/// it is rendered.
///
/// A frame in luma and chroma planes is converted only if its bytes are requested (by a data
/// provider or `currentImage`); recipes read the planes directly. Recipes keep the pixels they need
/// and may be rendered at any later time, on any thread.
///
/// Rectangles and images have their origin at the lower left, with y pointing up. They are in
/// pixels: of the source before the picture is fitted into the output, of the output after that.
///
/// Process one frame at a time, on the movie's decode queue. Settings may be accessed from any
/// thread and take effect with the next picture. Errors show as an empty picture.
class KESTREL_API LMFFEffectVideoStream {
 public:
  using DataBuffer = std::shared_ptr<std::vector<uint8_t>>;

  /// Called with the size of the converted frame; returns a buffer of exactly `size` bytes, or
  /// null.
  using DataProvider = std::function<DataBuffer(int32_t size)>;

  LMFFEffectVideoStream();
  ~LMFFEffectVideoStream();
  LMFFEffectVideoStream(const LMFFEffectVideoStream&) = delete;
  LMFFEffectVideoStream& operator=(const LMFFEffectVideoStream&) = delete;

  /// Drop the converter and the current picture.
  void free_graph();
  void free_frame_image_buffer();

  /// Creates the converter from the media's format to the output's pixel format. Call it whenever
  /// one of them changes. If the conversion is not possible, the stream has no pictures.
  void updateConverter();

  /// Makes a frame the current picture. The previous picture is dropped even if the frame is null
  /// or cannot be converted. The caller keeps the frame. With a data provider, the converted frame
  /// is also copied to the buffer that it returns.
  void writeFrame(const AVFrame* frame);
  void writeFrame(const AVFrame* frame, const DataProvider& dataProvider);

  /// A frame's first plane as an RGBA picture that borrows its pixels; null if it has none.
  std::shared_ptr<const BitmapImage> imageForFrame(const AVFrame* frame) const;

  /// The converted frame, in the host's buffer if there is one; valid until the next write. Null if
  /// there is no frame or the buffer is too small.
  std::shared_ptr<const BitmapImage> currentImage() const;

  /// The same as a recipe with its lower-left corner at the origin. It keeps its pixels.
  std::shared_ptr<const Image> currentCIImage() const;

  /// The format in a data provider's buffer: the output's pixel format at the media's size.
  LMFFVideoFormat outputDataFormat() const;

  Size videoSize() const;  ///< size of the media's picture, pixels
  /// The same with the width given by `displayAspect` or, if that is 0, `aspectType`; rounded up.
  Size displayVideoSize() const;

  // The finished picture.

  /// The finished picture, with the extent {0, 0, output width, output height}; null if there is no
  /// frame. Steps: `mediaSubtitleImage` is drawn over the frame; `cropRect` is cut out and centred
  /// on the origin; the picture is scaled to the display aspect, mirrored, rotated by `rotate`,
  /// fitted by `zoomType`, passed through `effectFilter` and laid over black; `watermark` is drawn
  /// over it without scaling, then `styledSubtitle` or `currentSubtitleImage`; everything is
  /// cropped to the output.
  std::shared_ptr<const Image> currentEffectImage() const;

  /// The picture stretched to a rectangle centred in `rect`. By `zoomType`: 1 `rect` itself; 2 and
  /// 5 the largest inside it of the picture's shape; 3 and 4 the largest inside it of 16:9 or 4:3;
  /// 6 the picture's shape, as wide as `rect`; anything else leaves nothing of the picture. The
  /// scale factors have single precision. Null for null.
  std::shared_ptr<const Image> image(const std::shared_ptr<const Image>& image, int32_t zoomType,
                                     const Rect& rect) const;

  /// The largest rectangle of the shape of `source`, centred in `destination`. The size of `source`
  /// is divided by max(its width / destination's, its height / destination's, 0.001) in single
  /// precision.
  Rect scaleRectIn(const Rect& source, const Rect& destination) const;

  /// The same using only the widths: as wide as `destination`, with any resulting height.
  Rect scaleRectPanscan(const Rect& source, const Rect& destination) const;

  /// `rect` with origin and size multiplied by the factors.
  Rect scaleRect(const Rect& rect, float xScale, float yScale) const;

  /// Two new filters for the colour settings, in single precision: CIColorControls (saturation × 2,
  /// (brightness - 0.5) × 2, contrast × 4) and CIHueAdjust ((hue - 0.5) × 6.28).
  std::vector<std::shared_ptr<Filter>> colorFilter() const;

  /// `colorFilter`, then the catalogue's filter for `effectName`, if any.
  std::vector<std::shared_ptr<Filter>> effectFilter() const;

  /// The picture after all filters, applied in order.
  std::shared_ptr<const Image> image(const std::shared_ptr<const Image>& image,
                                     const std::vector<std::shared_ptr<Filter>>& filters) const;

  /// The output of the named filter for two pictures; null if the filter does not exist or needs a
  /// picture that is null.
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

  /// The picture moved by (`size.width`, `size.height`), or scaled by these factors about the
  /// origin. Null for null.
  std::shared_ptr<const Image> translateImage(const std::shared_ptr<const Image>& image,
                                              const Size& size) const;
  std::shared_ptr<const Image> scaleImage(const std::shared_ptr<const Image>& image,
                                          const Size& size) const;

  // The text subtitle.

  /// `subtitleCurrentString` without leading and trailing white space, centred, in the font and
  /// colour of the settings. With `subtitleMarkup`, tags are turned into attributes.
  AttributedString subtitleAttributedText() const;

  /// The text on a transparent background, sized to the text wrapped between the margins and cut at
  /// the output's upper edge. Null if nothing is visible.
  std::shared_ptr<const BitmapImage> subtitleImageWithAttributedString(
      const std::optional<AttributedString>& string) const;

  /// Makes what `media` has at `time`, microseconds on the media's own time line, the text of the
  /// current time: `subtitleCurrentString`, or `styledSubtitle` where the look asks for styles.
  /// Null: no text. Reads the media forward.
  void showTexts(const std::shared_ptr<LMFFMedia>& media, int64_t time);

  /// The current text as a picture in the output, centred, with its lower edge at
  /// `subtitlePosition` of the height. Null if there is no text. Drawn again only if the text
  /// differs from `subtitleImageString`.
  std::shared_ptr<const Image> currentSubtitleImage() const;

  /// Makes the next picture draw the text again. Call it after changing a setting that affects the
  /// text.
  void updateSubtitle();

  // Settings.

  std::shared_ptr<LMFFMedia> media() const;
  void setMedia(std::shared_ptr<LMFFMedia> media);
  LMFFVideoFormat outputFormat() const;
  void setOutputFormat(const LMFFVideoFormat& format);
  DataBuffer dataBuffer() const;
  void setDataBuffer(DataBuffer buffer);

  /// All settings of the look at once. Setting it also calls `updateSubtitle`.
  MovieLook look() const;
  void setLook(MovieLook look);

  // Individual settings of the look; some are in the record alone.

  /// Display aspect: 1 is 4:3, 2 is 16:9, anything else the source's.
  int64_t aspectType() const;
  void setAspectType(int64_t type);
  /// Display aspect of the whole source, width / height, for sources that are neither 4:3 nor 16:9.
  /// Overrides `aspectType` if above 0.
  double displayAspect() const;
  void setDisplayAspect(double aspect);
  /// The part of the source that is kept, pixels.
  Rect cropRect() const;
  void setCropRect(const Rect& rect);
  bool hflip() const;
  void setHflip(bool flip);
  bool vflip() const;
  void setVflip(bool flip);
  float rotate() const;  ///< degrees, counter-clockwise
  void setRotate(float degrees);
  float saturation() const;  ///< 0.5 changes nothing
  void setSaturation(float value);
  float brightness() const;  ///< 0.5 changes nothing
  void setBrightness(float value);
  float contrast() const;  ///< 0.25 changes nothing
  void setContrast(float value);
  float hue() const;  ///< 0.5 changes nothing
  void setHue(float value);
  int32_t zoomType() const;  ///< how the picture is fitted into the output, see `image`; default 5
  void setZoomType(int32_t type);
  /// Name of an effect of the catalogue; nullopt: none.
  std::optional<std::string> effectName() const;
  void setEffectName(std::optional<std::string> name);
  /// Drawn over every picture; null: none.
  std::shared_ptr<const Image> watermark() const;
  void setWatermark(std::shared_ptr<const Image> image);

  // Subtitles of the current time.

  /// Texts drawn in their own styles, in pixels of the output. Drawn in place of
  /// `currentSubtitleImage` unless null.
  std::shared_ptr<const Image> styledSubtitle() const;
  void setStyledSubtitle(std::shared_ptr<const Image> image);
  std::shared_ptr<const Image> mediaSubtitleImage() const;  ///< the media's own bitmap subtitle
  void setMediaSubtitleImage(std::shared_ptr<const Image> image);
  std::shared_ptr<const Image> subtitleImage() const;  ///< the text, as drawn
  void setSubtitleImage(std::shared_ptr<const Image> image);
  std::optional<std::string> subtitleImageString() const;  ///< the text in `subtitleImage`
  void setSubtitleImageString(std::optional<std::string> text);
  std::optional<std::string> subtitleCurrentString() const;  ///< the text to show
  void setSubtitleCurrentString(std::optional<std::string> text);
  /// The system's font at 80 pixels unless set.
  Font subtitleFont() const;
  void setSubtitleFont(const std::optional<Font>& font);
  /// White unless set.
  Color subtitleColor() const;
  void setSubtitleColor(const std::optional<Color>& color);
  /// Position of the text's lower edge: 0 at the bottom of the output, 1 at its top.
  float subtitlePosition() const;
  void setSubtitlePosition(float position);
  /// If true, "<b>", "<i>", "<u>" and "<s>" up to their closing tags in `subtitleCurrentString`
  /// mean bold, italic, underlined and struck through, and "&lt;", "&gt;", "&amp;" stand for the
  /// characters. Off by default: the text is shown literally.
  bool subtitleMarkup() const;
  void setSubtitleMarkup(bool markup);

 private:
  std::shared_ptr<const Image> placed(const std::shared_ptr<const Image>& whole) const;
  SubtitleCanvas subtitleCanvas() const;

  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace kestrel
