#include <kestrel/convert/Thumbnail.h>

#include <fmt/format.h>

#include <kestrel/convert/Failure.h>
#include "convert/pictures/PictureJob.h"
#include "convert/pictures/PictureRules.h"

namespace kestrel {

namespace {

constexpr double kUsualShare = 0.1;

int64_t timeOf(const ThumbnailSettings& settings, PictureJob& job) {
  if (settings.time) return job.timeWithin(*settings.time);
  const auto length = job.pictures().duration();
  if (!length && settings.share)
    throw Failure::settings(
        fmt::format("share: how long '{}' is cannot be known: give a time", settings.input),
        "share");
  return static_cast<int64_t>(static_cast<double>(length.value_or(0)) *
                              settings.share.value_or(kUsualShare));
}

}  // namespace

Report writeThumbnail(const ThumbnailSettings& settings, const Events& events) {
  require(settings);
  OutputFile file = claimedPicture(settings);
  PictureJob job(settings, settings.look, events);
  const int64_t time = timeOf(settings, job);
  job.setSize(settings.size, {});
  return job.finish(file, *job.pictures().pictureAt(time));
}

}  // namespace kestrel
