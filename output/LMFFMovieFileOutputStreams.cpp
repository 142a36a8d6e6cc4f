#include <kestrel/LMFFMedia.h>
#include <kestrel/LMFFMediaStream.h>
#include <kestrel/LMFFMovieFileOutput.h>

#include <algorithm>
#include <climits>
#include <string_view>
#include <utility>

#include "output/EncoderSettings.h"
#include "output/MovieFileOutputState.h"
#include "support/DictionaryEntries.h"
#include "support/FFmpegCompat.h"
#include "support/LibraryLog.h"
#include "support/copy/Covers.h"
#include "support/encode/EncoderCompat.h"
#include "support/encode/Fields.h"
#include "support/encode/KeyOrders.h"

namespace kestrel {

namespace {

Error noEncoder(AVCodecID codec, const AVOutputFormat& muxer) {
  const std::string message = codec == AV_CODEC_ID_NONE
                                  ? std::string("the container format '") + muxer.name +
                                        "' has no default codec for this stream"
                                  : std::string("no encoder for '") + avcodec_get_name(codec) + "'";
  return engineError(AVERROR_ENCODER_NOT_FOUND, message);
}

}  // namespace

LMFFAudioFormat formatOf(const AVStream& sound) {
  const AVCodecParameters& parameters = *sound.codecpar;
  return {parameters.format, layoutMask(parameters.ch_layout), parameters.sample_rate};
}

void LMFFMovieFileOutput::createMovieOutput() {
  if (isMovieOpen()) return;
  state_->muxer.create(path(), state_->formatName, state_->interrupt);
}

AVStream* LMFFMovieFileOutput::openOutputStream(int codec, const ConfigurationBlock& block) {
  if (!isMovieOpen()) return nullptr;
  const auto id = static_cast<AVCodecID>(codec);
  if (const AVCodec* found = avcodec_find_encoder(id)) return state_->openEncoder(*found, block);
  state_->errors.note(noEncoder(id, *formatContext()->oformat));
  return nullptr;
}

AVStream* LMFFMovieFileOutput::State::openEncoder(const AVCodec& codec,
                                                  const ConfigurationBlock& block) {
  AVStream* stream = muxer.addStream();
  if (!stream) {
    errors.note(engineError(AVERROR(EINVAL), "streams are added before the output starts"));
    return nullptr;
  }
  auto encoder = std::make_unique<StreamEncoder>(stream, &codec, *muxer.context()->oformat);
  AVCodecContext* context = encoder->context();
  if (!context) return stream;
  if (block) block(stream, context);
  const bool isSound = codec.type == AVMEDIA_TYPE_AUDIO;
  const Error error = encoder->open(isSound ? audioOptions : videoOptions);
  errors.note(error);
  if (error) return nullptr;
  encoders.push_back(std::move(encoder));
  return stream;
}

AVStream* LMFFMovieFileOutput::State::openStream(const std::string& name, int codec,
                                                 AVMediaType type,
                                                 const ConfigurationBlock& block) {
  const auto id = static_cast<AVCodecID>(codec);
  const AVCodec* found =
      name.empty() ? avcodec_find_encoder(id) : avcodec_find_encoder_by_name(name.c_str());
  if (found && (name.empty() || found->type == type)) return openEncoder(*found, block);
  errors.note(name.empty() ? noEncoder(id, *muxer.context()->oformat)
                           : engineError(AVERROR_ENCODER_NOT_FOUND,
                                         "there is no encoder '" + name + "' for this stream"));
  return nullptr;
}

void LMFFMovieFileOutput::openAudio() {
  createMovieOutput();
  if (!isMovieOpen()) return;
  const LMFFMovieFileOutputFormat format = movieFormat();
  const int codec = format.audio_codec ? format.audio_codec : formatContext()->oformat->audio_codec;
  State& state = *state_;
  AVStream* const stream = state.openStream(
      state.audioEncoderName, codec, AVMEDIA_TYPE_AUDIO, [&](AVStream*, AVCodecContext* encoder) {
        configureSound(format, state.audioBits, *encoder, state.keepsAudioFloats);
      });
  // What is not the newest any more keeps the format of its samples, and has its own converter.
  if (State::Sound* before = state.soundOf(state.audioStream))
    before->resample = std::make_shared<LMFFAudioResample>();
  state.audioStream = stream;
  StreamEncoder* encoder = state.encoderOf(stream);
  if (encoder)
    state.sounds.push_back(
        {audioInputFormat(), state.resample, {*encoder, state.errors, state.writerOf(*stream)}});
}

void LMFFMovieFileOutput::openVideo() {
  createMovieOutput();
  if (!isMovieOpen()) return;
  const LMFFMovieFileOutputFormat format = movieFormat();
  AVFormatContext& container = *formatContext();
  const int codec = format.video_codec ? format.video_codec : container.oformat->video_codec;
  State& state = *state_;
  const bool isColorOpen = state.outputColor == LMFFVideoColor{};
  if (isColorOpen && state.videoConverter) state.outputColor = state.videoConverter->outputColor();
  const auto configure = [&](AVStream* stream, AVCodecContext* encoder) {
    if (state.videoPixelFormat != AV_PIX_FMT_NONE)
      encoder->pix_fmt = static_cast<AVPixelFormat>(state.videoPixelFormat);
    configurePicture(format, state.outputColor, *stream, *encoder);
    if (state.topFieldFirst) configureFields(*state.topFieldFirst, *encoder);
    if (!state.videoStatistics.empty()) encoder->stats_in = state.videoStatistics.data();
    if (state.videoTick.num > 0 && state.videoTick.den > 0) {
      encoder->time_base = toAV(state.videoTick);
      const int64_t usual = av_rescale_q(1, toAV(movieFrameDuration()), encoder->time_base);
      setUsualTicks(*encoder, static_cast<int>(std::clamp<int64_t>(usual, 1, INT_MAX)));
    }
    if (std::string_view(container.oformat->name) == "dvd") {
      configureForDvd(format, container, *encoder);
    }
  };
  state.videoStream =
      state.openStream(state.videoEncoderName, codec, AVMEDIA_TYPE_VIDEO, configure);
  // What the encoder says of its pictures, options of the host's included, is what they are made to
  // be.
  const StreamEncoder* encoder = state.encoderOf(state.videoStream);
  if (isColorOpen && encoder) state.outputColor = colorOf(*encoder->context());
}

AVStream* LMFFMovieFileOutput::copyOutputStream(const AVStream* stream) {
  createMovieOutput();
  if (!isMovieOpen() || !stream) return nullptr;
  State& state = *state_;
  AVStream* copy = state.muxer.addStream();
  if (!copy) return nullptr;
  state.copies.push_back(std::make_unique<StreamCopier>(*stream, *copy, *formatContext()->oformat));
  state.errors.note(state.copies.back()->error());
  const AVMediaType type = copy->codecpar->codec_type;
  const bool isCover = (stream->disposition & AV_DISPOSITION_ATTACHED_PIC) != 0;
  if (isCover || type == AVMEDIA_TYPE_ATTACHMENT) {
    copy->disposition = stream->disposition;
    av_dict_copy(&copy->metadata, stream->metadata, 0);
  }
  if (isCover) {
    if (attachCover(*stream, *copy, *formatContext()->oformat)) return copy;
    if (PacketPtr packet{av_packet_clone(&stream->attached_pic)})
      state.covers.emplace_back(copy, std::move(packet));
  } else if (type == AVMEDIA_TYPE_AUDIO) {
    state.audioStream = copy;
    state.copyAudio = true;
  } else if (type == AVMEDIA_TYPE_VIDEO) {
    state.videoStream = copy;
    state.copyVideo = true;
  }
  return copy;
}

AVStream* LMFFMovieFileOutput::addMadeStream(const AVStream& made) {
  createMovieOutput();
  AVStream* const stream = isMovieOpen() ? state_->muxer.addStream() : nullptr;
  if (!stream) return nullptr;
  if (!state_->errors.succeeded(avcodec_parameters_copy(stream->codecpar, made.codecpar)))
    return nullptr;
  copySideData(made, *stream);
  stream->id = stream->index + 1;
  stream->time_base = made.time_base;
  stream->avg_frame_rate = made.avg_frame_rate;
  stream->sample_aspect_ratio = made.sample_aspect_ratio;
  return stream;
}

AVStream* LMFFMovieFileOutput::convertSubtitleStream(const AVStream* stream, int codec) {
  createMovieOutput();
  if (!isMovieOpen() || !stream) return nullptr;
  State& state = *state_;
  AVStream* const text = state.muxer.addStream();
  if (!text) return nullptr;
  auto converter =
      std::make_unique<SubtitleConverter>(*stream, *text, static_cast<AVCodecID>(codec));
  state.errors.note(converter->error());
  if (converter->error()) return nullptr;
  state.texts.push_back(std::move(converter));
  return text;
}

void LMFFMovieFileOutput::setStreamTags(AVStream* stream, const Entries& tags) {
  if (stream) addEntries(tags, &stream->metadata);
}

void LMFFMovieFileOutput::setStreamDisposition(AVStream* stream, int disposition) {
  if (stream) stream->disposition = disposition;
}

void LMFFMovieFileOutput::copyVideoMedia(const std::shared_ptr<LMFFMedia>& media) {
  const auto stream = media ? media->videoStream() : nullptr;
  copyOutputStream(stream ? stream->stream() : nullptr);
}

void LMFFMovieFileOutput::copyAudioMedia(const std::shared_ptr<LMFFMedia>& media) {
  const auto stream = media ? media->audioStream() : nullptr;
  copyOutputStream(stream ? stream->stream() : nullptr);
}

bool LMFFMovieFileOutput::startOutput() {
  State& state = *state_;
  if (!isMovieOpen() || !state.muxer.isSettingUp()) {
    state.errors.note(engineError(AVERROR(EINVAL), "there is no output to start"));
    return false;
  }
  for (const State::Sound& sound : state.sounds) {
    const AVStream& stream = *sound.encoder.encoder().stream();
    if (&stream != state.audioStream) sound.resample->convertFormat(sound.input, formatOf(stream));
  }
  if (state.audioStream && state.resample) {
    state.resample->convertFormat(audioInputFormat(), outputAudioFormat());
  }
  if (state.videoStream && state.videoConverter) {
    LMFFVideoFormat format = outputVideoFormat();
    if (format.pix_fmt == AV_PIX_FMT_PAL8) {
      state.palettes.emplace();
      format.pix_fmt = AV_PIX_FMT_RGB32;
    }
    state.videoConverter->setOutputFormat(format);
    if (state.outputColor != LMFFVideoColor{}) {
      state.videoConverter->setOutputColor(state.outputColor);
    }
  }
  state.applyTags();
  for (const auto& copy : state.copies) copy->settle();
  if (state.fragmentTaker) {
    const StreamEncoder* const pictures = state.encoderOf(state.videoStream);
    if (pictures && takesKeyOrders(pictures->context()->codec->name))
      state.keys.emplace(state.fragmentLength);
    state.muxer.setFragments(
        std::make_unique<FragmentWriter>(state.fragmentLength, state.fragmentTaker));
  }
  if (!state.muxer.start(state.muxerOptions)) return false;
  state.beginCopies();
  state.writeCovers();
  return true;
}

void LMFFMovieFileOutput::State::applyTags() {
  addEntries(metadata, &muxer.context()->metadata);
  if (audioStream) addEntries(audioMetadata, &audioStream->metadata);
  if (videoStream) addEntries(videoMetadata, &videoStream->metadata);
  addChapters();
}

void LMFFMovieFileOutput::State::addChapters() {
  if (muxer.context()->nb_chapters > 0) return;
  for (const Chapter& chapter : chapters) {
    muxer.addChapter(chapter.start_us, chapter.end_us, chapter.tags);
  }
}

}  // namespace kestrel
