#pragma once

#include <kestrel/convert/MediaInfo.h>

#include <map>
#include <string>
#include <string_view>

struct AVCodecParameters;

namespace kestrel {

/// Options that encoders take in a list of their own, within one of FFmpeg's: "crf=20:aq-mode=3" in
/// "x265-params".

/// The name of the option that holds an encoder's list; "" where it has none.
std::string parameterOption(std::string_view encoder);

/// Adds one to an encoder's list.
void addParameter(std::map<std::string, std::string>& options, std::string_view encoder,
                  std::string_view name, std::string_view value);

/// Adds the light of HDR pictures to the list of an encoder that writes it into its stream, but for
/// what the list tells already.
void addLight(std::map<std::string, std::string>& options, std::string_view encoder,
              const HdrInfo& light);

/// Has an encoder of `pixelFormat` told where samples of chroma lie, of 4:2:0 as in `source`, where
/// that is not the usual place: with the left sample of luma, half way between rows.
void keepChromaPlace(std::map<std::string, std::string>& options, const AVCodecParameters& source,
                     const std::string& pixelFormat);

/// Adds options that a host gave to those that are planned: they replace them, but a list goes on
/// with theirs, whose last word counts.
void addOptions(std::map<std::string, std::string>& options, std::string_view encoder,
                const std::map<std::string, std::string>& own);

}  // namespace kestrel
