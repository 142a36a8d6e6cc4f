#include "convert/plan/Fragments.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <string>

#include <kestrel/convert/Failure.h>
#include "convert/plan/PictureEncoding.h"
#include "convert/probe/Codecs.h"
#include "convert/settings/Require.h"
#include "support/Containers.h"
#include "support/Pipes.h"

extern "C" {
#include <libavformat/avformat.h>
}

namespace kestrel {

namespace {

constexpr double kUsualFragment = 2;  // seconds, where there has to be some
constexpr double kUsualSegment = 6;   // seconds
constexpr double kSecond = 1000000;   // microseconds

bool encodesPictures(const ConversionPlan& plan) {
  return plan.pictures() && plan.pictures()->action == StreamAction::kEncode;
}

/// The index waits for the first fragment, so that it can tell where each track begins. Fragments
/// begin at key pictures; of sound alone they have a length. A length that ends just before a key
/// picture, by rounding, must not wait for the next one.
void planMoofs(ConversionPlan& plan, double seconds) {
  plan.muxerOptions["movflags"] = "+frag_keyframe+delay_moov+default_base_moof";
  // One track by itself is one of CMAF, which has no place for others beside it.
  const auto tracks = std::ranges::count_if(plan.streams, &PlannedStream::isKept);
  if (tracks == 1) {
    plan.muxerOptions["movflags"] += "+cmaf";
    plan.muxerOptions["use_editlist"] = "1";
  }
  const bool hasPictures = plan.pictures() != nullptr;
  plan.muxerOptions[hasPictures ? "min_frag_duration" : "frag_duration"] =
      std::to_string(std::llround(seconds * kSecond * (hasPictures ? 0.98 : 1)));
}

}  // namespace

bool isFragmented(const ConversionSettings& settings, const AVOutputFormat& container) {
  return isMpeg4(container) && (settings.fragment || isPipe(settings.output));
}

void planSegments(ConversionPlan& plan, const ConversionSettings& settings,
                  const AVOutputFormat& container) {
  if (!isHls(container)) return;
  const double seconds = settings.fragment.value_or(kUsualSegment);
  plan.segment = std::llround(seconds * kSecond);
  if (!encodesPictures(plan)) return;
  const double rate = static_cast<double>(plan.rate().num) / plan.rate().den;
  const double pictures = std::max(1.0, std::round(seconds * rate));
  plan.segment = std::llround(pictures / rate * kSecond);
}

void planRungs(ConversionPlan& plan, const std::vector<Shape>& shapes) {
  LMFFMovieFileOutputFormat largest = plan.format;
  const double usual = usualBitrate(largest);
  for (size_t i = 1; i < shapes.size(); ++i) {
    const Shape& shape = shapes[i];
    LMFFMovieFileOutputFormat own = plan.format;
    own.width = shape.width;
    own.height = shape.height;
    const double share = usualBitrate(own) / usual;
    plan.rungs.push_back({shape.width, shape.height, shape.aspect,
                          static_cast<int32_t>(std::lround(plan.format.video_bitrate * share))});
  }
}

void planFragments(ConversionPlan& plan, const ConversionSettings& settings,
                   const AVOutputFormat& container) {
  if (!settings.ladder.empty() && !isHls(container))
    refuse("ladder", fmt::format("{} has none, only HLS has (.m3u8)", container.name));
  if (isHls(container) && isPipe(settings.output))
    throw Failure::output(settings.output,
                          "hls cannot be written to a pipe: it is a folder of files");
  if (isHls(container)) return planSegments(plan, settings, container);
  if (isPipe(settings.output) && goesBack(container))
    throw Failure::output(
        settings.output,
        fmt::format("{} cannot be written to a pipe: parts of it are written last and stand first",
                    container.name));
  if (settings.fragment && !isMpeg4(container))
    refuse("fragment", fmt::format("{} has none, only MPEG-4 has", container.name));
  if (!isMpeg4(container)) return;
  if (isFragmented(settings, container))
    planMoofs(plan, settings.fragment.value_or(kUsualFragment));
  else
    plan.muxerOptions["movflags"] = "+faststart";
}

}  // namespace kestrel
