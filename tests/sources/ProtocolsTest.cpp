#include <gmock/gmock.h>
#include <kestrel/LMMediaSource.h>
#include <kestrel/MemorySource.h>
#include <kestrel/Protocols.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "sources/AllowedProtocols.h"
#include "tests/support/Fixture.h"
#include "tests/support/ListeningSocket.h"
#include "tests/support/TempDir.h"

namespace kestrel {
namespace {

namespace fs = std::filesystem;
using test::fixture;
using testing::HasSubstr;

TEST(ProtocolOf, IsWhatAnAddressBeginsWith) {
  EXPECT_EQ(protocolOf("http://host/a.mp4"), "http");
  EXPECT_EQ(protocolOf("https://host/a.mp4"), "https");
  EXPECT_EQ(protocolOf("concat:a.ts|b.ts"), "concat");
  EXPECT_EQ(protocolOf("subfile,,start,0,end,9,,:a.ts"), "subfile");
  EXPECT_EQ(protocolOf("data:text/plain,hello"), "data");
  EXPECT_EQ(protocolOf("rtsp://camera/1"), "rtsp");
  EXPECT_EQ(protocolOf("rtmp://host/live"), "rtmp");
  EXPECT_EQ(protocolOf("unheard-of://host/a"), "unheard-of");
  EXPECT_EQ(protocolOf("tcp:host:80"), "tcp");
}

TEST(ProtocolOf, AFileNeedsNone) {
  const test::TempDir folder;
  EXPECT_EQ(protocolOf("clip.mp4"), "");
  EXPECT_EQ(protocolOf("/films/10:30.mov"), "");
  EXPECT_EQ(protocolOf("10:30.mov"), "");  // a file that is missing, and nothing else
  EXPECT_EQ(protocolOf("a/b://c.mov"), "");
  EXPECT_EQ(protocolOf("file:clip.mp4"), "");
  EXPECT_EQ(protocolOf("pipe:0"), "");
  EXPECT_EQ(protocolOf(""), "");
  // In a folder of its own, since what is there goes before what a name looks like.
  const fs::path before = fs::current_path();
  fs::current_path(folder.path());
  std::ofstream("concat:a|b") << "mine";
  EXPECT_EQ(protocolOf("concat:a|b"), "");
  fs::current_path(before);
}

TEST(KnownProtocols, AreSortedAndHaveTheUsualOnes) {
  const Protocols known = knownProtocols();
  EXPECT_TRUE(std::ranges::is_sorted(known));
  EXPECT_THAT(known, testing::IsSupersetOf({"concat", "file", "http", "https", "rtsp", "subfile"}));
}

TEST(Whitelist, HasWhatLiesBeneath) {
  EXPECT_EQ(whitelistOf({}, false), "crypto,data");
  EXPECT_EQ(whitelistOf({}, true), "crypto,data,file");
  EXPECT_EQ(whitelistOf({"https"}, true), "crypto,data,file,https,http,tcp,udp,tls,httpproxy");
  EXPECT_EQ(whitelistOf({"concat"}, true), "crypto,data,file,concat");
}

class OpeningByProtocol : public testing::Test {
 protected:
  /// Opens a path, and answers the error.
  static Error openedWith(const std::string& path, const Protocols& protocols) {
    const auto source = LMMediaSource::mediaWithPath(path);
    source->setProtocols(protocols);
    source->open();
    EXPECT_NE(source->isOpen(), static_cast<bool>(source->lastError()));
    return source->lastError();
  }

  std::string written(const std::string& name, const std::string& text) const {
    std::ofstream(folder_ / name) << text;
    return (folder_ / name).string();
  }

  /// Whether opening and reading a source reaches for the server.
  bool asksServer(LMMediaSource& source, const Protocols& protocols) const {
    source.setProtocols(protocols);
    source.setInterrupt([this] { return server_.wasAsked(); });
    source.open();
    return server_.wasAsked();
  }

  /// The bytes of a playlist: demuxers look at the name, too.
  static std::shared_ptr<MemorySource> inMemoryAs(const std::string& text) {
    auto source = MemorySource::fromText(text);
    source->setFullpath("list.m3u8");
    return source;
  }

  static std::string playlist(const std::string& address) {
    return "#EXTM3U\n#EXT-X-TARGETDURATION:2\n#EXTINF:2,\n" + address + "\n#EXT-X-ENDLIST\n";
  }

  const test::TempDir folder_;
  const test::ListeningSocket server_;
};

TEST_F(OpeningByProtocol, NeedsItAllowed) {
  const std::string clip = fixture("av25.ts").string();
  for (const std::string& path : {"concat:" + clip + "|" + clip, "subfile,,start,0,end,0,,:" + clip,
                                  server_.address("a.ts"), std::string("rtsp://127.0.0.1/1")}) {
    const Error error = openedWith(path, {});
    EXPECT_EQ(error.code, -EACCES) << path;
    EXPECT_THAT(error.message, HasSubstr("is not allowed")) << path;
  }
  EXPECT_FALSE(server_.wasAsked());
  EXPECT_FALSE(openedWith("concat:" + clip + "|" + clip, {"concat"}));
  EXPECT_FALSE(openedWith("subfile,,start,0,end,0,,:" + clip, {"https", "subfile"}));
  EXPECT_FALSE(openedWith("file:" + clip, {}));
  // What one names is allowed by its own name only.
  EXPECT_TRUE(openedWith("concat:" + server_.address("a.ts"), {"concat"}));
  EXPECT_FALSE(server_.wasAsked());
  EXPECT_TRUE(asksServer(*LMMediaSource::mediaWithPath(server_.address("a.ts")), {"http"}));
}

TEST_F(OpeningByProtocol, ACopyIsAllowedTheSame) {
  const std::string clip = fixture("av25.ts").string();
  const auto source = LMMediaSource::mediaWithPath("concat:" + clip);
  source->setProtocols({"concat"});
  EXPECT_EQ(source->copy()->protocols(), Protocols{"concat"});
}

TEST_F(OpeningByProtocol, AFileMayLookLikeAnAddress) {
  for (const char* name : {"10:30.ts", "http:x.ts", "subfile,,start,0,end,9,,:x.ts"}) {
    fs::copy_file(fixture("av25.ts"), folder_ / name);
    EXPECT_FALSE(openedWith((folder_ / name).string(), {})) << name;
    const fs::path before = fs::current_path();
    fs::current_path(folder_.path());
    EXPECT_FALSE(openedWith(name, {})) << name;
    fs::current_path(before);
  }
}

TEST_F(OpeningByProtocol, PlaylistsReachNoFurther) {
  const std::string list = written("list.m3u8", playlist(server_.address("a.ts")));
  EXPECT_FALSE(asksServer(*LMMediaSource::mediaWithPath(list), {}));
  EXPECT_FALSE(asksServer(*LMMediaSource::mediaWithPath(list), {"concat", "rtsp"}));
  const auto inMemory = inMemoryAs(playlist(server_.address("a.ts")));
  EXPECT_FALSE(asksServer(*inMemory, {}));
  EXPECT_TRUE(asksServer(*LMMediaSource::mediaWithPath(list), {"http"}));
}

TEST_F(OpeningByProtocol, ListsOfFilesReachNoFurther) {
  const std::string list =
      written("list.ffconcat", "ffconcat version 1.0\nfile '" + server_.address("a.ts") + "'\n");
  const auto source = LMMediaSource::mediaWithPath(list);
  source->setDemuxerOptions({{"safe", "0"}});
  EXPECT_FALSE(asksServer(*source, {}));
  const auto allowed = LMMediaSource::mediaWithPath(list);
  allowed->setDemuxerOptions({{"safe", "0"}});
  EXPECT_TRUE(asksServer(*allowed, {"http"}));
}

TEST_F(OpeningByProtocol, ManifestsReachNoFurther) {
  const std::string manifest = written(
      "list.mpd",
      "<?xml version=\"1.0\"?><MPD xmlns=\"urn:mpeg:dash:schema:mpd:2011\" type=\"static\" "
      "profiles=\"urn:mpeg:dash:profile:isoff-on-demand:2011\" "
      "mediaPresentationDuration=\"PT2S\"><Period><AdaptationSet mimeType=\"video/mp4\">"
      "<Representation id=\"1\" bandwidth=\"1000\"><BaseURL>" +
          server_.address("a.mp4") + "</BaseURL></Representation></AdaptationSet></Period></MPD>");
  EXPECT_FALSE(asksServer(*LMMediaSource::mediaWithPath(manifest), {}));
  EXPECT_TRUE(asksServer(*LMMediaSource::mediaWithPath(manifest), {"http"}));
}

TEST_F(OpeningByProtocol, OnlyFilesNameFiles) {
  fs::copy_file(fixture("av25.ts"), folder_ / "a.ts");
  const auto opens = [](LMMediaSource& source) {
    source.open();
    return source.isOpen() && !source.codecs().empty();
  };
  const std::string text = playlist((folder_ / "a.ts").string());
  EXPECT_TRUE(opens(*LMMediaSource::mediaWithPath(written("list.m3u8", text))));
  EXPECT_FALSE(opens(*inMemoryAs(text)));
  const auto allowed = inMemoryAs(text);
  allowed->setProtocols({"file"});
  EXPECT_TRUE(opens(*allowed));
}

}  // namespace
}  // namespace kestrel
