#pragma once

#include <deque>

#include "support/FFmpegOwners.h"

struct AVFormatContext;

namespace kestrel {

/// Whether a source's container takes packets back: not one that a host has opened with an
/// interrupt of its own.
bool canPutBack(const AVFormatContext& context);

/// Gives packets that were read of a source's container back to it: they are the next to be read.
void putBack(AVFormatContext& context, std::deque<PacketPtr> packets);

}  // namespace kestrel
