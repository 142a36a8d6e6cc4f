#include <gmock/gmock.h>
#include <kestrel/LMFFFormat.h>
#include <kestrel/Log.h>

#include <type_traits>

#include "support/FFmpegOwners.h"

namespace kestrel::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

/// Every field different from the others, from 0 and from the default.
constexpr LMFFMovieFileOutputFormat kUnusual{.width = 1,
                                             .height = 2,
                                             .video_codec = 3,
                                             .video_bitrate = 4,
                                             .framerate = 5,
                                             .frameTime = 6,
                                             .aspect = 2.35F,
                                             .channel_layout = (int64_t{1} << 40) + 7,
                                             .sample_rate = 8,
                                             .audio_codec = 9,
                                             .audio_bitrate = -10};

TEST(LMFFFormatRecords, AudioFormatsAreEqualOnlyWithAllThreeFieldsEqual) {
  const LMFFAudioFormat format{3, AV_CH_LAYOUT_STEREO, 44100};
  EXPECT_TRUE(isFFAudioFormatEqual(format, format));
  EXPECT_FALSE(isFFAudioFormatEqual(format, {8, AV_CH_LAYOUT_STEREO, 44100}));
  EXPECT_FALSE(isFFAudioFormatEqual(format, {3, AV_CH_LAYOUT_STEREO, 48000}));
}

TEST(LMFFFormatRecords, AudioFormatsDifferByTheChannelLayoutAlone) {
  EXPECT_FALSE(isFFAudioFormatEqual({3, AV_CH_LAYOUT_STEREO, 44100},
                                    {3, AV_CH_LAYOUT_STEREO_DOWNMIX, 44100}));
}

TEST(LMFFFormatRecords, FieldsLieInTheirOrderAndWidth) {
  static_assert(std::is_same_v<decltype(LMFFVideoFormat::pix_fmt), int32_t>);
  static_assert(std::is_same_v<decltype(LMFFAudioFormat::channel_layout), int64_t>);
  static_assert(std::is_same_v<decltype(LMFFMovieFileOutputFormat::aspect), float>);
  const auto [pixelFormat, width, height] = LMFFVideoFormat{1, 2, 3};
  EXPECT_THAT((std::array{pixelFormat, width, height}), ElementsAre(1, 2, 3));
  EXPECT_EQ((LMFFMovieFileOutputFormat{1, 2, 3, 4, 5, 6, 2.35F, (int64_t{1} << 40) + 7, 8, 9, -10}),
            kUnusual);
}

TEST(LMFFFormatDefaults, SoundIsInterleavedFloatStereoAt44100) {
  EXPECT_EQ(lm_get_default_audio_format(),
            (LMFFAudioFormat{AV_SAMPLE_FMT_FLT, AV_CH_LAYOUT_STEREO, 44100}));
  EXPECT_EQ(lm_get_default_sample_fmt(), 3);
}

TEST(LMFFFormatDefaults, OutputRecordHasThemAll) {
  const LMFFMovieFileOutputFormat expected{.video_bitrate = 20000000,
                                           .frameTime = 1,
                                           .channel_layout = AV_CH_LAYOUT_STEREO,
                                           .sample_rate = 44100,
                                           .audio_bitrate = 192000};
  EXPECT_EQ(lm_get_default_movie_file_ouput_format(), expected);
}

TEST(LMFFFormatDefaults, FillingARecordReplacesWhatItHeld) {
  LMFFMovieFileOutputFormat format = kUnusual;
  movieFileOutputFormatToDefaults(&format);
  EXPECT_EQ(format, lm_get_default_movie_file_ouput_format());
}

TEST(LMFFFormatLayouts, DefaultForACountOfChannels) {
  const std::array<int64_t, 8> expected{0x4, 0x3, 0xB, 0x107, 0x37, 0x3F, 0x70F, 0x63F};
  for (int count = 1; count <= 8; ++count)
    EXPECT_EQ(lm_get_default_channel_layout(count), expected[count - 1]) << count;
  EXPECT_EQ(lm_get_default_channel_layout(0), 0);
}

TEST(LMFFFormatLayouts, ByNameAsTheLibraryNamesThem) {
  EXPECT_EQ(lm_get_channel_layout_by_name("stereo"), AV_CH_LAYOUT_STEREO);
  EXPECT_EQ(lm_get_channel_layout_by_name("mono"), AV_CH_LAYOUT_MONO);
  EXPECT_EQ(lm_get_channel_layout_by_name("5.1"), AV_CH_LAYOUT_5POINT1_BACK);
  EXPECT_EQ(lm_get_channel_layout_by_name("quintophonic"), 0);
  EXPECT_EQ(lm_get_channel_layout_by_name(""), 0);
}

TEST(LMFFFormatLayouts, NumberOfChannelsInAMask) {
  EXPECT_EQ(lm_get_channel_layout_nb_channels(0), 0);
  EXPECT_EQ(lm_get_channel_layout_nb_channels(AV_CH_LAYOUT_MONO), 1);
  EXPECT_EQ(lm_get_channel_layout_nb_channels(AV_CH_LAYOUT_5POINT1), 6);
  EXPECT_EQ(lm_get_channel_layout_nb_channels(AV_CH_LAYOUT_STEREO_DOWNMIX), 2);
}

TEST(LMFFFormatDictionary, HoldsEachFieldUnderItsNameInItsKind) {
  const LMFFFormatDictionary expected{
      {"width", 1},          {"height", 2},
      {"video_codec", 3},    {"video_bitrate", 4},
      {"framerate", 5},      {"frameTime", 6},
      {"aspect", 2.35F},     {"channel_layout", (int64_t{1} << 40) + 7},
      {"sample_rate", 8},    {"audio_codec", 9},
      {"audio_bitrate", -10}};
  EXPECT_EQ(lm_movie_file_ouput_format_to_dict(kUnusual), expected);
}

TEST(LMFFFormatDictionary, RoundTripKeepsEveryField) {
  EXPECT_EQ(lm_movie_file_ouput_format_from_dict(lm_movie_file_ouput_format_to_dict(kUnusual)),
            kUnusual);
}

TEST(LMFFFormatDictionary, EmptyOneGivesZerosAndNotTheDefaults) {
  EXPECT_EQ(lm_movie_file_ouput_format_from_dict({}), LMFFMovieFileOutputFormat{});
}

TEST(LMFFFormatDictionary, MissingKeyGivesZeroForThatFieldOnly) {
  auto dictionary = lm_movie_file_ouput_format_to_dict(kUnusual);
  dictionary.erase("sample_rate");
  dictionary.erase("aspect");
  auto expected = kUnusual;
  expected.sample_rate = 0;
  expected.aspect = 0;
  EXPECT_EQ(lm_movie_file_ouput_format_from_dict(dictionary), expected);
}

TEST(LMFFFormatDictionary, ValuesOfAnotherKindAreConverted) {
  const auto format = lm_movie_file_ouput_format_from_dict(
      {{"width", 640.9F}, {"height", int64_t{360}}, {"aspect", 2}, {"channel_layout", 3}});
  EXPECT_EQ(format, (LMFFMovieFileOutputFormat{
                        .width = 640, .height = 360, .aspect = 2.0F, .channel_layout = 3}));
}

TEST(LMFFFormatDictionary, UnknownKeysAreIgnored) {
  EXPECT_EQ(lm_movie_file_ouput_format_from_dict({{"Width", 640}, {"depth", 8}}),
            LMFFMovieFileOutputFormat{});
}

TEST(LMFFFormatTimes, AreMicroseconds) {
  EXPECT_EQ(lm_default_time_base(), 1000000);
  EXPECT_EQ(lm_ff_time_to_double(1500000), 1.5);
  EXPECT_EQ(lm_ff_time_to_double(-250000), -0.25);
  EXPECT_EQ(lm_ff_time_to_double(0), 0.0);
}

TEST(LMFFFormatCodecNames, LetterCaseDoesNotCount) {
  for (const char* name : {"MPEG2", "Mpeg2", "mpeg2", "mpeg2video", "MPEG2Video"})
    EXPECT_EQ(lm_get_codec_id_by_name(name), AV_CODEC_ID_MPEG2VIDEO) << name;
}

TEST(LMFFFormatCodecNames, AliasesStandForTheLibrarysNames) {
  EXPECT_EQ(lm_get_codec_id_by_name("mpeg1"), AV_CODEC_ID_MPEG1VIDEO);
  EXPECT_EQ(lm_get_codec_id_by_name("animation"), AV_CODEC_ID_QTRLE);
  EXPECT_EQ(lm_get_codec_id_by_name("AC-3"), AV_CODEC_ID_AC3);
  EXPECT_EQ(lm_get_codec_id_by_name("ac3"), AV_CODEC_ID_AC3);
  EXPECT_EQ(lm_get_codec_id_by_name("wma1"), AV_CODEC_ID_WMAV1);
  EXPECT_EQ(lm_get_codec_id_by_name("WMA2"), AV_CODEC_ID_WMAV2);
  EXPECT_EQ(lm_get_codec_id_by_name("ffv"), AV_CODEC_ID_FFV1);
  EXPECT_EQ(lm_get_codec_id_by_name("ffv1"), AV_CODEC_ID_FFV1);
}

TEST(LMFFFormatCodecNames, UnknownNamesGiveNone) {
  for (const char* name : {"", " ", "no-such-codec", " mpeg2", "mpeg2 ", "ac-3\n"})
    EXPECT_EQ(lm_get_codec_id_by_name(name), 0) << '"' << name << '"';
}

TEST(LMFFFormatCodecNames, NamesOfEncodersOnlyGiveNone) {
  ASSERT_NE(avcodec_find_encoder_by_name("libx264"), nullptr);
  EXPECT_EQ(lm_get_codec_id_by_name("libx264"), 0);
}

TEST(LMFFFormatCodecNames, IdentifierGivesTheDecodersShortName) {
  EXPECT_EQ(lm_get_codec_name_by_id(AV_CODEC_ID_MPEG1VIDEO), "mpeg1video");
  EXPECT_EQ(lm_get_codec_name_by_id(AV_CODEC_ID_H264), "h264");
}

TEST(LMFFFormatCodecNames, IdentifierWithoutADecoderGivesTheEmptyName) {
  EXPECT_EQ(lm_get_codec_name_by_id(0), "");
  EXPECT_EQ(lm_get_codec_name_by_id(-1), "");
}

class LMFFFormatDump : public testing::Test {
 protected:
  LMFFFormatDump() {
    setLogSink([this](std::string_view line) { lines_.emplace_back(line); });
  }
  ~LMFFFormatDump() override { setLogSink({}); }

  std::vector<std::string> lines_;
};

TEST_F(LMFFFormatDump, LogsEveryEntryInItsOrder) {
  Dictionary dictionary;
  av_dict_set(dictionary.get(), "title", "A Title", 0);
  av_dict_set(dictionary.get(), "artist", "", 0);
  av_dict_set(dictionary.get(), "date", "2001", 0);
  lm_ff_dump_av_dict(*dictionary.get());
  EXPECT_THAT(lines_, ElementsAre(":title:A Title:", ":artist::", ":date:2001:"));
}

TEST_F(LMFFFormatDump, NullLogsNothing) {
  lm_ff_dump_av_dict(nullptr);
  EXPECT_THAT(lines_, IsEmpty());
}

}  // namespace
}  // namespace kestrel::test
