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

/// Parameters of the units: the time-pitch unit's tempo factor, clamped to 0.25 to 4, and the
/// output unit's gain factor, clamped to 0 to 1000.
inline constexpr uint32_t kAudioUnitParameter_Rate = 0;
inline constexpr uint32_t kAudioUnitParameter_Volume = 14;

enum class AudioScope : uint32_t { kGlobal = 0, kInput = 1, kOutput = 2 };

/// How samples are stored in memory. Units only take packed, interleaved 32-bit float, 1 to 8
/// channels, at 1 to 384000 Hz; the defaults describe such a format.
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

/// A stage of a graph, owned by the graph. All members are safe from any thread.
class KESTREL_API AudioUnit {
 public:
  virtual ~AudioUnit() = default;

  /// A parameter; false and nullopt if the unit does not have it. A new value takes effect with the
  /// next samples, without a click. A value out of range is kept, but the nearest valid one is
  /// applied.
  virtual bool setParameter(uint32_t parameter, float value);
  virtual std::optional<float> parameter(uint32_t parameter) const;

  /// The format on one side; nullopt until it is known. A converter's input format is known once it
  /// has been set, every other format once the graph is initialised. Only a converter's input
  /// format can be set; it takes effect when the graph is initialised.
  virtual bool setFormat(AudioScope scope, const AudioStreamFormat& format);
  virtual std::optional<AudioStreamFormat> format(AudioScope scope) const = 0;
};

/// A chain of units through which a device pulls sound: from an input callback, through converter
/// and time-pitch unit, to the default output.
///
/// Create a graph, add and connect nodes, open it, set up its units, initialise it, which opens the
/// device, and start it. Sound between input and device survives a stop, so that the next start
/// continues with the next sample; it also survives another initialisation unless formats or
/// connections have changed. Nodes are numbered from 1.
///
/// All members are safe from any thread except the device's, on which the callbacks run. If there
/// is no default output, a device that discards the sound takes its place; the next initialisation
/// tries again.
class KESTREL_API AudioGraph {
 public:
  /// Writes exactly `frames` interleaved frames, at most `kMostFrames`, in the node's input format
  /// to `data`. Called on the device's thread, so it must neither block nor allocate memory.
  using InputCallback = std::function<void(int32_t bus, int32_t frames, float* data)>;

  static constexpr int32_t kMostFrames = 512;

  /// What the device received in one call. Input positions are frames that the input callback has
  /// supplied since the graph was first initialised, including fractions of a frame.
  struct Rendered {
    int64_t begin = 0;      ///< when its first sample is heard, device time in nanoseconds
    int64_t end = 0;        ///< when its last sample has been heard
    double inputBegin = 0;  ///< input position at `begin`
    double inputEnd = 0;    ///< input position at `end`
  };
  using RenderCallback = std::function<void(const Rendered&)>;

  AudioGraph();
  ~AudioGraph();  ///< stops and closes
  AudioGraph(const AudioGraph&) = delete;
  AudioGraph& operator=(const AudioGraph&) = delete;

  /// Adds a node and returns its number; 0 for an unknown type.
  int32_t addNode(uint32_t type, uint32_t subType);
  /// Removes a node and its connections; false if it does not exist or the graph is running.
  bool removeNode(int32_t node);
  /// Makes `source` the input of `destination`, replacing its previous input. A node has a single
  /// input bus, 0. False if a node or bus does not exist or the graph is running.
  bool connect(int32_t source, int32_t destination, int32_t bus);
  /// Makes a callback the input of a node, replacing its previous input. False as above.
  bool setInputCallback(int32_t node, InputCallback callback);

  /// A node's unit; null if it does not exist or the graph has not been opened.
  std::shared_ptr<AudioUnit> unit(int32_t node) const;

  /// Called on the device's thread after each request of the device. Set it while the graph is
  /// stopped.
  void setRenderCallback(RenderCallback callback);

  /// The device to play through, from the next initialisation on; null: the default device.
  void setDevice(std::shared_ptr<AudioDevice> device);
  /// If true, the graph discards the sound from the next initialisation on and opens no other
  /// device.
  void setIsSilent(bool isSilent);
  /// True if the sound is discarded because the wanted device could not be opened.
  bool lacksDevice() const;

  bool open();   ///< makes the units available; always true
  void close();  ///< stops the graph and closes the device
  /// False if the graph is not open, no chain of nodes connects an input callback to a single
  /// output, or the formats cannot be converted.
  bool initialize();
  void uninitialize();  ///< does nothing while the graph runs
  bool start();         ///< false unless initialised
  bool stop();          ///< false unless running
  bool isRunning() const;

  /// Discards the sound between input and device before the next samples are made.
  void flush();

  /// The time of the current device, as in `Rendered`; 0 if there is none.
  int64_t now() const;

  /// The absolute peak of a device channel since the last call of this function; 0 is silence.
  float takePeak(int32_t channel);

 private:
  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace kestrel
