#pragma once

#include <kestrel/AudioDevice.h>
#include <kestrel/Export.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>

namespace kestrel {

/// A four-character code as a number: "lpcm" is 0x6C70636D.
constexpr uint32_t fourCharCode(const char (&code)[5]) {
  uint32_t number = 0;
  for (int i = 0; i < 4; ++i) number = number << 8 | static_cast<unsigned char>(code[i]);
  return number;
}

inline constexpr uint32_t kAudioUnitType_FormatConverter = fourCharCode("aufc");
inline constexpr uint32_t kAudioUnitType_Output = fourCharCode("auou");
inline constexpr uint32_t kAudioUnitSubType_Converter = fourCharCode("conv");
inline constexpr uint32_t kAudioUnitSubType_TimePitch = fourCharCode("tmpt");
inline constexpr uint32_t kAudioUnitSubType_DefaultOutput = fourCharCode("def ");

/// Parameters of the units: the time-pitch unit's factor on the tempo, taken from 0.25 to 4, and
/// the output unit's factor on the samples, taken from 0 to 1000.
inline constexpr uint32_t kAudioUnitParameter_Rate = 0;
inline constexpr uint32_t kAudioUnitParameter_Volume = 14;

enum class AudioScope : uint32_t { kGlobal = 0, kInput = 1, kOutput = 2 };

/// How samples lie in memory. Units take packed 32-bit float with interleaved channels, which the
/// members describe unless they are changed; 1 to 8 channels.
struct AudioStreamFormat {
  double sampleRate = 44100;
  uint32_t formatID = fourCharCode("lpcm");
  uint32_t formatFlags = 9;  ///< 1: float, 8: packed
  uint32_t bytesPerPacket = 8;
  uint32_t framesPerPacket = 1;
  uint32_t bytesPerFrame = 8;
  uint32_t channelsPerFrame = 2;
  uint32_t bitsPerChannel = 32;
  uint32_t reserved = 0;

  bool operator==(const AudioStreamFormat&) const = default;
};

/// One stage of a graph, which owns it. All members are safe from any thread.
class KESTREL_API AudioUnit {
 public:
  virtual ~AudioUnit() = default;

  /// A parameter; false and nothing where the unit has no such one. Values count from the next
  /// samples on and are reached without a click. One out of range is kept and taken for the nearest
  /// that is not.
  virtual bool setParameter(uint32_t parameter, float value);
  virtual std::optional<float> parameter(uint32_t parameter) const;

  /// The format on one side; nothing where it has not been set and the graph not been initialised.
  /// Only a converter's input side can be set, to what `AudioStreamFormat` allows, and it counts
  /// when the graph is initialised.
  virtual bool setFormat(AudioScope scope, const AudioStreamFormat& format);
  virtual std::optional<AudioStreamFormat> format(AudioScope scope) const = 0;
};

/// A chain of units through which a device pulls sound: from an input callback, through converter
/// and time-pitch, to the default output.
///
/// A graph is made empty; nodes are added and connected, it is opened, its units are set up, then
/// it is initialised, which opens the device, and started. Stopping keeps what is between input and
/// device, so that starting again goes on with the next sample; so does initialising it again,
/// unless formats or connections have changed. Nodes are numbered from 1.
///
/// All members are safe from any thread but the device's, on which the callbacks run. Where the
/// default output has no device, one that drops the sound takes its place; the next initialisation
/// tries again.
class KESTREL_API AudioGraph {
 public:
  /// Writes `frames` interleaved frames, at most `kMostFrames`, of the node's input format to
  /// `data`, all of them. On the device's thread: it must not block, nor allocate.
  using InputCallback = std::function<void(int32_t bus, int32_t frames, float* data)>;

  static constexpr int32_t kMostFrames = 512;

  /// What the device was given in one call. Input positions count the frames that the input
  /// callback has supplied since the graph was initialised first; the parts of a frame count, too.
  struct Rendered {
    int64_t begin = 0;      ///< when its first sample is heard, the device's time in nanoseconds
    int64_t end = 0;        ///< when its last one has been heard
    double inputBegin = 0;  ///< the input position heard first
    double inputEnd = 0;    ///< the input position up to which it is heard
  };
  using RenderCallback = std::function<void(const Rendered&)>;

  AudioGraph();
  ~AudioGraph();  ///< stops and closes
  AudioGraph(const AudioGraph&) = delete;
  AudioGraph& operator=(const AudioGraph&) = delete;

  /// Adds a node; 0 for a type that does not exist.
  int32_t addNode(uint32_t type, uint32_t subType);
  /// Removes a node and its connections; false where there is none, and while the graph runs.
  bool removeNode(int32_t node);
  /// Has `destination` take its input from `source`, replacing what it took it from. Nodes have one
  /// input bus, 0. False for nodes or a bus that do not exist, and while the graph runs.
  bool connect(int32_t source, int32_t destination, int32_t bus);
  /// Has a node take its input from a callback. False as above.
  bool setInputCallback(int32_t node, InputCallback callback);

  /// A node's unit; null before the graph is opened, and where there is no such node.
  std::shared_ptr<AudioUnit> unit(int32_t node) const;

  /// Called on the device's thread after each of its calls. Set it while the graph does not run.
  void setRenderCallback(RenderCallback callback);

  /// The device that is played through from the next initialisation on; null: the default one.
  void setDevice(std::shared_ptr<AudioDevice> device);
  /// Has the graph play through the device that drops everything from the next initialisation on,
  /// and no other be opened.
  void setIsSilent(bool isSilent);
  /// True when the graph plays through that device because the one wanted is not there.
  bool lacksDevice() const;

  bool open();
  void close();
  /// False where no chain of nodes leads from an input callback to one output.
  bool initialize();
  void uninitialize();
  bool start();  ///< false unless initialised
  bool stop();   ///< false unless running
  bool isRunning() const;

  /// Has what is between input and device dropped before the next samples are made.
  void flush();

  /// The time of the device that is played through, as in `Rendered`; 0 before there is one.
  int64_t now() const;

  /// The loudest sample that a channel of the device was given since the last question; 0 is
  /// silence.
  float takePeak(int32_t channel);

 private:
  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace kestrel
