#include <kestrel/LMMediaSource.h>

#include <fmt/format.h>

#include <atomic>
#include <filesystem>
#include <mutex>
#include <string_view>
#include <utility>

#include "sources/AllowedProtocols.h"
#include "sources/DemuxerReader.h"
#include "sources/PipeReader.h"
#include "sources/PutBack.h"
#include "sources/SourceSettings.h"
#include "support/Containers.h"
#include "support/FFmpegError.h"
#include "support/FFmpegOwners.h"
#include "support/LibraryLog.h"

namespace kestrel {

namespace {

/// The question whether to stop, which may be replaced between two reads.
using Interrupt = std::function<bool()>;

/// An open demuxer. It may outlive the source, in the streams that were made over it, so it holds
/// all that it is asked for then.
struct Demuxer {
  ~Demuxer() { avformat_close_input(&context); }

  AVFormatContext* context = nullptr;
  std::unique_ptr<PipeReader> pipe;  // what it reads through, where that may have to wait
  std::shared_ptr<const Interrupt> interrupt;
  std::atomic<bool> isClosed{false};  // whoever still reads from it had better stop
  DemuxerReader reader;
};

int askInterrupt(void* opaque) {
  const auto& demuxer = *static_cast<const Demuxer*>(opaque);
  return demuxer.isClosed || (*demuxer.interrupt && (*demuxer.interrupt)()) ? 1 : 0;
}

/// What libavformat opens. A file whose name looks like a protocol ("10:30.mov") is named as a
/// file; a disc's name says nothing of what its sectors hold, and might look like another format's.
std::string url(const LMMediaSource& source, const AVIOContext* io) {
  if (io && source.isDVD()) return "";
  const std::string path = source.path();
  const bool looksLikeProtocol = path.find_first_of(":,") != std::string::npos;
  const bool isFile = !io && looksLikeProtocol && protocolOf(path).empty();
  return isFile && !path.starts_with("file:") ? "file:" + path : path;
}

/// Whether places all over an input can be looked at in no time.
bool isNear(const AVFormatContext& context) {
  if (context.flags & AVFMT_FLAG_CUSTOM_IO) return true;
  const char* protocol = avio_find_protocol_name(context.url);
  return protocol && std::string_view(protocol) == "file";
}

/// Makes an input's length that of what it holds.
void countFromStart(AVFormatContext& context) {
  const bool isLate = context.start_time != AV_NOPTS_VALUE && context.start_time > 0;
  const bool isMeant = isLate && context.duration > context.start_time && tellsEndFromZero(context);
  if (isMeant) context.duration -= context.start_time;
}

}  // namespace

struct LMMediaSource::State {
  std::shared_ptr<Demuxer> makeDemuxer() const {
    auto made = std::make_shared<Demuxer>();
    made->interrupt = interrupt;
    return made;
  }

  std::shared_ptr<Demuxer> currentDemuxer() const {
    const std::lock_guard guard(lock);
    return demuxer;
  }

  std::shared_ptr<Interrupt> interrupt = std::make_shared<Interrupt>();
  std::shared_ptr<SharedClock> clock = std::make_shared<SharedClock>();
  bool isMapped = true;     // false: its packets carry the file's own times
  mutable std::mutex lock;  // guards what other threads may ask, which is all that follows
  std::shared_ptr<Demuxer> demuxer;
  std::string fullpath;
  std::string inputFormat;
  Options demuxerOptions;
  Protocols protocols;
  Error lastError;
};

LMMediaSource::LMMediaSource() : state_(std::make_unique<State>()) { quietLibraries(); }

LMMediaSource::~LMMediaSource() { close(); }

void LMMediaSource::close() {
  std::shared_ptr<Demuxer> old;
  {
    const std::lock_guard guard(state_->lock);
    old = std::move(state_->demuxer);
  }
  if (old) old->isClosed = true;
}

void LMMediaSource::fillInTimes() {
  const auto context = sharedContext();
  if (context && leavesTimesOut(*context)) context->flags |= AVFMT_FLAG_GENPTS;
}

std::shared_ptr<LMMediaSource> LMMediaSource::mediaWithPath(const std::string& path) {
  auto source = std::make_shared<LMMediaSource>();
  source->setFullpath(path);
  return source;
}

std::shared_ptr<LMMediaSource> LMMediaSource::copy() const {
  auto source = std::make_shared<LMMediaSource>();
  copySettings(*this, *source);
  return source;
}

std::shared_ptr<LMMediaSource> LMMediaSource::anotherReader() const {
  auto reader = copy();
  reader->setInterrupt(interrupt());
  reader->state_->clock = state_->clock;
  return reader;
}

bool LMMediaSource::isDVD() const { return false; }

bool LMMediaSource::isSubtitle() const { return false; }

const SubtitlePalette* LMMediaSource::palette() const { return nullptr; }

AVIOContext* LMMediaSource::avio_context() { return nullptr; }

bool LMMediaSource::isOpen() const { return formatContext() != nullptr; }

bool LMMediaSource::isSeekable() const {
  const auto context = sharedContext();
  const AVIOContext* io = context ? context->pb : nullptr;
  return io && (io->seekable & AVIO_SEEKABLE_NORMAL);
}

void LMMediaSource::open() {
  if (isOpen()) return;
  const AVInputFormat* format = nullptr;
  if (const std::string name = inputFormat(); !name.empty()) {
    format = av_find_input_format(name.c_str());
    if (!format) return setLastError(libraryError(AVERROR_DEMUXER_NOT_FOUND));
  }
  const auto demuxer = state_->makeDemuxer();
  demuxer->context = avformat_alloc_context();
  if (!demuxer->context) return setLastError(libraryError(AVERROR(ENOMEM)));
  demuxer->context->pb = avio_context();
  demuxer->context->interrupt_callback = {askInterrupt, demuxer.get()};

  const std::string name = url(*this, demuxer->context->pb);
  const Protocols allowed = protocols();
  bool isMadeOfFiles = false;
  if (!demuxer->context->pb) {
    const std::string protocol = protocolOf(path());
    if (!isAllowed(protocol, allowed))
      return setLastError(
          engineError(AVERROR(EACCES), fmt::format("the protocol '{}' is not allowed", protocol)));
    demuxer->pipe =
        PipeReader::open(path(), [asked = demuxer.get()] { return askInterrupt(asked) != 0; });
    if (demuxer->pipe) demuxer->context->pb = demuxer->pipe->io();
    isMadeOfFiles = !demuxer->pipe && readsFiles(protocol);
  }
  demuxer->context->protocol_whitelist = av_strdup(whitelistOf(allowed, isMadeOfFiles).c_str());
  if (!demuxer->context->protocol_whitelist) return setLastError(libraryError(AVERROR(ENOMEM)));
  Dictionary options;
  for (const auto& [key, value] : demuxerOptions())
    av_dict_set(options.get(), key.c_str(), value.c_str(), 0);
  const int result = avformat_open_input(&demuxer->context, name.c_str(), format, options.get());
  if (!demuxer->context) return setLastError(libraryError(result));
  // Not under the codec lock: an input may stall for any time, and others are to be opened
  // meanwhile. The library guards the codecs that need it by itself.
  avformat_find_stream_info(demuxer->context, nullptr);
  countFromStart(*demuxer->context);
  startReading(*demuxer->context, demuxer->reader);
  const std::lock_guard guard(state_->lock);
  state_->demuxer = demuxer;
  state_->lastError = {};
}

/// From now on packets come through the reader, which knows, or finds out, where the clock jumps.
void LMMediaSource::startReading(AVFormatContext& context, DemuxerReader& reader) {
  const bool isSeekable = context.pb && (context.pb->seekable & AVIO_SEEKABLE_NORMAL);
  const bool mayJump = state_->isMapped && !isDVD() && isBroadcast(context);
  const DemuxerReader::ReadMap readMap = [this] { return readClock(); };
  reader.open(&context, mayJump ? state_->clock : nullptr, isSeekable ? readMap : nullptr);
  if (mayJump && isSeekable && isNear(context)) reader.look();
}

/// Reads the input through once, with the times that lie in the file; null where that was
/// interrupted.
std::shared_ptr<const ClockMap> LMMediaSource::readClock() const {
  const auto other = copy();
  other->setInterrupt(interrupt());
  other->state_->isMapped = false;
  other->open();
  const auto context = other->sharedContext();
  if (!context) return nullptr;
  auto map = std::make_shared<ClockMap>();
  JumpFinder finder;
  const auto enter = [&] {
    while (const auto placed = finder.pop())
      map->add(*placed->packet, *context->streams[placed->packet->stream_index], placed->offset);
  };
  const auto isInterrupted = interrupt();
  for (PacketPtr packet = makePacket(); other->readPacket(packet.get()); packet = makePacket()) {
    if (isInterrupted && isInterrupted()) return nullptr;
    const AVStream& stream = *context->streams[packet->stream_index];
    finder.push(std::move(packet), stream);
    enter();
  }
  finder.finish();
  enter();
  return map;
}

int64_t LMMediaSource::start_time() const {
  const auto context = sharedContext();
  return context && context->start_time != AV_NOPTS_VALUE ? context->start_time : 0;
}

std::string LMMediaSource::name() const {
  std::string text = path();
  while (text.size() > 1 && text.back() == '/') text.pop_back();
  return std::filesystem::path(text).stem().string();
}

std::string LMMediaSource::path() const { return fullpath(); }

int64_t LMMediaSource::filesize() const { return 0; }

std::optional<std::vector<std::string>> LMMediaSource::audioNames() const { return std::nullopt; }

std::optional<std::vector<std::string>> LMMediaSource::subtitleNames() const {
  return std::nullopt;
}

AVFormatContext* LMMediaSource::formatContext() const { return sharedContext().get(); }

std::shared_ptr<AVFormatContext> LMMediaSource::sharedContext() const {
  const std::lock_guard guard(state_->lock);
  const auto& demuxer = state_->demuxer;
  return demuxer ? std::shared_ptr<AVFormatContext>(demuxer, demuxer->context) : nullptr;
}

void LMMediaSource::setFormatContext(AVFormatContext* context) {
  if (context == formatContext()) return;
  close();
  if (!context) return;
  const auto demuxer = state_->makeDemuxer();
  demuxer->context = context;
  if (!context->interrupt_callback.callback)
    context->interrupt_callback = {askInterrupt, demuxer.get()};
  demuxer->reader.open(context, nullptr, nullptr);
  const std::lock_guard guard(state_->lock);
  state_->demuxer = demuxer;
  state_->lastError = {};
}

std::string LMMediaSource::inputFormat() const {
  const std::lock_guard guard(state_->lock);
  return state_->inputFormat;
}

void LMMediaSource::setInputFormat(const std::string& name) {
  const std::lock_guard guard(state_->lock);
  state_->inputFormat = name;
}

LMMediaSource::Options LMMediaSource::demuxerOptions() const {
  const std::lock_guard guard(state_->lock);
  return state_->demuxerOptions;
}

void LMMediaSource::setDemuxerOptions(Options options) {
  const std::lock_guard guard(state_->lock);
  state_->demuxerOptions = std::move(options);
}

Protocols LMMediaSource::protocols() const {
  const std::lock_guard guard(state_->lock);
  return state_->protocols;
}

void LMMediaSource::setProtocols(Protocols protocols) {
  const std::lock_guard guard(state_->lock);
  state_->protocols = std::move(protocols);
}

std::string LMMediaSource::fullpath() const {
  const std::lock_guard guard(state_->lock);
  return state_->fullpath;
}

void LMMediaSource::setFullpath(const std::string& path) {
  const std::lock_guard guard(state_->lock);
  state_->fullpath = path;
}

bool LMMediaSource::readPacket(AVPacket* packet) {
  const auto demuxer = state_->currentDemuxer();
  if (!demuxer) return false;
  const int result = demuxer->reader.read(*packet);
  if (result < 0 && result != AVERROR_EOF) setLastError(libraryError(result));
  return result >= 0;
}

bool canPutBack(const AVFormatContext& context) {
  return context.interrupt_callback.callback == askInterrupt;
}

void putBack(AVFormatContext& context, std::deque<PacketPtr> packets) {
  if (canPutBack(context))
    static_cast<Demuxer*>(context.interrupt_callback.opaque)->reader.putBack(std::move(packets));
}

bool LMMediaSource::seekBackward(int64_t time) {
  const auto demuxer = state_->currentDemuxer();
  return demuxer && demuxer->reader.seekBackward(time) >= 0;
}

bool LMMediaSource::rewind() {
  const auto demuxer = state_->currentDemuxer();
  return demuxer && demuxer->reader.rewind() >= 0;
}

int64_t LMMediaSource::damagedPackets(int stream) const {
  const auto demuxer = state_->currentDemuxer();
  return demuxer ? demuxer->reader.damaged(stream) : 0;
}

Error LMMediaSource::lastError() const {
  const std::lock_guard guard(state_->lock);
  return state_->lastError;
}

void LMMediaSource::setLastError(Error error) {
  const std::lock_guard guard(state_->lock);
  state_->lastError = std::move(error);
}

std::function<bool()> LMMediaSource::interrupt() const { return *state_->interrupt; }

void LMMediaSource::setInterrupt(std::function<bool()> interrupt) {
  *state_->interrupt = std::move(interrupt);
}

}  // namespace kestrel
