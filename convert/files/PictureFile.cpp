#include <kestrel/convert/PictureFile.h>

#include <kestrel/convert/Failure.h>

#include <fmt/format.h>

#include <filesystem>

#include "support/Words.h"

namespace kestrel {

PictureFormat pictureFormatOf(const std::string& target) {
  const std::string extension = lowerCased(std::filesystem::path(target).extension().string());
  if (extension == ".png") return PictureFormat::kPNG;
  if (extension == ".jpg" || extension == ".jpeg") return PictureFormat::kJPEG;
  throw Failure::settings(
      fmt::format("cannot write '{}': the name must end in .png or .jpg", target), "output");
}

void writePicture(OutputFile& file, const BitmapImage& picture) {
  const auto bytes = encodedBitmapImage(picture, pictureFormatOf(file.target()));
  if (!bytes)
    throw Failure::output(file.target(),
                          fmt::format("cannot write '{}': a picture of {}x{} is too large",
                                      file.target(), picture.width(), picture.height()));
  file.write(*bytes);
}

void writePicture(const std::string& target, const BitmapImage& picture, bool replaces) {
  pictureFormatOf(target);
  OutputFile file(target, replaces);
  writePicture(file, picture);
  file.commit();
}

}  // namespace kestrel
