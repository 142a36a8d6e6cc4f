#pragma once

#include <kestrel/convert/Cut.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "convert/cut/PictureIndex.h"

namespace kestrel {

/// What stays of a movie, as it lies in the input and in the result; ticks of its pictures' stream.
/// It begins with the first picture and ends where the last one does.
struct CutWindow {
  int64_t start = 0;
  int64_t end = 0;
  int64_t place = 0;  ///< in the result

  int64_t length() const { return end - start; }
};

/// Pictures one behind the other that become part of the result in the same way.
struct PictureRun {
  bool isEncoded = false;
  size_t window = 0;
  size_t first = 0;  ///< of the planned pictures
  size_t count = 0;
  std::string why = {};  ///< it is encoded
};

struct PlannedPicture {
  size_t index = 0;     ///< in the input
  int64_t source = 0;   ///< when it shows there, ticks
  int64_t shown = 0;    ///< in the result
  int64_t decoded = 0;  ///< likewise
  int64_t duration = 0;
};

/// The pictures of the result, in the order of decoding.
struct PicturePlan {
  std::vector<CutWindow> windows = {};
  std::vector<PictureRun> stretches = {};
  std::vector<PlannedPicture> pictures = {};

  /// The stretch of a picture.
  const PictureRun& stretchOf(size_t picture) const;
  int64_t encoded() const;
};

struct CutWay {
  bool startsOpen = false;  ///< copies may begin where pictures before, by their time, are left out
  bool encodesAll = false;  ///< nothing is copied
  std::string why = {};     ///< that is so
  bool keepsGroups = false;  ///< spans are widened so that nothing has to be encoded
};

/// Plans what is copied and what is encoded. `spans`: in ticks, their ends stated. A span without
/// pictures has no window.
struct TickSpan {
  int64_t start = 0;
  int64_t end = 0;
};
PicturePlan planPictures(const PictureIndex& index, const std::vector<TickSpan>& spans,
                         const CutWay& way);

}  // namespace kestrel
