#pragma once

struct AVOutputFormat;
struct AVStream;

namespace kestrel {

/// Makes `output`, a new stream that was described like the cover `input`, an attachment that holds
/// the picture, if that is the form in which its container stores covers. Returns false if the
/// picture is to be written as a packet, or if memory runs out.
bool attachCover(const AVStream& input, AVStream& output, const AVOutputFormat& container);

}  // namespace kestrel
