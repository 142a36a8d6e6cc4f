#include <rubberband/RubberBandStretcher.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <bit>
#include <cmath>
#include <memory>
#include <mutex>
#include <vector>

#include "platform/audio/AudioStage.h"

namespace kestrel {

namespace {

using Stretcher = RubberBand::RubberBandStretcher;

constexpr int32_t kMostFrames = AudioGraph::kMostFrames;
constexpr size_t kMostChannels = 8;
constexpr double kSlowest = 0.25;
constexpr double kFastest = 4;
constexpr int64_t kRingFrames = 32768;
constexpr int32_t kBlendFrames = 256;  // over which one way of making samples gives way to another
constexpr int64_t kMostShift = 256;    // how far the blend looks for a place where both look alike

// The window that R3 calls short costs a third of its long one, and adds nothing at all to sound
// whose tempo is not changed.
constexpr int kOptions = Stretcher::OptionProcessRealTime | Stretcher::OptionEngineFiner |
                         Stretcher::OptionWindowShort | Stretcher::OptionThreadingNever;

/// It would write to standard error, such as that 384 kHz are more than it has been tuned for.
struct NoLog : Stretcher::Logger {
  void log(const char*) override {}
  void log(const char*, double) override {}
  void log(const char*, double, double) override {}
};

double usable(float rate) {
  return std::isfinite(rate) ? std::clamp(static_cast<double>(rate), kSlowest, kFastest) : 1.0;
}

/// Changes the tempo and keeps the pitch.
///
/// At rate 1 samples pass as they are. The stretcher needs to know what comes some time before it
/// delivers, so when another rate is wanted, it is first run along, at tempo 1 and a little faster
/// than the sound passes, until it has caught up with it; from there it takes over. That spreads
/// the work over many calls, and the two sounds are the same one where they meet. Back to rate 1,
/// the sound of the last moments, which the stretcher has taken but not delivered, is still at hand
/// and goes on where it was.
///
/// Positions count input frames; `taken_` of them have been pulled, the latest are in the ring.
class TimePitchStage : public AudioStage {
 public:
  bool setParameter(uint32_t parameter, float value) override {
    if (parameter != kAudioUnitParameter_Rate) return false;
    rate_ = value;
    return true;
  }

  std::optional<float> parameter(uint32_t parameter) const override {
    if (parameter != kAudioUnitParameter_Rate) return std::nullopt;
    return rate_;
  }

  std::optional<AudioStreamFormat> format(AudioScope) const override {
    const std::lock_guard guard(lock_);
    return format_ ? std::optional(streamFormat(*format_)) : std::nullopt;
  }

  std::optional<Format> prepare(const Format& output) override {
    const std::lock_guard guard(lock_);
    if (format_ == output) return output;
    format_ = output;
    channels_ = static_cast<size_t>(output.channels);
    stretcher_ = std::make_unique<Stretcher>(static_cast<size_t>(output.sampleRate), channels_,
                                             std::make_shared<NoLog>(), kOptions);
    stretcher_->setMaxProcessSize(kMostFrames);
    pad_ = static_cast<int64_t>(stretcher_->getPreferredStartPad());
    middle_ = static_cast<int64_t>(std::bit_floor(static_cast<uint64_t>(pad_)));
    ring_.assign(static_cast<size_t>(kRingFrames) * channels_, 0.0F);
    for (auto& plane : planes_) plane.assign(kMostFrames, 0.0F);
    for (auto& plane : stretched_) plane.assign(kMostFrames, 0.0F);
    taken_ = 0;
    flush();
    return output;
  }

  void render(float* data, int32_t frames) override {
    const double rate = usable(rate_);
    if (mode_ == Mode::kStretched && rate == 1 && frames >= kBlendFrames)
      return returnToPlain(data, frames);
    if (mode_ == Mode::kStretched) return renderStretched(data, frames, rate);
    if (rate == 1) {
      mode_ = Mode::kPlain;
    } else if (mode_ == Mode::kPlain) {
      beginCatchingUp();
    }
    if (mode_ == Mode::kCatchingUp && catchUp(frames)) return takeOver(data, frames);
    renderPlain(data, frames);
  }

  double heldFrames() const override { return static_cast<double>(taken_) - position_; }

  void flush() override {
    mode_ = Mode::kPlain;
    position_ = static_cast<double>(taken_);
    known_ = taken_;
  }

 private:
  enum class Mode { kPlain, kCatchingUp, kStretched };
  /// The middle of one of the stretcher's windows: after how many output frames it is delivered,
  /// and which input frame it is.
  struct Mark {
    int64_t output = 0;
    int64_t input = 0;
  };
  static constexpr uint64_t kMarks = 256;
  using Planes = std::array<std::vector<float>, kMostChannels>;

  float* ringFrame(int64_t position) {
    return ring_.data() + static_cast<size_t>(position % kRingFrames) * channels_;
  }

  /// Pulls `frames` more into the ring.
  void take(int32_t frames) {
    while (frames > 0) {
      const auto untilWrap = static_cast<int32_t>(kRingFrames - taken_ % kRingFrames);
      const int32_t count = std::min({frames, untilWrap, kMostFrames});
      pull(ringFrame(taken_), count);
      taken_ += count;
      frames -= count;
    }
  }

  void renderPlain(float* data, int32_t frames) {
    const auto begin = static_cast<int64_t>(position_);
    if (begin + frames > taken_) take(static_cast<int32_t>(begin + frames - taken_));
    for (int32_t i = 0; i < frames; ++i)
      std::copy_n(ringFrame(begin + i), channels_, data + static_cast<size_t>(i) * channels_);
    position_ = static_cast<double>(begin + frames);
  }

  /// Gives the stretcher the ring's frames from `fed_` on.
  void feed(int32_t frames) {
    if (fed_ + frames > taken_) take(static_cast<int32_t>(fed_ + frames - taken_));
    std::array<const float*, kMostChannels> input{};
    for (size_t c = 0; c < channels_; ++c) input[c] = planes_[c].data();
    for (int32_t i = 0; i < frames; ++i) {
      const int64_t position = fed_ + i;
      const float* frame = ringFrame(std::max<int64_t>(position, 0));
      for (size_t c = 0; c < channels_; ++c)
        planes_[c][static_cast<size_t>(i)] = position >= known_ ? frame[c] : 0.0F;
    }
    stretcher_->process(input.data(), static_cast<size_t>(frames), false);
    fed_ += frames;
  }

  /// Takes `frames` frames, which are there, out of the stretcher, into `stretched_` from `offset`.
  void retrieve(int32_t offset, int32_t frames) {
    std::array<float*, kMostChannels> output{};
    for (size_t c = 0; c < channels_; ++c) output[c] = stretched_[c].data() + offset;
    stretcher_->retrieve(output.data(), static_cast<size_t>(frames));
    emitted_ += frames;
  }

  /// The stretcher starts so far back that its first sound without a gap lies where the sound is
  /// now.
  void beginCatchingUp() {
    mode_ = Mode::kCatchingUp;
    stretcher_->reset();
    stretcher_->setTimeRatio(1);
    fed_ = static_cast<int64_t>(position_) - pad_;
    // Only so much of the past is still in the ring, and what a flush dropped is to stay dropped.
    known_ = std::max({known_, taken_ - kRingFrames, int64_t{0}});
    start_ = fed_;
    emitted_ = 0;
    markCount_ = 1;
    marks_[0] = {0, start_};
    addMark(middle_, start_ + middle_);
  }

  /// True when the stretcher stands where the sound does and can deliver `frames` frames.
  bool catchUp(int32_t frames) {
    for (int32_t budget = 2 * frames; budget > 0;) {
      const int32_t count = std::min(budget, kMostFrames);
      feed(count);
      budget -= count;
      dropDelivered();
    }
    return delivered() >= position_ && stretcher_->available() >= frames;
  }

  /// The frame that the stretcher delivers next while it catches up: at tempo 1 a frame stands for
  /// a frame.
  double delivered() const { return static_cast<double>(start_ + emitted_); }

  /// Drops what lies before the sound's position.
  void dropDelivered() {
    while (delivered() < position_ && stretcher_->available() > 0) {
      const auto behind = static_cast<int32_t>(position_ - delivered());
      retrieve(0, std::min({behind, stretcher_->available(), kMostFrames}));
    }
  }

  void takeOver(float* data, int32_t frames) {
    const double begin = position_;
    renderPlain(data, frames);
    retrieve(0, frames);
    const int32_t blend = std::min(frames, kBlendFrames);
    for (int32_t i = 0; i < frames; ++i) {
      const float part = i < blend ? static_cast<float>(i) / static_cast<float>(blend) : 1.0F;
      for (size_t c = 0; c < channels_; ++c) {
        float& sample = data[static_cast<size_t>(i) * channels_ + c];
        sample += part * (stretched_[c][static_cast<size_t>(i)] - sample);
      }
    }
    position_ = begin + frames;
    mode_ = Mode::kStretched;
  }

  /// Fills `stretched_` with the next frames.
  void stretch(int32_t frames, double rate) {
    stretcher_->setTimeRatio(1 / rate);
    for (int32_t done = 0; done < frames;) {
      const int32_t count = std::min(stretcher_->available(), frames - done);
      if (count > 0) {
        retrieve(done, count);
        done += count;
      } else {
        markWindow();
        feed(std::clamp(static_cast<int32_t>(stretcher_->getSamplesRequired()), 1, kMostFrames));
      }
    }
    position_ = inputOfOutput();
  }

  /// With nothing left to deliver, what the stretcher lacks of its next window tells where that
  /// window begins. Its middle will be delivered as long from now as it lies behind the beginning.
  void markWindow() {
    const auto lacking = static_cast<int64_t>(stretcher_->getSamplesRequired());
    addMark(emitted_ + middle_, fed_ - (2 * pad_ - lacking) + middle_);
  }

  void addMark(int64_t output, int64_t input) {
    if (output > marks_[(markCount_ - 1) % kMarks].output) ++markCount_;
    marks_[(markCount_ - 1) % kMarks] = {output, input};
  }

  /// The input frame that the stretcher's next output frame stands for; between two windows the
  /// tempo is even.
  double inputOfOutput() const {
    uint64_t i = markCount_ - 1;
    const uint64_t oldest = markCount_ > kMarks ? markCount_ - kMarks : 0;
    while (i > oldest && marks_[i % kMarks].output > emitted_) --i;
    const Mark& before = marks_[i % kMarks];
    const Mark& after = marks_[(i + 1 < markCount_ ? i + 1 : i) % kMarks];
    if (after.output <= before.output) return static_cast<double>(before.input);
    const double part = static_cast<double>(emitted_ - before.output) /
                        static_cast<double>(after.output - before.output);
    return static_cast<double>(before.input) +
           part * static_cast<double>(after.input - before.input);
  }

  void renderStretched(float* data, int32_t frames, double rate) {
    stretch(frames, rate);
    for (int32_t i = 0; i < frames; ++i)
      for (size_t c = 0; c < channels_; ++c)
        data[static_cast<size_t>(i) * channels_ + c] = stretched_[c][static_cast<size_t>(i)];
  }

  /// Blends the stretcher's sound into the plain one, from the place near it that resembles it
  /// most: the two are not in step, and would cancel each other out for a moment.
  void returnToPlain(float* data, int32_t frames) {
    const auto near = static_cast<int64_t>(std::lround(position_));
    stretch(kBlendFrames, 1);
    const int64_t begin = placeLikeStretched(near);
    for (int32_t i = 0; i < kBlendFrames; ++i) {
      const float part = static_cast<float>(i) / kBlendFrames;
      const float* plain = ringFrame(begin + i);
      for (size_t c = 0; c < channels_; ++c) {
        const float old = stretched_[c][static_cast<size_t>(i)];
        data[static_cast<size_t>(i) * channels_ + c] = old + part * (plain[c] - old);
      }
    }
    position_ = static_cast<double>(begin + kBlendFrames);
    mode_ = Mode::kPlain;
    renderPlain(data + static_cast<size_t>(kBlendFrames) * channels_, frames - kBlendFrames);
  }

  int64_t placeLikeStretched(int64_t near) {
    const int64_t first = std::max({near - kMostShift, known_, taken_ - kRingFrames, int64_t{0}});
    const int64_t last = std::min(near + kMostShift, taken_ - kBlendFrames);
    int64_t best = std::clamp(near, std::min(first, last), last);
    double bestLikeness = -1;
    for (int64_t place = first; place <= last; ++place) {
      double product = 0;
      double energy = 1e-9;
      for (int32_t i = 0; i < kBlendFrames; i += 2) {
        const float plain = ringFrame(place + i)[0];
        product += plain * stretched_[0][static_cast<size_t>(i)];
        energy += plain * plain;
      }
      const double likeness = product / std::sqrt(energy);
      if (likeness > bestLikeness) {
        bestLikeness = likeness;
        best = place;
      }
    }
    return best;
  }

  std::atomic<float> rate_{1};
  mutable std::mutex lock_;  // of the format
  std::optional<Format> format_;
  size_t channels_ = 2;
  std::unique_ptr<Stretcher> stretcher_;
  int64_t pad_ = 0;     // half of what the stretcher looks at for a window, in frames
  int64_t middle_ = 0;  // of the window itself, a power of two; what is behind it only tells what
                        // kind of sound comes next
  Mode mode_ = Mode::kPlain;
  std::vector<float> ring_;
  int64_t taken_ = 0;    // frames pulled
  int64_t known_ = 0;    // what lies before this frame is not to be heard again
  int64_t fed_ = 0;      // the next frame that the stretcher is given
  int64_t start_ = 0;    // the first frame that the stretcher was given
  int64_t emitted_ = 0;  // frames that it has delivered since
  std::array<Mark, kMarks> marks_{};
  uint64_t markCount_ = 1;
  double position_ = 0;  // the frame that the next sample is made of
  Planes planes_;
  Planes stretched_;
};

}  // namespace

std::shared_ptr<AudioStage> makeTimePitchStage() { return std::make_shared<TimePitchStage>(); }

}  // namespace kestrel
