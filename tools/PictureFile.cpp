#include "PictureFile.h"

#include <fmt/format.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <memory>
#include <span>

#include "Failure.h"
#include "Text.h"

using namespace kestrel;

namespace {

void writeBytes(const OutputFile& file, const std::string& target, std::span<const uint8_t> bytes) {
  errno = 0;
  std::FILE* stream = std::fopen(file.path().c_str(), "wb");
  bool isWritten = stream && std::fwrite(bytes.data(), 1, bytes.size(), stream) == bytes.size();
  if (stream && std::fclose(stream) != 0) isWritten = false;
  if (!isWritten)
    throw Failure{kFailed, fmt::format("cannot write '{}': {}", target, std::strerror(errno))};
}

}  // namespace

PictureFormat pictureFormatOf(const std::string& target) {
  const std::string extension = lowerCased(std::filesystem::path(target).extension().string());
  if (extension == ".png") return PictureFormat::kPNG;
  if (extension == ".jpg" || extension == ".jpeg") return PictureFormat::kJPEG;
  throw wrongUsage(fmt::format("cannot write '{}': the name must end in .png or .jpg", target));
}

void writePicture(const OutputFile& file, const std::string& target, const BitmapImage& picture) {
  const auto bytes = encodedBitmapImage(picture, pictureFormatOf(target));
  if (!bytes)
    throw Failure{kFailed, fmt::format("cannot write '{}': a picture of {}x{} is too large", target,
                                       picture.width(), picture.height())};
  writeBytes(file, target, *bytes);
}

void writeText(const OutputFile& file, const std::string& target, const std::string& text) {
  writeBytes(file, target, {reinterpret_cast<const uint8_t*>(text.data()), text.size()});
}
