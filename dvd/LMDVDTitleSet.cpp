#include <kestrel/LMDVDTitleSet.h>

#include <fmt/format.h>
#include <fmt/ranges.h>

namespace kestrel {

std::shared_ptr<LMDVDMedia> LMDVDTitleSet::mediaForVob(uint32_t index) const {
  return index < medias_.size() ? medias_[index] : nullptr;
}

std::string LMDVDTitleSet::description() const {
  return fmt::format("format:{} aspect_ratio:{} audios:({}) subtitle:({})",
                     dvdFormat_.value_or("(null)"), display_aspect_ratio_.value_or("(null)"),
                     fmt::join(audioLanguages_, ", "), fmt::join(subtitleLanguages_, ", "));
}

}  // namespace kestrel
