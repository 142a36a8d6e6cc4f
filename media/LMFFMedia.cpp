#include <kestrel/LMFFMedia.h>
#include <kestrel/LMFFMediaStream.h>
#include <kestrel/LMFFMovie.h>

#include <algorithm>
#include <map>
#include <span>
#include <utility>

#include "media/LMFFMediaState.h"

namespace kestrel {

namespace {

/// The low bits of a disc's container stream id that are its track number.
constexpr int kDvdTrackMask = 0xF;

/// Reads an input through to find out how long it lasts, in microseconds.
int64_t measureDuration(LMMediaSource& reader) {
  reader.open();
  const auto context = reader.sharedContext();
  if (!context) return 0;
  const PacketPtr packet = makePacket();
  const int64_t start = reader.start_time();
  int64_t end = start;
  std::map<int, int64_t> undated;  // what each stream's packets without a time last together
  while (reader.readPacket(packet.get())) {
    const int64_t time = packet->pts == AV_NOPTS_VALUE ? packet->dts : packet->pts;
    const AVRational timebase = context->streams[packet->stream_index]->time_base;
    int64_t& length = undated[packet->stream_index];
    if (time == AV_NOPTS_VALUE) length += packet->duration;
    const int64_t packetEnd = time == AV_NOPTS_VALUE ? length : time + packet->duration;
    end = std::max(end, av_rescale_q(packetEnd, timebase, kMicroseconds));
    av_packet_unref(packet.get());
  }
  return end - start;
}

/// The stream was made over one of this demuxer's, not over one that was open before it.
bool isOver(const AVFormatContext& context, const LMFFMediaStream& stream) {
  return std::ranges::count(std::span(context.streams, context.nb_streams), stream.stream()) > 0;
}

}  // namespace

LMFFMedia::LMFFMedia() : state_(std::make_unique<State>()) {}

LMFFMedia::~LMFFMedia() { setStreams({}); }  // who holds a stream must not find this media in it

std::shared_ptr<LMFFMedia> LMFFMedia::copy() const {
  auto other = std::make_shared<LMFFMedia>();
  copyTo(*other);
  return other;
}

void LMFFMedia::copyTo(LMFFMedia& other) const {
  other.setMovie_position(movie_position());
  if (const auto own = source()) other.setSource(own->anotherReader());
  other.setSelectStreams(selectStreams());
  other.setSelectAudios(selectAudios());
  other.setSelectSubtitles(selectSubtitles());
  other.state_->measuredDuration = state_->measuredDuration;
}

bool LMFFMedia::beginContentAccess() const { return !isContentDiscarded(); }

void LMFFMedia::endContentAccess() {}

void LMFFMedia::discardContentIfPossible() {}

bool LMFFMedia::isContentDiscarded() const { return false; }

std::vector<std::string> LMFFMedia::textsFromAVSubtitle(const AVSubtitle* /*subtitle*/) const {
  return {};
}

bool LMFFMedia::isCurrentSynced() const { return state_->isCurrentSynced; }

void LMFFMedia::setIsCurrentSynced(bool synced) { state_->isCurrentSynced = synced; }

LMFFMovie* LMFFMedia::movie() const { return state_->movie; }

void LMFFMedia::setMovie(LMFFMovie* movie) { state_->movie = movie; }

std::shared_ptr<LMMediaSource> LMFFMedia::source() const { return state_->source.get(); }

void LMFFMedia::setSource(std::shared_ptr<LMMediaSource> source) {
  state_->source.set(std::move(source));
}

int64_t LMFFMedia::movie_position() const { return state_->movie_position; }

void LMFFMedia::setMovie_position(int64_t position) { state_->movie_position = position; }

int64_t LMFFMedia::last_pts() const { return state_->last_pts; }

void LMFFMedia::setLast_pts(int64_t pts) { state_->last_pts = pts; }

std::vector<std::shared_ptr<LMFFMediaStream>> LMFFMedia::streams() const {
  return state_->streams.get();
}

void LMFFMedia::setStreams(std::vector<std::shared_ptr<LMFFMediaStream>> streams) {
  for (const auto& stream : state_->streams.get())
    if (stream->media() == this && !std::ranges::count(streams, stream)) stream->setMedia(nullptr);
  state_->streams.set(std::move(streams));
}

std::optional<IndexSet> LMFFMedia::selectStreams() const { return state_->selectStreams.get(); }

void LMFFMedia::setSelectStreams(std::optional<IndexSet> streams) {
  state_->selectStreams.set(std::move(streams));
}

std::optional<IndexSet> LMFFMedia::selectAudios() const { return state_->selectAudios.get(); }

void LMFFMedia::setSelectAudios(std::optional<IndexSet> audios) {
  state_->selectAudios.set(std::move(audios));
}

std::optional<IndexSet> LMFFMedia::selectSubtitles() const { return state_->selectSubtitles.get(); }

void LMFFMedia::setSelectSubtitles(std::optional<IndexSet> subtitles) {
  state_->selectSubtitles.set(std::move(subtitles));
}

void LMFFMedia::open() {
  const auto input = source();
  if (!input) return;
  input->open();
  const auto context = input->sharedContext();
  if (!context) return;
  const auto wanted = selectStreams();
  auto list = streams();
  if (!list.empty() && !isOver(*context, *list.front())) {  // the source was opened anew
    list.clear();
    setLast_pts(AV_NOPTS_VALUE);
    state_->hasRead = state_->inputEnded = state_->decodersEmpty = false;
  }
  for (auto index = static_cast<uint32_t>(list.size()); index < context->nb_streams; ++index) {
    auto stream = std::make_shared<LMFFMediaStream>();
    stream->setMedia(this);
    stream->setStream(context->streams[index]);
    if (const auto* palette = input->palette(); palette && stream->isSubtitle())
      stream->fillPalette(*palette);
    if (!wanted || wanted->contains(index)) stream->open();
    stream->setEnable(stream->isOpen());
    list.push_back(std::move(stream));
  }
  setStreams(std::move(list));
  updateSelectStreams();
}

bool LMFFMedia::isOpen() const { return formatContext() != nullptr; }

AVFormatContext* LMFFMedia::formatContext() const { return sharedContext().get(); }

std::shared_ptr<AVFormatContext> LMFFMedia::sharedContext() const {
  const auto input = source();
  return input ? input->sharedContext() : nullptr;
}

void LMFFMedia::updateSelectStreams() {
  const auto wanted = selectStreams();
  const auto wantedAudios = selectAudios();
  const auto wantedSubtitles = selectSubtitles();
  const auto input = source();
  const bool isDVD = input && input->isDVD();
  const auto list = streams();
  uint32_t audioCount = 0;
  uint32_t subtitleCount = 0;
  // Only whether a track takes part changes with a selection of tracks; its decoder stays open.
  const auto selectTrack = [isDVD](LMFFMediaStream& stream, const std::optional<IndexSet>& tracks,
                                   uint32_t& count) {
    const uint32_t track =
        isDVD ? static_cast<uint32_t>(stream.stream()->id & kDvdTrackMask) : count;
    if (tracks) stream.setEnable(tracks->contains(track));
    ++count;
  };
  for (uint32_t index = 0; index < list.size(); ++index) {
    LMFFMediaStream& stream = *list[index];
    if (wanted && !wanted->contains(index)) {
      stream.close();
      stream.setEnable(false);
      continue;
    }
    stream.open();
    stream.setEnable(stream.isOpen());
    if (!stream.isOpen()) continue;
    if (stream.isAudio()) selectTrack(stream, wantedAudios, audioCount);
    if (stream.isSubtitle()) selectTrack(stream, wantedSubtitles, subtitleCount);
  }
}

std::shared_ptr<LMFFMediaStream> LMFFMedia::mediaStreamForStreamIndex(uint32_t index) {
  const auto find = [&] {
    return state_->streams.with([&](const auto& list) {
      return index < list.size() ? list[index] : std::shared_ptr<LMFFMediaStream>();
    });
  };
  if (auto stream = find()) return stream;
  open();
  return find();
}

namespace {

using StreamList = std::vector<std::shared_ptr<LMFFMediaStream>>;
using StreamTest = bool (LMFFMediaStream::*)() const;

StreamList enabledOf(const StreamList& streams, StreamTest isWanted) {
  StreamList list;
  std::ranges::copy_if(streams, std::back_inserter(list), [isWanted](const auto& stream) {
    return stream->enable() && ((*stream).*isWanted)();
  });
  return list;
}

std::vector<std::string> languagesOf(const StreamList& streams, StreamTest isWanted) {
  std::vector<std::string> names;
  for (const auto& stream : streams)
    if (stream->isOpen() && ((*stream).*isWanted)()) names.push_back(stream->language());
  return names;
}

}  // namespace

std::vector<std::shared_ptr<LMFFMediaStream>> LMFFMedia::audios() const {
  return enabledOf(streams(), &LMFFMediaStream::isAudio);
}

std::vector<std::shared_ptr<LMFFMediaStream>> LMFFMedia::videos() const {
  return enabledOf(streams(), &LMFFMediaStream::isVideo);
}

std::vector<std::shared_ptr<LMFFMediaStream>> LMFFMedia::subtitles() const {
  auto list = enabledOf(streams(), &LMFFMediaStream::isSubtitle);
  std::erase_if(list, [](const auto& stream) { return stream->isCopied(); });
  return list;
}

std::shared_ptr<LMFFMediaStream> LMFFMedia::audioStream() const {
  return lastEnabled(&LMFFMediaStream::isAudio);
}

std::shared_ptr<LMFFMediaStream> LMFFMedia::videoStream() const {
  return lastEnabled(&LMFFMediaStream::isVideo);
}

std::shared_ptr<LMFFMediaStream> LMFFMedia::subtitleStream() const {
  const auto list = subtitles();
  return list.empty() ? nullptr : list.back();
}

/// Asked for every packet: it makes no list.
std::shared_ptr<LMFFMediaStream> LMFFMedia::lastEnabled(StreamTest isWanted) const {
  return state_->streams.with([isWanted](const auto& streams) {
    const auto last = std::find_if(
        streams.rbegin(), streams.rend(),
        [isWanted](const auto& stream) { return stream->enable() && ((*stream).*isWanted)(); });
    return last == streams.rend() ? nullptr : *last;
  });
}

std::vector<std::string> LMFFMedia::audioNames() const {
  const auto input = source();
  auto names = input ? input->audioNames() : std::nullopt;
  return names ? *names : languagesOf(streams(), &LMFFMediaStream::isAudio);
}

std::vector<std::string> LMFFMedia::subtitleNames() const {
  const auto input = source();
  auto names = input ? input->subtitleNames() : std::nullopt;
  return names ? *names : languagesOf(streams(), &LMFFMediaStream::isSubtitle);
}

bool LMFFMedia::hasAudio() const { return audioStream() != nullptr; }

bool LMFFMedia::hasSubtitle() const { return subtitleStream() != nullptr; }

bool LMFFMedia::hasVideo() const {
  const LMFFMovie* owner = movie();
  return !(owner && owner->disableVideo()) && videoStream() != nullptr;
}

LMFFVideoFormat LMFFMedia::videoFormat() const {
  const auto stream = videoStream();
  return stream ? stream->videoFormat() : LMFFVideoFormat{};
}

float LMFFMedia::framerate() const {
  const auto stream = videoStream();
  return stream ? stream->framerate() : 0;
}

int64_t LMFFMedia::videoBitrate() const {
  const auto stream = videoStream();
  return stream ? stream->bitrate() : 0;
}

int64_t LMFFMedia::audioBitrate() const {
  const auto stream = audioStream();
  return stream ? stream->bitrate() : 0;
}

int64_t LMFFMedia::fileBitrate() const {
  const auto context = sharedContext();
  return context ? context->bit_rate : 0;
}

int64_t LMFFMedia::duration() const {
  const auto context = sharedContext();
  if (!context) return 0;
  if (context->duration > 0) return context->duration;
  std::atomic<int64_t>& measured = *state_->measuredDuration;
  if (measured == AV_NOPTS_VALUE && source()->isSeekable())
    measured = measureDuration(*source()->anotherReader());
  return measured == AV_NOPTS_VALUE ? kUnknownDuration : measured.load();
}

int64_t LMFFMedia::start_time() const {
  return state_->source.with([](const auto& input) { return input ? input->start_time() : 0; });
}

}  // namespace kestrel
