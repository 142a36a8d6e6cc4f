#include "sources/ClockSamples.h"

#include <algorithm>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "support/Containers.h"
#include "support/FFmpegOwners.h"

namespace kestrel {

namespace {

constexpr int64_t kSecond = 90000;
constexpr int64_t kWrap = int64_t{1} << 33;
constexpr int64_t kMostBack = kSecond / 10;
constexpr int64_t kMostForth = 10 * kSecond;

/// Places that are looked at, and how much is read at each: clocks are told every tenth of a second
/// at least.
constexpr int64_t kPlaces = 64;
constexpr size_t kLook = 256 << 10;     // bytes
constexpr int64_t kClosest = 64 << 10;  // bytes between which a jump is believed
constexpr double kMostSlowdown = 4;     // how much longer than usual a stretch may last

constexpr size_t kTransportPacket = 188;
constexpr uint8_t kSync = 0x47;

struct Sample {
  int64_t position = 0;
  int64_t time = 0;  // ticks, modulo the wrap
};

/// The clock in a transport packet, or nothing. `pid`: the only one wanted, once it is known.
std::optional<int64_t> clockOf(const uint8_t* packet, std::optional<int>& pid) {
  const bool hasAdaptation = packet[3] & 0x20;
  if (!hasAdaptation || packet[4] < 7 || !(packet[5] & 0x10)) return std::nullopt;
  const int own = (packet[1] & 0x1F) << 8 | packet[2];
  if (pid && *pid != own) return std::nullopt;
  pid = own;
  return int64_t{packet[6]} << 25 | packet[7] << 17 | packet[8] << 9 | packet[9] << 1 |
         packet[10] >> 7;
}

/// The clock in a pack of a program stream, which begins with its start code, or nothing.
std::optional<int64_t> clockOfPack(std::span<const uint8_t> pack) {
  constexpr size_t kShortest = 10;
  if (pack.size() < kShortest) return std::nullopt;
  const auto b = pack.subspan(4);
  if ((b[0] & 0xC4) == 0x44)  // MPEG-2
    return int64_t{b[0] & 0x38} << 27 | int64_t{b[0] & 3} << 28 | b[1] << 20 | (b[2] & 0xF8) << 12 |
           (b[2] & 3) << 13 | b[3] << 5 | b[4] >> 3;
  if ((b[0] & 0xF1) == 0x21)  // MPEG-1
    return int64_t{b[0] & 0x0E} << 29 | b[1] << 22 | (b[2] & 0xFE) << 14 | b[3] << 7 | b[4] >> 1;
  return std::nullopt;
}

/// How far transport packets are apart in `bytes`, and where the first is; 188, or with what some
/// recorders add before or behind each.
std::optional<std::pair<size_t, size_t>> layoutOf(const std::vector<uint8_t>& bytes) {
  for (const size_t size : {kTransportPacket, size_t{192}, size_t{204}})
    for (size_t first = 0; first < size && first + 4 * size < bytes.size(); ++first) {
      const auto isSync = [&](size_t i) { return bytes[first + i * size] == kSync; };
      if (isSync(0) && isSync(1) && isSync(2) && isSync(3)) return std::pair{size, first};
    }
  return std::nullopt;
}

/// Reads the clock at places of one input.
class Clock {
 public:
  explicit Clock(AVFormatContext& context)
      : io_(*context.pb), isTransport_(isTransportStream(context)) {
    for (unsigned i = 0; i < context.nb_programs && !pid_; ++i)
      if (context.programs[i]->pcr_pid > 0 && context.programs[i]->pcr_pid < 0x1FFF)
        pid_ = context.programs[i]->pcr_pid;
  }

  /// What is read at a place tells of the clock, in order.
  std::vector<Sample> at(int64_t position) {
    bytes_.resize(kLook);
    if (avio_seek(&io_, position, SEEK_SET) < 0) return {};
    const int count = avio_read(&io_, bytes_.data(), static_cast<int>(bytes_.size()));
    if (count <= 0) return {};
    bytes_.resize(static_cast<size_t>(count));
    auto samples = isTransport_ ? inTransport() : inProgram();
    for (Sample& sample : samples) sample.position += position;
    return samples;
  }

 private:
  std::vector<Sample> inTransport() {
    const auto layout = layoutOf(bytes_);
    if (!layout) return {};
    std::vector<Sample> samples;
    for (size_t i = layout->second; i + kTransportPacket <= bytes_.size(); i += layout->first)
      if (bytes_[i] == kSync)
        if (const auto time = clockOf(&bytes_[i], pid_))
          samples.push_back({static_cast<int64_t>(i), *time});
    return samples;
  }

  std::vector<Sample> inProgram() const {
    static constexpr uint8_t kStart[] = {0, 0, 1, 0xBA};
    std::vector<Sample> samples;
    auto at = bytes_.begin();
    while ((at = std::search(at, bytes_.end(), std::begin(kStart), std::end(kStart))) !=
           bytes_.end()) {
      const auto place = at - bytes_.begin();
      if (const auto time = clockOfPack({at, bytes_.end()})) samples.push_back({place, *time});
      ++at;
    }
    return samples;
  }

  AVIOContext& io_;
  const bool isTransport_;
  std::optional<int> pid_;
  std::vector<uint8_t> bytes_;
};

/// How long it is from one place to another, ticks; the shorter way round the counter.
int64_t between(const Sample& from, const Sample& to) {
  const int64_t step = (to.time - from.time) & (kWrap - 1);
  return step >= kWrap / 2 ? step - kWrap : step;
}

/// The usual time that a byte lasts, ticks.
double usualTime(const std::vector<Sample>& samples) {
  std::vector<double> times;
  for (size_t i = 1; i < samples.size(); ++i) {
    const auto bytes = static_cast<double>(samples[i].position - samples[i - 1].position);
    times.push_back(static_cast<double>(between(samples[i - 1], samples[i])) / bytes);
  }
  const auto middle = times.begin() + static_cast<std::ptrdiff_t>(times.size() / 2);
  std::nth_element(times.begin(), middle, times.end());
  return std::max(*middle, 0.0);
}

/// Whether the clock leaps ahead between two places that are too far apart to tell at once: a quiet
/// scene lasts long, too, but nowhere in one moment.
bool leaps(Clock& clock, Sample from, Sample to) {
  while (to.position - from.position > kClosest) {
    const auto found = clock.at((from.position + to.position) / 2);
    const Sample* middle = found.empty() ? nullptr : &found.front();
    if (!middle || middle->position <= from.position || middle->position >= to.position)
      return true;
    const int64_t before = between(from, *middle);
    const int64_t after = between(*middle, to);
    if (before < -kMostBack || after < -kMostBack) return true;
    if (std::max(before, after) <= kMostForth) return false;
    (before > after ? to : from) = *middle;
  }
  return true;
}

bool jumpsAmong(Clock& clock, const std::vector<Sample>& samples) {
  if (samples.size() < 2) return false;
  const double usual = usualTime(samples);
  for (size_t i = 1; i < samples.size(); ++i) {
    const Sample& from = samples[i - 1];
    const Sample& to = samples[i];
    const int64_t step = between(from, to);
    if (step < -kMostBack) return true;
    const double expected = usual * static_cast<double>(to.position - from.position);
    const bool isSlow = static_cast<double>(step) > kMostSlowdown * expected;
    if (step > kMostForth && isSlow && leaps(clock, from, to)) return true;
  }
  return false;
}

}  // namespace

bool mayClockJump(AVFormatContext& context) {
  AVIOContext* const io = context.pb;
  if (!io || !(io->seekable & AVIO_SEEKABLE_NORMAL)) return false;
  const int64_t size = avio_size(io);
  if (size <= 0) return false;
  const int64_t position = avio_tell(io);
  const int error = io->error;
  Clock clock(context);
  // A small file is looked at as a whole.
  const int64_t step = std::max<int64_t>(size / kPlaces, kLook);
  std::vector<Sample> samples;
  for (int64_t place = 0; place < size; place += step) {
    const auto found = clock.at(place);
    const auto fresh = std::ranges::find_if(found, [&](const Sample& sample) {
      return samples.empty() || sample.position > samples.back().position;
    });
    const bool isWhole = step == kLook;
    samples.insert(samples.end(), fresh, isWhole || fresh == found.end() ? found.end() : fresh + 1);
  }
  const bool jumps = jumpsAmong(clock, samples);
  avio_seek(io, position, SEEK_SET);
  io->error = error;
  return jumps;
}

}  // namespace kestrel
