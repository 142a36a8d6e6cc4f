#pragma once

#include <kestrel/Export.h>
#include <kestrel/IndexSet.h>
#include <kestrel/LMFFFormat.h>
#include <kestrel/Protocols.h>
#include <kestrel/convert/ConversionPlan.h>
#include <kestrel/convert/Moment.h>
#include <kestrel/convert/PictureBox.h>
#include <kestrel/convert/TrackChoice.h>

#include <cstdint>
#include <limits>
#include <optional>
#include <string>
#include <string_view>

namespace kestrel {

/// Values as people write them on a command line, in a preset or in a form.
///
/// Each `parse…` takes a value of the option `option` ("--size") and accepts the whole text or
/// nothing: it throws a `Failure` of the settings, which names option and value and shows how such
/// a value looks.

/// "12.5" seconds, "[hh:]mm:ss.mmm", or with units: "1h2m3.5s", "90s", "250ms"; microseconds,
/// rounded.
KESTREL_API int64_t parseTime(std::string_view option, std::string_view text);

/// The same, or a share of the movie's length: "50%".
KESTREL_API Moment parseMoment(std::string_view option, std::string_view text);

/// A length of time in seconds: a number, or as of `parseTime`, "2" or "1m30s".
KESTREL_API double parseSeconds(std::string_view option, std::string_view text);

/// "1280x720", "1280x-" or "-x720" (a side that is left open keeps the picture's shape), "720p" or
/// "50%".
KESTREL_API PictureBox parseSize(std::string_view option, std::string_view text);

/// A box with both sides, which may be as long as they like. A refusal names `example`.
KESTREL_API PictureBox parseBothSides(std::string_view option, std::string_view text,
                                      std::string_view example);

/// A finite number from `low` to `high`.
KESTREL_API double parseNumber(std::string_view option, std::string_view text,
                               double low = -std::numeric_limits<double>::infinity(),
                               double high = std::numeric_limits<double>::infinity());

/// A number without a point, from `low`, which is 0 at least, to `high`.
KESTREL_API int parseWholeNumber(std::string_view option, std::string_view text, int low, int high);

/// "true" or "false".
KESTREL_API bool parseSwitch(std::string_view option, std::string_view text);

/// "25", "30000/1001", or "29.97" for that; pictures per second, above 0 and up to 1000; lowest
/// terms.
KESTREL_API Rational parseRate(std::string_view option, std::string_view text);

/// "16:9" or "2.39:1": width by height.
KESTREL_API double parseAspect(std::string_view option, std::string_view text);

/// "4M", "1.5M", "192k" or "192000" bits per second, with decimal factors; at least 1.
KESTREL_API int parseBitRate(std::string_view option, std::string_view text);

/// "25M", "1.5G" or "700k" bytes with decimal factors, "25Mi", "1.5Gi" or "700Ki" with powers of
/// 1024, "4000000"; at least 1.
KESTREL_API int64_t parseBytes(std::string_view option, std::string_view text);

/// "3" or "2-5"; the first is at least 1, the last no smaller.
KESTREL_API ChapterRange parseChapters(std::string_view option, std::string_view text);

/// "0,2": whole numbers from 0, separated by commas. None for any other text, which may then mean
/// something else.
KESTREL_API std::optional<IndexSet> parseIndexList(std::string_view text);

/// "0,2", "all", a language, or "" for the usual one.
KESTREL_API TrackChoice parseTrackChoice(std::string_view text);

/// A title of a disc: a number, or "main"; none for "".
KESTREL_API std::optional<int> parseTitle(std::string_view option, std::string_view text);

/// A file, or a title of a disc.
struct TitledPath {
  std::string path = {};
  std::optional<int> title = {};
  int angle = 1;

  bool operator==(const TitledPath&) const = default;
};

/// "DISC#3", "DISC#main" or, for the second angle of title 3, "DISC#3.2". It is a path without a
/// title where there is a file under the whole text, or none under what stands before the last '#'.
KESTREL_API TitledPath parseTitledPath(const std::string& text);

/// "https,concat": names of `knownProtocols`.
KESTREL_API Protocols parseProtocols(std::string_view option, std::string_view text);

/// A channel layout's name, such as "5.1", as its mask; none for "".
KESTREL_API std::optional<int64_t> parseChannels(std::string_view option, const std::string& text);

}  // namespace kestrel
