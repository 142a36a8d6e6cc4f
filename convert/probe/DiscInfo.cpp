#include <kestrel/convert/DiscInfo.h>

#include <kestrel/LMDVD.h>
#include <kestrel/LMDVDTitleSource.h>
#include <kestrel/convert/Disc.h>

#include <map>
#include <memory>

#include "support/Words.h"

namespace kestrel {

namespace {

/// The television standard that pictures are made for, by their height and rate.
std::string standardOf(const DVDPictureFacts& facts) {
  const bool isPal = facts.framerate == Rational{25, 1};
  if (isPal && (facts.height == 576 || facts.height == 288)) return "PAL";
  if (!isPal && (facts.height == 480 || facts.height == 240)) return "NTSC";
  return {};
}

std::optional<DVDPictureFacts> picturesOf(const std::shared_ptr<LMDVD>& disc,
                                          const DiscTitle& title) {
  LMDVDSource source;
  source.setDvd(disc);
  source.setTitle_set(title.set);
  source.setTitle(title.title);
  return source.pictureFacts();
}

std::vector<ChapterInfo> chaptersOf(const LMDVDTitle& title) {
  std::vector<ChapterInfo> chapters;
  for (const int64_t time : title.chapterTimes()) {
    if (!chapters.empty()) chapters.back().end = time;
    chapters.push_back({.start = time, .end = title.duration()});
  }
  return chapters;
}

DiscTitleInfo titleInfo(const std::shared_ptr<LMDVD>& disc, const DiscTitle& title) {
  const auto pictures = picturesOf(disc, title);
  return {.number = title.number,
          .titleSet = title.set->title_set(),
          .duration = title.title->duration(),
          .chapters = chaptersOf(*title.title),
          .pictures = pictures,
          .video = title.title->video(),
          .angles = title.title->angles(),
          .standard = pictures ? standardOf(*pictures) : std::string(),
          .audio = title.title->audioTracks(),
          .subtitles = title.title->subtitleTracks(),
          .whyMain = title.whyMain,
          .sameAs = title.sameAs,
          .problem = DVDTitleSource(disc, title.set, title.title).problem().message};
}

/// What cannot be read whole, titles with the same problem drawn together.
std::vector<std::string> findingsOf(const LMDVD& disc, const std::vector<DiscTitleInfo>& titles) {
  std::vector<std::string> findings;
  if (const std::string damage = damageOf(disc); !damage.empty()) findings.push_back(damage);
  std::map<std::string, std::vector<int>> problems;
  for (const DiscTitleInfo& title : titles)
    if (!title.problem.empty()) problems[title.problem].push_back(title.number);
  for (const auto& [problem, numbers] : problems)
    findings.push_back(nounAndNumbers("title", numbers) + ": " + problem);
  return findings;
}

}  // namespace

DiscInfo readDiscInfo(const std::string& path) {
  const auto disc = openDisc(path);
  DiscInfo info{.volume = disc->volume(),
                .path = disc->path(),
                .region = disc->region(),
                .titleSets = static_cast<int>(disc->title_sets().size())};
  for (const auto& title : titlesOf(*disc)) info.titles.push_back(titleInfo(disc, title));
  info.findings = findingsOf(*disc, info.titles);
  return info;
}

}  // namespace kestrel
