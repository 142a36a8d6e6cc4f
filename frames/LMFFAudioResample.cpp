#include <kestrel/LMFFAudioResample.h>

#include "support/FFmpegCompat.h"
#include "support/FFmpegOwners.h"

extern "C" {
#include <libavutil/channel_layout.h>
#include <libavutil/opt.h>
}

#include <algorithm>
#include <array>
#include <cerrno>
#include <limits>
#include <mutex>
#include <optional>
#include <utility>
#include <vector>

namespace kestrel {

namespace {

constexpr int kInitialQueueSamples = 4096;
constexpr int kSmallestBlock = 1024;
constexpr int64_t kFrontLeftOnly = 1;
constexpr int64_t kFrontRightOnly = 2;
constexpr int64_t kMono = 4;

/// Samples on their way in, or room for samples on their way out.
struct Samples {
  std::array<uint8_t*, AV_NUM_DATA_POINTERS> planes{};
  int32_t count = 0;
};

AVSampleFormat sampleFormat(const LMFFAudioFormat& format) {
  return static_cast<AVSampleFormat>(format.sample_fmt);
}

int channelCount(const LMFFAudioFormat& format) {
  return lm_get_channel_layout_nb_channels(format.channel_layout);
}

/// How many planes `format` spreads its samples over.
int planeCount(const LMFFAudioFormat& format) {
  return av_sample_fmt_is_planar(sampleFormat(format)) ? channelCount(format) : 1;
}

bool hasEveryPlane(const Samples& samples, const LMFFAudioFormat& format) {
  const auto wanted = static_cast<size_t>(planeCount(format));
  return wanted <= samples.planes.size() &&
         std::all_of(samples.planes.begin(), samples.planes.begin() + wanted,
                     [](const uint8_t* plane) { return plane != nullptr; });
}

/// True when samples in one format can be read as the other without touching other memory.
bool isSameShape(const LMFFAudioFormat& a, const LMFFAudioFormat& b) {
  return a.sample_fmt == b.sample_fmt && channelCount(a) == channelCount(b);
}

Samples samplesOf(const AVFrame* frame) {
  Samples samples;
  if (!frame || !frame->data[0]) return samples;
  std::copy(std::begin(frame->data), std::end(frame->data), samples.planes.begin());
  samples.count = frame->nb_samples;
  return samples;
}

/// `count` samples that lie in one buffer, plane after plane.
Samples samplesAt(const void* buffer, int32_t count, const LMFFAudioFormat& format) {
  Samples samples;
  const int bytes = av_get_bytes_per_sample(sampleFormat(format));
  const int channels = channelCount(format);
  const int64_t total = int64_t{count} * bytes * channels;
  if (!buffer || total < 1 || total > std::numeric_limits<int32_t>::max()) return samples;
  auto* first = static_cast<uint8_t*>(const_cast<void*>(buffer));
  const size_t planes = std::min<size_t>(planeCount(format), samples.planes.size());
  for (size_t i = 0; i < planes; i++) samples.planes[i] = first + int64_t{count} * bytes * i;
  samples.count = count;
  return samples;
}

LMFFAudioFormat formatOf(const AVFrame& frame) {
  int64_t mask = layoutMask(frame.ch_layout);
  if (mask == 0) mask = lm_get_default_channel_layout(frame.ch_layout.nb_channels);
  return {frame.format, mask, frame.sample_rate};
}

/// The libraries spread mono over two speakers at 0.707 each, which is quieter on the way back:
/// here both get it at full level. Everything else is the libraries' own matrix.
void setMonoToSidesMatrix(SwrContext* context, int64_t outLayout) {
  const int64_t sides = (outLayout & AV_CH_LAYOUT_STEREO) == AV_CH_LAYOUT_STEREO
                            ? AV_CH_LAYOUT_STEREO
                            : AV_CH_LAYOUT_STEREO_DOWNMIX;
  if ((outLayout & sides) != sides || (outLayout & AV_CH_FRONT_CENTER)) return;
  std::vector<double> matrix;
  for (int bit = 0; bit < 64; bit++) {
    const auto channel = static_cast<int64_t>(uint64_t{1} << bit);
    if (outLayout & channel) matrix.push_back((sides & channel) ? 1.0 : 0.0);
  }
  swr_set_matrix(context, matrix.data(), 1);
}

constexpr int kPreciseBits = 28;

SwrPtr openContext(const LMFFAudioFormat& in, const LMFFAudioFormat& out, bool keepsLevel,
                   bool isPrecise) {
  AVChannelLayout inLayout{}, outLayout{};
  if (av_channel_layout_from_mask(&inLayout, static_cast<uint64_t>(in.channel_layout)) < 0 ||
      av_channel_layout_from_mask(&outLayout, static_cast<uint64_t>(out.channel_layout)) < 0) {
    return nullptr;
  }
  SwrPtr context(swr_alloc());
  if (!context) return nullptr;
  av_opt_set_chlayout(context.get(), "in_chlayout", &inLayout, 0);
  av_opt_set_chlayout(context.get(), "out_chlayout", &outLayout, 0);
  av_opt_set_int(context.get(), "in_sample_rate", in.sample_rate, 0);
  av_opt_set_int(context.get(), "out_sample_rate", out.sample_rate, 0);
  av_opt_set_sample_fmt(context.get(), "in_sample_fmt", sampleFormat(in), 0);
  av_opt_set_sample_fmt(context.get(), "out_sample_fmt", sampleFormat(out), 0);
  if (!keepsLevel) av_opt_set_double(context.get(), "rematrix_maxval", 1.0, 0);
  if (inLayout.nb_channels == 1) setMonoToSidesMatrix(context.get(), out.channel_layout);
  if (isPrecise) {
    av_opt_set_int(context.get(), "resampler", SWR_ENGINE_SOXR, 0);
    av_opt_set_double(context.get(), "precision", kPreciseBits, 0);
  }
  if (swr_init(context.get()) < 0) return nullptr;
  return context;
}

/// Where there is no precise conversion of rates, the usual one does.
SwrPtr makeContext(const LMFFAudioFormat& in, const LMFFAudioFormat& out, bool keepsLevel,
                   bool isPrecise) {
  if (isPrecise && in.sample_rate != out.sample_rate)
    if (SwrPtr precise = openContext(in, out, keepsLevel, true)) return precise;
  return openContext(in, out, keepsLevel, false);
}

/// A block for `count` samples in `format`.
FramePtr makeBlock(const LMFFAudioFormat& format, int count) {
  FramePtr block = makeFrame();
  if (!block) return nullptr;
  block->format = format.sample_fmt;
  block->nb_samples = count;
  const auto mask = static_cast<uint64_t>(format.channel_layout);
  if (av_channel_layout_from_mask(&block->ch_layout, mask) < 0 ||
      av_frame_get_buffer(block.get(), 0) < 0) {
    return nullptr;
  }
  return block;
}

void** fifoPlanes(uint8_t** planes) { return reinterpret_cast<void**>(planes); }

}  // namespace

struct LMFFAudioResample::State {
  mutable std::recursive_mutex lock;
  LMFFAudioFormat in;
  LMFFAudioFormat out = lm_get_default_audio_format();

  SwrPtr context;
  AudioFifoPtr queue;       ///< converted samples; there whenever `context` is
  LMFFAudioFormat openIn;   ///< what `context` converts from …
  LMFFAudioFormat openOut;  ///< … and to
  bool keepsLevel = false;  ///< of what is mixed into fewer channels
  bool isPrecise = false;   ///< of rates
  bool isIdentity = false;  ///< nothing to convert: samples go straight to the queue
  FramePtr block;           ///< what the context converts into, kept from call to call

  void open();
  void close();
  void install(SwrPtr newContext, const LMFFAudioFormat& from, const LMFFAudioFormat& to);
  std::optional<int> run(const Samples& input, const Samples& output);
  int push(const Samples& input);
  int pull(Samples output);
  int convertToQueue(const uint8_t** planes, int count);
};

void LMFFAudioResample::State::open() {
  LMFFAudioFormat from = in;
  if (from.channel_layout == kFrontLeftOnly || from.channel_layout == kFrontRightOnly) {
    from.channel_layout = kMono;
  }
  install(makeContext(from, out, keepsLevel, isPrecise), from, out);
  isIdentity = context && isFFAudioFormatEqual(from, out);
}

void LMFFAudioResample::State::close() {
  context.reset();
  queue.reset();
  block.reset();
  isIdentity = false;
}

void LMFFAudioResample::State::install(SwrPtr newContext, const LMFFAudioFormat& from,
                                       const LMFFAudioFormat& to) {
  close();
  if (!newContext) return;
  queue.reset(av_audio_fifo_alloc(sampleFormat(to), channelCount(to), kInitialQueueSamples));
  if (!queue) return;
  context = std::move(newContext);
  openIn = from;
  openOut = to;
}

/// Pushes `input` and pulls into `output`. Answers how many samples came out, negative when the
/// conversion failed, nothing while closed.
std::optional<int> LMFFAudioResample::State::run(const Samples& input, const Samples& output) {
  const bool hasInput = input.count > 0;
  // A context that was opened for another shape of samples would read past the planes' ends.
  if (hasInput && (!context || !isSameShape(in, openIn))) open();
  if (!context) return std::nullopt;
  const int pushed = hasInput ? push(input) : 0;
  return pushed < 0 ? pushed : pull(output);
}

/// Queues `input`; negative when that failed.
int LMFFAudioResample::State::push(const Samples& input) {
  if (!hasEveryPlane(input, openIn)) return AVERROR(EINVAL);
  auto planes = input.planes;
  if (isIdentity) return av_audio_fifo_write(queue.get(), fifoPlanes(planes.data()), input.count);
  std::array<const uint8_t*, AV_NUM_DATA_POINTERS> source;
  std::copy(planes.begin(), planes.end(), source.begin());
  return convertToQueue(source.data(), input.count);
}

/// Queues what the context makes of `count` samples; null planes ask for what it holds back.
int LMFFAudioResample::State::convertToQueue(const uint8_t** planes, int count) {
  const int room = swr_get_out_samples(context.get(), count);
  if (room < 0) return room;
  if (!block || block->nb_samples < room) {
    block = makeBlock(openOut, std::max(room, kSmallestBlock));
    if (!block) return AVERROR(ENOMEM);
  }
  uint8_t** target = block->extended_data;
  const int made = swr_convert(context.get(), target, block->nb_samples, planes, count);
  if (made < 1) return made;
  return av_audio_fifo_write(queue.get(), fifoPlanes(target), made);
}

/// Moves queued samples to `output` and answers how many; negative when it lacks a plane.
int LMFFAudioResample::State::pull(Samples output) {
  const int count = std::min(output.count, av_audio_fifo_size(queue.get()));
  if (count < 1) return 0;
  if (!hasEveryPlane(output, openOut)) return AVERROR(EINVAL);
  return av_audio_fifo_read(queue.get(), fifoPlanes(output.planes.data()), count);
}

LMFFAudioResample::LMFFAudioResample() : state_(std::make_unique<State>()) {}

LMFFAudioResample::~LMFFAudioResample() = default;

LMFFAudioFormat LMFFAudioResample::outputFormat() const { return outFormat(); }

LMFFAudioFormat LMFFAudioResample::inFormat() const {
  const std::lock_guard guard(state_->lock);
  return state_->in;
}

void LMFFAudioResample::setInFormat(const LMFFAudioFormat& format) {
  const std::lock_guard guard(state_->lock);
  state_->in = format;
}

LMFFAudioFormat LMFFAudioResample::outFormat() const {
  const std::lock_guard guard(state_->lock);
  return state_->out;
}

void LMFFAudioResample::setOutFormat(const LMFFAudioFormat& format) {
  const std::lock_guard guard(state_->lock);
  state_->out = format;
}

bool LMFFAudioResample::keepsLevel() const {
  const std::lock_guard guard(state_->lock);
  return state_->keepsLevel;
}

void LMFFAudioResample::setKeepsLevel(bool keepsLevel) {
  const std::lock_guard guard(state_->lock);
  state_->keepsLevel = keepsLevel;
}

bool LMFFAudioResample::isPrecise() const {
  const std::lock_guard guard(state_->lock);
  return state_->isPrecise;
}

void LMFFAudioResample::setPrecise(bool isPrecise) {
  const std::lock_guard guard(state_->lock);
  state_->isPrecise = isPrecise;
}

SwrContext* LMFFAudioResample::context() const {
  const std::lock_guard guard(state_->lock);
  return state_->context.get();
}

void LMFFAudioResample::setContext(SwrContext* context) {
  const std::lock_guard guard(state_->lock);
  static_cast<void>(state_->context.release());
  state_->install(SwrPtr(context), state_->in, state_->out);
}

void LMFFAudioResample::open() {
  const std::lock_guard guard(state_->lock);
  state_->open();
}

void LMFFAudioResample::clear() {
  const std::lock_guard guard(state_->lock);
  state_->close();
}

void LMFFAudioResample::close() { clear(); }

void LMFFAudioResample::convertFormat(const LMFFAudioFormat& format, const LMFFAudioFormat& to) {
  const std::lock_guard guard(state_->lock);
  if (state_->context && isFFAudioFormatEqual(format, state_->in) &&
      isFFAudioFormatEqual(to, state_->out)) {
    return;
  }
  state_->in = format;
  state_->out = to;
  state_->open();
}

void LMFFAudioResample::convertFrame(const AVFrame* frame, AVFrame* to) {
  const std::lock_guard guard(state_->lock);
  if (frame && frame->data[0]) {
    const LMFFAudioFormat format = formatOf(*frame);
    if (!isFFAudioFormatEqual(format, state_->in)) {
      close();
      convertFormat(format, state_->out);
    }
  }
  const std::optional<int> count = state_->run(samplesOf(frame), samplesOf(to));
  if (to && count) to->nb_samples = std::max(*count, 0);
}

void LMFFAudioResample::writeFrame(const AVFrame* frame) { convertFrame(frame, nullptr); }

void LMFFAudioResample::writeSample(const void* sample, int32_t frame) {
  const std::lock_guard guard(state_->lock);
  state_->run(samplesAt(sample, frame, state_->in), Samples());
}

int32_t LMFFAudioResample::readSample(void* sample, int32_t frame) {
  const std::lock_guard guard(state_->lock);
  Samples output;
  output.planes[0] = static_cast<uint8_t*>(sample);
  output.count = sample ? frame : 0;
  state_->run(Samples(), output);
  return 0;
}

int32_t LMFFAudioResample::outputSamples() const {
  const std::lock_guard guard(state_->lock);
  return state_->queue ? av_audio_fifo_size(state_->queue.get()) : 0;
}

int32_t LMFFAudioResample::heldSamples() const {
  const std::lock_guard guard(state_->lock);
  if (!state_->context || state_->isIdentity) return 0;
  const int64_t held = swr_get_delay(state_->context.get(), outFormat().sample_rate);
  return static_cast<int32_t>(std::max<int64_t>(held, 0));
}

void LMFFAudioResample::flush() {
  const std::lock_guard guard(state_->lock);
  if (!state_->context || state_->isIdentity) return;
  while (state_->convertToQueue(nullptr, 0) > 0) {
  }
  // A drained context takes no more input until it is initialised again.
  swr_close(state_->context.get());
  if (swr_init(state_->context.get()) < 0) state_->close();
}

}  // namespace kestrel
