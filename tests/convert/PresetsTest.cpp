#include <kestrel/convert/Presets.h>

#include <gmock/gmock.h>
#include <kestrel/convert/Failure.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>

#include "tests/support/FileBytes.h"
#include "tests/support/TempDir.h"

namespace kestrel::test {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::Field;
using testing::HasSubstr;

ConversionOptions options(std::initializer_list<ConversionOption> list) { return list; }

/// The sentence and the kind of what `work` throws.
std::string refusal(const std::function<void()>& work,
                    Failure::Kind kind = Failure::Kind::kSettings) {
  try {
    work();
  } catch (const Failure& failure) {
    EXPECT_EQ(failure.kind(), kind);
    return failure.what();
  }
  return "nothing was thrown";
}

TEST(ConversionOptions, SetWhatTheyName) {
  ConversionSettings settings;
  applyOptions({{"video-codec", "hevc"},
                {"size", "720p"},
                {"fps", "29.97"},
                {"compatible", "true"},
                {"video-option", "tune=grain"},
                {"video-option", "aq-mode=2"},
                {"audio-codec", "copy"},
                {"no-metadata", "true"},
                {"start", "1m30s"},
                {"crop", "1,2,30x40"}},
               settings);
  EXPECT_EQ(settings.videoCodec, "hevc");
  EXPECT_FALSE(settings.video);
  EXPECT_EQ(settings.lines, 720);
  EXPECT_EQ(settings.fps, (Rational{30000, 1001}));
  EXPECT_TRUE(settings.isCompatible);
  EXPECT_THAT(settings.videoOptions,
              ElementsAre(std::pair("aq-mode", "2"), std::pair("tune", "grain")));
  EXPECT_EQ(settings.audio, StreamAction::kCopy);
  EXPECT_FALSE(settings.keepsMetadata);
  EXPECT_EQ(settings.start, 90'000'000);
  EXPECT_EQ(settings.look.crop, (Area{1, 2, 30, 40}));
}

// A name that is none would shape nothing, and nobody would know.
TEST(ConversionOptions, RefuseNamesAndValuesThatAreNone) {
  ConversionSettings settings;
  EXPECT_EQ(refusal([&] {
              applyOptions({{"qualty", "5"}}, settings);
            }),
            "there is no option 'qualty'; did you mean 'quality'?");
  EXPECT_EQ(refusal([&] {
              applyOptions({{"crf", "best"}}, settings);
            }),
            "crf: 'best' is not a number");
  EXPECT_EQ(refusal([&] { applyOptions({{"size", ""}}, settings); }), "size: the value is empty");
  EXPECT_EQ(refusal([&] {
              applyOptions({{"hflip", "yes"}}, settings);
            }),
            "hflip: 'yes' is not true or false");
}

TEST(ConversionOptions, StrongerOnesWinOverTheSameAndOverWhatTheyExclude) {
  const auto weak = options({{"quality", "60"}, {"fps", "25"}, {"audio-tracks", "0"}});
  EXPECT_EQ(withDefaults({{"quality", "70"}}, weak),
            options({{"fps", "25"}, {"audio-tracks", "0"}, {"quality", "70"}}));
  EXPECT_EQ(withDefaults({{"video-bitrate", "1M"}, {"max-fps", "30"}, {"mix", "all"}}, weak),
            options({{"video-bitrate", "1M"}, {"max-fps", "30"}, {"mix", "all"}}));
}

TEST(ConversionOptions, ACodecWinsOverAnotherEncodersOwnOptions) {
  const auto weak = options({{"video-codec", "h264"},
                             {"size", "720p"},
                             {"crf", "20"},
                             {"encoder-preset", "slow"},
                             {"video-option", "tune=film"},
                             {"audio-bitrate", "128k"}});
  EXPECT_EQ(withDefaults({{"video-codec", "vp9"}}, weak),
            options({{"size", "720p"}, {"audio-bitrate", "128k"}, {"video-codec", "vp9"}}));
  EXPECT_EQ(withDefaults({{"video-codec", "copy"}}, weak),
            options({{"audio-bitrate", "128k"}, {"video-codec", "copy"}}));
  EXPECT_EQ(withDefaults({{"audio-tracks", "none"}}, {{"audio-codec", "aac"}, {"volume", "2"}}),
            options({{"audio-tracks", "none"}}));
}

TEST(ConversionOptions, WhatEverythingPlaysAndAFormatDisplaceEachOther) {
  EXPECT_EQ(withDefaults({{"depth", "10"}}, {{"compatible", "true"}}), options({{"depth", "10"}}));
  EXPECT_EQ(withDefaults({{"compatible", "true"}}, {{"depth", "8"}, {"chroma", "420"}}),
            options({{"compatible", "true"}}));
  EXPECT_EQ(withDefaults({{"depth", "10"}}, {{"chroma", "420"}}),
            options({{"chroma", "420"}, {"depth", "10"}}));
}

TEST(ConversionOptions, OfARepeatedOneTheKeysStandForThemselves) {
  EXPECT_EQ(
      withDefaults({{"video-option", "a=3"}}, {{"video-option", "a=1"}, {"video-option", "b=2"}}),
      options({{"video-option", "b=2"}, {"video-option", "a=3"}}));
}

/// A home of one's own, with a folder for presets.
class PresetsTest : public testing::Test {
 protected:
  PresetsTest() {
    setenv("XDG_CONFIG_HOME", folder_.path().c_str(), 1);
    std::filesystem::create_directories(presetFolder());
  }
  ~PresetsTest() override { unsetenv("XDG_CONFIG_HOME"); }

  std::string write(const std::string& name, const std::string& text) const {
    const std::string path = presetFolder() + "/" + name;
    std::ofstream(path) << text;
    return path;
  }

  std::string refusalOf(const std::string& text) const {
    const std::string path = write("bad.json", text);
    const std::string sentence = refusal([&] { readPreset(path); });
    const std::string begin = "preset '" + path + "': ";
    EXPECT_TRUE(sentence.starts_with(begin)) << sentence;
    return sentence.substr(std::min(begin.size(), sentence.size()));
  }

  const TempDir folder_;
};

TEST_F(PresetsTest, EveryBuiltInOneIsRight) {
  for (const Preset& preset : builtInPresets()) {
    EXPECT_FALSE(preset.description.empty()) << preset.name;
    EXPECT_FALSE(preset.extension.empty()) << preset.name;
    EXPECT_NO_THROW(settingsWith(preset)) << preset.name;
  }
  for (const char* name : {"web-1080p", "web-720p", "phone", "television", "archive", "editing",
                           "disc-rip", "chat-10mb", "chat-25mb", "podcast", "gif"})
    EXPECT_EQ(readPreset(name).name, name);
}

TEST_F(PresetsTest, LieWhereUsersKeepTheirSettings) {
  EXPECT_EQ(presetFolder(), (folder_ / "kestrel/presets").string());
  unsetenv("XDG_CONFIG_HOME");
  const std::string home = std::getenv("HOME") ? std::getenv("HOME") : "";
  EXPECT_EQ(presetFolder(), home.empty() ? "" : home + "/.config/kestrel/presets");
}

TEST_F(PresetsTest, AFileSaysWhatOptionsSay) {
  write("mine.json", R"({"description": "small", "ext": "mkv", "size": "50%", "quality": 55.5,
                         "hflip": true, "video-option": ["a=1", "b=2"]})");
  const Preset preset = readPreset("mine");
  EXPECT_EQ(preset.description, "small");
  EXPECT_EQ(preset.extension, "mkv");
  const ConversionSettings settings = settingsWith(preset, {{"quality", "70"}});
  EXPECT_EQ(settings.scale, 0.5);
  EXPECT_EQ(settings.quality, 70);
  EXPECT_TRUE(settings.look.hflip);
  EXPECT_EQ(settings.videoOptions.size(), 2u);
}

TEST_F(PresetsTest, WhatIsWrongInAFileIsNamedWithTheFile) {
  EXPECT_EQ(refusalOf(R"({"sizze": "720p"})"), "unknown key 'sizze'; did you mean 'size'?");
  EXPECT_EQ(refusalOf(R"({"size": "big"})"),
            "size: 'big' is not a size such as 1280x720, 1280x-, 720p or 50%");
  EXPECT_EQ(refusalOf(R"({"quality": 101})"), "quality: '101' is not a number from 0 to 100");
  EXPECT_EQ(refusalOf(R"({"compatible": "yes"})"), "compatible: \"yes\" is no true or false");
  EXPECT_EQ(refusalOf(R"({"fps": [25]})"), "fps: [25] is no text");
  EXPECT_EQ(refusalOf(R"({"ext": 5})"), "ext: it is no text");
  EXPECT_EQ(refusalOf("[]"), "it is no JSON object");
  EXPECT_EQ(refusalOf("{"), "it is no JSON");
  EXPECT_THAT(refusalOf(R"({"crf": 20, "quality": 60})"), HasSubstr("give one of them"));
}

TEST_F(PresetsTest, AnUnknownNameIsAnsweredWithTheNearest) {
  EXPECT_EQ(refusal([] { readPreset("web-1080"); }),
            "there is no preset 'web-1080'; did you mean 'web-1080p'?");
  EXPECT_THAT(refusal([] { readPreset("nowhere/x.json"); }, Failure::Kind::kInput),
              HasSubstr("cannot open 'nowhere/x.json': No such file or directory"));
}

TEST_F(PresetsTest, WhatIsSavedIsReadAgain) {
  const Preset preset{.name = "tablet",
                      .description = "the old one",
                      .extension = "mp4",
                      .options = {{"size", "800x-"},
                                  {"quality", "50"},
                                  {"compatible", "true"},
                                  {"video-option", "a=1"},
                                  {"video-option", "b=2"}}};
  const std::string path = savePreset(preset);
  const Preset again = readPreset("tablet");
  EXPECT_EQ(again.path, path);
  EXPECT_EQ(again.description, preset.description);
  EXPECT_EQ(again.extension, preset.extension);
  EXPECT_EQ(again.options, preset.options);
  EXPECT_EQ(readBytes(path), R"({
  "description": "the old one",
  "ext": "mp4",
  "size": "800x-",
  "quality": 50,
  "compatible": true,
  "video-option": [
    "a=1",
    "b=2"
  ]
}
)");
  refusal([&] { savePreset(preset); }, Failure::Kind::kExists);
  EXPECT_EQ(savePreset(preset, true), path);
}

TEST_F(PresetsTest, NamesThatLeadElsewhereAreRefused) {
  for (const char* name : {"", "../x", "a/b", ".hidden", "x.json", "-x"})
    EXPECT_EQ(refusal([&] { savePreset({.name = name}); }),
              "'" + std::string(name) + "' is no name for a preset");
}

TEST_F(PresetsTest, TheUsersOwnHideThoseOfTheSameName) {
  write("phone.json", R"({"ext": "mkv"})");
  write("zebra.json", "{}");
  const auto presets = readPresets();
  EXPECT_EQ(presets.back().name, "zebra");
  EXPECT_EQ(std::ranges::count(presets, "phone", &Preset::name), 1);
  EXPECT_EQ(readPreset("phone").extension, "mkv");
}

TEST_F(PresetsTest, TheExtensionIsForTargetsThatHaveNone) {
  EXPECT_EQ(targetWith("out", readPreset("phone")), "out.mp4");
  EXPECT_EQ(targetWith("a.b/out", readPreset("phone")), "a.b/out.mp4");
  EXPECT_EQ(targetWith("out.mkv", readPreset("phone")), "out.mkv");
  EXPECT_EQ(targetWith("out", {}), "out");
}

}  // namespace
}  // namespace kestrel::test
