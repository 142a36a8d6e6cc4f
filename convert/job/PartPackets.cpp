#include "convert/job/PartPackets.h"

#include <kestrel/convert/Failure.h>

#include <fmt/format.h>

#include <algorithm>
#include <utility>

namespace kestrel {

namespace {

/// What was wrong with the input where a part was made.
InputEnd faultsIn(const nlohmann::json& tail) {
  InputEnd end;
  end.refused = tail.value("refused", int64_t{0});
  end.mended = tail.value("mended", int64_t{0});
  end.incomplete = tail.value("incomplete", int64_t{0});
  const auto error = tail.find("error");
  if (error != tail.end()) end.error = {error->at(0), error->at(1)};
  return end;
}

}  // namespace

PicturePackets::PicturePackets(std::vector<std::string> paths, InputEnd& faults)
    : paths_(std::move(paths)) {
  for (const std::string& path : paths_) look(path, faults);
  if (!std::ranges::is_sorted(times_))
    throw Failure::input(paths_.front(), "parts of pictures do not follow each other");
}

/// The pictures of one part come before those of the next, whose times so are sorted part by part.
void PicturePackets::look(const std::string& path, InputEnd& faults) {
  auto reader = std::make_unique<PacketFileReader>(path);
  std::vector<int64_t> shown;
  std::vector<int64_t> times;
  int64_t lead = 0;
  while (const PacketPtr packet = reader->next()) {
    if (shown.empty()) lead = packet->pts - packet->dts;
    keepsTimes_ = keepsTimes_ && packet->pts == packet->dts;
    shown.push_back(packet->pts);
  }
  times = shown;
  std::ranges::sort(times);
  size_t delay = 0;
  while (delay + 1 < times.size() && times[delay] - times[0] < lead) ++delay;
  for (size_t i = 0; i < shown.size(); ++i)
    while (delay < i && times[i - delay] > shown[i]) ++delay;
  delay_ = std::max(delay_, delay);
  times_.insert(times_.end(), times.begin(), times.end());
  faults.add(faultsIn(reader->tail()));
  end_ = std::max(end_, reader->tail().value("reached", int64_t{0}));
  if (!head_) {
    head_ = std::move(reader);
    return;
  }
  const AVCodecParameters& first = *head_->stream(0).codecpar;
  const AVCodecParameters& own = *reader->stream(0).codecpar;
  const bool isAlike =
      first.codec_id == own.codec_id && first.width == own.width && first.height == own.height &&
      first.format == own.format && first.extradata_size == own.extradata_size &&
      std::equal(own.extradata, own.extradata + own.extradata_size, first.extradata);
  if (!isAlike)
    throw Failure::input(
        path, fmt::format("'{}' was encoded in another way than the parts before", path));
}

int64_t PicturePackets::decodingTime(size_t place) const {
  const size_t delay = std::min(delay_, times_.size() - 1);
  if (place >= delay) return times_[place - delay];
  return times_[place] - (times_[delay] - times_[0]);
}

PacketPtr PicturePackets::next() {
  PacketPtr packet;
  while (!packet) {
    if (!now_ && path_ == paths_.size()) return nullptr;
    if (!now_) now_ = std::make_unique<PacketFileReader>(paths_[path_++]);
    packet = now_->next();
    if (!packet) now_.reset();
  }
  if (!keepsTimes_) packet->dts = decodingTime(place_);
  ++place_;
  return packet;
}

SoundPackets::SoundPackets(const std::string& path, size_t stream, InputEnd& faults)
    : stream_(stream), reader_(path) {
  const nlohmann::json tail = checkedTail(path);
  end_ = tail.value("reached", int64_t{0});
  if (stream == 0) faults.add(faultsIn(tail));
}

PacketPtr SoundPackets::next() {
  while (PacketPtr packet = reader_.next())
    if (packet->stream_index == static_cast<int>(stream_)) return packet;
  return nullptr;
}

}  // namespace kestrel
