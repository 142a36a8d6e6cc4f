#pragma once

#include <kestrel/Error.h>
#include <kestrel/convert/Events.h>
#include <kestrel/convert/Report.h>

#include <cstdint>
#include <string>

struct AVFormatContext;
struct AVStream;

namespace kestrel {

class LMFFMovie;

/// How far an input was read, and what was wrong with it.
struct InputEnd {
  int64_t reached = 0;  ///< microseconds after its start
  Error error;          ///< of reading
  int64_t refused = 0;  ///< packets that could not be decoded

  /// Takes in what another reader of the same input found.
  void add(const InputEnd& other);
};

/// What a movie's medias found wrong while they were read.
InputEnd faultsOf(const LMFFMovie& movie);

/// How long an input promises to be, microseconds; 0 where it does not tell or only estimates.
int64_t promisedLength(const AVFormatContext& input);

/// The same of one stream: when it ends, counted from the input's start. 0 also where the input's
/// length may be that of another stream.
int64_t promisedLength(const AVFormatContext& input, const AVStream& stream);

/// Adds to a report what an input lacks of the length that it promised (0: any), and whether it was
/// damaged.
void judgeInput(Report& report, const std::string& path, int64_t promised, const InputEnd& end);

/// Adds to a report, where it is not 0, how many packets of `name` could not be copied.
void judgePackets(Report& report, const std::string& name, int64_t refused);

/// Tells the report and the host, where it is not 0, how many pictures of a file whose packets were
/// copied had to be encoded anew, because they need others that the input hides.
void tellOfEncoded(Report& report, const Events& events, int64_t pictures, const std::string& path);

}  // namespace kestrel
