#pragma once

#include <kestrel/convert/Failure.h>
#include <kestrel/convert/Text.h>
#include <kestrel/convert/Values.h>

#include <string>

/// A failure of the library's about a time, with the time as it was typed; any other as it is.
kestrel::Failure withTypedTime(const kestrel::Failure& failure, const std::string& typed);
