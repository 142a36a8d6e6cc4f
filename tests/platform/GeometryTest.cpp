#include <gtest/gtest.h>
#include <kestrel/Geometry.h>

#include <limits>
#include <numbers>

namespace kestrel {
namespace {

void expectNear(const Point& point, double x, double y) {
  EXPECT_NEAR(point.x, x, 1e-12);
  EXPECT_NEAR(point.y, y, 1e-12);
}

TEST(GeometryTest, RectangleIsEmptyUnlessBothSidesAreAboveZero) {
  EXPECT_TRUE(isEmpty({}));
  EXPECT_TRUE(isEmpty({{3, 4}, {0, 5}}));
  EXPECT_TRUE(isEmpty({{3, 4}, {5, 0}}));
  EXPECT_TRUE(isEmpty({{3, 4}, {-1, 5}}));
  EXPECT_TRUE(isEmpty({{0, 0}, {std::numeric_limits<double>::quiet_NaN(), 5}}));
  EXPECT_FALSE(isEmpty({{-9, -9}, {0.25, 0.25}}));
}

TEST(GeometryTest, IntegralRoundsEachEdgeOutwards) {
  EXPECT_EQ(integral({{0.5, 1.25}, {2, 2}}), (Rect{{0, 1}, {3, 3}}));
  EXPECT_EQ(integral({{0, 0}, {853.3, 480}}), (Rect{{0, 0}, {854, 480}}));
}

TEST(GeometryTest, IntegralRoundsNegativeEdgesOutwardsToo) {
  EXPECT_EQ(integral({{-1.5, -0.5}, {1, 1}}), (Rect{{-2, -1}, {2, 2}}));
}

TEST(GeometryTest, IntegralLeavesWholeRectanglesAlone) {
  EXPECT_EQ(integral({{-3, 7}, {16, 9}}), (Rect{{-3, 7}, {16, 9}}));
}

TEST(GeometryTest, IntegralOfAnEmptyRectangleIsAllZeros) {
  EXPECT_EQ(integral({{3.5, 4.5}, {0, 10}}), Rect{});
  EXPECT_EQ(integral({{3.5, 4.5}, {10, -1}}), Rect{});
}

TEST(GeometryTest, EdgesFollowFromOriginAndSize) {
  const Rect rect{{1, 2}, {10, 20}};
  EXPECT_EQ(rect.minX(), 1);
  EXPECT_EQ(rect.minY(), 2);
  EXPECT_EQ(rect.maxX(), 11);
  EXPECT_EQ(rect.maxY(), 22);
}

TEST(AffineTransformTest, DefaultIsTheIdentity) {
  EXPECT_EQ(AffineTransform().apply(Point{3, -4}), (Point{3, -4}));
}

TEST(AffineTransformTest, AppliesEveryCoefficient) {
  // x' = 2·10 + 5·100 + 11, y' = 3·10 + 7·100 + 13
  EXPECT_EQ((AffineTransform{2, 3, 5, 7, 11, 13}.apply(Point{10, 100})), (Point{531, 743}));
}

TEST(AffineTransformTest, RotationTurnsCounterClockwise) {
  expectNear(AffineTransform::rotation(std::numbers::pi / 2).apply(Point{1, 0}), 0, 1);
  expectNear(AffineTransform::rotation(std::numbers::pi / 2).apply(Point{0, 1}), -1, 0);
}

TEST(AffineTransformTest, ConcatAppliesTheOtherTransformAfterwards) {
  const AffineTransform move = AffineTransform::translation(10, 20);
  const AffineTransform grow = AffineTransform::scale(2, 3);
  EXPECT_EQ(move.concat(grow).apply(Point{1, 1}), (Point{22, 63}));
  EXPECT_EQ(grow.concat(move).apply(Point{1, 1}), (Point{12, 23}));
}

TEST(AffineTransformTest, OfAChainTheLastNamedStepActsFirst) {
  const AffineTransform chain = AffineTransform().translated(10, 20).scaled(2, 3);
  EXPECT_EQ(chain.apply(Point{1, 1}), (Point{12, 23}));
  expectNear(chain.rotated(std::numbers::pi).apply(Point{1, 1}), 8, 17);
}

TEST(AffineTransformTest, InverseUndoesTheTransform) {
  const AffineTransform transform{2, 3, 5, 7, 11, 13};
  const std::optional<AffineTransform> inverse = transform.invert();
  ASSERT_TRUE(inverse);
  expectNear(inverse->apply(Point{531, 743}), 10, 100);
  expectNear(transform.apply(inverse->apply(Point{-4, 9})), -4, 9);
}

TEST(AffineTransformTest, FlatTransformHasNoInverse) {
  EXPECT_FALSE(AffineTransform::scale(0, 1).invert());
  EXPECT_FALSE((AffineTransform{1, 2, 2, 4, 0, 0}.invert()));
}

TEST(AffineTransformTest, MappedRectangleSurroundsTheMappedCorners) {
  const AffineTransform quarterTurn{0, 1, -1, 0, 0, 0};
  EXPECT_EQ(quarterTurn.apply(Rect{{1, 2}, {10, 20}}), (Rect{{-22, 1}, {20, 10}}));
  EXPECT_EQ(AffineTransform::scale(-1, 1).apply(Rect{{0, 0}, {4, 3}}), (Rect{{-4, 0}, {4, 3}}));
}

TEST(InfiniteRectTest, IsInfiniteAndNotEmpty) {
  EXPECT_TRUE(isInfinite(Rect::infinite()));
  EXPECT_FALSE(isEmpty(Rect::infinite()));
  EXPECT_FALSE(isInfinite({{-1e9, 0}, {2e9, 5}}));
}

TEST(InfiniteRectTest, StaysUnderMapsAndRounding) {
  EXPECT_EQ(integral(Rect::infinite()), Rect::infinite());
  EXPECT_EQ(AffineTransform::rotation(1).translated(5, 6).apply(Rect::infinite()),
            Rect::infinite());
}

TEST(IntersectionTest, IsWhatBothCover) {
  EXPECT_EQ(intersection({{0, 0}, {10, 5}}, {{-3, 2}, {7, 9}}), (Rect{{0, 2}, {4, 3}}));
  EXPECT_EQ(intersection(Rect::infinite(), {{-3, 2}, {7, 9}}), (Rect{{-3, 2}, {7, 9}}));
}

TEST(IntersectionTest, RectanglesThatOnlyTouchHaveNone) {
  EXPECT_EQ(intersection({{0, 0}, {10, 5}}, {{10, 0}, {7, 9}}), Rect{});
}

TEST(UniteTest, CoversBoth) {
  EXPECT_EQ(unite({{0, 0}, {1, 1}}, {{5, -2}, {1, 1}}), (Rect{{0, -2}, {6, 3}}));
  EXPECT_EQ(unite({{0, 0}, {1, 1}}, Rect::infinite()), Rect::infinite());
}

TEST(UniteTest, EmptyRectangleAddsNothing) {
  EXPECT_EQ(unite({{0, 0}, {1, 1}}, {{50, 50}, {0, 7}}), (Rect{{0, 0}, {1, 1}}));
  EXPECT_EQ(unite({}, {{50, 50}, {0, 7}}), Rect{});
}

}  // namespace
}  // namespace kestrel
