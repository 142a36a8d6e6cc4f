#pragma once

#include <kestrel/Export.h>

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <vector>

namespace kestrel {

/// Where finished sound is heard, or written, or counted: it calls for samples at its own pace.
///
/// A device is made closed. `open` finds out whether it is there and what it takes; `start` has it
/// call for sound, on a thread of its own, until `stop` has returned. One thread at a time controls
/// a device. Samples are interleaved 32-bit float.
class KESTREL_API AudioDevice {
 public:
  /// Writes `frames` frames to `data`, all of them. Called on the device's thread, which waits for
  /// nothing else: it must neither block nor allocate.
  using Fill = std::function<void(float* data, int32_t frames)>;

  struct Format {
    int32_t sampleRate = 44100;
    int32_t channels = 2;

    bool operator==(const Format&) const = default;
  };

  virtual ~AudioDevice() = default;

  /// False when there is no such device; it may be tried again. An open device stays open.
  virtual bool open(Fill fill) = 0;
  virtual void close() = 0;
  virtual bool isOpen() const = 0;

  /// What the device takes, while it is open.
  virtual Format format() const = 0;

  virtual void start() = 0;
  /// Once this has returned nothing calls for sound any more.
  virtual void stop() = 0;

  /// The time by which the device plays, nanoseconds since some moment. Any thread.
  virtual int64_t now() const = 0;

  /// How long after it was called for a sample is heard, in frames.
  virtual int32_t latency() const { return 0; }
};

/// The system's default output, or that which the environment names to SDL (`SDL_AUDIODRIVER`). SDL
/// is loaded when the device is first opened; where it is missing there is no device.
KESTREL_API std::shared_ptr<AudioDevice> makeDefaultAudioDevice();

/// Calls for sound at the pace at which it would be heard, and drops it: what keeps time where
/// there is nothing to listen with. Always opens.
KESTREL_API std::shared_ptr<AudioDevice> makeNullAudioDevice();

/// A device without a thread or a clock: whoever holds it asks for sound, and its time is the sound
/// that was asked for. It belongs to one thread, which also starts and stops what it plays; `now`
/// is for any. For tests, and for hosts that render what would be heard.
class KESTREL_API PulledAudioDevice : public AudioDevice {
 public:
  PulledAudioDevice() = default;
  explicit PulledAudioDevice(Format format) : format_(format) {}

  /// The next `frames` frames; silence, which takes no time, unless the device is started.
  std::vector<float> pull(int32_t frames);

  /// Has `open` fail from now on.
  void setIsMissing(bool isMissing) { isMissing_ = isMissing; }

  bool open(Fill fill) override;
  void close() override;
  bool isOpen() const override { return static_cast<bool>(fill_); }
  Format format() const override { return format_; }
  void start() override { isStarted_ = true; }
  void stop() override { isStarted_ = false; }
  int64_t now() const override;

 private:
  Format format_;
  Fill fill_;
  std::atomic<int64_t> frames_{0};
  bool isStarted_ = false;
  bool isMissing_ = false;
};

}  // namespace kestrel
