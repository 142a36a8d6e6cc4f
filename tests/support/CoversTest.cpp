#include "support/copy/Covers.h"

#include <gtest/gtest.h>

#include <string>

#include "support/Containers.h"
#include "tests/support/BareStreams.h"

namespace kestrel::test {
namespace {

const AVOutputFormat& container(const char* name) {
  return *av_guess_format(name, nullptr, nullptr);
}

std::string tagOf(const AVStream& stream, const char* key) {
  const AVDictionaryEntry* const entry = av_dict_get(stream.metadata, key, nullptr, 0);
  return entry ? entry->value : "";
}

const Bytes kPicture{0xFF, 0xD8, 1, 2, 3};

/// A cover as a demuxer tells of it, and the stream that is to become its copy.
class Covers : public testing::Test {
 protected:
  AVStream& cover(AVCodecID codec, const Bytes& picture = kPicture) {
    AVStream& stream = input_.add(AVMEDIA_TYPE_VIDEO, codec);
    stream.disposition = AV_DISPOSITION_ATTACHED_PIC;
    if (!picture.empty()) av_packet_move_ref(&stream.attached_pic, barePacket(picture).get());
    return stream;
  }

  AVStream& copyOf(const AVStream& cover) {
    AVStream& stream = output_.add(AVMEDIA_TYPE_VIDEO);
    avcodec_parameters_copy(stream.codecpar, cover.codecpar);
    stream.disposition = cover.disposition;
    return stream;
  }

 private:
  BareStreams input_;
  BareStreams output_;
};

TEST_F(Covers, AreHeldBySomeContainers) {
  for (const char* name : {"mp4", "ipod", "mp3", "flac", "matroska"})
    EXPECT_TRUE(holdsCovers(container(name))) << name;
  for (const char* name : {"avi", "mpegts", "wav", "webm"})
    EXPECT_FALSE(holdsCovers(container(name))) << name;
}

TEST_F(Covers, AttachmentsAreMatroskas) {
  EXPECT_TRUE(holdsAttachments(container("matroska")));
  for (const char* name : {"mp4", "webm", "mp3"})
    EXPECT_FALSE(holdsAttachments(container(name))) << name;
}

TEST_F(Covers, BecomeAttachmentsOfTheNameThatPlayersLookFor) {
  struct Row {
    AVCodecID codec;
    const char* name;
    const char* type;
  };
  for (const Row& row : {Row{AV_CODEC_ID_MJPEG, "cover.jpg", "image/jpeg"},
                         {AV_CODEC_ID_PNG, "cover.png", "image/png"},
                         {AV_CODEC_ID_GIF, "cover.gif", "image/gif"},
                         {AV_CODEC_ID_BMP, "cover.bmp", "image/bmp"},
                         {AV_CODEC_ID_WEBP, "cover.webp", "image/webp"}}) {
    SCOPED_TRACE(row.name);
    const AVStream& from = cover(row.codec);
    AVStream& to = copyOf(from);
    // What the codec said of itself gives way to the picture.
    setCodecData(*to.codecpar, {9, 9});
    ASSERT_TRUE(attachCover(from, to, container("matroska")));
    EXPECT_EQ(to.codecpar->codec_type, AVMEDIA_TYPE_ATTACHMENT);
    EXPECT_EQ(to.disposition, 0);
    EXPECT_EQ(tagOf(to, "filename"), row.name);
    EXPECT_EQ(tagOf(to, "mimetype"), row.type);
    const uint8_t* const data = to.codecpar->extradata;
    EXPECT_EQ(Bytes(data, data + to.codecpar->extradata_size), kPicture);
  }
}

TEST_F(Covers, ArePacketsElsewhere) {
  const auto stays = [&](const AVStream& from, const char* format) {
    AVStream& to = copyOf(from);
    const bool isAttached = attachCover(from, to, container(format));
    EXPECT_EQ(to.codecpar->codec_type, AVMEDIA_TYPE_VIDEO);
    EXPECT_EQ(to.disposition, AV_DISPOSITION_ATTACHED_PIC);
    EXPECT_EQ(to.codecpar->extradata_size, 0);
    return !isAttached;
  };
  EXPECT_TRUE(stays(cover(AV_CODEC_ID_MJPEG), "mp4"));
  EXPECT_TRUE(stays(cover(AV_CODEC_ID_TIFF), "matroska"));
  EXPECT_TRUE(stays(cover(AV_CODEC_ID_MJPEG, {}), "matroska"));
}

}  // namespace
}  // namespace kestrel::test
