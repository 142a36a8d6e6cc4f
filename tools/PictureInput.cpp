#include "PictureInput.h"

#include <kestrel/LMFFMedia.h>

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <new>

#include "AutoCrop.h"
#include "CoverSource.h"
#include "Failure.h"
#include "Input.h"
#include "Interrupt.h"
#include "Say.h"

extern "C" {
#include <libavformat/avformat.h>
#include <libavutil/mathematics.h>
}

using namespace kestrel;

namespace {

/// An input whose pictures end this much before the time asked for has ended early, microseconds.
constexpr int64_t kMissingTolerance = 1000000;

/// The longest side of a picture that can be drawn, pixels.
constexpr double kLongestSide = 32768;

const AVStream* mainPictures(AVFormatContext& input) {
  const int best = av_find_best_stream(&input, AVMEDIA_TYPE_VIDEO, -1, -1, nullptr, 0);
  return best < 0 ? nullptr : input.streams[best];
}

/// Where a cover is all that there is to see, the cover as an input of its own.
std::shared_ptr<LMMediaSource> openPictures(const std::string& path) {
  auto source = openInput(path);
  const AVStream* const pictures = mainPictures(*source->formatContext());
  if (!pictures || !(pictures->disposition & AV_DISPOSITION_ATTACHED_PIC)) return source;
  auto cover = makeCoverSource(*pictures);
  openSource(*cover, path);
  return cover;
}

Size wholePixels(Size size) {
  return {std::max(std::round(size.width), 1.0), std::max(std::round(size.height), 1.0)};
}

}  // namespace

PictureInput::PictureInput(const std::string& path, const LookSettings& settings)
    : path_(path), source_(openPictures(path)) {
  stream_ = mainPictures(*source_->formatContext());
  if (!stream_) throw Failure{kFailed, fmt::format("'{}' has no pictures", path)};
  movie_.setExportMovie(true);
  movie_.openMedias(
      source_->createMediasWithStreams(IndexSet{static_cast<uint32_t>(stream_->index)}));
  if (!movie_.hasVideo())
    throw Failure{kFailed, fmt::format("the pictures of '{}' cannot be decoded", path)};
  LookSettings own = settings;
  if (own.autoCrop) own.picture = withoutBars(movie_);
  look_ = Look(own, *stream_);
  size_ = wholePixels({look_.size().width * look_.pixelAspect(), look_.size().height});
}

std::optional<int64_t> PictureInput::duration() const {
  const int64_t duration = movie_.duration();
  return duration > 0 && duration < LMFFMedia::kUnknownDuration ? std::optional(duration)
                                                                : std::nullopt;
}

void PictureInput::setOutputSize(Size size) {
  outputSize_ = wholePixels(size);
  if (std::max(outputSize_.width, outputSize_.height) > kLongestSide)
    throw Failure{kFailed, fmt::format("a picture of {}x{} is too large", outputSize_.width,
                                       outputSize_.height)};
  look_.apply(movie_, outputSize_);
}

std::shared_ptr<const Image> PictureInput::imageAt(int64_t time) {
  if (!reader_) reader_.emplace(movie_);
  lastAsked_ = std::max(lastAsked_, time);
  auto image = reader_->imageAt(time);
  if (interrupted()) throw Failure{kInterrupted, "interrupted"};
  if (!image) throw Failure{kFailed, fmt::format("nothing could be decoded from '{}'", path_)};
  return image;
}

std::shared_ptr<const BitmapImage> PictureInput::pictureAt(int64_t time) {
  auto picture = context_.bitmapImage(imageAt(time), {{0, 0}, outputSize_});
  if (!picture) throw std::bad_alloc();
  return picture;
}

/// Whether something else of the input, such as sound that goes on with the last picture, is there
/// at a time or later.
bool PictureInput::reaches(int64_t time) const {
  if (!source_->isSeekable()) return false;
  const auto source = openInput(path_);
  IndexSet others;
  for (unsigned i = 0; i < source->formatContext()->nb_streams; ++i)
    if (static_cast<int>(i) != stream_->index) others.insert(i);
  LMFFMedia media;
  media.setSource(source);
  media.setSelectStreams(others);
  media.open();
  media.seek(time);
  const auto isThere = [&] { return media.last_pts() >= source->start_time() + time; };
  while (!isThere() && media.forwardNextPacket()) {
  }
  return isThere();
}

int PictureInput::status() const {
  const auto end = reader_ ? reader_->end() : std::nullopt;
  const auto length = duration();
  if (!end || !length) return kDone;
  const int64_t told =
      stream_->duration > 0
          ? std::min(av_rescale_q(stream_->duration, stream_->time_base, {1, 1000000}), *length)
          : *length;
  const Error error = source_->lastError();
  const int64_t wanted = std::min(lastAsked_, told) - kMissingTolerance;
  if (!error && (wanted <= *end || reaches(wanted))) return kDone;
  say(fmt::format("'{}' ended early, at {:.2f} of {:.2f} s{}", path_, lm_ff_time_to_double(*end),
                  lm_ff_time_to_double(std::max(told, *end)), error ? ": " + error.message : ""));
  return kDoneInPart;
}
