#include <gmock/gmock.h>

#include <nlohmann/json.hpp>
#include <set>
#include <string>
#include <vector>

#include "tests/e2e/Kestrel.h"

namespace kestrel::test {
namespace {

RunResult encoders(const Arguments& arguments) {
  return run(joined({kestrelBinary(), "encoders"}, arguments));
}

TEST(Encoders, OfACodecTheOneThatConvertChoosesComesFirst) {
  const RunResult result = encoders({"h264", "--json"});
  ASSERT_EQ(result.status, 0) << result.err;
  EXPECT_EQ(result.err, "");
  const auto list = nlohmann::json::parse(result.out).at("encoders");
  ASSERT_GE(list.size(), 1U);
  const auto& first = list[0];
  EXPECT_EQ(first.at("name"), "libx264");
  EXPECT_EQ(first.at("kind"), "video");
  EXPECT_EQ(first.at("usable"), true);
  EXPECT_EQ(first.at("quality").at("option"), "crf");
  EXPECT_EQ(first.at("quality").at("worst"), 51);
  EXPECT_EQ(first.at("usual_preset"), "medium");
  EXPECT_EQ(first.at("depths"), (std::vector<int>{8, 10}));
  for (const auto& encoder : list) EXPECT_EQ(encoder.at("codec"), "h264");
}

// Without a graphics card none of these opens; where there is one, they work.
TEST(Encoders, WhatDoesNotWorkHereSaysWhy) {
  const auto list = nlohmann::json::parse(encoders({"h264", "--json"}).out).at("encoders");
  for (const auto& encoder : list)
    EXPECT_EQ(encoder.at("usable").get<bool>(), !encoder.contains("trouble")) << encoder;
  std::set<std::string> usable;
  const auto all = nlohmann::json::parse(encoders({"--json"}).out).at("encoders");
  for (const auto& encoder : all) usable.insert(encoder.at("name").get<std::string>());
  for (const auto& encoder : list)
    EXPECT_EQ(usable.count(encoder.at("name").get<std::string>()) > 0,
              encoder.at("usable").get<bool>())
        << encoder;
}

TEST(Encoders, AnEncoderIsListedByItsOwnName) {
  const auto list = nlohmann::json::parse(encoders({"libx264", "--json"}).out).at("encoders");
  ASSERT_EQ(list.size(), 1U);
  EXPECT_EQ(list[0].at("name"), "libx264");
}

TEST(Encoders, AWordThatIsNoCodecIsWrongUsage) {
  EXPECT_TRUE(endsWithSentence(encoders({"libx246"}), 2,
                               "there is no codec or encoder 'libx246' of pictures or sound; did "
                               "you mean 'libx264'"));
  EXPECT_TRUE(endsWithSentence(encoders({"h2645"}), 2, "h2645"));
  EXPECT_TRUE(endsWithSentence(encoders({"subrip"}), 2, "subrip"));
}

}  // namespace
}  // namespace kestrel::test
