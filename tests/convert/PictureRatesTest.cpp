#include "convert/plan/PictureRates.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <string>
#include <utility>

#include "tests/convert/Failures.h"
#include "tests/convert/Plans.h"
#include "tests/support/Process.h"
#include "tests/support/TempDir.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
}

namespace kestrel::test {
namespace {

PictureRates ratesOf(const char* encoder, const char* container) {
  return {*avcodec_find_encoder_by_name(encoder), *av_guess_format(container, nullptr, nullptr)};
}

TEST(PictureRates, OfMpeg1AreThoseThatItOpensWith) {
  const PictureRates rates = ratesOf("mpeg1video", "mpeg");
  const AVCodec* const encoder = avcodec_find_encoder_by_name("mpeg1video");
  for (const AVRational* known = encoder->supported_framerates; known->num > 0; ++known) {
    AVCodecContext* context = avcodec_alloc_context3(encoder);
    context->width = context->height = 64;
    context->pix_fmt = AV_PIX_FMT_YUV420P;
    context->time_base = {known->den, known->num};
    context->framerate = *known;
    const bool opens = avcodec_open2(context, encoder, nullptr) == 0;
    avcodec_free_context(&context);
    EXPECT_EQ(rates.contains({known->num, known->den}), opens) << known->num;
  }
  EXPECT_EQ(rates.nearest({12, 1}), (Rational{24000, 1001}));
  EXPECT_EQ(rates.nearest({30, 1}), (Rational{30, 1}));
  EXPECT_EQ(rates.upTo({40, 1}), (Rational{30, 1}));
  EXPECT_EQ(rates.upTo({12, 1}), std::nullopt);
}

TEST(PictureRates, OfMxfAreThoseThatItWrites) {
  const TempDir folder;
  for (const char* const rate :
       {"10", "12", "15", "20", "24000/1001", "24", "25", "30", "48", "50", "60000/1001", "120"}) {
    const std::string text = rate;
    const size_t slash = text.find('/');
    const Rational wanted{std::stoi(text),
                          slash == std::string::npos ? 1 : std::stoi(text.substr(slash + 1))};
    const RunResult made =
        run({"ffmpeg", "-v", "quiet", "-y", "-f", "lavfi", "-i", "color=s=64x64:r=" + text,
             "-frames:v", "1", "-c:v", "mpeg2video", folder / "out.mxf"});
    EXPECT_EQ(ratesOf("mpeg2video", "mxf").contains(wanted), made.status == 0) << rate;
  }
}

TEST(PictureRates, WithoutAListAnyWillDo) {
  const PictureRates rates = ratesOf("mpeg4", "matroska");
  EXPECT_TRUE(rates.contains({7, 3}));
  EXPECT_EQ(rates.nearest({7, 3}), (Rational{7, 3}));
  EXPECT_EQ(rates.upTo({7, 3}), (Rational{7, 3}));
}

TEST(PictureRates, ThatUsersNameMayBeRoundedButNotOther) {
  ConversionSettings settings;
  settings.fps = Rational{2997, 100};
  EXPECT_EQ(planOf("av25.mp4", "a.mpg", settings).rate(), (Rational{30000, 1001}));
  settings.fps = Rational{12, 1};
  const auto [kind, sentence] = refusalOf("av25.mp4", "a.mpg", settings);
  EXPECT_EQ(kind, Failure::Kind::kSettings);
  EXPECT_THAT(sentence, testing::HasSubstr("mpeg1video has no 12 pictures a second in mpeg, the "
                                           "nearest are 23.976"));
  EXPECT_EQ(refusalOf("av25.mp4", "a.mxf", settings).first, Failure::Kind::kSettings);
  settings.fps.reset();
  settings.maxFps = Rational{12, 1};
  EXPECT_EQ(refusalOf("av25.mp4", "a.mpg", settings).first, Failure::Kind::kSettings);
  settings.maxFps = Rational{49, 2};
  EXPECT_EQ(planOf("av25.mp4", "a.mpg", settings).rate(), (Rational{24, 1}));
}

}  // namespace
}  // namespace kestrel::test
