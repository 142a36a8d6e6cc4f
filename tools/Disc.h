#pragma once

#include <kestrel/LMDVD.h>
#include <kestrel/LMDVDSource.h>
#include <kestrel/LMDVDTitle.h>
#include <kestrel/LMDVDTitleSet.h>

#include <memory>
#include <optional>
#include <string>
#include <vector>

/// One title of a disc as people count them.
struct DiscTitle {
  int number = 0;  ///< from 1 over all title sets
  std::shared_ptr<kestrel::LMDVDTitleSet> set;
  std::shared_ptr<kestrel::LMDVDTitle> title;
  std::optional<int> sameAs;  ///< the number of an earlier title of the same cells
  std::string whyMain;        ///< why this is the main feature, "" where it is not
};

/// Whether a path is a disc: a folder or image that holds DVD-Video.
bool isDisc(const std::string& path);

/// Opens a disc that has titles. Throws `Failure` with one sentence when that can't be done.
std::shared_ptr<kestrel::LMDVD> openDisc(const std::string& path);

/// All titles, with the main feature marked: of those that do not repeat another the longest, among
/// several of that length the one of most chapters.
std::vector<DiscTitle> titlesOf(const kestrel::LMDVD& disc);

/// The title that a user means: a number from 1, or "main". Throws `Failure` for any other.
DiscTitle chooseTitle(const kestrel::LMDVD& disc, const std::string& wanted);
