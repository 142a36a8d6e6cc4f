#pragma once

#include <kestrel/Export.h>
#include <kestrel/LMDVD.h>
#include <kestrel/LMDVDSource.h>
#include <kestrel/LMDVDTitle.h>
#include <kestrel/LMDVDTitleSet.h>

#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace kestrel {

/// Stands for a disc's main feature where a title is asked for.
inline constexpr int kMainTitle = -1;

/// One title of a disc as people count them.
struct DiscTitle {
  int number = 0;  ///< from 1, as the disc's own table counts
  std::shared_ptr<LMDVDTitleSet> set = {};
  std::shared_ptr<LMDVDTitle> title = {};
  std::optional<int> sameAs = {};  ///< the number of an earlier title of the same cells
  std::string whyMain = {};        ///< why this is the main feature, "" where it is not
};

/// Whether a path is a disc: a folder, image or drive that holds DVD-Video, or one of its
/// information files (VIDEO_TS.IFO), which stands for its folder.
KESTREL_API bool isDisc(const std::string& path);

/// Opens a disc that has titles. Throws `Failure` with one sentence when that can't be done.
KESTREL_API std::shared_ptr<LMDVD> openDisc(const std::string& path);

/// What of a disc could not be read, as the end of a sentence; "" where nothing is missing.
KESTREL_API std::string damageOf(const LMDVD& disc);

/// All titles that could be read, with the main feature marked: of those that do not repeat another
/// the longest, among several of that length the one of most chapters.
KESTREL_API std::vector<DiscTitle> titlesOf(const LMDVD& disc);

/// The title that a user means: a number from 1, or `kMainTitle`. Throws `Failure` for any other
/// and for one that is lost.
KESTREL_API DiscTitle chooseTitle(const LMDVD& disc, int wanted);

}  // namespace kestrel
