#include "convert/cut/CutProof.h"

#include <kestrel/LMMediaSource.h>
#include <kestrel/convert/Failure.h>
#include <kestrel/convert/Text.h>

#include <fmt/format.h>

#include <algorithm>
#include <numeric>

#include "convert/cut/DecodedPictures.h"
#include "convert/cut/FrameLikeness.h"
#include "convert/probe/Input.h"
#include "convert/probe/Streams.h"

namespace kestrel {

namespace {

using Entry = IndexedPicture::Entry;

/// So many pictures before a seam are looked at, and behind it all up to the next key picture, but
/// no more than this.
constexpr size_t kBefore = 4;
constexpr size_t kBehind = 64;

/// Pictures by their place in the order of showing, up to and without `end`.
struct Range {
  size_t begin = 0;
  size_t end = 0;
};

class Prover {
 public:
  Prover(const CutJob& job, const PicturePlan& plan, const std::vector<int64_t>& shown,
         const std::string& path)
      : job_(job), plan_(plan), shown_(shown), path_(path), source_(job.reader(), job.video) {
    order_.resize(plan.pictures.size());
    std::iota(order_.begin(), order_.end(), size_t{0});
    std::ranges::sort(order_, {}, [&](size_t i) { return shown_[i]; });
    proof_.likeness.resize(plan.stretches.size());
  }

  CutProof run() {
    const auto result = LMMediaSource::mediaWithPath(path_);
    openSource(*result, path_, job_.events.interrupt);
    const auto video = mainVideo(*result->formatContext());
    if (!video) return failed("it has no pictures");
    offset_ = firstTime(*video) - shown_.front();
    DecodedPictures output(result, *video);
    for (const Range& range : ranges()) {
      compare(range, output);
      if (!proof_.problem.empty()) break;
    }
    return std::move(proof_);
  }

 private:
  CutProof failed(std::string why) {
    if (proof_.problem.empty()) proof_.problem = std::move(why);
    return proof_;
  }

  /// When the first picture is shown: containers may move all of a file.
  int64_t firstTime(uint32_t video) const {
    const auto reader = LMMediaSource::mediaWithPath(path_);
    openSource(*reader, path_, job_.events.interrupt);
    for (PacketPtr packet = makePacket(); reader->readPacket(packet.get());
         av_packet_unref(packet.get()))
      if (packet->stream_index == static_cast<int>(video)) return packet->pts;
    return AV_NOPTS_VALUE;
  }

  const PlannedPicture& at(size_t place) const { return plan_.pictures[order_[place]]; }

  const PictureRun& stretchAt(size_t place) const { return plan_.stretchOf(order_[place]); }

  bool isEntry(size_t place) const {
    const PictureRun& stretch = stretchAt(place);
    if (stretch.isEncoded) return order_[place] == stretch.first;
    return job_.index.pictures[at(place).index].entry != Entry::kNone;
  }

  /// All that was encoded, the seams with what is around them, and both ends.
  std::vector<Range> ranges() {
    std::vector<Range> found{around(0, 1)};
    for (size_t i = 0; i < order_.size(); ++i) {
      const PictureRun& stretch = stretchAt(i);
      const bool isSeam = i > 0 && &stretchAt(i - 1) != &stretch;
      proof_.seams += isSeam ? 1 : 0;
      if (isSeam || stretch.isEncoded) found.push_back(around(i, i + 1));
    }
    found.push_back(around(order_.size() - 1, order_.size()));
    std::vector<Range> merged;
    for (const Range& range : found)
      if (!merged.empty() && range.begin <= merged.back().end)
        merged.back().end = std::max(merged.back().end, range.end);
      else
        merged.push_back(range);
    return merged;
  }

  Range around(size_t begin, size_t end) const {
    begin = begin > kBefore ? begin - kBefore : 0;
    for (const size_t most = end + kBehind; end < order_.size() && end < most;) {
      if (isEntry(end) && !stretchAt(end).isEncoded) break;
      ++end;
    }
    return {begin, std::min(end + 1, order_.size())};
  }

  int64_t timeAt(size_t place) const { return shown_[order_[place]] + offset_; }

  void compare(const Range& range, DecodedPictures& output) {
    size_t entry = range.begin;
    while (entry > 0 && !isEntry(entry)) --entry;
    output.seek(timeAt(entry), timeAt(range.begin));
    const CutWindow* window = nullptr;
    for (size_t i = range.begin; i < range.end && proof_.problem.empty(); ++i) {
      if (job_.events.isInterrupted()) throw Failure::interrupted();
      const CutWindow& own = plan_.windows[stretchAt(i).window];
      if (window != &own) source_.seek(job_.index.entryBefore(at(i).source), at(i).source);
      window = &own;
      compare(i, output.next(), source_.next());
    }
    if (proof_.problem.empty() && range.end == order_.size() && output.next())
      failed("there are more pictures than were asked for");
    if (proof_.problem.empty() && output.errors() > 0)
      failed(fmt::format("the decoder finds errors near {}", clock(range.begin)));
  }

  std::string clock(size_t place) const {
    return formatTime(static_cast<double>(at(place).shown) * av_q2d(job_.index.timebase));
  }

  void compare(size_t place, const FramePtr& made, const FramePtr& source) {
    if (!source || DecodedPictures::timeOf(*source) != at(place).source) {
      failed(fmt::format("the input's picture at {} is not decoded a second time", clock(place)));
      return;
    }
    if (!made || DecodedPictures::timeOf(*made) != timeAt(place)) {
      failed(fmt::format("the picture at {} is missing, or another one is there", clock(place)));
      return;
    }
    if (stretchAt(place).isEncoded)
      compareEncoded(place, *made, *source);
    else if (samplesEqual(*made, *source))
      ++proof_.equalPictures;
    else
      failed(fmt::format("the copied picture at {} has other samples", clock(place)));
  }

  void compareEncoded(size_t place, const AVFrame& made, const AVFrame& source) {
    const std::optional<double> like = likeness(made, source);
    const auto stretch = static_cast<size_t>(&stretchAt(place) - plan_.stretches.data());
    auto& lowest = proof_.likeness[stretch];
    if (like) lowest = std::min(lowest.value_or(1), *like);
    if (like && *like >= kLeastLikeness) {
      ++proof_.alikePictures;
      return;
    }
    proof_.isFaint = like.has_value();
    failed(like
               ? fmt::format("the encoded picture at {} has an SSIM of {:.4f}", clock(place), *like)
               : fmt::format("the encoded picture at {} has another form", clock(place)));
  }

  const CutJob& job_;
  const PicturePlan& plan_;
  const std::vector<int64_t>& shown_;
  const std::string& path_;
  DecodedPictures source_;
  std::vector<size_t> order_;  // of showing
  int64_t offset_ = 0;
  CutProof proof_;
};

}  // namespace

CutProof proveCut(const CutJob& job, const PicturePlan& plan, const std::vector<int64_t>& shown,
                  const std::string& path) {
  return Prover(job, plan, shown, path).run();
}

}  // namespace kestrel
