#pragma once

#include <kestrel/BitmapFile.h>
#include <kestrel/BitmapImage.h>

#include <string>

#include "OutputFile.h"

/// The format that the extension of a target names; throws the `Failure` of wrong usage for another
/// one than .png, .jpg and .jpeg.
kestrel::PictureFormat pictureFormatOf(const std::string& target);

/// Puts a picture into the partial file of `file`, whose target is `target`; throws a `Failure`
/// when that can't be done.
void writePicture(const OutputFile& file, const std::string& target,
                  const kestrel::BitmapImage& picture);

/// The same of a text.
void writeText(const OutputFile& file, const std::string& target, const std::string& text);
