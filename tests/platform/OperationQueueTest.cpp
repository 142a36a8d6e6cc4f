#include <gtest/gtest.h>
#include <kestrel/OperationQueue.h>

#include <atomic>
#include <filesystem>
#include <future>
#include <latch>
#include <stdexcept>
#include <vector>

namespace kestrel {
namespace {

std::shared_ptr<Operation> makeOperation(std::function<void()> block) {
  return std::make_shared<BlockOperation>(std::move(block));
}

long threadCount() {
  const std::filesystem::directory_iterator tasks("/proc/self/task");
  return std::distance(begin(tasks), end(tasks));
}

TEST(OperationTest, StartRunsTheWorkOnTheCallingThread) {
  std::thread::id thread;
  const auto operation = makeOperation([&] { thread = std::this_thread::get_id(); });
  EXPECT_FALSE(operation->isFinished());
  operation->start();
  EXPECT_TRUE(operation->isFinished());
  EXPECT_EQ(thread, std::this_thread::get_id());
}

TEST(OperationTest, RunsOnlyOnce) {
  int runs = 0;
  const auto operation = makeOperation([&] { ++runs; });
  operation->start();
  operation->start();
  EXPECT_EQ(runs, 1);
}

TEST(OperationTest, ExceptionEndsTheOperationOnly) {
  const auto operation = makeOperation([] { throw std::runtime_error("broken"); });
  operation->start();
  EXPECT_TRUE(operation->isFinished());
}

TEST(OperationTest, EmptyBlockIsWorkWithoutEffect) {
  const auto operation = makeOperation(nullptr);
  operation->start();
  EXPECT_TRUE(operation->isFinished());
}

TEST(OperationTest, WaitingFromWithinTheWorkReturns) {
  std::shared_ptr<Operation> operation;
  operation = makeOperation([&] { operation->waitUntilFinished(); });
  operation->start();
  EXPECT_TRUE(operation->isFinished());
}

TEST(OperationTest, BlockIsReleasedByTheTimeTheOperationIsFinished) {
  OperationQueue queue;
  auto held = std::make_shared<int>();
  const std::weak_ptr<int> watch = held;
  const auto operation = makeOperation([held = std::move(held)] {});
  queue.addOperation(operation);
  operation->waitUntilFinished();
  EXPECT_TRUE(watch.expired());
}

class Counter : public Operation {
 public:
  int count = 0;

 protected:
  void main() override { ++count; }
};

TEST(OperationQueueTest, RunsOperationsOfAnyKind) {
  OperationQueue queue;
  const auto counter = std::make_shared<Counter>();
  queue.addOperation(counter);
  counter->waitUntilFinished();
  EXPECT_EQ(counter->count, 1);
}

TEST(OperationQueueTest, SerialQueueRunsInTheOrderOfAdding) {
  OperationQueue queue;
  EXPECT_EQ(queue.maxConcurrentOperationCount(), 1);
  std::vector<int> order;  // unguarded on purpose: a serial queue needs no lock
  for (int i = 0; i < 100; ++i) queue.addOperation([&order, i] { order.push_back(i); });
  queue.waitUntilAllOperationsAreFinished();
  ASSERT_EQ(order.size(), 100u);
  for (int i = 0; i < 100; ++i) EXPECT_EQ(order[i], i);
}

TEST(OperationQueueTest, AddingDoesNotWait) {
  std::latch gate(1);
  OperationQueue queue;
  const auto operation = makeOperation([&] { gate.wait(); });
  queue.addOperation(operation);
  EXPECT_FALSE(operation->isFinished());
  gate.count_down();
  operation->waitUntilFinished();
  EXPECT_TRUE(operation->isFinished());
}

TEST(OperationQueueTest, AsManyOperationsAsAllowedRunTogether) {
  OperationQueue queue;
  queue.setMaxConcurrentOperationCount(3);
  EXPECT_EQ(queue.maxConcurrentOperationCount(), 3);
  std::latch together(3);
  for (int i = 0; i < 3; ++i) queue.addOperation([&] { together.arrive_and_wait(); });
  queue.waitUntilAllOperationsAreFinished();
  EXPECT_TRUE(together.try_wait());
}

TEST(OperationQueueTest, NeverMoreThanAllowedRunTogether) {
  OperationQueue queue;
  queue.setMaxConcurrentOperationCount(2);
  std::atomic<int> running = 0;
  std::atomic<int> most = 0;
  for (int i = 0; i < 200; ++i) {
    queue.addOperation([&] {
      const int now = ++running;
      int seen = most;
      while (now > seen && !most.compare_exchange_weak(seen, now)) {
      }
      std::this_thread::yield();
      --running;
    });
  }
  queue.waitUntilAllOperationsAreFinished();
  EXPECT_LE(most, 2);
}

TEST(OperationQueueTest, RaisingTheCountFreesWhatIsQueued) {
  OperationQueue queue;
  std::latch together(2);
  for (int i = 0; i < 2; ++i) queue.addOperation([&] { together.arrive_and_wait(); });
  queue.setMaxConcurrentOperationCount(2);
  queue.waitUntilAllOperationsAreFinished();
  EXPECT_TRUE(together.try_wait());
}

TEST(OperationQueueTest, LoweringTheCountHoldsBackWhatIsQueued) {
  OperationQueue queue;
  queue.setMaxConcurrentOperationCount(3);
  std::latch together(3);
  for (int i = 0; i < 3; ++i) queue.addOperation([&] { together.arrive_and_wait(); });
  queue.waitUntilAllOperationsAreFinished();

  queue.setMaxConcurrentOperationCount(1);
  std::vector<int> order;
  for (int i = 0; i < 50; ++i) queue.addOperation([&order, i] { order.push_back(i); });
  queue.waitUntilAllOperationsAreFinished();
  ASSERT_EQ(order.size(), 50u);
  for (int i = 0; i < 50; ++i) EXPECT_EQ(order[i], i);
}

TEST(OperationQueueTest, CountsBelowOneCountAsOne) {
  OperationQueue queue;
  queue.setMaxConcurrentOperationCount(0);
  EXPECT_EQ(queue.maxConcurrentOperationCount(), 1);
  queue.setMaxConcurrentOperationCount(-1);
  EXPECT_EQ(queue.maxConcurrentOperationCount(), 1);
}

TEST(OperationQueueTest, UnusedQueueStartsNoThread) {
  const long before = threadCount();
  OperationQueue queue;
  queue.setMaxConcurrentOperationCount(8);
  queue.waitUntilAllOperationsAreFinished();
  EXPECT_LE(threadCount(), before);
}

TEST(OperationQueueTest, SerialQueueKeepsOneThread) {
  OperationQueue queue;
  std::vector<std::thread::id> threads;
  for (int i = 0; i < 20; ++i) {
    queue.addOperation([&] { threads.push_back(std::this_thread::get_id()); });
    queue.waitUntilAllOperationsAreFinished();
  }
  EXPECT_EQ(threads, std::vector(20, threads.front()));
  EXPECT_NE(threads.front(), std::this_thread::get_id());
}

TEST(OperationQueueTest, ExceptionDoesNotStopTheQueue) {
  OperationQueue queue;
  bool ran = false;
  queue.addOperation([] { throw std::runtime_error("broken"); });
  queue.addOperation([] { throw 7; });
  queue.addOperation([&] { ran = true; });
  queue.waitUntilAllOperationsAreFinished();
  EXPECT_TRUE(ran);
}

TEST(OperationQueueTest, NullIsNotAdded) {
  OperationQueue queue;
  queue.addOperation(std::shared_ptr<Operation>());
  queue.waitUntilAllOperationsAreFinished();
}

TEST(OperationQueueTest, KnowsItsOwnThreads) {
  OperationQueue queue;
  OperationQueue other;
  bool own = false;
  bool foreign = true;
  queue.addOperation([&] {
    own = queue.isCurrentQueue();
    foreign = other.isCurrentQueue();
  });
  queue.waitUntilAllOperationsAreFinished();
  EXPECT_TRUE(own);
  EXPECT_FALSE(foreign);
  EXPECT_FALSE(queue.isCurrentQueue());
}

TEST(OperationQueueTest, WorkStartedInlineStaysOnTheCurrentQueue) {
  OperationQueue queue;
  bool own = false;
  queue.addOperation([&] { makeOperation([&] { own = queue.isCurrentQueue(); })->start(); });
  queue.waitUntilAllOperationsAreFinished();
  EXPECT_TRUE(own);
}

TEST(OperationQueueTest, WaitingForAllFromAnOperationReturns) {
  OperationQueue queue;
  bool returned = false;
  queue.addOperation([&] {
    queue.waitUntilAllOperationsAreFinished();
    returned = true;
  });
  queue.waitUntilAllOperationsAreFinished();
  EXPECT_TRUE(returned);
}

TEST(OperationQueueTest, WaitingForAllIncludesWhatOperationsAdd) {
  OperationQueue queue;
  int ran = 0;
  queue.addOperation([&] {
    ++ran;
    queue.addOperation([&] {
      ++ran;
      queue.addOperation([&] { ++ran; });
    });
  });
  queue.waitUntilAllOperationsAreFinished();
  EXPECT_EQ(ran, 3);
}

TEST(OperationQueueTest, OperationStartedElsewhereIsSkipped) {
  OperationQueue queue;
  int runs = 0;
  const auto operation = makeOperation([&] { ++runs; });
  operation->start();
  queue.addOperation(operation);
  queue.waitUntilAllOperationsAreFinished();
  EXPECT_EQ(runs, 1);
}

TEST(OperationQueueTest, SerialQueueWaitsForAnOperationThatRunsElsewhere) {
  std::latch started(1);
  std::latch gate(1);
  std::atomic<bool> firstDone = false;
  bool inOrder = false;
  OperationQueue queue;
  const auto first = makeOperation([&] {
    started.count_down();
    gate.wait();
    firstDone = true;
  });
  std::thread elsewhere([&] { first->start(); });
  started.wait();
  queue.addOperation(first);
  queue.addOperation([&] { inOrder = firstDone; });
  gate.count_down();
  queue.waitUntilAllOperationsAreFinished();
  elsewhere.join();
  EXPECT_TRUE(inOrder);
}

TEST(OperationQueueTest, DestructorRunsWhatIsQueued) {
  int ran = 0;
  std::latch gate(1);
  {
    OperationQueue queue;
    queue.addOperation([&] { gate.wait(); });
    for (int i = 0; i < 50; ++i) queue.addOperation([&] { ++ran; });
    gate.count_down();
  }
  EXPECT_EQ(ran, 50);
}

TEST(OperationQueueTest, DestructorRunsWhatOperationsAddMeanwhile) {
  std::atomic<int> ran = 0;
  for (const int count : {1, 3}) {
    OperationQueue queue;
    queue.setMaxConcurrentOperationCount(count);
    for (int i = 0; i < 20; ++i) {
      queue.addOperation([&] { queue.addOperation([&] { ++ran; }); });
    }
  }
  EXPECT_EQ(ran, 40);
}

TEST(OperationQueueTest, QueueDestroyedByItsOwnOperationRunsTheRestFirst) {
  for (const int count : {1, 3}) {
    std::latch gate(1);
    std::atomic<int> ran = 0;
    const auto ranAtTheEnd = std::make_shared<std::promise<int>>();
    std::future<int> answer = ranAtTheEnd->get_future();

    auto queue = std::make_unique<OperationQueue>();
    queue->setMaxConcurrentOperationCount(count);
    OperationQueue* const address = queue.get();
    address->addOperation([&gate, &ran, &queue, ranAtTheEnd] {
      gate.wait();
      queue.reset();
      ranAtTheEnd->set_value(ran);
    });
    for (int i = 0; i < 10; ++i) address->addOperation([&ran] { ++ran; });
    gate.count_down();
    EXPECT_EQ(answer.get(), 10);
  }
}

TEST(OperationQueueTest, OperationsFromManyThreadsAllRun) {
  constexpr int kThreads = 8;
  constexpr int kOperations = 200;
  std::atomic<int> ran = 0;
  OperationQueue queue;
  queue.setMaxConcurrentOperationCount(3);
  std::vector<std::thread> threads;
  for (int i = 0; i < kThreads; ++i) {
    threads.emplace_back([&] {
      for (int j = 0; j < kOperations; ++j) {
        const auto operation = makeOperation([&ran] { ++ran; });
        queue.addOperation(operation);
        if (j % 10 == 0) operation->waitUntilFinished();
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  queue.waitUntilAllOperationsAreFinished();
  EXPECT_EQ(ran, kThreads * kOperations);
}

}  // namespace
}  // namespace kestrel
