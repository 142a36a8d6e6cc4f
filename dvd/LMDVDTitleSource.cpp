#include <kestrel/LMDVDTitleSource.h>

#include <fmt/format.h>
#include <fmt/ranges.h>
#include <unicode/uloc.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <mutex>
#include <utility>

#include "dvd/TitleSourceState.h"
#include "support/FFmpegBytes.h"
#include "support/FFmpegError.h"
#include "support/FFmpegOwners.h"

namespace kestrel {

namespace {

constexpr int32_t kBufferBytes = 1048576;

/// The code by which containers name a language that a disc names by two letters.
std::string threeLetters(const std::string& language) {
  const std::string code = uloc_getISO3Language(language.c_str());
  return code.empty() ? language : code;
}

/// One colour, 0x00YYCrCb in the range of video, as 0x00RRGGBB by ITU-R BT.601.
uint32_t rgbOf(uint32_t colour) {
  const double y = 255 / 219.0 * (static_cast<double>(colour >> 16 & 0xFF) - 16);
  const double cr = 255 / 224.0 * (static_cast<double>(colour >> 8 & 0xFF) - 128);
  const double cb = 255 / 224.0 * (static_cast<double>(colour & 0xFF) - 128);
  const auto component = [](double value) {
    return static_cast<uint32_t>(std::lround(std::clamp(value, 0.0, 255.0)));
  };
  return component(y + 1.402 * cr) << 16 | component(y - 0.344136 * cb - 0.714136 * cr) << 8 |
         component(y + 1.772 * cb);
}

/// What containers keep beside subpictures, in the form that players know from .idx files.
std::string subpictureHeader(const SubtitlePalette& palette, int width, int height) {
  std::vector<std::string> colours;
  for (const uint32_t colour : palette) colours.push_back(fmt::format("{:06x}", rgbOf(colour)));
  return fmt::format("size: {}x{}\npalette: {}\n", width, height, fmt::join(colours, ", "));
}

void setHeader(AVCodecParameters& parameters, const std::string& text) {
  setCodecData(parameters, {reinterpret_cast<const uint8_t*>(text.data()), text.size()});
}

/// How containers mark tracks of a kind.
int dispositionOf(LMDVDTrackKind kind) {
  using Kind = LMDVDTrackKind;
  switch (kind) {
    case Kind::kVisuallyImpaired:
      return AV_DISPOSITION_VISUAL_IMPAIRED;
    case Kind::kCommentary:
    case Kind::kAlternateCommentary:
    case Kind::kLargeCommentary:
    case Kind::kChildrensCommentary:
      return AV_DISPOSITION_COMMENT;
    case Kind::kCaptions:
    case Kind::kLargeCaptions:
    case Kind::kChildrensCaptions:
      return AV_DISPOSITION_HEARING_IMPAIRED;
    case Kind::kForced:
      return AV_DISPOSITION_FORCED;
    default:
      return 0;
  }
}

Error scrambledError() {
  return engineError(AVERROR(EACCES),
                     "the disc is scrambled (copy protection), and scrambled discs are not read");
}

/// The size of a title's pictures, pixels: their own or, where they do not tell, that stated.
std::pair<int, int> pictureSize(const AVFormatContext& context, const LMDVDVideo& stated) {
  for (unsigned i = 0; i < context.nb_streams; ++i) {
    const AVCodecParameters& stream = *context.streams[i]->codecpar;
    if (stream.codec_type == AVMEDIA_TYPE_VIDEO && stream.width > 0 && stream.height > 0)
      return {stream.width, stream.height};
  }
  return {stated.width, stated.height};
}

}  // namespace

LMDVDTitleSource::LMDVDTitleSource(std::shared_ptr<LMDVD> dvd,
                                   std::shared_ptr<LMDVDTitleSet> title_set,
                                   std::shared_ptr<LMDVDTitle> title, int32_t angle)
    : state_(std::make_unique<State>()) {
  state_->dvd = std::move(dvd);
  state_->title_set = std::move(title_set);
  state_->title = std::move(title);
  state_->angle = angle;
}

LMDVDTitleSource::~LMDVDTitleSource() { close(); }

std::shared_ptr<LMMediaSource> LMDVDTitleSource::copy() const {
  return std::make_shared<LMDVDTitleSource>(state_->dvd, state_->title_set, state_->title,
                                            state_->angle);
}

const std::shared_ptr<LMDVD>& LMDVDTitleSource::dvd() const { return state_->dvd; }

const std::shared_ptr<LMDVDTitleSet>& LMDVDTitleSource::title_set() const {
  return state_->title_set;
}

const std::shared_ptr<LMDVDTitle>& LMDVDTitleSource::title() const { return state_->title; }

int32_t LMDVDTitleSource::angle() const { return state_->angle; }

AVIOContext* LMDVDTitleSource::avio_context() {
  state_->openVobs();
  return LMCustomSource::avio_context();
}

int32_t LMDVDTitleSource::read(uint8_t* buffer, int32_t size) {
  if (!state_->vobs || read_offset() < 0) return 0;
  if (const auto stop = interrupt(); stop && stop()) return AVERROR_EXIT;
  const int64_t block = read_offset() / kSectorBytes;
  const int64_t within = read_offset() % kSectorBytes;
  const bool isAligned = within == 0 && size >= kSectorBytes;
  std::array<uint8_t, kSectorBytes> sector;
  const int64_t answer = isAligned ? state_->readBlocks(block, size / kSectorBytes, buffer)
                                   : state_->readBlocks(block, 1, sector.data());
  const bool isMissing = answer == 0 && (block < state_->blocks || state_->isCut);
  if (answer < 0 || isMissing)
    setLastError(state_->metScrambled
                     ? scrambledError()
                     : engineError(AVERROR(EIO), "not all of its sectors can be read"));
  const int64_t got = std::abs(answer);
  if (isAligned || got == 0) return static_cast<int32_t>(got * kSectorBytes);
  const int64_t count = std::min<int64_t>(size, kSectorBytes - within);
  std::copy_n(sector.data() + within, count, buffer);
  return static_cast<int32_t>(count);
}

Error LMDVDTitleSource::whyUnreadable() {
  state_->openVobs();
  if (!state_->vobs) return engineError(AVERROR(EIO), "the title's VOBs cannot be opened");
  if (state_->segments.empty())
    return engineError(AVERROR(EIO), "none of the title's sectors are there");
  return state_->beginsScrambled() ? scrambledError() : Error{};
}

Error LMDVDTitleSource::problem() {
  Error error = whyUnreadable();
  if (!error && state_->isCut)
    error = engineError(AVERROR(EIO), "not all of the title's sectors are there");
  return error;
}

void LMDVDTitleSource::open() {
  if (isOpen()) return;
  if (const Error error = whyUnreadable()) return setLastError(error);
  LMCustomSource::open();
  if (!isOpen()) return;
  AVFormatContext& context = *formatContext();
  context.start_time = av_rescale_q(kFirstTick, kTicks, kMicroseconds);
  context.duration = duration();
  setPictureRate();
  describeStreams();
  addChapters();
}

/// The demuxer's own idea of it counts fields where pictures repeat them.
void LMDVDTitleSource::setPictureRate() {
  const auto rate = state_->pictureRate();
  if (!rate) return;
  AVFormatContext& context = *formatContext();
  for (unsigned i = 0; i < context.nb_streams; ++i) {
    AVStream& stream = *context.streams[i];
    if (stream.codecpar->codec_type != AVMEDIA_TYPE_VIDEO) continue;
    stream.r_frame_rate = {rate->num, rate->den};
    stream.avg_frame_rate = stream.r_frame_rate;
  }
}

/// Adds what the disc says of the streams. Sound that begins late has been found without its
/// format.
void LMDVDTitleSource::describeStreams() {
  AVFormatContext& context = *formatContext();
  const auto [width, height] = pictureSize(context, state_->title->video());
  for (unsigned i = 0; i < context.nb_streams; ++i) {
    AVStream& stream = *context.streams[i];
    const AVMediaType type = stream.codecpar->codec_type;
    if (type != AVMEDIA_TYPE_AUDIO && type != AVMEDIA_TYPE_SUBTITLE) continue;
    const auto& tracks =
        type == AVMEDIA_TYPE_AUDIO ? state_->title->audioTracks() : state_->title->subtitleTracks();
    const auto track = std::ranges::find(tracks, stream.id, &LMDVDTrack::stream_id);
    if (track == tracks.end()) continue;
    if (!track->language.empty())
      av_dict_set(&stream.metadata, "language", threeLetters(track->language).c_str(), 0);
    stream.disposition |= dispositionOf(track->kind);
    if (type == AVMEDIA_TYPE_SUBTITLE)
      setHeader(*stream.codecpar, subpictureHeader(*state_->title->palette(), width, height));
    if (type != AVMEDIA_TYPE_AUDIO || stream.codecpar->sample_rate > 0) continue;
    stream.codecpar->sample_rate = track->sample_rate;
    av_channel_layout_default(&stream.codecpar->ch_layout, track->channels);
  }
}

/// Makes the title's chapters the container's, as if it held them itself. The context owns them.
void LMDVDTitleSource::addChapters() {
  AVFormatContext& context = *formatContext();
  const auto times = chapterTimes();
  for (size_t i = 0; i < times.size(); ++i) {
    auto* chapter = static_cast<AVChapter*>(av_mallocz(sizeof(AVChapter)));
    if (!chapter) return;
    chapter->id = static_cast<int64_t>(i);
    chapter->time_base = kMicroseconds;
    chapter->start = context.start_time + times[i];
    chapter->end = context.start_time + (i + 1 < times.size() ? times[i + 1] : duration());
    av_dict_set(&chapter->metadata, "title", fmt::format("Chapter {}", i + 1).c_str(), 0);
    int count = static_cast<int>(context.nb_chapters);
    av_dynarray_add(&context.chapters, &count, chapter);
    context.nb_chapters = static_cast<unsigned>(count);
  }
}

bool LMDVDTitleSource::isDVD() const { return true; }

std::string LMDVDTitleSource::name() const {
  const State& state = *state_;
  return fmt::format("{}_{}_{}", state.dvd ? state.dvd->volume() : "",
                     state.title_set ? state.title_set->title_set() : 0,
                     state.title ? state.title->title() + 1 : 1);
}

std::string LMDVDTitleSource::path() const { return state_->dvd ? state_->dvd->path() : ""; }

std::optional<std::vector<std::string>> LMDVDTitleSource::audioNames() const {
  return state_->title_set ? std::optional(state_->title_set->audioLanguages()) : std::nullopt;
}

std::optional<std::vector<std::string>> LMDVDTitleSource::subtitleNames() const {
  return state_->title_set ? std::optional(state_->title_set->subtitleLanguages()) : std::nullopt;
}

int64_t LMDVDTitleSource::filesize() const { return state_->blocks * kSectorBytes; }

int32_t LMDVDTitleSource::buffer_size() const { return kBufferBytes; }

std::vector<int64_t> LMDVDTitleSource::chapterTimes() {
  std::vector<int64_t> times;
  if (!state_->title) return times;
  for (const size_t cell : state_->title->chapters()) times.push_back(timeOfCell(cell));
  return times;
}

/// Where a cell begins in the stream, microseconds: by its own navigation, or else as the disc
/// states.
int64_t LMDVDTitleSource::timeOfCell(size_t index) const {
  const auto& cells = state_->cells();
  const auto segment = state_->segmentOfCell[index];
  const auto own = segment ? state_->timesAt(cells[index].first_sector) : std::nullopt;
  if (own) {
    const TitleSegment& holder = state_->segments[*segment];
    return av_rescale_q(holder.start + int64_t{own->start} - holder.own_start - kFirstTick, kTicks,
                        kMicroseconds);
  }
  int64_t stated = 0;
  for (size_t i = 0; i < index; ++i) stated += cells[i].duration;
  return std::min(stated, duration());
}

int64_t LMDVDTitleSource::duration() const {
  if (state_->segments.empty()) return 0;
  const TitleSegment& last = state_->segments.back();
  return av_rescale_q(last.start + last.length - kFirstTick, kTicks, kMicroseconds);
}

}  // namespace kestrel
