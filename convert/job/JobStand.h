#pragma once

#include <kestrel/convert/Events.h>
#include <kestrel/convert/Job.h>

namespace kestrel {

/// How far a job is, by the parts that are made; of pictures, where it has any.
Progress progressOf(const JobStatus& status);

/// Throws a `Failure` where parts are not made, which names the span of one that is poison.
void requireMade(const JobStatus& status);

}  // namespace kestrel
