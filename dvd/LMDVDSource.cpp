#include <kestrel/LMDVDSource.h>
#include <kestrel/LMFFFormat.h>
#include <kestrel/LMFFMedia.h>

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <mutex>

#include "dvd/DVDOwners.h"
#include "dvd/Sectors.h"
#include "support/FFmpegError.h"
#include "support/FFmpegOwners.h"
#include "support/ReadCallbacks.h"

namespace kestrel {

namespace {

constexpr int kBufferBytes = 1048576;

/// A run's last unit begins within this many blocks of its end: a unit lasts a second at most.
constexpr uint32_t kMostUnitBlocks = 2048;

/// Pictures begin within this many blocks of a title's start.
constexpr int64_t kMostBlocksToFacts = 128;

constexpr AVRational kTicks{1, 90000};

/// The times from the first unit's start to the last unit's end; none where navigation is missing
/// or its clock is set anew within the run.
std::optional<NavigationTimes> timesOf(LMDVDSource& source) {
  std::array<uint8_t, kSectorBytes> sector{};
  if (source.readBlock(0, 1, sector.data()) != 1) return std::nullopt;
  const auto first = navigationTimes(sector.data());
  if (!first) return std::nullopt;
  const uint32_t count = source.sector_count();
  const uint32_t least = count > kMostUnitBlocks ? count - kMostUnitBlocks : 0;
  for (uint32_t block = count; block-- > least;) {
    if (source.readBlock(block, 1, sector.data()) != 1) return std::nullopt;
    const auto last = navigationTimes(sector.data());
    if (last && last->end > first->start) return NavigationTimes{first->start, last->end};
    if (last) return std::nullopt;
  }
  return std::nullopt;
}

}  // namespace

LMDVDSource::LMDVDSource() = default;

LMDVDSource::~LMDVDSource() {
  close();  // the demuxer reads through the context until it is closed
  const DVDFilePtr closes(reader_);
}

std::shared_ptr<LMMediaSource> LMDVDSource::copy() const {
  auto source = std::make_shared<LMDVDSource>();
  source->setFullpath(fullpath());
  source->setDvd(dvd_);
  source->setMedia(media_);
  source->setTitle_set(title_set_);
  source->setTitle(title_);
  return source;
}

void LMDVDSource::openReader() {
  if (reader_ || !dvd_ || !dvd_->dvd_reader() || !title_set_) return;
  const std::lock_guard guard(dvd_->internal()->lock());
  reader_ = DVDOpenFile(dvd_->dvd_reader(), title_set_->title_set(), DVD_READ_TITLE_VOBS);
  if (!reader_) return setLastError(engineError(AVERROR(EIO), "its title VOBs cannot be opened"));
  blocks_ = static_cast<uint32_t>(std::max<ssize_t>(DVDFileSize(reader_), 0));
}

AVIOContext* LMDVDSource::avio_context() {
  if (io_context_) return io_context_.get();
  openReader();
  io_context_ = makeReadContext<&LMDVDSource::read_packet>(*this, kBufferBytes);
  return io_context_.get();
}

void LMDVDSource::open() {
  if (isOpen()) return;
  LMMediaSource::open();
  if (!isOpen() || !media_) return;
  const auto times = timesOf(*this);
  const auto context = sharedContext();
  if (!times || !context) return;
  context->start_time = av_rescale_q(times->start, kTicks, kMicroseconds);
  context->duration = av_rescale_q(times->end - times->start, kTicks, kMicroseconds);
}

bool LMDVDSource::isDVD() const { return true; }

int64_t LMDVDSource::filesize() const { return int64_t{sector_count()} * kSectorBytes; }

uint32_t LMDVDSource::sector_count() const {
  if (media_) return static_cast<uint32_t>(media_->sector_count());
  return title_ ? title_->sector_count() : 0;
}

std::string LMDVDSource::name() const {
  return fmt::format("{}_{}_{}", dvd_ ? dvd_->volume() : "",
                     title_set_ ? title_set_->title_set() : 0, title_ ? title_->title() + 1 : 1);
}

std::string LMDVDSource::path() const { return dvd_ ? dvd_->path() : ""; }

const SubtitlePalette* LMDVDSource::palette() const { return title_ ? title_->palette() : nullptr; }

std::optional<std::vector<std::string>> LMDVDSource::audioNames() const {
  return title_set_ ? std::optional(title_set_->audioLanguages()) : std::nullopt;
}

std::optional<std::vector<std::string>> LMDVDSource::subtitleNames() const {
  return title_set_ ? std::optional(title_set_->subtitleLanguages()) : std::nullopt;
}

std::vector<std::shared_ptr<LMDVDSource>> LMDVDSource::dvdMediaSources() const {
  std::vector<std::shared_ptr<LMDVDSource>> sources;
  if (!title_) return sources;
  for (const auto& run : title_->medias()) {
    auto source = std::static_pointer_cast<LMDVDSource>(copy());
    source->setMedia(run);
    sources.push_back(std::move(source));
  }
  return sources;
}

std::vector<std::shared_ptr<LMFFMedia>> LMDVDSource::createMedias() {
  std::vector<std::shared_ptr<LMMediaSource>> sources;
  if (media_) {
    sources.push_back(shared_from_this());
  } else {
    for (auto& source : dvdMediaSources()) sources.push_back(std::move(source));
  }
  std::vector<std::shared_ptr<LMFFMedia>> medias;
  int64_t position = 0;
  for (const auto& source : sources) {
    source->setInterrupt(interrupt());
    auto media = std::make_shared<LMFFMedia>();
    media->setSource(source);
    media->open();
    if (!media->hasVideo() && !media->hasAudio()) continue;
    // Fragments of cells and still pictures are no medias.
    const int64_t duration = media->duration();
    const bool isLongEnough =
        static_cast<double>(duration) > static_cast<double>(lm_default_time_base()) * 0.1;
    if (!isLongEnough) continue;
    media->setMovie_position(position);
    medias.push_back(std::move(media));
    position += duration;
  }
  return medias;
}

int64_t LMDVDSource::readBlock(uint32_t block, int64_t count, uint8_t* buffer) {
  const auto left = static_cast<int32_t>(sector_count() - block);
  const int64_t wanted = std::min<int64_t>(left, count);
  if (wanted < 1 || !reader_) return 0;
  const uint32_t first = block + static_cast<uint32_t>(media_ ? media_->start_sector() : 0);
  const std::lock_guard guard(dvd_->internal()->lock());
  const ssize_t got =
      DVDReadBlocks(reader_, static_cast<int>(first), static_cast<size_t>(wanted), buffer);
  if (got < wanted) setLastError(engineError(AVERROR(EIO), "not all of its sectors can be read"));
  return std::max<int64_t>(got, 0);
}

int32_t LMDVDSource::read_packet(uint8_t* buffer, int32_t size) {
  if (!reader_) return 0;
  const int64_t wanted = std::min<int64_t>(filesize() - read_offset_, size);
  const int64_t within = read_offset_ % kSectorBytes;
  const auto block = static_cast<uint32_t>(read_offset_ / kSectorBytes);
  if (wanted <= 0 || within < 0) return 0;
  int64_t delivered = 0;
  if (within != 0 || wanted < kSectorBytes) {
    std::array<uint8_t, kSectorBytes> sector;
    if (readBlock(block, 1, sector.data()) > 0) {
      delivered = std::min(wanted, kSectorBytes - within);
      std::copy_n(sector.data() + within, delivered, buffer);
    }
  } else {
    delivered = readBlock(block, wanted / kSectorBytes, buffer) * kSectorBytes;
  }
  read_offset_ += delivered;
  return static_cast<int32_t>(delivered);
}

int64_t LMDVDSource::seek(int64_t offset, int32_t whence) {
  if (whence == AVSEEK_SIZE) return filesize();
  const auto target = seekTarget(offset, whence, read_offset_, filesize());
  if (!target) return AVERROR(ENOSYS);
  read_offset_ = *target;
  return *target;
}

std::optional<LMDVDPictureFacts> LMDVDSource::pictureFacts() {
  if (!media_) {
    for (const auto& run : dvdMediaSources())
      if (auto facts = run->pictureFacts()) return facts;
    return std::nullopt;
  }
  openReader();
  std::vector<uint8_t> bytes(static_cast<size_t>(kMostBlocksToFacts * kSectorBytes));
  const int64_t got = readBlock(0, kMostBlocksToFacts, bytes.data());
  return findPictureFacts({bytes.data(), static_cast<size_t>(got * kSectorBytes)});
}

}  // namespace kestrel
