#pragma once

#include <kestrel/LMMediaSource.h>

namespace kestrel {

/// Marks a source that holds an external subtitle file.
///
/// `LMSubtitleSource::mediaWithPath` is its base's: it makes a plain `LMMediaSource`.
class KESTREL_API LMSubtitleSource : public LMMediaSource {
 public:
  std::shared_ptr<LMMediaSource> copy() const override;
  bool isSubtitle() const override;
};

}  // namespace kestrel
