#include <kestrel/convert/PictureFile.h>

#include <kestrel/convert/Failure.h>

#include <fmt/format.h>

#include <filesystem>
#include <map>

#include "convert/settings/Require.h"
#include "support/Words.h"

namespace kestrel {

PictureFormat pictureFormatOf(const std::string& target) {
  const std::string extension = lowerCased(std::filesystem::path(target).extension().string());
  static const std::map<std::string, PictureFormat> kFormats{{".png", PictureFormat::kPNG},
                                                             {".jpg", PictureFormat::kJPEG},
                                                             {".jpeg", PictureFormat::kJPEG},
                                                             {".webp", PictureFormat::kWebP},
                                                             {".avif", PictureFormat::kAVIF}};
  const auto found = kFormats.find(extension);
  if (found == kFormats.end())
    throw Failure::settings(
        fmt::format("cannot write '{}': the name must end in .png, .jpg, .webp or .avif", target),
        "output");
  if (!canEncode(found->second))
    throw Failure::settings(
        fmt::format("cannot write '{}': there is no encoder of {} files here", target, extension),
        "output");
  return found->second;
}

void requirePictureQuality(const std::string& target, std::optional<int> quality) {
  if (!quality) return;
  requireNumber("quality", *quality, 0, 100);
  if (!usualQuality(pictureFormatOf(target)))
    throw Failure::settings("quality: a PNG loses nothing, so there is none to choose", "quality");
}

void writePicture(OutputFile& file, const BitmapImage& picture, std::optional<int> quality) {
  requirePictureQuality(file.target(), quality);
  const auto bytes = encodedBitmapImage(picture, pictureFormatOf(file.target()), quality);
  if (!bytes)
    throw Failure::output(file.target(),
                          fmt::format("cannot write '{}': a picture of {}x{} is too large",
                                      file.target(), picture.width(), picture.height()));
  file.write(*bytes);
}

void writePicture(const std::string& target, const BitmapImage& picture, bool replaces,
                  std::optional<int> quality) {
  requirePictureQuality(target, quality);
  pictureFormatOf(target);
  OutputFile file(target, replaces);
  writePicture(file, picture, quality);
  file.commit();
}

}  // namespace kestrel
