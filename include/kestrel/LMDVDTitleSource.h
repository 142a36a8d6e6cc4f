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

/// A whole title as one stream: all its cells one behind the other, with time stamps that go on
/// from each to the next.
///
/// Cells may begin with any time. As the sectors are read, their time stamps are moved so that each
/// cell begins where the one before ends by the disc's own navigation; so sound and pictures run
/// through the seams, and decoders never notice one. Everything that reads media files works on it:
/// seeking, two readers, stream copy.
///
/// Sectors that can't be read are left out and `lastError` says so, as it does of scrambled ones.
/// One thread reads a volume at a time.
class KESTREL_API LMDVDTitleSource : public LMCustomSource {
 public:
  LMDVDTitleSource(std::shared_ptr<LMDVD> dvd, std::shared_ptr<LMDVDTitleSet> title_set,
                   std::shared_ptr<LMDVDTitle> title);
  ~LMDVDTitleSource() override;

  std::shared_ptr<LMMediaSource> copy() const override;

  const std::shared_ptr<LMDVD>& dvd() const;
  const std::shared_ptr<LMDVDTitleSet>& title_set() const;
  const std::shared_ptr<LMDVDTitle>& title() const;

  /// Opens as the base does; start, length, chapters and the rate of the pictures are the title's
  /// own, and each sound and subpicture stream is tagged with its language. Film that repeats
  /// fields for NTSC has 24000/1001 pictures per second. A scrambled title is not opened.
  void open() override;

  /// What keeps the title from being read whole, as far as that shows without reading it through:
  /// VOBs that are not there or too short, scrambled ones.
  Error problem();

  bool isDVD() const override;
  std::string name() const override;
  std::string path() const override;
  const SubtitlePalette* palette() const override;
  std::optional<std::vector<std::string>> audioNames() const override;
  std::optional<std::vector<std::string>> subtitleNames() const override;
  int64_t filesize() const override;
  int32_t buffer_size() const override;
  AVIOContext* avio_context() override;
  int32_t read(uint8_t* buffer, int32_t size) override;

  /// Where the title's chapters begin, microseconds from its start, in the stream's own time. The
  /// source must be open.
  std::vector<int64_t> chapterTimes();

  /// How long the title lasts by its navigation, microseconds. The source must be open.
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
