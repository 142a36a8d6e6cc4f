#pragma once

#include <string>
#include <string_view>

extern "C" {
#include <libavcodec/codec_id.h>
}

namespace kestrel {

/// A text with its character references read: "&amp;", "&eacute;", "&#233;", "&#xE9;" and the like,
/// by the names of HTML 4.01 (section 24) that stand for letters and punctuation. What is no
/// reference stays, and so do those of the characters that subtitle codes are made of: "{", "}" and
/// "\".
std::string withEntitiesRead(std::string_view text);

/// Whether texts of a subtitle codec have such references, and its decoder leaves them.
bool hasEntities(AVCodecID codec);

}  // namespace kestrel
