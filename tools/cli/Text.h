#pragma once

#include <kestrel/IndexSet.h>
#include <kestrel/LMFFFormat.h>
#include <kestrel/convert/ConversionPlan.h>
#include <kestrel/convert/Disc.h>
#include <kestrel/convert/Failure.h>
#include <kestrel/convert/Text.h>
#include <kestrel/convert/Thumbnail.h>
#include <kestrel/convert/TrackChoice.h>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

/// Values as people write them on the command line and read them in a listing.
///
/// Each `parse…` takes a value of the option `option` ("--size") and accepts the whole text or
/// nothing: it throws the `Failure` of wrong usage, which names option and value and shows how such
/// a value looks.

/// "12.5" seconds or "[hh:]mm:ss.mmm"; microseconds, rounded.
int64_t parseTime(std::string_view option, std::string_view text);

/// A failure of the library's about a time, with the time as it was typed; any other as it is.
kestrel::Failure withTypedTime(const kestrel::Failure& failure, const std::string& typed);

/// "1280x720", "1280x-" or "-x720": a side that is left open keeps the picture's shape.
kestrel::PictureBox parseSize(std::string_view option, std::string_view text);

/// The same with both sides, which may be as long as they like. A refusal names `example`.
kestrel::PictureBox parseBothSides(std::string_view option, std::string_view text,
                                   std::string_view example);

/// "25", "30000/1001", or "29.97" for that; pictures per second, above 0 and up to 1000; lowest
/// terms.
kestrel::Rational parseRate(std::string_view option, std::string_view text);

/// "16:9" or "2.39:1": width by height.
double parseAspect(std::string_view option, std::string_view text);

/// "4M", "1.5M", "192k" or "192000" bits per second, with decimal factors; at least 1.
int parseBitRate(std::string_view option, std::string_view text);

/// "3" or "2-5"; the first is at least 1, the last no smaller.
kestrel::ChapterRange parseChapters(std::string_view option, std::string_view text);

/// "0,2": whole numbers from 0, separated by commas. None for any other text, which may then mean
/// something else.
std::optional<kestrel::IndexSet> parseIndexList(std::string_view text);

/// "0,2", "all", a language, or "" for the usual one.
kestrel::TrackChoice parseTrackChoice(std::string_view text);

/// A title of a disc: a number, or "main"; none for "".
std::optional<int> parseTitle(std::string_view option, std::string_view text);

/// A channel layout's name, such as "5.1", as its mask; none for "".
std::optional<int64_t> parseChannels(std::string_view option, const std::string& text);
