#pragma once

#include <kestrel/Export.h>
#include <kestrel/LMFFFormat.h>

#include <cstdint>
#include <memory>

struct AVFrame;
struct SwrContext;

namespace kestrel {

/// Converts sound from a decoder or a host into one output format and queues it until it is read.
/// It also decouples producers and consumers that work in blocks of different sizes.
///
/// A converter is closed until `open`, `convertFormat` or the first samples open it; it reopens
/// itself for input in another format. Closing and reopening discard queued samples.
///
/// Sample counts are per channel. Levels: between equal layouts samples are unchanged (bit for bit
/// if both formats can represent them), mono goes to both stereo channels at full level, stereo
/// becomes mono as (L + R) / 2, and other downmixes are scaled so that full-scale input cannot
/// clip.
///
/// Planar sound may have up to eight channels, interleaved sound as many as FFmpeg supports. Errors
/// are not reported: what cannot be converted is dropped.
///
/// Every operation takes the object's recursive lock, so one thread may write while another reads.
class KESTREL_API LMFFAudioResample {
 public:
  /// Closed, with `inFormat` all zero and `outFormat` set to `lm_get_default_audio_format`.
  LMFFAudioResample();
  ~LMFFAudioResample();
  LMFFAudioResample(const LMFFAudioResample&) = delete;
  LMFFAudioResample& operator=(const LMFFAudioResample&) = delete;

  /// Same as `outFormat`.
  LMFFAudioFormat outputFormat() const;

  /// The format of the samples written. Setting it does not reopen an open converter.
  LMFFAudioFormat inFormat() const;
  void setInFormat(const LMFFAudioFormat& format);

  /// The format of the samples read. Setting it does not reopen an open converter: until that is
  /// reopened, samples are converted to the old format.
  LMFFAudioFormat outFormat() const;
  void setOutFormat(const LMFFAudioFormat& format);

  /// If true, sound that is mixed into fewer channels keeps its level (Recommendation ITU-R
  /// BS.775): the front channels stay as they are, centre and surround become 3 dB lower; in one
  /// channel the centre stays as it is, front sides become 3 dB and surround 6 dB lower. So the sum
  /// may exceed full scale where the samples are floats. By default all of it is turned down so
  /// that it cannot. Read when the converter opens.
  bool keepsLevel() const;
  void setKeepsLevel(bool keepsLevel);

  /// If true, rates are converted by libsoxr at 28 bits, where libswresample was built with it:
  /// next to nothing of what the new rate cannot hold folds back, and more of the highest tones
  /// stays. By default, and without it, by libswresample's own filter. Read when the converter
  /// opens.
  bool isPrecise() const;
  void setPrecise(bool isPrecise);

  /// The open conversion context, owned by this object; null while closed.
  SwrContext* context() const;

  /// Takes ownership of an initialised context that converts from `inFormat` to `outFormat`; null
  /// closes the converter. The caller becomes the owner of the previous context. Queued samples are
  /// lost.
  void setContext(SwrContext* context);

  /// Opens a context from `inFormat` to `outFormat`. An input layout of only front left or only
  /// front right is treated as mono. On failure the converter is closed.
  void open();

  /// Both free the context and discard queued samples.
  void clear();
  void close();

  /// Opens the converter from `format` to `to`, unless it is already open with these formats.
  void convertFormat(const LMFFAudioFormat& format, const LMFFAudioFormat& to);

  /// Pushes input, pulls output, or both.
  ///
  /// `frame` (null or without data: no input) is converted and queued. If its format differs from
  /// `inFormat`, the converter reopens first. A frame that only has a channel count gets the
  /// default layout for it.
  ///
  /// `to` (may be null) has room for `nb_samples` samples in `outFormat` in its data planes. It
  /// receives queued samples, oldest first, and `nb_samples` is set to their number; 0 if a data
  /// plane is missing or the conversion failed. While the converter is closed, `to` is not touched.
  void convertFrame(const AVFrame* frame, AVFrame* to);

  /// Same as `convertFrame` without output.
  void writeFrame(const AVFrame* frame);

  /// Writes `frame` samples in `inFormat`; planes follow each other without gaps.
  void writeSample(const void* sample, int32_t frame);

  /// Reads up to `frame` queued samples into a single buffer, so the output format must be
  /// interleaved or mono. Always returns 0: check `outputSamples` first.
  int32_t readSample(void* sample, int32_t frame);

  /// The number of queued samples; 0 while closed.
  int32_t outputSamples() const;

  /// The number of samples that what was taken in so far will still make: the rate conversion holds
  /// them back until more input follows, or `flush`.
  int32_t heldSamples() const;

  /// Signals the end of the input: queues the samples held back by the rate conversion, so that the
  /// total is input × output rate / input rate. Input after that starts a new sequence.
  void flush();

 private:
  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace kestrel
