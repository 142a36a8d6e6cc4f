#include "support/copy/Muxer.h"

#include <algorithm>
#include <string_view>
#include <utility>

#include "support/Chapters.h"
#include "support/Containers.h"
#include "support/DictionaryEntries.h"
#include "support/LibraryLog.h"
#include "support/copy/CodecTag.h"

namespace kestrel {

namespace {

constexpr int kMaximumMuxingDelay = 700000;         // microseconds
constexpr int64_t kLongestInterleaving = 10000000;  // microseconds

std::string lowercaseExtension(const std::string& path) {
  const size_t dot = path.find_last_of("./");
  if (dot == std::string::npos || path[dot] == '/') return "";
  std::string extension = path.substr(dot + 1);
  for (char& c : extension) {
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  }
  return extension;
}

/// What the library opens for a path: itself, unless its beginning looks like a protocol that there
/// is not.
std::string urlFor(const std::string& path) {
  return avio_find_protocol_name(path.c_str()) ? path : "file:" + path;
}

/// The short name of the container to force; "" leaves the choice to the path.
std::string forcedFormat(const std::string& path, const std::string& format) {
  if (!format.empty() || lowercaseExtension(path) != "m4r") return format;
  const AVOutputFormat* ringtone = av_guess_format(nullptr, ".m4a", nullptr);
  return ringtone ? ringtone->name : "";
}

std::string creationProblem(const std::string& path, const std::string& format) {
  if (!format.empty()) return "unknown container format '" + format + "'";
  const std::string extension = lowercaseExtension(path);
  if (extension.empty()) return "no extension that tells the container format";
  return "no container format is known by the extension '" + extension + "'";
}

/// Whether the library's queue does not wait for a stream's packets, which may lie far apart.
bool isSparse(const AVStream& stream) {
  const AVMediaType type = stream.codecpar->codec_type;
  if (stream.disposition & AV_DISPOSITION_ATTACHED_PIC) return true;
  return type != AVMEDIA_TYPE_VIDEO && type != AVMEDIA_TYPE_AUDIO;
}

bool hasDolbyVision(const AVStream& stream) {
#if LIBAVCODEC_VERSION_INT >= AV_VERSION_INT(60, 30, 100)
  const AVCodecParameters& codec = *stream.codecpar;
  return av_packet_side_data_get(codec.coded_side_data, codec.nb_coded_side_data,
                                 AV_PKT_DATA_DOVI_CONF) != nullptr;
#else
  return av_stream_get_side_data(&stream, AV_PKT_DATA_DOVI_CONF, nullptr) != nullptr;
#endif
}

/// Has the library write the record of Dolby Vision, which the standards of containers leave to
/// others.
void allowDolbyVision(AVFormatContext& container) {
  for (unsigned i = 0; i < container.nb_streams; ++i)
    if (hasDolbyVision(*container.streams[i]))
      container.strict_std_compliance =
          std::min(container.strict_std_compliance, FF_COMPLIANCE_UNOFFICIAL);
}

int askInterrupt(void* interrupt) {
  const auto& function = *static_cast<const std::function<bool()>*>(interrupt);
  return function && function() ? 1 : 0;
}

}  // namespace

void Muxer::create(const std::string& path, const std::string& format,
                   std::function<bool()> interrupt) {
  const std::string forced = forcedFormat(path, format);
  AVFormatContext* context = nullptr;
  const int result = avformat_alloc_output_context2(
      &context, nullptr, forced.empty() ? nullptr : forced.c_str(), urlFor(path).c_str());
  if (result < 0) {
    errors_.note(engineError(result, creationProblem(path, format)));
    return;
  }
  context_.reset(context);
  context->max_delay = kMaximumMuxingDelay;
  interrupt_ = std::move(interrupt);
  context->interrupt_callback = {&askInterrupt, &interrupt_};
}

AVStream* Muxer::addStream() {
  if (!context_ || phase_ != Phase::kSettingUp) return nullptr;
  return avformat_new_stream(context_.get(), nullptr);
}

void Muxer::addChapter(int64_t start, int64_t end, const std::map<std::string, std::string>& tags) {
  if (AVChapter* chapter = kestrel::addChapter(*context_, start, end))
    addEntries(tags, &chapter->metadata);
}

bool Muxer::start(const std::map<std::string, std::string>& options) {
  phase_ = Phase::kEnded;
  if (!take_ && (!openFile() || !writeHeader(options))) return false;
  phase_ = Phase::kWriting;
  newest_.assign(context_->nb_streams, AV_NOPTS_VALUE);
  return true;
}

bool Muxer::openFragments() {
  if (isMpeg4(*context_->oformat) && context_->nb_streams == 1)
    return errors_.succeeded(fragments_->open(*context_));
  errors_.note(
      engineError(AVERROR(EINVAL), "only one stream of MPEG-4 is handed out in fragments"));
  return false;
}

bool Muxer::openFile() {
  if (fragments_) return openFragments();
  if (std::string_view(context_->oformat->name) == "null") return true;
  if (hasFlag(AVFMT_NOFILE)) {
    errors_.note(engineError(AVERROR(ENOSYS), std::string("the container format '") +
                                                  context_->oformat->name +
                                                  "' does not write to one file"));
    return false;
  }
  return errors_.succeeded(avio_open2(&context_->pb, context_->url, AVIO_FLAG_WRITE,
                                      &context_->interrupt_callback, nullptr));
}

bool Muxer::writeHeader(const std::map<std::string, std::string>& options) {
  Dictionary dictionary;
  if (fragments_) addEntries(FragmentWriter::options(), dictionary.get());
  addEntries(options, dictionary.get());
  for (unsigned i = 0; i < context_->nb_streams; i++) {
    AVCodecParameters& codec = *context_->streams[i]->codecpar;
    if (codec.codec_tag == 0) codec.codec_tag = codecTagFor(*context_->oformat, codec.codec_id, 0);
  }
  allowDolbyVision(*context_);
  allowLosslessSound(*context_);
  const LibraryLog log;
  const int result = avformat_write_header(context_.get(), dictionary.get());
  if (result < 0) {
    if (isRefusal(result)) refusal_ = Refusal::kHeader;
    errors_.note(headerError(explain(result, log)));
    return false;
  }
  const Error unknown = unknownOption(*dictionary.get());
  errors_.note(unknown);
  return !unknown;
}

bool Muxer::isRefusal(int result) const {
  return result != AVERROR_EXIT && result != AVERROR(ENOMEM) && context_->pb &&
         context_->pb->error == 0;
}

// A failure of the file explains all others.
Error Muxer::explain(int result, const LibraryLog& log) const {
  if (context_->pb && context_->pb->error < 0) return libraryError(context_->pb->error);
  return log.explain(result, context_->oformat->name);
}

Error Muxer::headerError(Error refusal) const {
  for (unsigned i = 0; i < context_->nb_streams; i++) {
    const AVCodecID codec = context_->streams[i]->codecpar->codec_id;
    if (avformat_query_codec(context_->oformat, codec, FF_COMPLIANCE_EXPERIMENTAL) != 0) continue;
    refusal.message = std::string("the container format '") + context_->oformat->name +
                      "' has no place for the codec '" + avcodec_get_name(codec) + "'";
  }
  return refusal;
}

void Muxer::write(AVPacket& packet, const AVStream& stream) {
  if (isWriting() && take_) {
    take_(packet, stream);
  } else if (isWriting()) {
    const int64_t time = packet.dts;
    packet.stream_index = stream.index;
    const LibraryLog log;
    const int result = fragments_ ? fragments_->write(packet)
                                  : av_interleaved_write_frame(context_.get(), &packet);
    if (result < 0 && refusal_ == Refusal::kNone && isRefusal(result)) refusal_ = Refusal::kPacket;
    if (result < 0) errors_.note(explain(result, log));
    if (!fragments_) limitQueue(time, stream);
  }
  av_packet_unref(&packet);
}

// The library's queue waits for a stream that lags behind, with some codecs without end. So that
// its memory stays bounded, it is emptied once per stretch that is too long to wait for.
void Muxer::limitQueue(int64_t dts, const AVStream& stream) {
  if (dts == AV_NOPTS_VALUE || isSparse(stream)) return;
  const int64_t time = av_rescale_q(dts, stream.time_base, kMicroseconds);
  newest_[static_cast<size_t>(stream.index)] = time;
  int64_t oldest = time;
  for (size_t i = 0; i < newest_.size(); ++i) {
    if (isSparse(*context_->streams[i])) continue;
    if (newest_[i] == AV_NOPTS_VALUE) newest_[i] = time;
    oldest = std::min(oldest, newest_[i]);
  }
  if (time - oldest <= kLongestInterleaving) return;
  errors_.succeeded(av_interleaved_write_frame(context_.get(), nullptr));
  for (int64_t& newest : newest_) newest = std::max(newest, time);
}

void Muxer::complete() {
  if (!isWriting()) return;
  phase_ = Phase::kEnded;
  if (take_) return;
  errors_.succeeded(fragments_ ? fragments_->finish()
                               : av_interleaved_write_frame(context_.get(), nullptr));
  const LibraryLog log;
  const int result = av_write_trailer(context_.get());
  if (result < 0) errors_.note(explain(result, log));
}

void Muxer::close() {
  phase_ = Phase::kEnded;
  fragments_.reset();
  if (!context_ || hasFlag(AVFMT_NOFILE)) return;
  errors_.succeeded(avio_closep(&context_->pb));
}

}  // namespace kestrel
