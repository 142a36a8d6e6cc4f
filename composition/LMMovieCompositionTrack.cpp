#include <kestrel/KeyedArchiver.h>
#include <kestrel/KeyedUnarchiver.h>
#include <kestrel/LMFFFormat.h>
#include <kestrel/LMMediaSource.h>
#include <kestrel/LMMovieCompositionTrack.h>

#include <algorithm>
#include <utility>

#include "support/FFmpegOwners.h"

namespace kestrel {

namespace {

constexpr char kClassName[] = "LMMovieCompositionTrack";
constexpr char kPath[] = "path";
constexpr char kPosition[] = "position";
constexpr char kRate[] = "rate";

[[maybe_unused]] const bool kIsKnown =
    (registerCodingClass(kClassName, LMMovieCompositionTrack::initWithCoder), true);

}  // namespace

struct LMMovieCompositionTrack::State {
  std::shared_ptr<LMMediaSource> source;
  CodecContextPtr codec;
  int32_t track = 0;
  int32_t map = 0;
  double position = 0;
  double rate = 0;
  bool finished = false;
  double dts = 0;
  double reached = 0;
  int64_t incomplete = 0;
};

LMMovieCompositionTrack::LMMovieCompositionTrack() : state_(std::make_unique<State>()) {}

LMMovieCompositionTrack::~LMMovieCompositionTrack() = default;

std::shared_ptr<LMMediaSource> LMMovieCompositionTrack::source() const { return state_->source; }

void LMMovieCompositionTrack::setSource(std::shared_ptr<LMMediaSource> source) {
  state_->source = std::move(source);
  state_->codec.reset();
}

std::string LMMovieCompositionTrack::path() const {
  return state_->source ? state_->source->path() : "";
}

void LMMovieCompositionTrack::setPath(const std::string& path) {
  setSource(LMMediaSource::mediaWithPath(path));
}

int32_t LMMovieCompositionTrack::track() const { return state_->track; }

void LMMovieCompositionTrack::setTrack(int32_t index) {
  state_->track = index;
  state_->codec.reset();
}

int32_t LMMovieCompositionTrack::map() const { return state_->map; }
void LMMovieCompositionTrack::setMap(int32_t index) { state_->map = index; }
double LMMovieCompositionTrack::position() const { return state_->position; }
void LMMovieCompositionTrack::setPosition(double seconds) { state_->position = seconds; }
double LMMovieCompositionTrack::rate() const { return state_->rate; }
void LMMovieCompositionTrack::setRate(double rate) { state_->rate = rate; }
bool LMMovieCompositionTrack::finished() const { return state_->finished; }
void LMMovieCompositionTrack::setFinished(bool finished) { state_->finished = finished; }
double LMMovieCompositionTrack::dts() const { return state_->dts; }
void LMMovieCompositionTrack::setDts(double seconds) { state_->dts = seconds; }
double LMMovieCompositionTrack::reached() const { return state_->reached; }

int64_t LMMovieCompositionTrack::incompletePackets() const { return state_->incomplete; }

void LMMovieCompositionTrack::countIncomplete(const LMMediaSource& reader) {
  state_->incomplete = reader.damagedPackets(state_->track);
}

void LMMovieCompositionTrack::open() {
  if (state_->source) state_->source->open();
}

double LMMovieCompositionTrack::startTime() const {
  return state_->source ? lm_ff_time_to_double(state_->source->start_time()) : 0;
}

AVStream* LMMovieCompositionTrack::avstream() {
  open();
  const AVFormatContext* context = state_->source ? state_->source->formatContext() : nullptr;
  if (!context || !context->streams || state_->track < 0) return nullptr;
  const auto index = static_cast<unsigned>(state_->track);
  return index < context->nb_streams ? context->streams[index] : nullptr;
}

int32_t LMMovieCompositionTrack::codecID() {
  const AVStream* stream = avstream();
  return stream ? stream->codecpar->codec_id : 0;
}

AVCodecContext* LMMovieCompositionTrack::codecContext() {
  const AVStream* stream = avstream();
  if (!stream) return nullptr;
  if (!state_->codec) {
    CodecContextPtr context(avcodec_alloc_context3(nullptr));
    if (!context || avcodec_parameters_to_context(context.get(), stream->codecpar) < 0)
      return nullptr;
    context->pkt_timebase = stream->time_base;
    state_->codec = std::move(context);
  }
  return state_->codec.get();
}

int32_t LMMovieCompositionTrack::mediaType() {
  const AVStream* stream = avstream();
  return stream ? stream->codecpar->codec_type : AVMEDIA_TYPE_UNKNOWN;
}

bool LMMovieCompositionTrack::isVideo() { return mediaType() == AVMEDIA_TYPE_VIDEO; }

bool LMMovieCompositionTrack::isAudio() { return mediaType() == AVMEDIA_TYPE_AUDIO; }

bool LMMovieCompositionTrack::readSourceFrame(AVPacket* packet) {
  return state_->source && state_->source->readPacket(packet);
}

bool LMMovieCompositionTrack::readFrame(AVPacket* packet) {
  while (readSourceFrame(packet)) {
    if (packet->stream_index != state_->track) {
      av_packet_unref(packet);
      continue;
    }
    passPacket(*packet);
    return true;
  }
  state_->finished = true;
  if (state_->source) countIncomplete(*state_->source);
  return false;
}

void LMMovieCompositionTrack::passPacket(const AVPacket& packet) {
  if (packet.dts == AV_NOPTS_VALUE) return;
  const auto seconds = [base = avstream()->time_base](int64_t time) {
    return lm_ff_time_to_double(av_rescale_q(time, base, kMicroseconds));
  };
  state_->dts = seconds(packet.dts);
  const double end = seconds(av_sat_add64(packet.dts, std::max<int64_t>(packet.duration, 0)));
  state_->reached = std::max(state_->reached, end - startTime());
}

std::string LMMovieCompositionTrack::codingName() const { return kClassName; }

void LMMovieCompositionTrack::encodeWithCoder(KeyedArchiver& archiver) const {
  archiver.encodeObject(path(), kPath);
  archiver.encodeDouble(position(), kPosition);
  archiver.encodeDouble(rate(), kRate);
}

std::shared_ptr<LMMovieCompositionTrack> LMMovieCompositionTrack::initWithCoder(
    KeyedUnarchiver& unarchiver) {
  auto track = std::make_shared<LMMovieCompositionTrack>();
  track->setPath(unarchiver.decodeObjectForKey(kPath).text().value_or(""));
  track->setPosition(unarchiver.decodeDoubleForKey(kPosition));
  track->setRate(unarchiver.decodeDoubleForKey(kRate));
  return track;
}

}  // namespace kestrel
