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

/// A title and the number of its title set. Its index in `LMDVD::numberedTitles` is the number that
/// players show, less 1.
struct LMDVDNumberedTitle {
  int32_t title_set = 0;               ///< number of the title set
  std::shared_ptr<LMDVDTitleSet> set;  ///< null if it could not be read
  std::shared_ptr<LMDVDTitle> title;   ///< null if the title or its program chain could not be read
};

using DVDNumberedTitle = LMDVDNumberedTitle;

/// A DVD-Video volume (a disc, a disc image, or a folder that contains VIDEO_TS) with its title
/// sets and titles.
///
/// `open` reads the whole structure. It does not change afterwards, so any thread may read it.
/// Sources and files of a volume keep it alive; several threads may read from them at once, and
/// take turns at the volume's single reader.
///
/// Scrambled discs are not descrambled.
class KESTREL_API LMDVD : public std::enable_shared_from_this<LMDVD> {
 public:
  /// Opens a volume; null if nothing exists at the path. A file that is not a disc image, or a
  /// volume with an unreadable manager, gives a volume without title sets; unreadable title sets
  /// are left out. If an information file is unreadable, its backup is used.
  static std::shared_ptr<LMDVD> open(const std::string& path);

  /// Whether a path ends in the name of an information file or its backup ("VIDEO_TS.IFO",
  /// "vts_01_0.bup"). To `open`, such a path stands for the folder that it is in.
  static bool isNameOfInformation(const std::string& path);

  /// An unopened volume; use `open` instead.
  LMDVD();
  ~LMDVD();
  LMDVD(const LMDVD&) = delete;
  LMDVD& operator=(const LMDVD&) = delete;

  const std::shared_ptr<LMDVDInternal>& internal() const { return internal_; }

  /// The reader handle, owned by this object; null for an unopened volume.
  dvd_reader_s* dvd_reader() const { return internal_->dvd(); }

  /// The volume's name; if it has none, its folder's name.
  const std::string& volume() const { return volume_; }

  /// The path given to `open`.
  const std::string& path() const { return path_; }

  /// The readable title sets in numerical order.
  const std::vector<std::shared_ptr<LMDVDTitleSet>>& title_sets() const { return title_sets_; }

  /// The numbers of the title sets that the manager lists but that could not be read.
  const std::vector<int32_t>& missingTitleSets() const { return missingTitleSets_; }

  /// The titles in the order of the disc's title table: title 1 comes first. Unreadable titles keep
  /// their numbers. If the table or every title in it is unreadable, all titles of all title sets.
  const std::vector<LMDVDNumberedTitle>& numberedTitles() const { return numberedTitles_; }

  /// True if at least one title of the disc's title table could be read.
  bool hasTitleTable() const { return hasTitleTable_; }

  /// Bit n − 1 is set if the disc must not be played in region n.
  int32_t region() const { return region_; }

  /// The files of the volume. For the manager and all title sets, those that cannot be read
  /// included: the information file, its backup, the menu's VOBs and the parts of the title VOBs,
  /// as far as they exist.
  std::vector<std::shared_ptr<LMDVDFile>> dvdFiles();

  /// The files of one title set; of the manager for 0.
  std::vector<std::shared_ptr<LMDVDFile>> filesOfTitleSet(int32_t number);

  /// Titles with this many runs or more are offered in pieces.
  static int32_t dvdTitleSplitVobCount() { return 200; }

  /// A source for each title, in order of title sets and titles; for a title of
  /// `dvdTitleSplitVobCount` runs or more, a source for each run.
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
