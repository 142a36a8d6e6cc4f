#pragma once

#include <kestrel/Export.h>

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <vector>

namespace kestrel {

/// A consumer of finished sound that asks for samples at its own pace: it plays, records or
/// discards them.
///
/// A device is created closed. `open` finds out whether it exists and which format it takes; from
/// `start` until `stop` returns it asks for sound on its own thread. Control a device from one
/// thread at a time. Samples are interleaved 32-bit float.
class KESTREL_API AudioDevice {
 public:
  /// Writes exactly `frames` frames to `data`. Called on the device's thread, so it must neither
  /// block nor allocate memory.
  using Fill = std::function<void(float* data, int32_t frames)>;

  struct Format {
    int32_t sampleRate = 44100;  ///< Hz
    int32_t channels = 2;

    bool operator==(const Format&) const = default;
  };

  virtual ~AudioDevice() = default;

  /// False if there is no such device; it can be tried again later. If already open, returns true
  /// and goes on with the function that it was opened with.
  virtual bool open(Fill fill) = 0;
  virtual void close() = 0;
  virtual bool isOpen() const = 0;

  /// The format that the open device takes.
  virtual Format format() const = 0;

  virtual void start() = 0;
  /// Does not return before the last call of `Fill` has ended.
  virtual void stop() = 0;

  /// The clock of the device, in nanoseconds since an arbitrary moment. Safe from any thread.
  virtual int64_t now() const = 0;

  /// Delay between the call for a sample and the moment when it is heard, in frames.
  virtual int32_t latency() const { return 0; }
};

/// The system's default output, or the one selected by SDL's environment variable
/// `SDL_AUDIODRIVER`. SDL is loaded when the device is first opened; without SDL, `open` fails.
KESTREL_API std::shared_ptr<AudioDevice> makeDefaultAudioDevice();

/// Asks for sound in real time and discards it: keeps the time when there is no output. `open`
/// never fails.
KESTREL_API std::shared_ptr<AudioDevice> makeNullAudioDevice();

/// A device without a thread or a real-time clock: its owner pulls the sound, and its time is the
/// amount pulled. Use it, including start and stop of what it plays, from one thread; `now` is safe
/// from any. For tests, and for hosts that render sound offline.
class KESTREL_API PulledAudioDevice : public AudioDevice {
 public:
  PulledAudioDevice() = default;
  explicit PulledAudioDevice(Format format) : format_(format) {}

  /// The next `frames` frames. While stopped, returns silence and does not advance the time.
  std::vector<float> pull(int32_t frames);

  /// If true, `open` fails from now on.
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
