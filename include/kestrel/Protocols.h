#pragma once

#include <kestrel/Export.h>

#include <string>
#include <vector>

namespace kestrel {

/// How inputs that are not files may be read: names of FFmpeg's protocols, such as "https",
/// "concat" or "rtsp". Files, pipes and a program's own sources need none.
///
/// A name includes the protocols that it stands on (for "https", "tls" and "tcp"). An input that is
/// a file, or made of files ("concat", "subfile"), may name other files, as playlists do; one that
/// comes from elsewhere may only where "file" is in the list. Whatever else an input names is read
/// by protocols of the list alone.
using Protocols = std::vector<std::string>;

/// The names that can be in such a list, in alphabetical order.
KESTREL_API Protocols knownProtocols();

/// The protocol by which a name would be read, "http" of "http://host/clip.mp4"; "" for a file, for
/// "pipe:", and for a name that is neither and so can only be a file that is missing. A name that a
/// file has is that file, whatever it looks like ("10:30.mov").
KESTREL_API std::string protocolOf(const std::string& name);

}  // namespace kestrel
