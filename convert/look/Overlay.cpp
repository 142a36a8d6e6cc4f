#include "convert/look/Overlay.h"

#include <kestrel/BitmapFile.h>
#include <kestrel/Filter.h>
#include <kestrel/FilterRegistry.h>
#include <kestrel/Image.h>
#include <kestrel/LMDVDTitleSource.h>
#include <kestrel/LMFFMedia.h>
#include <kestrel/LMFFMediaStream.h>

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <iterator>
#include <utility>
#include <vector>

#include <kestrel/convert/Failure.h>
#include "convert/probe/Input.h"
#include "convert/probe/Languages.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
}

namespace kestrel {

namespace {

using Bytes = std::vector<uint8_t>;

constexpr std::streamoff kLargestFile = 64 << 20;  // bytes; no logo is larger

Bytes readFile(const std::string& path) {
  requireFile(path);
  std::ifstream stream(path, std::ios::binary | std::ios::ate);
  const std::streamoff size = stream ? std::streamoff(stream.tellg()) : -1;
  if (size < 0)
    throw Failure::input(path, fmt::format("cannot open '{}': {}", path, std::strerror(errno)));
  if (size > kLargestFile)
    throw Failure::input(path, fmt::format("cannot read '{}': it is too large", path));
  Bytes bytes(static_cast<size_t>(size));
  stream.seekg(0);
  if (!stream.read(reinterpret_cast<char*>(bytes.data()), size))
    throw Failure::input(path, fmt::format("cannot read '{}'", path));
  return bytes;
}

std::shared_ptr<const Image> faded(const std::shared_ptr<const Image>& image, double opacity) {
  const auto filter = FilterRegistry::filterWithName("CISourceInCompositing");
  filter->setValue(image, kCIInputImageKey);
  filter->setValue(Image::fromColor({1, 1, 1, opacity}), kCIInputBackgroundImageKey);
  return filter->outputImage();
}

bool isText(const LMFFMediaStream& stream) {
  const AVCodecDescriptor* codec = avcodec_descriptor_get(stream.stream()->codecpar->codec_id);
  return codec && (codec->props & AV_CODEC_PROP_TEXT_SUB);
}

/// The number of a track, or its language, as users know it.
std::string nameOf(const TrackChoice& choice) {
  return choice.kind == TrackChoice::Kind::kNumbers && !choice.numbers.empty()
             ? fmt::format("{}", *choice.numbers.begin())
             : fmt::format("in '{}'", choice.language);
}

/// Which of an input's subtitle tracks is meant, where `languages` are theirs: its place there.
size_t findTrack(const std::vector<std::string>& languages, const TrackChoice& wanted) {
  if (wanted.kind == TrackChoice::Kind::kNumbers && !wanted.numbers.empty()) {
    const size_t number = *wanted.numbers.begin();
    if (number < languages.size()) return number;
    throw Failure::settings(
        fmt::format("there is no subtitle track {}: the input has {}", number, languages.size()),
        "subtitleTrack");
  }
  const bool hasLanguage = wanted.kind == TrackChoice::Kind::kLanguage;
  for (size_t i = 0; i < languages.size(); ++i)
    if (!hasLanguage || (!languages[i].empty() && isSameLanguage(languages[i], wanted.language)))
      return i;
  std::vector<std::string> known;
  for (size_t i = 0; i < languages.size(); ++i)
    known.push_back(fmt::format("{} in '{}'", i, languages[i]));
  throw Failure::settings(
      fmt::format("no subtitle track is in the language '{}': {}", wanted.language,
                  known.empty() ? "the input has none"
                                : fmt::format("there are {}", fmt::join(known, ", "))),
      "subtitleTrack");
}

/// The container index of the subtitle stream that a user means.
uint32_t findTrack(const AVFormatContext& input, const TrackChoice& wanted) {
  std::vector<uint32_t> tracks;
  std::vector<std::string> languages;
  for (uint32_t i = 0; i < input.nb_streams; ++i) {
    if (input.streams[i]->codecpar->codec_type != AVMEDIA_TYPE_SUBTITLE) continue;
    tracks.push_back(i);
    languages.push_back(languageOf(*input.streams[i]));
  }
  return tracks[findTrack(languages, wanted)];
}

/// The track of a disc that a user means.
const LMDVDTrack& findTrack(const LMDVDTitle& title, const TrackChoice& wanted) {
  std::vector<std::string> languages;
  for (const auto& track : title.subtitleTracks()) languages.push_back(track.language);
  return title.subtitleTracks()[findTrack(languages, wanted)];
}

/// Reads a disc's subpictures by themselves: they stand behind the pictures that they are shown
/// with. The demuxer may come across their first only in the middle of the movie, so every stream
/// that it finds later is let in, and the track is chosen by its number.
void openDiscTrack(LMFFMovie& movie, const LMFFMedia& video, const LMDVDTitle& title,
                   const TrackChoice& wanted) {
  constexpr uint32_t kMostStreams = 64;
  constexpr uint32_t kTrackMask = 0xF;
  const LMDVDTrack& track = findTrack(title, wanted);
  IndexSet streams;
  const AVFormatContext& known = *video.formatContext();
  for (uint32_t i = 0; i < kMostStreams; ++i)
    if (i >= known.nb_streams || known.streams[i]->id == track.stream_id) streams.insert(i);
  auto media = video.copy();
  media->setSelectStreams(streams);
  media->setSelectSubtitles(IndexSet{static_cast<uint32_t>(track.stream_id) & kTrackMask});
  media->setSelectAudios(IndexSet{});
  media->open();
  movie.setSubtitle(std::move(media));
}

}  // namespace

std::shared_ptr<const Image> loadWatermark(const Watermark& watermark, double outputHeight) {
  const auto bitmap = bitmapImageWithData(readFile(watermark.path));
  if (!bitmap)
    throw Failure::input(watermark.path,
                         fmt::format("cannot read '{}': it is no picture", watermark.path));
  auto image = Image::fromBitmap(bitmap);
  if (watermark.scale != 1) image = image->scaled(watermark.scale, watermark.scale);
  const double height = image->extent().size.height;
  image = image->translated(watermark.x, outputHeight - watermark.y - height);
  return watermark.opacity < 1 ? faded(image, watermark.opacity) : image;
}

void openSubtitles(LMFFMovie& movie, const std::string& path) {
  requireFile(path);
  if (!movie.openSubtitle(path))
    throw Failure::input(path, fmt::format("cannot read '{}': it holds no subtitles", path));
}

std::optional<uint32_t> subtitleStreamOf(const LMMediaSource& source, const TrackChoice& track) {
  const AVFormatContext& input = *source.formatContext();
  const auto* disc = dynamic_cast<const DVDTitleSource*>(&source);
  if (!disc) return findTrack(input, track);
  const int id = findTrack(*disc->title(), track).stream_id;
  for (uint32_t i = 0; i < input.nb_streams; ++i)
    if (input.streams[i]->id == id) return i;
  return std::nullopt;
}

void openSubtitleTrack(LMFFMovie& movie, const TrackChoice& track) {
  const auto video = movie.videoMedia();
  if (!video) return;
  if (const auto disc = std::dynamic_pointer_cast<DVDTitleSource>(video->source()))
    return openDiscTrack(movie, *video, *disc->title(), track);
  const uint32_t index = findTrack(*video->formatContext(), track);
  const auto stream = video->streams()[index];
  if (!isText(*stream)) {
    // The pictures' own reader brings the bitmaps along.
    stream->open();
    stream->setEnable(stream->isOpen());
    return;
  }
  auto media = video->copy();
  media->setSelectStreams(IndexSet{index});
  media->open();
  if (!media->hasSubtitle())
    throw Failure::input(video->source()->path(),
                         fmt::format("subtitle track {} cannot be decoded", nameOf(track)));
  movie.setSubtitle(std::move(media));
}

}  // namespace kestrel
