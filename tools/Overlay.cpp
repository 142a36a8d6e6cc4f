#include "Overlay.h"

#include <kestrel/BitmapFile.h>
#include <kestrel/Filter.h>
#include <kestrel/FilterRegistry.h>
#include <kestrel/Image.h>
#include <kestrel/LMCustomSource.h>
#include <kestrel/LMDVDTitleSource.h>
#include <kestrel/LMFFMedia.h>
#include <kestrel/LMFFMediaStream.h>
#include <kestrel/TextEncoding.h>

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <utility>
#include <vector>

#include "Failure.h"
#include "Languages.h"
#include "Text.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
}

using namespace kestrel;

namespace {

using Bytes = std::vector<uint8_t>;

constexpr std::streamoff kLargestFile = 64 << 20;  // bytes; no subtitles and no logo are larger

Bytes readFile(const std::string& path) {
  if (std::filesystem::is_directory(path))
    throw Failure{kFailed, fmt::format("cannot open '{}': {}", path, std::strerror(EISDIR))};
  std::ifstream stream(path, std::ios::binary | std::ios::ate);
  const std::streamoff size = stream ? std::streamoff(stream.tellg()) : -1;
  if (size < 0)
    throw Failure{kFailed, fmt::format("cannot open '{}': {}", path, std::strerror(errno))};
  if (size > kLargestFile)
    throw Failure{kFailed, fmt::format("cannot read '{}': it is too large", path)};
  Bytes bytes(static_cast<size_t>(size));
  stream.seekg(0);
  if (!stream.read(reinterpret_cast<char*>(bytes.data()), size))
    throw Failure{kFailed, fmt::format("cannot read '{}'", path)};
  return bytes;
}

/// Serves bytes that lie in memory.
class MemorySource : public LMCustomSource {
 public:
  explicit MemorySource(std::string bytes) : bytes_(std::move(bytes)) {}

  std::shared_ptr<LMMediaSource> copy() const override {
    return std::make_shared<MemorySource>(bytes_);
  }

  int64_t filesize() const override { return static_cast<int64_t>(bytes_.size()); }

  int32_t read(uint8_t* buffer, int32_t size) override {
    const int64_t left = std::clamp<int64_t>(filesize() - read_offset(), 0, size);
    std::copy_n(bytes_.data() + (left > 0 ? read_offset() : 0), left, buffer);
    return static_cast<int32_t>(left);
  }

 private:
  const std::string bytes_;
};

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

/// The container index of the subtitle stream that a user means.
uint32_t findTrack(const AVFormatContext& input, const std::string& wanted) {
  std::vector<uint32_t> tracks;
  for (uint32_t i = 0; i < input.nb_streams; ++i)
    if (input.streams[i]->codecpar->codec_type == AVMEDIA_TYPE_SUBTITLE) tracks.push_back(i);
  size_t number = 0;
  const auto [end, error] = std::from_chars(wanted.data(), wanted.data() + wanted.size(), number);
  if (error == std::errc{} && end == wanted.data() + wanted.size()) {
    if (number < tracks.size()) return tracks[number];
    throw wrongUsage(
        fmt::format("there is no subtitle track {}: the input has {}", wanted, tracks.size()));
  }
  for (const uint32_t index : tracks)
    if (isSameLanguage(languageOf(*input.streams[index]), wanted)) return index;
  std::vector<std::string> languages;
  for (size_t i = 0; i < tracks.size(); ++i)
    languages.push_back(fmt::format("{} in '{}'", i, languageOf(*input.streams[tracks[i]])));
  throw wrongUsage(fmt::format("no subtitle track is in the language '{}': {}", wanted,
                               languages.empty()
                                   ? "the input has none"
                                   : fmt::format("there are {}", fmt::join(languages, ", "))));
}

/// The track of a disc that a user means.
const LMDVDTrack& findTrack(const LMDVDTitle& title, const std::string& wanted) {
  const auto& tracks = title.subtitleTracks();
  if (const auto numbers = parseIndexList(wanted); numbers && numbers->size() == 1) {
    const uint32_t number = *numbers->begin();
    if (number < tracks.size()) return tracks[number];
    throw wrongUsage(
        fmt::format("there is no subtitle track {}: the title has {}", wanted, tracks.size()));
  }
  for (const auto& track : tracks)
    if (!track.language.empty() && isSameLanguage(track.language, wanted)) return track;
  throw wrongUsage(fmt::format("there is no subtitle track in '{}'", wanted));
}

/// Reads a disc's subpictures by themselves: they stand behind the pictures that they are shown
/// with. The demuxer may come across their first only in the middle of the movie, so every stream
/// that it finds later is let in, and the track is chosen by its number.
void openDiscTrack(LMFFMovie& movie, const LMFFMedia& video, const LMDVDTitle& title,
                   const std::string& wanted) {
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
    throw Failure{kFailed, fmt::format("cannot read '{}': it is no picture", watermark.path)};
  auto image = Image::fromBitmap(bitmap);
  if (watermark.scale != 1) image = image->scaled(watermark.scale, watermark.scale);
  const double height = image->extent().size.height;
  image = image->translated(watermark.x, outputHeight - watermark.y - height);
  return watermark.opacity < 1 ? faded(image, watermark.opacity) : image;
}

void openSubtitles(LMFFMovie& movie, const std::string& path) {
  const auto text = textFromData(readFile(path));
  auto media = std::make_shared<LMFFMedia>();
  if (text) {
    media->setSource(std::make_shared<MemorySource>(*text));
    media->open();
  }
  if (!media->hasSubtitle())
    throw Failure{kFailed, fmt::format("cannot read '{}': it holds no subtitles", path)};
  movie.setSubtitle(std::move(media));
}

void openSubtitleTrack(LMFFMovie& movie, const std::string& track) {
  const auto video = movie.videoMedia();
  if (!video) return;
  if (const auto disc = std::dynamic_pointer_cast<LMDVDTitleSource>(video->source()))
    return openDiscTrack(movie, *video, *disc->title(), track);
  const uint32_t index = findTrack(*video->formatContext(), track);
  IndexSet streams{index};
  if (!isText(*video->streams()[index])) {
    // The pictures' own reader brings the bitmaps along.
    for (const auto& stream : video->videos())
      streams.insert(static_cast<uint32_t>(stream->stream()->index));
    video->setSelectStreams(streams);
    video->updateSelectStreams();
    return;
  }
  auto media = video->copy();
  media->setSelectStreams(streams);
  media->open();
  if (!media->hasSubtitle())
    throw Failure{kFailed, fmt::format("subtitle track {} cannot be decoded", track)};
  movie.setSubtitle(std::move(media));
}
