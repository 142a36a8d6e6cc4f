#pragma once

#include <kestrel/Export.h>
#include <kestrel/LMFFFormat.h>

#include <cstdint>
#include <memory>

struct AVFrame;
struct SwrContext;

namespace kestrel {

/// Converts sound from whatever a decoder or a host delivers into one wanted format, and keeps the
/// converted samples until a consumer reads them.
///
/// It is a converter and the buffer between a producer and a consumer that work in different block
/// sizes. It is closed until `open`, `convertFormat` or the first samples open it; input in another
/// format reopens it by itself. Whatever closes or reopens it loses the converted samples that
/// nobody has read.
///
/// Sample counts are per channel throughout. Levels: equal layouts pass unchanged (bit for bit
/// where the sample values are the same in both formats), mono reaches both sides of stereo at full
/// level, stereo becomes mono as (L + R) / 2, and other fold-downs are scaled so that input at full
/// scale cannot clip.
///
/// Planar sound has at most eight channels here, interleaved sound as many as the libraries take.
/// Failures are silent: what can't be converted is dropped.
///
/// Every operation takes the object's recursive lock, so one thread may write while another reads.
class KESTREL_API LMFFAudioResample {
 public:
  /// Closed; `inFormat` is all zero and `outFormat` is `lm_get_default_audio_format`.
  LMFFAudioResample();
  ~LMFFAudioResample();
  LMFFAudioResample(const LMFFAudioResample&) = delete;
  LMFFAudioResample& operator=(const LMFFAudioResample&) = delete;

  /// `outFormat`.
  LMFFAudioFormat outputFormat() const;

  /// The format of the samples written in. Setting it does not reopen an open converter.
  LMFFAudioFormat inFormat() const;
  void setInFormat(const LMFFAudioFormat& format);

  /// The format of the samples read out. Setting it does not reopen an open converter: until that
  /// happens, samples are still converted to the format that it was opened with.
  LMFFAudioFormat outFormat() const;
  void setOutFormat(const LMFFAudioFormat& format);

  /// The open conversion context, owned by this object; null while closed.
  SwrContext* context() const;

  /// Takes over an initialised context that converts from `inFormat` to `outFormat`; null leaves
  /// the object closed. The context held before is the caller's from then on. Queued samples are
  /// lost.
  void setContext(SwrContext* context);

  /// Opens a context from `inFormat` to `outFormat`. An input layout that is exactly front left or
  /// exactly front right is opened as mono. On failure the object is closed.
  void open();

  /// Closes: frees the context and drops the queued samples.
  void clear();
  void close();

  /// Makes the converter convert from `format` to `to`; does nothing when it is open and does so
  /// already.
  void convertFormat(const LMFFAudioFormat& format, const LMFFAudioFormat& to);

  /// Pushes input, pulls output, or both.
  ///
  /// `frame` (null, or without data: no input) is converted and queued; when its format is not
  /// `inFormat`, the converter reopens for it first. A frame that names only a number of channels
  /// has the default layout for it.
  ///
  /// `to` (may be null) offers room for `nb_samples` samples in its data planes, which are in
  /// `outFormat`. It receives queued samples, oldest first, and `nb_samples` becomes how many;
  /// 0 when it has no data plane or the conversion failed. While closed, `to` stays as it is.
  void convertFrame(const AVFrame* frame, AVFrame* to);

  /// `convertFrame` without output: the converted samples stay queued.
  void writeFrame(const AVFrame* frame);

  /// Writes `frame` samples in `inFormat` from `sample`; planes follow each other without a gap.
  void writeSample(const void* sample, int32_t frame);

  /// Reads up to `frame` queued samples into the one buffer `sample`; the output format must be
  /// interleaved (or mono). Always returns 0: ask `outputSamples` beforehand.
  int32_t readSample(void* sample, int32_t frame);

  /// The number of converted samples waiting; 0 while closed.
  int32_t outputSamples() const;

  /// The input has ended: queues the few samples that a rate conversion holds back, so that the
  /// total comes to input × output rate / input rate. Later input starts a new run of samples.
  void flush();

 private:
  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace kestrel
