#pragma once

#include <kestrel/AudioGraph.h>
#include <kestrel/Export.h>

#include <cstdint>
#include <memory>

namespace kestrel {

class LMAudioGraph;

/// The body of a graph's input callback, called on the device's thread: asks `delegate` for
/// `numberFrames` frames of stream `bus`. If it does not have them all, fills the `byteSize` bytes
/// of `data` with silence. Always returns 0.
KESTREL_API int32_t PushCurrentInputBufferIntoAudioUnit(LMAudioGraph* delegate, int32_t bus,
                                                        int32_t numberFrames, void* data,
                                                        uint64_t byteSize);

/// A graph of audio units and the object that supplies its sound.
///
/// A subclass adds nodes in `createNode` and sets up their units in `configNode`. It calls `build`
/// in its constructor and `stop` in its destructor, because it is asked for sound until then. After
/// `build` the graph is open; `start` and `stop` may be called any number of times, from any
/// thread.
class KESTREL_API LMAudioGraph {
 public:
  LMAudioGraph();
  virtual ~LMAudioGraph();
  LMAudioGraph(const LMAudioGraph&) = delete;
  LMAudioGraph& operator=(const LMAudioGraph&) = delete;

  /// The underlying graph, owned by this object.
  AudioGraph& graph() { return graph_; }
  const AudioGraph& graph() const { return graph_; }

  /// Initialises and starts the graph. A failure of either is logged; starting is tried in any
  /// case. A missing output device is logged once per process.
  void start();
  /// Stops and uninitialises the graph. Sound that has not been heard is kept for the next start.
  void stop();
  bool isStart() const;

  /// Adds a node of a type and subtype and returns its number; 0 for an unknown type.
  int32_t createAUNode(uint32_t type, uint32_t subType);
  void removeAUNode(int32_t node);
  /// Makes `node` the input of `to`.
  void connectNode(int32_t node, int32_t to, int32_t bus = 0);

  /// Sets the format of one side of a node (`mode`: an `AudioScope` as a number) to stereo 32-bit
  /// float at `rate` Hz.
  void setConverterNode(int32_t node, uint32_t mode, int32_t rate);

  /// Makes `streamReadSample` of this graph, or of another one, the input of a node. `delegate` is
  /// not owned.
  void setInputCallbackForNode(int32_t node);
  void setInputCallbackForNode(int32_t node, LMAudioGraph* delegate);

  /// A node's unit; null if it does not exist or the graph is not open.
  std::shared_ptr<AudioUnit> audioUnitForNode(int32_t node) const;

  /// Overridden by a subclass to supply or take `numberFrames` frames; false in the base class.
  virtual bool streamReadSample(int32_t stream, void* data, int32_t numberFrames);
  virtual bool streamWriteSample(int32_t stream, const void* data, int32_t numberFrames);

 protected:
  /// Calls `createNode`, opens the graph, then calls `configNode`.
  void build();
  virtual void createNode() {}
  virtual void configNode() {}

 private:
  AudioGraph graph_;
};

}  // namespace kestrel
