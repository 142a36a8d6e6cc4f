#pragma once

#include <kestrel/BitmapFile.h>
#include <kestrel/BitmapImage.h>
#include <kestrel/Export.h>
#include <kestrel/convert/OutputFile.h>

#include <string>

namespace kestrel {

/// The form that a picture file's name asks for: .png, .jpg or .jpeg. Throws `Failure` for others.
KESTREL_API PictureFormat pictureFormatOf(const std::string& target);

/// Writes a picture into a file, in the form that its name asks for. Throws `Failure` when it can't
/// be written; the file appears only when it is whole. An existing one is replaced where `replaces`
/// says so.
KESTREL_API void writePicture(const std::string& target, const BitmapImage& picture,
                              bool replaces = false);

/// The same into a file that is claimed already and that the caller commits.
KESTREL_API void writePicture(OutputFile& file, const BitmapImage& picture);

}  // namespace kestrel
