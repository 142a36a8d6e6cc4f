#pragma once

#include <kestrel/BitmapFile.h>
#include <kestrel/BitmapImage.h>
#include <kestrel/Export.h>
#include <kestrel/convert/OutputFile.h>

#include <optional>
#include <string>

namespace kestrel {

/// The form that a picture file's name asks for: .png, .jpg or .jpeg, .webp, .avif. Throws
/// `Failure` for others, and for one that the installed libraries cannot write.
KESTREL_API PictureFormat pictureFormatOf(const std::string& target);

/// Writes a picture into a file, in the form that its name asks for. Throws `Failure` when it can't
/// be written; the file appears only when it is whole. An existing one is replaced where `replaces`
/// says so. `quality` is 0 to 100, by default what is usual for the form; PNG has none, and one
/// that is asked for is refused.
KESTREL_API void writePicture(const std::string& target, const BitmapImage& picture,
                              bool replaces = false, std::optional<int> quality = {});

/// The same into a file that is claimed already and that the caller commits.
KESTREL_API void writePicture(OutputFile& file, const BitmapImage& picture,
                              std::optional<int> quality = {});

/// Throws a `Failure` of the settings with the subject "quality" for one that is not within 0 to
/// 100, and for any where the target is a PNG.
KESTREL_API void requirePictureQuality(const std::string& target, std::optional<int> quality);

}  // namespace kestrel
