#pragma once

struct AVFormatContext;

namespace kestrel {

/// True if the clock of a transport or program stream may jump or pause, judging by a few dozen
/// positions in the file; unreadable ones are ignored. Restores the read position. False for other
/// formats and for inputs that cannot be sought.
bool mayClockJump(AVFormatContext& context);

}  // namespace kestrel
