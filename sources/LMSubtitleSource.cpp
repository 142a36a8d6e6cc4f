#include <kestrel/LMSubtitleSource.h>

#include "sources/SourceSettings.h"

namespace kestrel {

std::shared_ptr<LMMediaSource> LMSubtitleSource::copy() const {
  auto source = std::make_shared<LMSubtitleSource>();
  copySettings(*this, *source);
  return source;
}

bool LMSubtitleSource::isSubtitle() const { return true; }

}  // namespace kestrel
