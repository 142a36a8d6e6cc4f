#include "platform/image/plan/WorkerPool.h"

#include <gtest/gtest.h>

#include <atomic>
#include <set>
#include <thread>

#include "platform/image/layers/Arena.h"
#include "platform/image/layers/Layer.h"

namespace kestrel {
namespace {

TEST(WorkerPoolTest, DoesEveryTaskOnce) {
  for (const int threads : {1, 2, 5}) {
    std::vector<std::atomic<int>> done(97);
    WorkerPool pool;
    pool.run(97, threads, [&](int task, int) { ++done[static_cast<size_t>(task)]; });
    for (const auto& count : done) EXPECT_EQ(count, 1);
  }
}

TEST(WorkerPoolTest, WorkersHaveNumbersOfTheirOwn) {
  WorkerPool pool;
  std::atomic<int> busy[4] = {};
  std::atomic<bool> isClean = true;
  pool.run(400, 4, [&](int, int worker) {
    if (worker < 0 || worker >= 4 || ++busy[worker] != 1) isClean = false;
    std::this_thread::yield();
    --busy[worker];
  });
  EXPECT_TRUE(isClean);
}

TEST(WorkerPoolTest, OneThreadMeansTheCaller) {
  WorkerPool pool;
  std::set<std::thread::id> seen;
  pool.run(10, 1, [&](int, int) { seen.insert(std::this_thread::get_id()); });
  EXPECT_EQ(seen, std::set{std::this_thread::get_id()});
}

TEST(WorkerPoolTest, NoTasksIsDoneAtOnce) {
  WorkerPool pool;
  pool.run(0, 4, [](int, int) { FAIL(); });
}

TEST(WorkerPoolTest, SeveralCallersShareTheThreads) {
  WorkerPool pool;
  std::vector<std::jthread> callers;
  for (int c = 0; c < 4; ++c) {
    callers.emplace_back([&pool] {
      for (int i = 0; i < 50; ++i) {
        std::atomic<int> sum = 0;
        pool.run(20, 3, [&](int task, int) { sum += task; });
        EXPECT_EQ(sum, 190);
      }
    });
  }
}

TEST(ArenaTest, MemoryIsAlignedAndDoesNotOverlap) {
  Arena arena;
  const auto a = arena.array<uint8_t>(3);
  const auto b = arena.array<uint8_t>(100000);
  const auto c = arena.array<uint8_t>(3);
  for (const auto& span : {a, b, c})
    EXPECT_EQ(reinterpret_cast<uintptr_t>(span.data()) % Arena::kAlignment, 0u);
  std::fill(b.begin(), b.end(), uint8_t{7});
  std::fill(a.begin(), a.end(), uint8_t{1});
  std::fill(c.begin(), c.end(), uint8_t{2});
  EXPECT_EQ(b.front(), 7);
  EXPECT_EQ(b.back(), 7);
}

TEST(ArenaTest, GivesOutTheSameMemoryAgain) {
  Arena arena;
  const void* const small = arena.allocate(10);
  const void* const large = arena.allocate(1 << 20);
  arena.reset();
  EXPECT_EQ(arena.allocate(10), small);
  EXPECT_EQ(arena.allocate(1 << 20), large);
}

TEST(ArenaTest, ScopeTakesBackItsOwn) {
  Arena arena;
  arena.allocate(100);
  const void* inner = nullptr;
  {
    const ArenaScope scope(arena);
    inner = arena.allocate(100);
  }
  EXPECT_EQ(arena.allocate(100), inner);
}

TEST(TilingTest, PiecesCoverTheRectangleOnce) {
  const IntRect rect{-7, 3, 5000, 90};
  const Tiling tiling(nullptr, rect);
  int64_t area = 0;
  for (int i = 0; i < tiling.count(); ++i) {
    const IntRect piece = tiling.piece(i);
    EXPECT_TRUE(rect.contains(piece));
    EXPECT_EQ((piece.y0 - rect.y0) % 4, 0);
    for (int j = 0; j < i; ++j) EXPECT_TRUE(piece.intersect(tiling.piece(j)).isEmpty());
    area += int64_t{piece.width()} * piece.height();
  }
  EXPECT_EQ(area, int64_t{rect.width()} * rect.height());
}

}  // namespace
}  // namespace kestrel
