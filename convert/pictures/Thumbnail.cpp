#include <kestrel/convert/Thumbnail.h>

#include <algorithm>

#include <kestrel/convert/BestPicture.h>
#include "convert/pictures/PictureJob.h"
#include "convert/pictures/PictureRules.h"

namespace kestrel {

namespace {

constexpr double kUsualShare = 0.1;
constexpr int64_t kReach = 5'000'000;  // microseconds around a time, for the best picture
constexpr double kEnds = 0.05;         // of the length, where it is not looked for

int64_t timeOf(const ThumbnailSettings& settings, PictureJob& job) {
  if (settings.time) return job.timeWithin(*settings.time);
  return Moment::ofShare(kUsualShare).within(job.pictures().duration()).value_or(0);
}

/// Around a time that was given, else all over the movie but for its ends, where titles are.
PictureSearch searchFor(const ThumbnailSettings& settings, PictureJob& job, int64_t time) {
  const auto length = job.pictures().duration();
  if (settings.time)
    return {.from = std::max<int64_t>(time - kReach, 0),
            .to = std::min(time + kReach, length.value_or(time + kReach)),
            .wanted = time};
  const auto known = static_cast<double>(length.value_or(kReach));
  return {.from = static_cast<int64_t>(known * kEnds),
          .to = static_cast<int64_t>(known * (1 - kEnds))};
}

}  // namespace

Report writeThumbnail(const ThumbnailSettings& settings, const Events& events) {
  require(settings);
  OutputFile file = claimedPicture(settings);
  PictureJob job(settings, settings.look, events);
  int64_t time = timeOf(settings, job);
  job.setSize(settings.size, {});
  if (settings.best) time = bestPictureTime(job.pictures(), searchFor(settings, job, time));
  return job.finish(file, *job.pictures().pictureAt(time), settings.quality);
}

}  // namespace kestrel
