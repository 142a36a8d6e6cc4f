#pragma once

#include <kestrel/LMMediaSource.h>
#include <kestrel/LMMovieComposition.h>

#include <functional>
#include <memory>
#include <vector>

namespace kestrel {

/// An input while its turn is: opened for it, unless it was open before, and then closed after it.
class OpenInput {
 public:
  OpenInput(LMMediaSource& source, const std::function<bool()>& interrupt) {
    source.setInterrupt(interrupt);
    if (!source.isOpen()) opened_.reset(&source);
    source.open();
    source.fillInTimes();
  }

 private:
  struct Closer {
    void operator()(LMMediaSource* source) const { source->close(); }
  };

  std::unique_ptr<LMMediaSource, Closer> opened_;
};

/// The tracks of each input, whose tracks lie one behind the other.
inline std::vector<LMMovieComposition::TrackList> inputsOf(
    const LMMovieComposition::TrackList& tracks) {
  std::vector<LMMovieComposition::TrackList> inputs;
  for (const auto& track : tracks) {
    if (inputs.empty() || inputs.back().back()->source() != track->source()) inputs.emplace_back();
    inputs.back().push_back(track);
  }
  return inputs;
}

}  // namespace kestrel
