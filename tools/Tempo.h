#pragma once

#include <cstdint>
#include <memory>
#include <vector>

struct AVFilterContext;
struct AVFilterGraph;

/// Plays interleaved stereo sound (float, 44100 Hz) faster or slower and keeps its pitch.
class Tempo {
 public:
  /// `rate`: above 1 is faster.
  explicit Tempo(double rate);
  ~Tempo();
  Tempo(const Tempo&) = delete;
  Tempo& operator=(const Tempo&) = delete;

  /// Takes `frames` stereo frames; 0 says that no more come.
  void write(const float* data, int32_t frames);

  /// Hands out up to `frames` stereo frames; fewer where there are no more yet.
  int32_t read(float* data, int32_t frames);

 private:
  struct Graph;
  std::unique_ptr<Graph> graph_;
  std::vector<float> waiting_;
  size_t taken_ = 0;  // of `waiting_`, in values
};
