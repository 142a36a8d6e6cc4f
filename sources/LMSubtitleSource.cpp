#include <kestrel/LMSubtitleSource.h>

namespace kestrel {

std::shared_ptr<LMMediaSource> LMSubtitleSource::copy() const {
  auto source = std::make_shared<LMSubtitleSource>();
  source->setFullpath(fullpath());
  return source;
}

bool LMSubtitleSource::isSubtitle() const { return true; }

}  // namespace kestrel
