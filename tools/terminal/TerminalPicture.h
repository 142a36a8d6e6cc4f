#pragma once

#include <kestrel/BitmapImage.h>
#include <kestrel/Geometry.h>

#include <string>

#include "tools/terminal/Terminal.h"

/// The size in pixels, one by two of them to a character, in which a picture of a shape (display
/// width / height) is shown below one line of a terminal. The height is even. Empty where there is
/// no room.
kestrel::Size terminalPictureSize(double shape, TerminalSize terminal);

/// A picture in half blocks of 24-bit colour: as many lines as two rows of pixels make, each begun
/// by "\n" and ended in the usual colours. Without an alpha: what is transparent is black.
std::string terminalPicture(const kestrel::BitmapImage& picture);
