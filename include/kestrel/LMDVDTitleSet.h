#pragma once

#include <kestrel/Export.h>
#include <kestrel/LMDVDMedia.h>
#include <kestrel/LMDVDTitle.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace kestrel {

/// A title set of a disc: titles that share VOBs and kinds of tracks.
///
/// Made by `LMDVD::open` and not changed afterwards, so any thread may read it.
class KESTREL_API LMDVDTitleSet {
 public:
  /// The number of the title set, from 1.
  int32_t title_set() const { return title_set_; }
  void setTitle_set(int32_t number) { title_set_ = number; }

  /// "ntsc" for 0 and "pal" for 1 in bits 2 and 3 of the first byte of the disc's video attributes;
  /// nullopt for other values. Discs store the aspect ratio in these bits and the TV standard two
  /// bits higher, so this is often wrong; the position is part of the interface.
  /// `LMDVDSource::pictureFacts` returns the actual properties.
  const std::optional<std::string>& dvdFormat() const { return dvdFormat_; }
  void setDvdFormat(std::optional<std::string> format) { dvdFormat_ = std::move(format); }

  /// "4:3" for 0 and "16:9" for 3 in bits 4 and 5 of the same byte; nullopt for other values. As
  /// unreliable as `dvdFormat`.
  const std::optional<std::string>& display_aspect_ratio() const { return display_aspect_ratio_; }
  void setDisplay_aspect_ratio(std::optional<std::string> ratio) {
    display_aspect_ratio_ = std::move(ratio);
  }

  /// Display names of all sound and subpicture tracks declared by the title set; English if the
  /// disc does not state a language.
  const std::vector<std::string>& audioLanguages() const { return audioLanguages_; }
  void setAudioLanguages(std::vector<std::string> names) { audioLanguages_ = std::move(names); }
  const std::vector<std::string>& subtitleLanguages() const { return subtitleLanguages_; }
  void setSubtitleLanguages(std::vector<std::string> names) {
    subtitleLanguages_ = std::move(names);
  }

  /// The sector range of each VOB, by VOB number − 1. A VOB missing in the disc's table has no
  /// sectors and starts at 0x7FFFFFFF.
  const std::vector<std::shared_ptr<LMDVDMedia>>& medias() const { return medias_; }
  void setMedias(std::vector<std::shared_ptr<LMDVDMedia>> medias) { medias_ = std::move(medias); }

  /// The titles with cells, in the order of their program chains.
  const std::vector<std::shared_ptr<LMDVDTitle>>& titles() const { return titles_; }
  void setTitles(std::vector<std::shared_ptr<LMDVDTitle>> titles) { titles_ = std::move(titles); }

  /// `medias()[index]`; null if the index is out of range.
  std::shared_ptr<LMDVDMedia> mediaForVob(uint32_t index) const;

  /// Format, aspect and languages in one line.
  std::string description() const;

 private:
  int32_t title_set_ = 0;
  std::optional<std::string> dvdFormat_;
  std::optional<std::string> display_aspect_ratio_;
  std::vector<std::string> audioLanguages_;
  std::vector<std::string> subtitleLanguages_;
  std::vector<std::shared_ptr<LMDVDMedia>> medias_;
  std::vector<std::shared_ptr<LMDVDTitle>> titles_;
};

}  // namespace kestrel
