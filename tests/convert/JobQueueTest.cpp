#include "convert/feed/JobQueue.h"

#include <gmock/gmock.h>

#include <atomic>
#include <chrono>
#include <future>
#include <memory>
#include <stdexcept>
#include <thread>
#include <vector>

namespace kestrel::test {
namespace {

TEST(JobQueue, RunsAllInOrderOnOneOtherThread) {
  std::vector<int> numbers;
  std::vector<std::thread::id> threads;
  JobQueue queue(2);
  std::vector<int> expected;
  for (int i = 0; i < 100; ++i) {
    expected.push_back(i);
    queue.push([&, i] {
      numbers.push_back(i);
      threads.push_back(std::this_thread::get_id());
    });
  }
  queue.finish();
  EXPECT_EQ(numbers, expected);
  EXPECT_THAT(threads, testing::Each(threads.front()));
  EXPECT_NE(threads.front(), std::this_thread::get_id());
}

TEST(JobQueue, HoldsBackWhoBringsMoreThanMayWait) {
  std::promise<void> go;
  std::atomic<int> pushed = 0;
  JobQueue queue(2);
  queue.push([future = go.get_future().share()] { future.wait(); });
  std::jthread pusher([&] {
    for (int i = 0; i < 5; ++i) {
      queue.push([] {});
      ++pushed;
    }
  });
  // Two may wait behind the one that runs.
  while (pushed < 2) std::this_thread::yield();
  for (int i = 0; i < 100; ++i) std::this_thread::yield();
  EXPECT_EQ(pushed, 2);
  go.set_value();
  pusher.join();
  queue.finish();
  EXPECT_EQ(pushed, 5);
}

TEST(JobQueue, AFailureEndsItAndComesOutAtThePushAndAtTheEnd) {
  std::atomic<int> run = 0;
  JobQueue queue(1);
  const auto pushMany = [&] {
    queue.push([] { throw std::runtime_error("the disk is full"); });
    for (int i = 0; i < 10; ++i) queue.push([&] { ++run; });
  };
  EXPECT_THROW(pushMany(), std::runtime_error);
  EXPECT_THROW(queue.finish(), std::runtime_error);
  EXPECT_THROW(queue.push([] {}), std::runtime_error);
  EXPECT_EQ(run, 0);
}

TEST(JobQueue, AnEmptyOneIsFinished) { EXPECT_NO_THROW(JobQueue(1).finish()); }

TEST(JobQueue, GoingAwayDropsWhatWaitsAndLetsWhatRunsEnd) {
  /// Goes with the jobs that hold it.
  struct Held {
    ~Held() { gone.set_value(); }
    std::promise<void> gone;
  };
  auto held = std::make_shared<Held>();
  std::promise<void> begun;
  bool hasSeenThemGo = false;
  std::atomic<int> run = 0;
  {
    JobQueue queue(5);
    queue.push([&, gone = held->gone.get_future().share()] {
      begun.set_value();
      hasSeenThemGo = gone.wait_for(std::chrono::seconds(60)) == std::future_status::ready;
    });
    begun.get_future().wait();
    for (int i = 0; i < 5; ++i) queue.push([held, &run] { ++run; });
    held.reset();
  }
  EXPECT_TRUE(hasSeenThemGo);
  EXPECT_EQ(run, 0);
}

TEST(JobQueue, WhatAJobHoldsGoesWithIt) {
  const auto held = std::make_shared<int>(1);
  JobQueue queue(2);
  queue.push([held] {});
  queue.finish();
  EXPECT_EQ(held.use_count(), 1);
}

}  // namespace
}  // namespace kestrel::test
