#include <kestrel/Protocols.h>

#include "sources/AllowedProtocols.h"

#include <algorithm>
#include <array>
#include <filesystem>
#include <string_view>
#include <system_error>

#include "support/Pipes.h"

extern "C" {
#include <libavformat/avio.h>
}

namespace kestrel {

namespace {

/// Read by a demuxer of that name, which opens its connections by itself.
constexpr std::string_view kDemuxed = "rtsp";

/// Beneath all that speaks over a network.
constexpr std::string_view kTransports[] = {"tcp", "udp", "tls", "httpproxy"};

/// Protocols that need no network of their own.
constexpr std::string_view kLocal[] = {"async",  "bluray", "cache",   "concat", "concatf",
                                       "crypto", "data",   "fd",      "file",   "hex",
                                       "md5",    "pipe",   "subfile", "unix"};

/// Those that put files together, or read them in another way.
constexpr std::string_view kOfFiles[] = {"async",   "bluray", "cache",  "concat",
                                         "concatf", "crypto", "subfile"};

/// What FFmpeg's protocols are made of beside these.
struct Layers {
  std::string_view name;
  std::array<std::string_view, 2> beneath;
};
constexpr Layers kLayers[] = {{"https", {"http"}},
                              {"rtsp", {"rtp"}},
                              {"rtmps", {"rtmp"}},
                              {"rtmpt", {"ffrtmphttp", "http"}},
                              {"rtmpts", {"ffrtmphttp", "https"}},
                              {"rtmpte", {"ffrtmphttp", "ffrtmpcrypt"}},
                              {"rtmpe", {"ffrtmpcrypt"}},
                              {"mmst", {}},
                              {"mmsh", {"http"}},
                              {"srtp", {"rtp"}},
                              {"concatf", {"concat"}}};

bool isFile(const std::string& name) {
  std::error_code ignored;
  return std::filesystem::exists(name, ignored);
}

void add(Protocols& names, std::string_view name) {
  if (!name.empty() && std::ranges::find(names, name) == names.end()) names.emplace_back(name);
}

bool isLocal(std::string_view name) { return std::ranges::find(kLocal, name) != std::end(kLocal); }

}  // namespace

Protocols knownProtocols() {
  Protocols names{std::string(kDemuxed)};
  void* place = nullptr;
  while (const char* name = avio_enum_protocols(&place, 0)) add(names, name);
  std::ranges::sort(names);
  return names;
}

std::string protocolOf(const std::string& name) {
  if (isPipe(name) || isFile(name)) return {};
  if (name.starts_with(std::string(kDemuxed) + ":")) return std::string(kDemuxed);
  const char* const known = avio_find_protocol_name(name.c_str());
  const std::string_view protocol = known ? known : "";
  if (protocol != "file" && !protocol.empty()) return std::string(protocol);
  // An address whose protocol is not in this build of the libraries.
  const size_t mark = name.find("://");
  const bool isAddress = mark != std::string::npos && mark > 0 && !name.starts_with("file:") &&
                         name.find('/') == mark + 1;
  return isAddress ? name.substr(0, mark) : std::string();
}

bool isAllowed(const std::string& protocol, const Protocols& allowed) {
  return protocol.empty() || std::ranges::find(allowed, protocol) != allowed.end();
}

bool readsFiles(const std::string& protocol) {
  return protocol.empty() || std::ranges::find(kOfFiles, protocol) != std::end(kOfFiles);
}

std::string whitelistOf(const Protocols& allowed, bool isMadeOfFiles) {
  // Both only read what stands in the name itself, or what another protocol of the list gives.
  Protocols names{"crypto", "data"};
  if (isMadeOfFiles) add(names, "file");
  for (const std::string& name : allowed) {
    add(names, name);
    for (const Layers& layers : kLayers)
      if (layers.name == name)
        for (const std::string_view beneath : layers.beneath) add(names, beneath);
    if (!isLocal(name))
      for (const std::string_view transport : kTransports) add(names, transport);
  }
  std::string list;
  for (const std::string& name : names) list += (list.empty() ? "" : ",") + name;
  return list;
}

}  // namespace kestrel
