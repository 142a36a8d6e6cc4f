#include <kestrel/LMFFMovieFileOutput.h>

#include <utility>

#include "output/MovieFileOutputState.h"
#include "support/LibraryLog.h"

namespace kestrel {

LMFFMovieFileOutput::LMFFMovieFileOutput() : state_(std::make_unique<State>()) { quietLibraries(); }

LMFFMovieFileOutput::~LMFFMovieFileOutput() = default;

std::shared_ptr<LMFFAudioResample> LMFFMovieFileOutput::resample() const {
  return state_->resample;
}

void LMFFMovieFileOutput::setResample(std::shared_ptr<LMFFAudioResample> resample) {
  state_->resample = std::move(resample);
}

std::shared_ptr<LMFFImageColorspaceConverter> LMFFMovieFileOutput::videoConverter() const {
  return state_->videoConverter;
}

void LMFFMovieFileOutput::setVideoConverter(
    std::shared_ptr<LMFFImageColorspaceConverter> converter) {
  state_->videoConverter = std::move(converter);
}

std::string LMFFMovieFileOutput::path() const { return state_->path.get(); }

void LMFFMovieFileOutput::setPath(const std::string& path) { state_->path.set(path); }

LMFFAudioFormat LMFFMovieFileOutput::audioInputFormat() const {
  return state_->audioInputFormat.get();
}

void LMFFMovieFileOutput::setAudioInputFormat(const LMFFAudioFormat& format) {
  state_->audioInputFormat.set(format);
}

LMFFMovieFileOutputFormat LMFFMovieFileOutput::movieFormat() const {
  return state_->movieFormat.get();
}

void LMFFMovieFileOutput::setMovieFormat(const LMFFMovieFileOutputFormat& format) {
  state_->movieFormat.set(format);
}

std::string LMFFMovieFileOutput::formatName() const { return state_->formatName; }

void LMFFMovieFileOutput::setFormatName(const std::string& name) { state_->formatName = name; }

LMFFMovieFileOutput::Entries LMFFMovieFileOutput::videoOptions() const {
  return state_->videoOptions;
}

void LMFFMovieFileOutput::setVideoOptions(const Entries& options) {
  state_->videoOptions = options;
}

LMFFMovieFileOutput::Entries LMFFMovieFileOutput::audioOptions() const {
  return state_->audioOptions;
}

void LMFFMovieFileOutput::setAudioOptions(const Entries& options) {
  state_->audioOptions = options;
}

std::string LMFFMovieFileOutput::videoEncoderName() const { return state_->videoEncoderName; }

void LMFFMovieFileOutput::setVideoEncoderName(const std::string& name) {
  state_->videoEncoderName = name;
}

std::string LMFFMovieFileOutput::audioEncoderName() const { return state_->audioEncoderName; }

void LMFFMovieFileOutput::setAudioEncoderName(const std::string& name) {
  state_->audioEncoderName = name;
}

int LMFFMovieFileOutput::videoPixelFormat() const { return state_->videoPixelFormat; }

void LMFFMovieFileOutput::setVideoPixelFormat(int format) { state_->videoPixelFormat = format; }

Rational LMFFMovieFileOutput::videoTick() const { return state_->videoTick; }

void LMFFMovieFileOutput::setVideoTick(Rational tick) { state_->videoTick = tick; }

std::optional<bool> LMFFMovieFileOutput::topFieldFirst() const { return state_->topFieldFirst; }

void LMFFMovieFileOutput::setTopFieldFirst(std::optional<bool> first) {
  state_->topFieldFirst = first;
}

std::string LMFFMovieFileOutput::videoStatistics() const { return state_->videoStatistics; }

void LMFFMovieFileOutput::setVideoStatistics(std::string statistics) {
  state_->videoStatistics = std::move(statistics);
}

int32_t LMFFMovieFileOutput::audioBits() const { return state_->audioBits; }

void LMFFMovieFileOutput::setAudioBits(int32_t bits) { state_->audioBits = bits; }

bool LMFFMovieFileOutput::keepsAudioFloats() const { return state_->keepsAudioFloats; }

void LMFFMovieFileOutput::setKeepsAudioFloats(bool keeps) { state_->keepsAudioFloats = keeps; }

int64_t LMFFMovieFileOutput::copiedSoundBegin() const { return state_->copiedSoundBegin; }

void LMFFMovieFileOutput::setCopiedSoundBegin(int64_t time) { state_->copiedSoundBegin = time; }

bool LMFFMovieFileOutput::keepsCopiedTimes() const { return state_->keepsCopiedTimes; }

void LMFFMovieFileOutput::setKeepsCopiedTimes(bool keeps) { state_->keepsCopiedTimes = keeps; }

LMFFMovieFileOutput::Entries LMFFMovieFileOutput::muxerOptions() const {
  return state_->muxerOptions;
}

void LMFFMovieFileOutput::setMuxerOptions(const Entries& options) {
  state_->muxerOptions = options;
}

LMFFVideoColor LMFFMovieFileOutput::outputColor() const { return state_->outputColor; }

void LMFFMovieFileOutput::setOutputColor(const LMFFVideoColor& color) {
  state_->outputColor = color;
}

LMFFMovieFileOutput::Entries LMFFMovieFileOutput::metadata() const { return state_->metadata; }

void LMFFMovieFileOutput::setMetadata(const Entries& metadata) { state_->metadata = metadata; }

LMFFMovieFileOutput::Entries LMFFMovieFileOutput::videoMetadata() const {
  return state_->videoMetadata;
}

void LMFFMovieFileOutput::setVideoMetadata(const Entries& metadata) {
  state_->videoMetadata = metadata;
}

LMFFMovieFileOutput::Entries LMFFMovieFileOutput::audioMetadata() const {
  return state_->audioMetadata;
}

void LMFFMovieFileOutput::setAudioMetadata(const Entries& metadata) {
  state_->audioMetadata = metadata;
}

std::vector<LMFFMovieFileOutput::Chapter> LMFFMovieFileOutput::chapters() const {
  return state_->chapters;
}

void LMFFMovieFileOutput::setChapters(std::vector<Chapter> chapters) {
  state_->chapters = std::move(chapters);
}

std::function<bool()> LMFFMovieFileOutput::interrupt() const { return state_->interrupt; }

void LMFFMovieFileOutput::setInterrupt(std::function<bool()> interrupt) {
  state_->interrupt = std::move(interrupt);
}

void LMFFMovieFileOutput::setFragments(int64_t length, FragmentTaker take) {
  state_->fragmentLength = length;
  state_->fragmentTaker = std::move(take);
}

void LMFFMovieFileOutput::setPacketTaker(MadePacketTaker take) {
  state_->muxer.setTaker(std::move(take));
}

bool LMFFMovieFileOutput::isMovieOpen() const { return formatContext() != nullptr; }

bool LMFFMovieFileOutput::isAudioOpen() const { return state_->audioStream != nullptr; }

bool LMFFMovieFileOutput::isVideoOpen() const { return state_->videoStream != nullptr; }

AVFormatContext* LMFFMovieFileOutput::formatContext() const { return state_->muxer.context(); }

AVStream* LMFFMovieFileOutput::audioStream() const { return state_->audioStream; }

AVStream* LMFFMovieFileOutput::videoStream() const { return state_->videoStream; }

AVCodecContext* LMFFMovieFileOutput::codecContext(const AVStream* stream) const {
  const StreamEncoder* encoder = state_->encoderOf(stream);
  return encoder ? encoder->context() : nullptr;
}

bool LMFFMovieFileOutput::copy_video_stream() const { return state_->copyVideo; }

bool LMFFMovieFileOutput::copy_audio_stream() const { return state_->copyAudio; }

LMFFAudioFormat LMFFMovieFileOutput::outputAudioFormat() const {
  return state_->audioStream ? formatOf(*state_->audioStream) : LMFFAudioFormat{};
}

LMFFVideoFormat LMFFMovieFileOutput::outputVideoFormat() const {
  if (!state_->videoStream) return {};
  const AVCodecParameters& parameters = *state_->videoStream->codecpar;
  return {parameters.format, parameters.width, parameters.height};
}

Rational LMFFMovieFileOutput::movieFrameDuration() const {
  const LMFFMovieFileOutputFormat format = movieFormat();
  return {format.frameTime, format.framerate};
}

Error LMFFMovieFileOutput::lastError() const { return state_->errors.get(); }

}  // namespace kestrel
