#include <kestrel/convert/Pictures.h>

#include <kestrel/ImageContext.h>
#include <kestrel/LMFFMedia.h>
#include <kestrel/LMFFMediaStream.h>
#include <kestrel/LMFFMovie.h>
#include <kestrel/LMMediaSource.h>
#include <kestrel/MemorySource.h>
#include <kestrel/convert/Failure.h>
#include <kestrel/convert/MediaInfo.h>

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <new>
#include <vector>

#include "convert/look/Look.h"
#include "convert/look/LookTable.h"
#include "convert/pictures/AutoCrop.h"
#include "convert/pictures/PictureReader.h"
#include "convert/probe/Input.h"
#include "convert/probe/InputEnd.h"
#include "convert/settings/Require.h"

extern "C" {
#include <libavformat/avformat.h>
}

namespace kestrel {

namespace {

/// The longest side of a picture that can be drawn, pixels.
constexpr double kLongestSide = 32768;

/// Where a cover is all that there is to see, the cover as an input of its own.
std::shared_ptr<LMMediaSource> openPictures(const PicturesSettings& settings,
                                            const Interrupt& interrupt) {
  auto source = openInput(settings, interrupt);
  const MediaInfo info = mediaInfoOf(*source);
  if (info.mainVideo || !info.cover) return source;
  const AVPacket& packet = source->formatContext()->streams[*info.cover]->attached_pic;
  auto cover = std::make_shared<MemorySource>(
      std::make_shared<const std::vector<uint8_t>>(packet.data, packet.data + packet.size));
  openSource(*cover, settings.input, interrupt);
  return cover;
}

const PicturesSettings& checked(const PicturesSettings& settings) {
  require(settings.look);
  requireDeinterlacing("deinterlacing", settings.deinterlacing);
  return settings;
}

Size wholePixels(Size size) {
  return {std::max(std::round(size.width), 1.0), std::max(std::round(size.height), 1.0)};
}

}  // namespace

class Pictures::Input {
 public:
  Input(const PicturesSettings& settings, const Interrupt& interrupt);

  std::optional<int64_t> duration() const;
  Rational frameRate() const;
  Size size() const { return size_; }
  Size outputSize() const { return outputSize_; }
  void setOutputSize(Size size);
  void setEffect(const std::string& name);
  std::shared_ptr<const Image> imageAt(int64_t time);
  std::shared_ptr<const BitmapImage> pictureAt(int64_t time);
  Shown shownAt(int64_t time);
  std::optional<Shown> next();
  std::shared_ptr<const BitmapImage> drawn(const Shown& shown);
  Report report() const;

 private:
  Size lookSize() const;
  void applyLook();
  template <typename Ask>
  auto asked(int64_t time, Ask ask);

  PicturesSettings settings_;
  std::shared_ptr<LMMediaSource> source_;
  StreamInfo pictures_;
  std::optional<Area> picture_;  // between black bars
  LMFFMovie movie_;
  Look look_;
  Size size_;
  Size outputSize_;
  ImageContext context_;
  std::optional<PictureReader> reader_;
  int64_t lastAsked_ = 0;
  std::shared_ptr<uint8_t[]> drawn_;
  size_t drawnBytes_ = 0;
};

Pictures::Input::Input(const PicturesSettings& settings, const Interrupt& interrupt)
    : settings_(checked(settings)), source_(openPictures(settings, interrupt)) {
  const std::string& path = settings.input;
  const MediaInfo info = mediaInfoOf(*source_);
  if (!info.mainVideo) throw Failure::input(path, fmt::format("'{}' has no pictures", path));
  pictures_ = info.streams[*info.mainVideo];
  movie_.setExportMovie(true);
  movie_.openMedias(source_->createMediasWithStreams(IndexSet{pictures_.index}));
  if (!movie_.hasVideo())
    throw Failure::input(path, fmt::format("the pictures of '{}' cannot be decoded", path));
  movie_.videos().front()->videoStream()->setTreatment({.deinterlacing = settings.deinterlacing});
  if (settings.look.autoCrop) picture_ = withoutBars(movie_);
  look_ = Look(settings.look, pictures_.video, picture_);
  size_ = wholePixels({look_.size().width * look_.pixelAspect(), look_.size().height});
  setOutputSize(size_);
}

std::optional<int64_t> Pictures::Input::duration() const {
  const int64_t duration = movie_.duration();
  return duration > 0 && duration < LMFFMedia::kUnknownDuration ? std::optional(duration)
                                                                : std::nullopt;
}

void Pictures::Input::setOutputSize(Size size) {
  const Size wanted = size == Size{} ? size_ : size;
  for (const double side : {wanted.width, wanted.height})
    if (!(side > 0 && side <= kLongestSide))
      throw Failure::settings(
          fmt::format("a picture of {}x{} cannot be drawn: a side has up to {} pixels",
                      wanted.width, wanted.height, kLongestSide),
          "size");
  outputSize_ = wholePixels(wanted);
  applyLook();
}

/// The size in which the look is applied: that of a conversion where there is a named effect, whose
/// lines and grains shall look as they will there, else at once the size asked for.
Size Pictures::Input::lookSize() const {
  if (settings_.look.effect.empty() || settings_.look.zoom) return outputSize_;
  return outputSize_.width < size_.width ? size_ : outputSize_;
}

void Pictures::Input::applyLook() { look_.apply(movie_, lookSize()); }

void Pictures::Input::setEffect(const std::string& name) {
  requireEffect(name);
  settings_.look.effect = name;
  look_ = Look(settings_.look, pictures_.video, picture_);
  applyLook();
}

/// What the reader answers for a time, if it answers anything.
template <typename Ask>
auto Pictures::Input::asked(int64_t time, Ask ask) {
  time = std::max<int64_t>(time, 0);
  if (!reader_) reader_.emplace(movie_);
  lastAsked_ = std::max(lastAsked_, time);
  auto answer = ask(*reader_, time);
  if (isInterrupted(movie_)) throw Failure::interrupted();
  if (!answer)
    throw Failure::input(settings_.input,
                         fmt::format("nothing could be decoded from '{}'", settings_.input));
  return answer;
}

Pictures::Shown Pictures::Input::shownAt(int64_t time) {
  const HeldPicture picture =
      asked(time, [](PictureReader& reader, int64_t wanted) { return reader.frameAt(wanted); });
  return {picture.image, picture.start, picture.end};
}

std::shared_ptr<const Image> Pictures::Input::imageAt(int64_t time) {
  auto image =
      asked(time, [](PictureReader& reader, int64_t wanted) { return reader.imageAt(wanted); });
  const Size drawn = lookSize();
  if (drawn == outputSize_) return image;
  return image->scaled(outputSize_.width / drawn.width, outputSize_.height / drawn.height)
      ->cropped({{0, 0}, outputSize_});
}

std::shared_ptr<const BitmapImage> Pictures::Input::pictureAt(int64_t time) {
  auto picture = context_.bitmapImage(imageAt(time), {{0, 0}, outputSize_});
  if (!picture) throw std::bad_alloc();
  return picture;
}

std::optional<Pictures::Shown> Pictures::Input::next() {
  if (!reader_) reader_.emplace(movie_);
  const HeldPicture& picture = reader_->next();
  if (isInterrupted(movie_)) throw Failure::interrupted();
  if (!picture) return std::nullopt;
  lastAsked_ = std::max(lastAsked_, picture.start);
  return Shown{picture.image, picture.start, picture.end};
}

std::shared_ptr<const BitmapImage> Pictures::Input::drawn(const Shown& shown) {
  const auto image = reader_ ? reader_->drawn(*shown.frame) : nullptr;
  const int width = static_cast<int>(outputSize_.width);
  const int height = static_cast<int>(outputSize_.height);
  const size_t bytes = 4 * static_cast<size_t>(width) * static_cast<size_t>(height);
  // Memory that nobody holds any more is used again: the system takes long to hand out new pages.
  if (drawn_.use_count() != 1 || drawnBytes_ != bytes)
    drawn_ = std::make_shared_for_overwrite<uint8_t[]>(drawnBytes_ = bytes);
  if (!context_.render(image, {{0, 0}, outputSize_}, drawn_.get(), 4 * width))
    throw std::bad_alloc();
  return BitmapImage::sharing(drawn_, width, height, 4 * width);
}

Report Pictures::Input::report() const {
  Report report;
  if (!reader_) return report;
  InputEnd end;
  end.refused = reader_->refused();
  if (!reader_->end()) {
    judgeInput(report, settings_.input, 0, end);
    return report;
  }
  end.reached = *reader_->end();
  end.error = source_->lastError();
  const IndexSet streams{pictures_.index};
  judgeInput(report, settings_.input, {*source_, *source_->formatContext(), streams, lastAsked_},
             end);
  return report;
}

Rational Pictures::Input::frameRate() const {
  return pictures_.video.averageRate.value_or(Rational{0, 0});
}

Pictures::Pictures(const PicturesSettings& settings, const Interrupt& interrupt)
    : input_(std::make_unique<Input>(settings, interrupt)) {}

Pictures::~Pictures() = default;

std::optional<int64_t> Pictures::duration() const { return input_->duration(); }

Rational Pictures::frameRate() const { return input_->frameRate(); }

Size Pictures::size() const { return input_->size(); }

Size Pictures::outputSize() const { return input_->outputSize(); }

void Pictures::setEffect(const std::string& name) { input_->setEffect(name); }

void Pictures::setOutputSize(Size size) { input_->setOutputSize(size); }

std::shared_ptr<const BitmapImage> Pictures::pictureAt(int64_t time) {
  return input_->pictureAt(time);
}

std::shared_ptr<const Image> Pictures::imageAt(int64_t time) { return input_->imageAt(time); }

Pictures::Shown Pictures::shownAt(int64_t time) { return input_->shownAt(time); }

std::optional<Pictures::Shown> Pictures::next() { return input_->next(); }

std::shared_ptr<const BitmapImage> Pictures::drawn(const Shown& shown) {
  return input_->drawn(shown);
}

Report Pictures::report() const { return input_->report(); }

}  // namespace kestrel
