#include <kestrel/LMMediaSource.h>
#include <kestrel/Log.h>

#include <fmt/format.h>

#include <algorithm>
#include <filesystem>
#include <mutex>
#include <string_view>
#include <utility>

#include "support/CodecLock.h"
#include "support/FFmpegError.h"
#include "support/FFmpegOwners.h"
#include "support/LibraryLog.h"

namespace kestrel {

namespace {

/// A codec tag's four bytes, lowest first.
std::string tagCharacters(uint32_t tag) {
  std::string characters;
  for (int shift = 0; shift < 32; shift += 8)
    characters.push_back(static_cast<char>(tag >> shift & 0xFF));
  return characters;
}

int askInterrupt(void* opaque) {
  const auto& interrupt = *static_cast<const std::function<bool()>*>(opaque);
  return interrupt && interrupt() ? 1 : 0;
}

/// What libavformat opens. A file whose name looks like a protocol ("10:30.mov") is named as a
/// file; a disc's name says nothing of what its sectors hold, and might look like another format's.
std::string url(const LMMediaSource& source, const AVIOContext* io) {
  if (io && source.isDVD()) return "";
  const std::string path = source.path();
  std::error_code ignored;
  const bool looksLikeProtocol = path.find(':') != std::string::npos;
  return !io && looksLikeProtocol && std::filesystem::exists(path, ignored) ? "file:" + path : path;
}

}  // namespace

struct LMMediaSource::State {
  AVFormatContext* formatContext = nullptr;
  mutable std::mutex lock;  // guards what other threads may ask
  std::string fullpath;
  Error lastError;
  std::function<bool()> interrupt;
};

LMMediaSource::LMMediaSource() : state_(std::make_unique<State>()) { quietLibraries(); }

LMMediaSource::~LMMediaSource() { close(); }

void LMMediaSource::close() { avformat_close_input(&state_->formatContext); }

void LMMediaSource::fillInTimes() {
  static constexpr std::string_view kLeaveTimesOut[] = {"mpegts", "mpeg", "mxf"};
  AVFormatContext* context = formatContext();
  if (context && std::ranges::count(kLeaveTimesOut, context->iformat->name) > 0)
    context->flags |= AVFMT_FLAG_GENPTS;
}

std::shared_ptr<LMMediaSource> LMMediaSource::mediaWithPath(const std::string& path) {
  auto source = std::make_shared<LMMediaSource>();
  source->setFullpath(path);
  return source;
}

std::shared_ptr<LMMediaSource> LMMediaSource::copy() const { return mediaWithPath(fullpath()); }

bool LMMediaSource::isDVD() const { return false; }

bool LMMediaSource::isSubtitle() const { return false; }

const SubtitlePalette* LMMediaSource::palette() const { return nullptr; }

AVIOContext* LMMediaSource::avio_context() { return nullptr; }

bool LMMediaSource::isOpen() const { return state_->formatContext != nullptr; }

bool LMMediaSource::isSeekable() const {
  const AVIOContext* io = isOpen() ? formatContext()->pb : nullptr;
  return io && (io->seekable & AVIO_SEEKABLE_NORMAL);
}

std::vector<std::string> LMMediaSource::codecs() const {
  std::vector<std::string> tags;
  const AVFormatContext* context = formatContext();
  for (unsigned i = 0; context && i < context->nb_streams; ++i)
    tags.push_back(tagCharacters(context->streams[i]->codecpar->codec_tag));
  return tags;
}

void LMMediaSource::logMedadata(const AVDictionary* dictionary) const {
  if (!dictionary) return;
  log(fmt::format("{}", av_dict_count(dictionary)));
  const AVDictionaryEntry* entry = nullptr;
  while ((entry = av_dict_get(dictionary, "", entry, AV_DICT_IGNORE_SUFFIX)))
    log(fmt::format("{} {}", entry->key, entry->value));
}

void LMMediaSource::logFormatContext(const AVFormatContext* context) const {
  if (!context) return;
  logMedadata(context->metadata);
  for (unsigned i = 0; i < context->nb_streams; ++i) {
    const AVStream* stream = context->streams[i];
    logMedadata(stream->metadata);
    // The tag is text up to its first NUL, right-aligned to four characters.
    log(fmt::format("{:>4}", tagCharacters(stream->codecpar->codec_tag).c_str()));
  }
}

void LMMediaSource::open() {
  if (isOpen()) return;
  AVFormatContext* context = avformat_alloc_context();
  if (!context) return setLastError(libraryError(AVERROR(ENOMEM)));
  context->pb = avio_context();
  context->interrupt_callback = {askInterrupt, &state_->interrupt};

  const int result =
      avformat_open_input(&context, url(*this, context->pb).c_str(), nullptr, nullptr);
  if (!context) return setLastError(libraryError(result));
  {
    const std::lock_guard guard(codecLock());
    avformat_find_stream_info(context, nullptr);
  }
  state_->formatContext = context;
  setLastError({});
}

void LMMediaSource::print_source_stream_info() {
  open();
  if (!isOpen()) return;
  const AVFormatContext* context = formatContext();
  lm_ff_dump_av_dict(context->metadata);
  for (unsigned i = 0; i < context->nb_streams; ++i) {
    log(fmt::format("stream:{}", i));
    lm_ff_dump_av_dict(context->streams[i]->metadata);
  }
}

int64_t LMMediaSource::start_time() const {
  const AVFormatContext* context = formatContext();
  return context && context->start_time != AV_NOPTS_VALUE ? context->start_time : 0;
}

std::string LMMediaSource::name() const { return std::filesystem::path(path()).stem().string(); }

std::string LMMediaSource::path() const { return fullpath(); }

int64_t LMMediaSource::filesize() const { return 0; }

std::optional<std::vector<std::string>> LMMediaSource::audioNames() const { return std::nullopt; }

std::optional<std::vector<std::string>> LMMediaSource::subtitleNames() const {
  return std::nullopt;
}

AVFormatContext* LMMediaSource::formatContext() const { return state_->formatContext; }

std::string LMMediaSource::fullpath() const {
  const std::lock_guard guard(state_->lock);
  return state_->fullpath;
}

void LMMediaSource::setFullpath(const std::string& path) {
  const std::lock_guard guard(state_->lock);
  state_->fullpath = path;
}

bool LMMediaSource::readPacket(AVPacket* packet) {
  AVFormatContext* context = formatContext();
  if (!context) return false;
  int result = av_read_frame(context, packet);
  // Some demuxers take a failed read for the end.
  if (result == AVERROR_EOF && context->pb && context->pb->error < 0) result = context->pb->error;
  if (result < 0 && result != AVERROR_EOF) setLastError(libraryError(result));
  return result >= 0;
}

Error LMMediaSource::lastError() const {
  const std::lock_guard guard(state_->lock);
  return state_->lastError;
}

void LMMediaSource::setLastError(Error error) {
  const std::lock_guard guard(state_->lock);
  state_->lastError = std::move(error);
}

std::function<bool()> LMMediaSource::interrupt() const { return state_->interrupt; }

void LMMediaSource::setInterrupt(std::function<bool()> interrupt) {
  state_->interrupt = std::move(interrupt);
}

}  // namespace kestrel
