#include <gtest/gtest.h>
#include <kestrel/LMCustomSource.h>
#include <kestrel/LMFFMedia.h>
#include <kestrel/LMFFMediaStream.h>
#include <kestrel/LMMediaSource.h>
#include <kestrel/LMSubtitleSource.h>
#include <kestrel/LMWavSource.h>
#include <kestrel/Log.h>
#include <kestrel/MemorySource.h>

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "support/FFmpegOwners.h"
#include "tests/support/Ffprobe.h"
#include "tests/support/Fixture.h"
#include "tests/support/TempDir.h"

namespace kestrel {
namespace {

using Lines = std::vector<std::string>;

std::shared_ptr<LMMediaSource> sourceOf(const std::string& name) {
  return LMMediaSource::mediaWithPath(test::fixture(name).string());
}

std::shared_ptr<LMMediaSource> openedSourceOf(const std::string& name) {
  auto source = sourceOf(name);
  source->open();
  EXPECT_TRUE(source->isOpen());
  return source;
}

/// The lines that `action` logs.
template <typename Action>
Lines linesOf(Action action) {
  Lines lines;
  setLogSink([&lines](std::string_view line) { lines.emplace_back(line); });
  action();
  setLogSink({});
  return lines;
}

/// ":key:value:" for each tag that ffprobe tells of, sorted.
Lines tagLines(const nlohmann::json& owner) {
  Lines lines;
  if (owner.contains("tags"))
    for (const auto& [key, value] : owner["tags"].items())
      lines.push_back(":" + key + ":" + value.get<std::string>() + ":");
  std::sort(lines.begin(), lines.end());
  return lines;
}

Lines sorted(Lines lines) {
  std::sort(lines.begin(), lines.end());
  return lines;
}

// A new source.

TEST(LMMediaSourceTest, NewSourceHasNoPathAndNoDemuxer) {
  const LMMediaSource source;
  EXPECT_EQ(source.fullpath(), "");
  EXPECT_EQ(source.path(), "");
  EXPECT_EQ(source.formatContext(), nullptr);
  EXPECT_FALSE(source.isOpen());
  EXPECT_FALSE(source.lastError());
}

TEST(LMMediaSourceTest, PlainSourceIsNothingSpecial) {
  LMMediaSource source;
  EXPECT_FALSE(source.isDVD());
  EXPECT_FALSE(source.isSubtitle());
  EXPECT_EQ(source.palette(), nullptr);
  EXPECT_EQ(source.avio_context(), nullptr);
  EXPECT_EQ(source.filesize(), 0);
  EXPECT_FALSE(source.audioNames().has_value());
  EXPECT_FALSE(source.subtitleNames().has_value());
}

TEST(LMMediaSourceTest, UnopenedSourceKnowsNoStreams) {
  const auto source = sourceOf("av25.mp4");
  EXPECT_TRUE(source->codecs().empty());
  EXPECT_EQ(source->start_time(), 0);
}

TEST(LMMediaSourceTest, MadeWithAPathItKeepsIt) {
  const auto source = LMMediaSource::mediaWithPath("/films/A Film.mov");
  EXPECT_EQ(source->fullpath(), "/films/A Film.mov");
  EXPECT_EQ(source->path(), "/films/A Film.mov");
  EXPECT_FALSE(source->isOpen());
}

TEST(LMMediaSourceTest, PathFollowsTheFullpath) {
  LMMediaSource source;
  source.setFullpath("other.mkv");
  EXPECT_EQ(source.path(), "other.mkv");
}

TEST(LMMediaSourceTest, NameIsTheLastComponentWithoutItsExtension) {
  EXPECT_EQ(LMMediaSource::mediaWithPath("/films/A Film.mov")->name(), "A Film");
  EXPECT_EQ(LMMediaSource::mediaWithPath("film.part1.mkv")->name(), "film.part1");
  EXPECT_EQ(LMMediaSource::mediaWithPath("/films.d/film")->name(), "film");
  EXPECT_EQ(LMMediaSource::mediaWithPath("Größe.mp4")->name(), "Größe");
  EXPECT_EQ(LMMediaSource::mediaWithPath("/films/A Film.mov/")->name(), "A Film");
  EXPECT_EQ(LMMediaSource::mediaWithPath("/films/disc//")->name(), "disc");
}

TEST(LMMediaSourceTest, NameOfNoPathIsEmpty) { EXPECT_EQ(LMMediaSource().name(), ""); }

TEST(LMMediaSourceTest, NameFollowsASubclassesPath) {
  class Titled : public LMMediaSource {
   public:
    std::string path() const override { return "/disc/Title 1.vob"; }
  };
  EXPECT_EQ(Titled().name(), "Title 1");
}

// Subtitle sources.

TEST(LMSubtitleSourceTest, IsASubtitle) { EXPECT_TRUE(LMSubtitleSource().isSubtitle()); }

TEST(LMSubtitleSourceTest, MadeWithAPathItIsAPlainSource) {
  const auto source = LMSubtitleSource::mediaWithPath("texts.srt");
  EXPECT_EQ(source->fullpath(), "texts.srt");
  EXPECT_EQ(std::dynamic_pointer_cast<LMSubtitleSource>(source), nullptr);
  EXPECT_FALSE(source->isSubtitle());
}

TEST(LMSubtitleSourceTest, CopyIsASubtitleToo) {
  LMSubtitleSource source;
  source.setFullpath("texts.srt");
  EXPECT_TRUE(source.copy()->isSubtitle());
  EXPECT_EQ(source.copy()->fullpath(), "texts.srt");
}

// Copies.

TEST(LMMediaSourceTest, ClosedAndOpenedAgainItBeginsAnew) {
  const auto source = LMMediaSource::mediaWithPath(test::fixture("av25.mp4").string());
  source->close();
  EXPECT_FALSE(source->isOpen());
  std::vector<int64_t> places;
  for (int i = 0; i < 2; ++i) {
    source->open();
    ASSERT_TRUE(source->isOpen());
    const PacketPtr packet = makePacket();
    ASSERT_TRUE(source->readPacket(packet.get()));
    places.push_back(packet->pos);
    av_packet_unref(packet.get());
    ASSERT_TRUE(source->readPacket(packet.get()));
    source->close();
    EXPECT_FALSE(source->isOpen());
    EXPECT_EQ(source->formatContext(), nullptr);
  }
  EXPECT_EQ(places[0], places[1]);
}

TEST(LMMediaSourceTest, CopyTakesThePathAlone) {
  const auto source = openedSourceOf("av25.mp4");
  const auto copy = source->copy();
  EXPECT_EQ(copy->fullpath(), source->fullpath());
  EXPECT_FALSE(copy->isOpen());
}

TEST(LMMediaSourceTest, CopyReadsFromAPlaceOfItsOwn) {
  const auto source = openedSourceOf("numbered25.mkv");
  const PacketPtr packet = makePacket();
  while (av_read_frame(source->formatContext(), packet.get()) >= 0) av_packet_unref(packet.get());

  const auto copy = source->copy();
  copy->open();
  ASSERT_TRUE(copy->isOpen());
  EXPECT_NE(copy->formatContext(), source->formatContext());
  ASSERT_GE(av_read_frame(copy->formatContext(), packet.get()), 0);
  EXPECT_EQ(packet->pts, 0);
}

// Opening.

TEST(LMMediaSourceTest, OpeningMakesADemuxerThatHasBeenProbed) {
  const auto source = openedSourceOf("av25.ts");
  const AVFormatContext& context = *source->formatContext();
  ASSERT_EQ(context.nb_streams, 2U);
  EXPECT_EQ(context.streams[0]->codecpar->width, 320);
  EXPECT_EQ(context.streams[0]->codecpar->height, 180);
  EXPECT_EQ(context.streams[1]->codecpar->sample_rate, 44100);
  EXPECT_FALSE(source->lastError());
}

TEST(LMMediaSourceTest, OpeningAgainKeepsTheDemuxer) {
  const auto source = openedSourceOf("av25.mp4");
  const AVFormatContext* context = source->formatContext();
  source->open();
  EXPECT_EQ(source->formatContext(), context);
}

TEST(LMMediaSourceTest, FileThatIsMissingLeavesItUnopened) {
  const test::TempDir folder;
  const auto source = LMMediaSource::mediaWithPath((folder / "missing.mp4").string());
  source->open();
  EXPECT_FALSE(source->isOpen());
  EXPECT_EQ(source->formatContext(), nullptr);
  EXPECT_EQ(source->lastError().code, AVERROR(ENOENT));
}

TEST(LMMediaSourceTest, FileOfNoContainerLeavesItUnopened) {
  const test::TempDir folder;
  std::ofstream(folder / "words.md") << "These are words, and no pictures or sound.\n";
  const auto source = LMMediaSource::mediaWithPath((folder / "words.md").string());
  source->open();
  EXPECT_FALSE(source->isOpen());
  EXPECT_EQ(source->lastError().code, AVERROR_INVALIDDATA);
}

TEST(LMMediaSourceTest, NoPathLeavesItUnopened) {
  LMMediaSource source;
  source.open();
  EXPECT_FALSE(source.isOpen());
  EXPECT_TRUE(source.lastError());
}

TEST(LMMediaSourceTest, OpensAfterAFailureOnceTheFileIsThere) {
  const test::TempDir folder;
  const auto source = LMMediaSource::mediaWithPath((folder / "late.mp4").string());
  source->open();
  ASSERT_FALSE(source->isOpen());
  std::filesystem::copy_file(test::fixture("av25.mp4"), folder / "late.mp4");
  source->open();
  EXPECT_TRUE(source->isOpen());
  EXPECT_FALSE(source->lastError());
}

TEST(LMMediaSourceTest, NameLikeAProtocolsIsAFile) {
  const test::TempDir folder;
  const std::filesystem::path before = std::filesystem::current_path();
  std::filesystem::copy_file(test::fixture("av25.mp4"), folder / "10:30.mp4");
  std::filesystem::current_path(folder.path());
  const auto source = LMMediaSource::mediaWithPath("10:30.mp4");
  source->open();
  std::filesystem::current_path(before);
  EXPECT_TRUE(source->isOpen());
}

TEST(LMMediaSourceTest, NameBeyondAsciiOpens) {
  const test::TempDir folder;
  std::filesystem::copy_file(test::fixture("av25.mp4"), folder / "Ñandú 映画.mp4");
  const auto source = LMMediaSource::mediaWithPath((folder / "Ñandú 映画.mp4").string());
  source->open();
  EXPECT_TRUE(source->isOpen());
}

TEST(LMMediaSourceTest, InterruptMakesOpeningFail) {
  const auto source = sourceOf("av25.mp4");
  source->setInterrupt([] { return true; });
  source->open();
  EXPECT_FALSE(source->isOpen());
  EXPECT_TRUE(source->lastError());
}

// Facts.

TEST(LMMediaSourceTest, StartTimeIsTheContainers) {
  const auto source = openedSourceOf("av25.ts");
  const double seconds = std::stod(
      test::ffprobeJson(test::fixture("av25.ts"))["format"]["start_time"].get<std::string>());
  EXPECT_GE(seconds, 9.9);
  EXPECT_NEAR(static_cast<double>(source->start_time()), seconds * 1e6, 1.0);
}

TEST(LMMediaSourceTest, StartTimeOfAContainerWithoutOneIsZero) {
  const auto source = openedSourceOf("pcm-mono-8000-s16.wav");
  ASSERT_EQ(source->formatContext()->start_time, AV_NOPTS_VALUE);
  EXPECT_EQ(source->start_time(), 0);
}

TEST(LMMediaSourceTest, CodecsAreTheStreamsTags) {
  EXPECT_EQ(openedSourceOf("av25.mp4")->codecs(), (Lines{"avc1", "mp4a"}));
}

TEST(LMMediaSourceTest, CodecTagBeginsWithItsLowestByte) {
  const auto source = openedSourceOf("mjpeg.avi");
  const std::string pcm{"\x01\0\0\0", 4};
  EXPECT_EQ(source->codecs(), (Lines{"MJPG", pcm}));
}

TEST(LMMediaSourceTest, CodecTagOfZeroIsFourNuls) {
  const auto source = openedSourceOf("numbered25.mkv");
  ASSERT_EQ(source->formatContext()->streams[0]->codecpar->codec_tag, 0U);
  EXPECT_EQ(source->codecs().at(0), std::string(4, '\0'));
}

// Logging.

TEST(LMMediaSourceTest, DictionaryIsLoggedWithItsCount) {
  Dictionary dictionary;
  av_dict_set(dictionary.get(), "title", "A Title", 0);
  av_dict_set(dictionary.get(), "artist", "An Artist", 0);
  const LMMediaSource source;
  EXPECT_EQ(linesOf([&] { source.logMedadata(*dictionary.get()); }),
            (Lines{"2", "title A Title", "artist An Artist"}));
}

TEST(LMMediaSourceTest, NoDictionaryIsNotLogged) {
  const LMMediaSource source;
  EXPECT_EQ(linesOf([&] { source.logMedadata(nullptr); }), Lines{});
}

TEST(LMMediaSourceTest, ContainerIsLoggedWithItsStreamsAndTheirTags) {
  const std::unique_ptr<AVFormatContext, void (*)(AVFormatContext*)> context(
      avformat_alloc_context(), avformat_free_context);
  av_dict_set(&context->metadata, "title", "A Title", 0);
  AVStream* pictures = avformat_new_stream(context.get(), nullptr);
  av_dict_set(&pictures->metadata, "language", "deu", 0);
  pictures->codecpar->codec_tag = MKTAG('a', 'v', 'c', '1');
  AVStream* sound = avformat_new_stream(context.get(), nullptr);
  sound->codecpar->codec_tag = MKTAG('U', 0, 0, 0);
  const LMMediaSource source;
  EXPECT_EQ(linesOf([&] { source.logFormatContext(context.get()); }),
            (Lines{"1", "title A Title", "1", "language deu", "avc1", "   U"}));
}

TEST(LMMediaSourceTest, PrintingOpensAndLogsAllMetadata) {
  const auto source = sourceOf("av-tags.mp4");
  const Lines lines = linesOf([&] { source->print_source_stream_info(); });
  EXPECT_TRUE(source->isOpen());

  const auto facts = test::ffprobeJson(test::fixture("av-tags.mp4"));
  const auto first = std::find(lines.begin(), lines.end(), "stream:0");
  const auto second = std::find(lines.begin(), lines.end(), "stream:1");
  ASSERT_NE(first, lines.end());
  ASSERT_NE(second, lines.end());
  EXPECT_EQ(sorted(Lines(lines.begin(), first)), tagLines(facts["format"]));
  EXPECT_EQ(sorted(Lines(first + 1, second)), tagLines(facts["streams"][0]));
}

TEST(LMMediaSourceTest, PrintingWhatDoesNotOpenLogsNothing) {
  const test::TempDir folder;
  const auto source = LMMediaSource::mediaWithPath((folder / "missing.mp4").string());
  EXPECT_EQ(linesOf([&] { source->print_source_stream_info(); }), Lines{});
}

TEST(LMMediaSourceTest, ASlashAtTheEndOfAPathIsNoName) {
  EXPECT_EQ(LMMediaSource::mediaWithPath("/films/disc.d/")->name(), "disc");
  EXPECT_EQ(LMMediaSource::mediaWithPath("/films/disc//")->name(), "disc");
  EXPECT_EQ(LMMediaSource::mediaWithPath("/films/a.mov")->name(), "a");
}

/// Raw pictures of 4 × 2 grey pixels, of which nothing in the bytes tells.
std::string rawPictures(const test::TempDir& folder) {
  const std::string path = (folder / "pictures.bin").string();
  std::ofstream(path, std::ios::binary) << std::string(3 * 8, 'x');
  return path;
}

const LMMediaSource::Options kRawOptions{
    {"video_size", "4x2"}, {"pixel_format", "gray"}, {"framerate", "10"}};

TEST(LMMediaSourceTest, TheDemuxerAndItsOptionsCanBeChosen) {
  const test::TempDir folder;
  const auto source = LMMediaSource::mediaWithPath(rawPictures(folder));
  source->open();
  EXPECT_FALSE(source->isOpen());
  source->setInputFormat("rawvideo");
  source->setDemuxerOptions(kRawOptions);
  const auto medias = source->createMedias();
  ASSERT_EQ(medias.size(), 1U);
  EXPECT_EQ(medias[0]->videoFormat().width, 4);
  int pictures = 0;
  while (medias[0]->forwardStream(medias[0]->videoStream()))
    pictures += medias[0]->videoStream()->hasFrame() ? 1 : 0;
  EXPECT_EQ(pictures, 3);

  const auto copy = source->copy();  // reads the same
  copy->open();
  EXPECT_TRUE(copy->isOpen());
}

TEST(LMMediaSourceTest, CopiesOfEveryClassOpenInTheSameWay) {
  const std::vector<std::shared_ptr<LMMediaSource>> sources{
      std::make_shared<LMMediaSource>(), std::make_shared<LMSubtitleSource>(),
      std::make_shared<LMCustomSource>(), std::make_shared<LMWavSource>(),
      std::make_shared<MemorySource>(nullptr)};
  for (const auto& source : sources) {
    source->setFullpath("input.raw");
    source->setInputFormat("rawvideo");
    source->setDemuxerOptions(kRawOptions);
    const auto copy = source->copy();
    EXPECT_EQ(copy->fullpath(), "input.raw");
    EXPECT_EQ(copy->inputFormat(), "rawvideo");
    EXPECT_EQ(copy->demuxerOptions(), kRawOptions);
  }
}

TEST(LMMediaSourceTest, AnUnknownDemuxerIsAnError) {
  const auto source = sourceOf("av25.mp4");
  source->setInputFormat("no such demuxer");
  source->open();
  EXPECT_FALSE(source->isOpen());
  EXPECT_EQ(source->lastError().code, AVERROR_DEMUXER_NOT_FOUND);
  source->setInputFormat("");
  source->open();
  EXPECT_TRUE(source->isOpen());
}

TEST(LMMediaSourceTest, TakesADemuxerThatTheHostHasOpened) {
  const test::TempDir folder;
  const std::string path = rawPictures(folder);
  AVFormatContext* context = nullptr;
  Dictionary options;
  for (const auto& [key, value] : kRawOptions)
    av_dict_set(options.get(), key.c_str(), value.c_str(), 0);
  ASSERT_EQ(
      avformat_open_input(&context, path.c_str(), av_find_input_format("rawvideo"), options.get()),
      0);
  const auto source = std::make_shared<LMMediaSource>();
  source->setFormatContext(context);
  EXPECT_EQ(source->formatContext(), context);
  LMFFMedia media;
  media.setSource(source);
  media.open();
  ASSERT_NE(media.videoStream(), nullptr);
  EXPECT_EQ(media.videoFormat().height, 2);
  int pictures = 0;
  while (media.forwardStream(media.videoStream()))
    pictures += media.videoStream()->hasFrame() ? 1 : 0;
  EXPECT_EQ(pictures, 3);
  source->setFormatContext(nullptr);  // and frees it
  EXPECT_FALSE(source->isOpen());
}

}  // namespace
}  // namespace kestrel
