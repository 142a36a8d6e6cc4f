#pragma once

#include <kestrel/Color.h>
#include <kestrel/Font.h>
#include <kestrel/convert/ConversionPlan.h>

#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace kestrel {

// The values of single options as people write them; those that others read, too, are in
// <kestrel/convert/Values.h>. `option` is its name, for the message of the `Failure` that each of
// these throws for a text that is no such value.

/// Says that a text is not what is wanted, such as "a colour such as yellow".
[[noreturn]] void refuseValue(std::string_view option, std::string_view text,
                              std::string_view wanted);

/// "10,20,640x360": X,Y,WxH.
Area parseArea(std::string_view option, const std::string& text);

/// "FILE[:X,Y[,SCALE[,OPACITY]]]"; a name with a colon in it needs no quoting.
Watermark parseWatermark(std::string_view option, const std::string& text);

Color parseColor(std::string_view option, const std::string& text);
/// Of an installed family.
Font parseFont(std::string_view option, const std::string& text);
Zoom parseZoom(std::string_view option, const std::string& text);

HdrHandling parseHdr(std::string_view option, const std::string& text);
/// A curve, and ",limited" where nothing is to ring.
Scaler parseScaler(std::string_view option, const std::string& text);

double parseDisplayAspect(std::string_view option, const std::string& text);
Denoising parseDenoising(std::string_view option, const std::string& text);
ChromaSampling parseChroma(std::string_view option, const std::string& text);

ChapterSource parseChapterSource(std::string_view option, const std::string& text);

/// "visually-lossless", "high", "good", or a score.
double parseTargetScore(std::string_view option, const std::string& text);

TargetQuality::Per parsePer(std::string_view option, const std::string& text);

/// "10%" or "0.1", from 0 to `most`.
double parseShare(std::string_view option, const std::string& text, double most);

/// "KEY=VALUE".
std::pair<std::string, std::string> parseKeyValue(std::string_view option, const std::string& text);

/// "ac3,dts": names, separated by commas.
std::vector<std::string> parseNames(std::string_view option, const std::string& text);

/// "1080,720p,480": how many lines each has.
std::vector<int> parseLadder(std::string_view option, const std::string& text);

}  // namespace kestrel
