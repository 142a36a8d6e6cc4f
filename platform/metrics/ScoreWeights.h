#pragma once

#include <array>
#include <cmath>
#include <cstddef>

namespace kestrel {

/// How many sizes pictures are compared at, each half of the one before.
inline constexpr int kMostScales = 6;

/// Errors of one channel at one scale, each the mean over the picture or the fourth root of the
/// mean of fourth powers.
enum ErrorNorm { kStructure, kMore, kLess, kStructure4, kMore4, kLess4, kErrorNorms };

/// The weights of a picture's errors, for each channel (X, Y, B - Y), then each scale, in the order
/// of `ErrorNorm`. Pictures that have fewer scales take them in order without gaps.
/// Source: github.com/cloudinary/ssimulacra2, version 2.1.
inline constexpr std::array<double, 3 * kMostScales* kErrorNorms> kErrorWeights = {
    // clang-format off
    0, 0.0007376606707406586, 0, 0, 0.0007793481682867309, 0,
    0, 0.0004371155730107379, 0, 1.1041726426657346, 0.00066284834129271, 0.00015231632783718752,
    0, 0.0016406437456599754, 0, 1.8422455520539298, 11.441172603757666, 0,
    0.0007989109436015163, 0.000176816438078653, 0, 1.8787594979546387, 10.94906990605142, 0,
    0.0007289346991508072, 0.9677937080626833, 0, 0.00014003424285435884, 0.9981766977854967, 0.00031949755934435053,
    0.0004550992113792063, 0, 0, 0.0013648766163243398, 0, 0,

    0, 0, 0, 7.466890328078848, 0, 17.445833984131262,
    0.0006235601634041466, 0, 0, 6.683678146179332, 0.00037724407979611296, 1.027889937768264,
    225.20515300849274, 0, 0, 19.213238186143016, 0.0011401524586618361, 0.001237755635509985,
    176.39317598450694, 0, 0, 24.43300999870476, 0.28520802612117757, 0.0004485436923833408,
    0, 0, 0, 34.77906344483772, 44.835625328877896, 0,
    0, 0, 0, 0, 0, 0,

    0, 0.0008680556573291698, 0, 0, 0, 0,
    0, 0.0005313191874358747, 0, 0.00016533814161379112, 0, 0,
    0, 0, 0, 0.0004179171803251336, 0.0017290828234722833, 0,
    0.0020827005846636437, 0, 0, 8.826982764996862, 23.19243343998926, 0,
    95.1080498811086, 0.9863978034400682, 0.9834382792465353, 0.0012286405048278493, 171.2667255897307, 0.9807858872435379,
    0, 0, 0, 0.0005130064588990679, 0, 0.00010854057858411537,
    // clang-format on
};

/// The first of the weights of a channel at a scale, for pictures of so many scales.
constexpr size_t firstWeight(int channel, int scale, int scales) {
  const auto place = static_cast<size_t>(channel) * static_cast<size_t>(scales);
  return (place + static_cast<size_t>(scale)) * kErrorNorms;
}

/// The score that a weighted sum of errors comes to, from the same source.
inline double scoreOf(double sum) {
  const double error = 0.9562382616834844 * sum;
  const double straightened =
      error * (2.326765642916932 + error * (-0.020884521182843837 + error * 6.248496625763138e-05));
  return straightened > 0 ? 100 - 10 * std::pow(straightened, 0.6276336467831387) : 100;
}

}  // namespace kestrel
