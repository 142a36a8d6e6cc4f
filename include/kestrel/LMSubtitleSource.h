#pragma once

#include <kestrel/LMMediaSource.h>

namespace kestrel {

/// A source for an external subtitle file. `mediaWithPath` is inherited and makes a plain
/// `LMMediaSource`.
class KESTREL_API LMSubtitleSource : public LMMediaSource {
 public:
  std::shared_ptr<LMMediaSource> copy() const override;
  bool isSubtitle() const override;
};

}  // namespace kestrel
