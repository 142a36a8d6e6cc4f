#include <gmock/gmock.h>
#include <kestrel/ArrayFilter.h>
#include <kestrel/FilterRegistry.h>

#include "tests/media/EffectStream.h"

namespace kestrel::test {
namespace {

using testing::ElementsAre;

std::shared_ptr<Filter> invert() { return FilterRegistry::filterWithName("CIColorInvert"); }

/// Each colour times 2^`stops`.
std::shared_ptr<Filter> doubled(double stops) {
  auto filter = FilterRegistry::filterWithName("CIColorControls");
  filter->setValue(std::exp2(stops), kCIInputContrastKey);
  filter->setValue((std::exp2(stops) - 1) / 2, kCIInputBrightnessKey);
  return filter;
}

/// A filter that cannot be copied.
class Uncopied : public Filter {
 public:
  Uncopied() : Filter("Uncopied") {}
  std::shared_ptr<const Image> outputImage() const override { return image(kCIInputImageKey); }
  std::shared_ptr<Filter> copy() const override { return nullptr; }
};

TEST(ArrayFilter, IsRegisteredWithItsAttributes) {
  ArrayFilter::initialize();
  ArrayFilter::initialize();
  const auto attributes = FilterRegistry::attributes("ArrayFilter");
  ASSERT_TRUE(attributes);
  EXPECT_EQ(attributes->displayName, "Array Filter");
  EXPECT_THAT(attributes->categories,
              ElementsAre(kCICategoryColorAdjustment, kCICategoryVideo, kCICategoryStillImage,
                          kCICategoryInterlaced, kCICategoryNonSquarePixels));
  const auto made = FilterRegistry::filterWithName("ArrayFilter");
  EXPECT_TRUE(std::dynamic_pointer_cast<ArrayFilter>(made));
  EXPECT_NE(made, FilterRegistry::filterWithName("ArrayFilter"));
}

TEST(ArrayFilter, IsMadeWhateverTheName) {
  EXPECT_TRUE(std::dynamic_pointer_cast<ArrayFilter>(ArrayFilter::filterWithName("any")));
}

TEST(ArrayFilter, WithoutFiltersAnswersItsInput) {
  ArrayFilter filter;
  EXPECT_EQ(filter.outputImage(), nullptr);
  const auto image = patch(0, 0, 4, 4, kRedColor);
  filter.setInputImage(image);
  EXPECT_EQ(filter.outputImage(), image);
}

TEST(ArrayFilter, RunsItsFiltersInTheirOrder) {
  ArrayFilter filter;
  filter.setInputImage(patch(0, 0, 4, 4, {0.25, 0.25, 0.25, 1}));
  filter.setFilters({invert(), doubled(-1)});  // (1 - 0.25) / 2
  EXPECT_NEAR(rgbaAt(*rendered(filter.outputImage()), 1, 1)[0], 0.375 * 255, 1);
  filter.setFilters({doubled(-1), invert()});  // 1 - 0.25 / 2
  EXPECT_NEAR(rgbaAt(*rendered(filter.outputImage()), 1, 1)[0], 0.875 * 255, 1);
}

TEST(ArrayFilter, KeysReachTheProperties) {
  ArrayFilter filter;
  const auto image = patch(0, 0, 4, 4, kRedColor);
  const auto member = invert();
  filter.setValue(image, kCIInputImageKey);
  filter.setValue(ArrayFilter::Filters{member}, "filters");
  EXPECT_EQ(filter.inputImage(), image);
  EXPECT_THAT(filter.filters(), ElementsAre(member));
  EXPECT_EQ(filter.valueForKey(kCIInputImageKey), FilterValue(image));
  EXPECT_EQ(filter.valueForKey("filters"), FilterValue(ArrayFilter::Filters{member}));
  filter.setValue({}, "filters");
  EXPECT_TRUE(filter.filters().empty());
}

TEST(ArrayFilter, OutputImageIsAKeyToo) {
  ArrayFilter filter;
  const auto image = patch(0, 0, 4, 4, kRedColor);
  filter.setInputImage(image);
  EXPECT_EQ(filter.valueForKey(kCIOutputImageKey), FilterValue(image));
}

TEST(ArrayFilter, CopySharesNoFilter) {
  ArrayFilter filter;
  filter.setFilters({doubled(1)});
  filter.setInputImage(patch(0, 0, 4, 4, {0.25, 0.25, 0.25, 1}));
  const auto copy = std::dynamic_pointer_cast<ArrayFilter>(filter.copy());
  ASSERT_TRUE(copy);
  ASSERT_EQ(copy->filters().size(), 1u);
  EXPECT_NE(copy->filters()[0], filter.filters()[0]);
  copy->filters()[0]->setValue(1.0, kCIInputContrastKey);
  copy->filters()[0]->setValue(0.0, kCIInputBrightnessKey);
  EXPECT_NEAR(rgbaAt(*rendered(filter.outputImage()), 1, 1)[0], 0.5 * 255, 1);
  EXPECT_NEAR(rgbaAt(*rendered(copy->outputImage()), 1, 1)[0], 0.25 * 255, 1);
}

TEST(ArrayFilter, CopyLeavesOutWhatCannotBeCopied) {
  ArrayFilter filter;
  filter.setFilters({invert(), std::make_shared<Uncopied>(), invert()});
  EXPECT_EQ(std::dynamic_pointer_cast<ArrayFilter>(filter.copy())->filters().size(), 2u);
}

}  // namespace
}  // namespace kestrel::test
