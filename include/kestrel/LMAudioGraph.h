#pragma once

#include <kestrel/AudioGraph.h>
#include <kestrel/Export.h>

#include <cstdint>
#include <memory>

namespace kestrel {

class LMAudioGraph;

/// What a graph's input callback does on the device's thread: asks `delegate` for `numberFrames`
/// frames of stream `bus` and, when it does not have them all, fills all `byteSize` bytes of `data`
/// with silence. Always 0.
KESTREL_API int32_t PushCurrentInputBufferIntoAudioUnit(LMAudioGraph* delegate, int32_t bus,
                                                        int32_t numberFrames, void* data,
                                                        uint64_t byteSize);

/// One graph of audio units and the object that supplies its sound.
///
/// A subclass says in `createNode` which nodes there are and in `configNode` how their units are
/// set up, and calls `build` in its constructor and `stop` in its destructor: sound is asked of it
/// until then. A graph that is built is open; `start` and `stop` may be called as often as needed,
/// from any thread.
class KESTREL_API LMAudioGraph {
 public:
  LMAudioGraph();
  virtual ~LMAudioGraph();
  LMAudioGraph(const LMAudioGraph&) = delete;
  LMAudioGraph& operator=(const LMAudioGraph&) = delete;

  /// The platform's graph, owned.
  AudioGraph& graph() { return graph_; }
  const AudioGraph& graph() const { return graph_; }

  /// Initialises and starts the graph; that either failed is logged, and the second is tried even
  /// when the first failed. That there is nothing to listen with is logged once for the process.
  void start();
  /// Stops it: what has not been heard waits for the next start.
  void stop();
  bool isStart() const;

  /// Adds a node of a type and subtype; 0 where there is no such one.
  int32_t createAUNode(uint32_t type, uint32_t subType);
  void removeAUNode(int32_t node);
  /// Connects `node` with an input bus of `to`.
  void connectNode(int32_t node, int32_t to, int32_t bus = 0);

  /// Sets the format of one side of a node (`AudioScope`, as a number): stereo 32-bit float at
  /// `rate` hertz.
  void setConverterNode(int32_t node, uint32_t mode, int32_t rate);

  /// Has a node take its input from this graph, or from another one, by `streamReadSample`.
  void setInputCallbackForNode(int32_t node);
  void setInputCallbackForNode(int32_t node, LMAudioGraph* delegate);

  /// A node's unit; null where there is none.
  std::shared_ptr<AudioUnit> audioUnitForNode(int32_t node) const;

  /// A subclass supplies, or takes, `numberFrames` frames; here false.
  virtual bool streamReadSample(int32_t stream, void* data, int32_t numberFrames);
  virtual bool streamWriteSample(int32_t stream, const void* data, int32_t numberFrames);

 protected:
  /// `createNode`, then opens the graph, then `configNode`.
  void build();
  virtual void createNode() {}
  virtual void configNode() {}

 private:
  AudioGraph graph_;
};

}  // namespace kestrel
