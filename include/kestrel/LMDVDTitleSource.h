#pragma once

#include <kestrel/Export.h>
#include <kestrel/LMCustomSource.h>
#include <kestrel/LMDVD.h>
#include <kestrel/LMDVDTitle.h>
#include <kestrel/LMDVDTitleSet.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace kestrel {

/// A whole title as one stream: its cells in sequence, with continuous time stamps.
///
/// Cells may start at any time. When sectors are read, their time stamps are shifted so that each
/// cell begins where the previous one ends according to the disc's navigation data. Sound and
/// pictures are continuous across cells, so seeking, several readers and stream copy work as for
/// any media file.
///
/// Unreadable sectors are left out and reported by `lastError`, as are scrambled ones. Sources of a
/// volume take turns at reading.
class KESTREL_API LMDVDTitleSource : public LMCustomSource {
 public:
  /// `angle` counts from 1 to the title's `angles()`; what lies outside is brought inside.
  LMDVDTitleSource(std::shared_ptr<LMDVD> dvd, std::shared_ptr<LMDVDTitleSet> title_set,
                   std::shared_ptr<LMDVDTitle> title, int32_t angle = 1);
  ~LMDVDTitleSource() override;

  std::shared_ptr<LMMediaSource> copy() const override;

  const std::shared_ptr<LMDVD>& dvd() const;
  const std::shared_ptr<LMDVDTitleSet>& title_set() const;
  const std::shared_ptr<LMDVDTitle>& title() const;
  int32_t angle() const;

  /// Opens like the base class. Start, duration, chapters and frame rate are those of the title,
  /// and sound and subpicture streams are tagged with their languages and kinds. Subpicture
  /// streams have their palette and frame size as extradata, as files with such streams do, and
  /// `palette` is null. NTSC film with repeated fields has 24000/1001 pictures per second.
  /// Scrambled titles are not opened.
  void open() override;

  /// The reason why the title cannot be read completely, as far as that can be told without reading
  /// all of it: missing, truncated or scrambled VOBs.
  Error problem();

  bool isDVD() const override;
  std::string name() const override;
  std::string path() const override;
  std::optional<std::vector<std::string>> audioNames() const override;
  std::optional<std::vector<std::string>> subtitleNames() const override;
  int64_t filesize() const override;
  int32_t buffer_size() const override;
  AVIOContext* avio_context() override;
  int32_t read(uint8_t* buffer, int32_t size) override;

  /// The start times of the chapters, in microseconds from the title's start, on the stream's own
  /// clock. The source must be open.
  std::vector<int64_t> chapterTimes();

  /// The duration according to the navigation data, microseconds. The source must be open.
  int64_t duration() const;

 private:
  Error whyUnreadable();
  void setPictureRate();
  void describeStreams();
  void addChapters();
  int64_t timeOfCell(size_t index) const;

  struct State;
  std::unique_ptr<State> state_;
};

using DVDTitleSource = LMDVDTitleSource;

}  // namespace kestrel
