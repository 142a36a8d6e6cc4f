#pragma once

#include <kestrel/Export.h>
#include <kestrel/LMDVDInternal.h>
#include <kestrel/LMDVDTitleSet.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

struct dvd_reader_s;

namespace kestrel {

class LMDVDFile;
class LMDVDSource;

/// A title under the number that players give it.
struct LMDVDNumberedTitle {
  int32_t title_set = 0;               ///< the number of its title set
  std::shared_ptr<LMDVDTitleSet> set;  ///< null where that could not be read
  std::shared_ptr<LMDVDTitle> title;   ///< null where that or its chain could not be read
};

using DVDNumberedTitle = LMDVDNumberedTitle;

/// A DVD-Video volume: a disc, an image of one, or a folder with a VIDEO_TS folder in it, with all
/// its title sets and titles.
///
/// `open` reads the whole structure, which does not change afterwards, so any thread may look at
/// it. Sources and files of a volume keep it alive. They may be read in several threads:
/// their reads take turns, because all go through the volume's one reader.
///
/// Discs are read as they are: scrambled ones are not unscrambled here.
class KESTREL_API LMDVD : public std::enable_shared_from_this<LMDVD> {
 public:
  /// Opens a volume; null if there is nothing at the path. A file that is no disc image, and a
  /// volume whose manager can't be read, give a volume without title sets; a title set that can't
  /// be read is left out. The backup of an information file stands in for it.
  static std::shared_ptr<LMDVD> open(const std::string& path);

  /// An unopened volume, as `open` begins with.
  LMDVD();
  ~LMDVD();
  LMDVD(const LMDVD&) = delete;
  LMDVD& operator=(const LMDVD&) = delete;

  const std::shared_ptr<LMDVDInternal>& internal() const { return internal_; }

  /// The reader handle; null for an unopened volume. Owned by this.
  dvd_reader_s* dvd_reader() const { return internal_->dvd(); }

  /// The volume's own name, or its folder's where it has none.
  const std::string& volume() const { return volume_; }

  /// The path given to `open`.
  const std::string& path() const { return path_; }

  /// The title sets that could be read, in order of their numbers.
  const std::vector<std::shared_ptr<LMDVDTitleSet>>& title_sets() const { return title_sets_; }

  /// The numbers of the title sets that the manager names but that could not be read.
  const std::vector<int32_t>& missingTitleSets() const { return missingTitleSets_; }

  /// The titles as the disc's own table numbers them: title 1 comes first. Titles that could not be
  /// read keep their numbers. Where the table itself can't be read, all titles of all title sets.
  const std::vector<LMDVDNumberedTitle>& numberedTitles() const { return numberedTitles_; }

  /// True if the disc's table of titles could be read.
  bool hasTitleTable() const { return hasTitleTable_; }

  /// Bit n − 1 is set where the disc may not play in region n.
  int32_t region() const { return region_; }

  /// The files of the volume: for the manager and as many title sets as could be read the
  /// information file, its backup, the menu's VOBs and the parts of the title VOBs, as far as they
  /// are there.
  std::vector<std::shared_ptr<LMDVDFile>> dvdFiles();

  /// Those of one title set, of the manager for 0.
  std::vector<std::shared_ptr<LMDVDFile>> filesOfTitleSet(int32_t number);

  /// From this number of runs on a title is offered in pieces.
  static int32_t dvdTitleSplitVobCount() { return 200; }

  /// A source for each title, in order of title sets and titles; for a title of
  /// `dvdTitleSplitVobCount` runs or more a source for each run.
  std::vector<std::shared_ptr<LMDVDSource>> titleSources();

 private:
  void readName();
  void readTitleSets();
  void numberInOrder();

  std::shared_ptr<LMDVDInternal> internal_;
  std::string volume_;
  std::string path_;
  std::vector<std::shared_ptr<LMDVDTitleSet>> title_sets_;
  std::vector<int32_t> missingTitleSets_;
  std::vector<LMDVDNumberedTitle> numberedTitles_;
  bool hasTitleTable_ = false;
  int32_t region_ = 0;
};

}  // namespace kestrel
