#pragma once

#include <kestrel/Export.h>
#include <kestrel/LMDVDSource.h>
#include <kestrel/LMDVDTitle.h>
#include <kestrel/convert/MediaInfo.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace kestrel {

/// What is in a title of a disc. Times are microseconds from the title's start.
struct DiscTitleInfo {
  int number = 0;    ///< from 1, as players show it
  int titleSet = 0;  ///< the number of the set that holds it
  int64_t duration = 0;
  std::vector<ChapterInfo> chapters = {};              ///< their tags are empty
  std::optional<DVDPictureFacts> pictures = {};        ///< absent where they cannot be read
  LMDVDVideo video = {};                               ///< as the disc states of them
  int angles = 1;                                      ///< how many there are to choose from
  std::string standard = {};                           ///< "PAL", "NTSC", or "" for neither
  std::vector<LMDVDTrack> audio = {}, subtitles = {};  ///< as players count them
  std::string whyMain = {};        ///< why it is the main feature; "" where it is not
  std::optional<int> sameAs = {};  ///< the number of an earlier title of the same cells
  std::string problem = {};        ///< what keeps it from being read whole; "" for nothing
};

/// What is on a disc.
struct DiscInfo {
  std::string volume = {};  ///< its name, or that of its folder
  std::string path = {};    ///< as it was given
  int region = 0;           ///< bit n - 1 is set where it may not play in region n
  int titleSets = 0;        ///< how many can be read
  std::vector<DiscTitleInfo> titles = {};
  std::vector<std::string> findings = {};  ///< what cannot be read whole, a phrase each
};

/// Reads what a disc tells of itself, and of each title its first pictures. Throws a `Failure` of
/// the input for what is no disc or has no title that can be read.
KESTREL_API DiscInfo readDiscInfo(const std::string& path);

}  // namespace kestrel
