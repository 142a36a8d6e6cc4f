#pragma once

#include <kestrel/BitmapImage.h>
#include <kestrel/Geometry.h>
#include <kestrel/convert/Events.h>
#include <kestrel/convert/LookSettings.h>
#include <kestrel/convert/Moment.h>
#include <kestrel/convert/OutputFile.h>
#include <kestrel/convert/PictureFile.h>
#include <kestrel/convert/Pictures.h>
#include <kestrel/convert/Report.h>
#include <kestrel/convert/Thumbnail.h>

#include <cstdint>
#include <optional>
#include <string>

namespace kestrel {

/// The file that a job's pictures go to: what is wrong with it shows before any work is done.
template <typename Settings>
OutputFile claimedPicture(const Settings& settings) {
  pictureFormatOf(settings.output);
  requirePictureQuality(settings.output, settings.quality);
  return {settings.output, settings.replaces, settings.input};
}

/// What all jobs have in common that draw pictures of a movie into a file.
class PictureJob {
 public:
  template <typename Settings>
  PictureJob(const Settings& settings, const LookSettings& look, const Events& events)
      : path_(settings.input),
        zooms_(look.zoom.has_value()),
        pictures_({.input = settings.input,
                   .title = settings.title,
                   .angle = settings.angle,
                   .protocols = settings.protocols,
                   .look = look},
                  events.interrupt) {}

  Pictures& pictures() { return pictures_; }

  /// The movie's file by its name alone.
  std::string name() const;

  /// How long the movie is; throws where that is not known.
  int64_t length() const;

  /// The time that is meant, which may not lie behind the end.
  int64_t timeWithin(const Moment& moment) const;

  struct Span {
    int64_t start = 0;
    int64_t end = 0;
  };

  /// The time of the picture that stands for a span: the middle, or where the best one is.
  int64_t timeOf(const Span& span, bool best);

  /// The size that pictures get, which is set: what is asked for, or `usual`, but then no larger
  /// than they are.
  Size setSize(const PictureBox& asked, const PictureBox& usual);

  /// Writes the file and puts it into its place.
  Report finish(OutputFile& file, const BitmapImage& picture,
                std::optional<int> quality = {}) const;

 private:
  Size sizeFor(const PictureBox& asked, const PictureBox& usual) const;

  const std::string path_;
  const bool zooms_;
  Pictures pictures_;
};

}  // namespace kestrel
