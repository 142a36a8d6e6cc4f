#pragma once

struct AVFormatContext;

namespace kestrel {

/// Whether the clock of a transport or program stream may jump, by what a few dozen places of the
/// file say of it; also true where it seems to pause. Places that cannot be read say nothing.
/// The reader's position stays what it was. False for other formats and what cannot be sought in.
bool mayClockJump(AVFormatContext& context);

}  // namespace kestrel
