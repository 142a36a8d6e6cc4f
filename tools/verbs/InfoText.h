#pragma once

#include <kestrel/convert/MediaInfo.h>

#include <string>

/// What is in an input as people read it: the container, then each stream on a few short lines.
/// What the file does not tell is left out.
std::string infoText(const std::string& path, const kestrel::MediaInfo& info);
