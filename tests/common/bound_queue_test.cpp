// The bounded queue: order, blocking, quit, statistics and warnings.
#include "common/bound_queue.h"

#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <set>
#include <thread>
#include <vector>

#include "support/recorded_log.h"

namespace analysis::rokt::common::queue {
namespace {

using tiv::test::RecordedLog;

void PushTimes(BoundQueue<int>& queue, int count) {
    for (int i = 0; i < count; ++i) {
        (void)queue.Push(i);
    }
}

// False when the warning has not been written that often within ten seconds.
bool WaitForCount(const std::string& warning, size_t count) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (RecordedLog::Instance().Count('W', warning) < count) {
        if (std::chrono::steady_clock::now() > deadline) {
            return false;
        }
        std::this_thread::yield();
    }
    return true;
}

TEST(BoundQueue, ElementsLeaveInTheOrderOfTheirPushes) {
    BoundQueue<int> queue(3);
    PushTimes(queue, 3);
    std::vector<int> taken(3, -1);

    EXPECT_TRUE(queue.TryPop(taken[0]));
    queue.Pop(taken[1]);
    EXPECT_TRUE(queue.TryPop(taken[2]));

    EXPECT_EQ(taken, (std::vector<int>{0, 1, 2}));
    EXPECT_EQ(queue.Size(), 0U);
}

TEST(BoundQueue, TryPopOfAnEmptyQueueLeavesTheDataAlone) {
    BoundQueue<int> queue(1);
    int data = 7;

    EXPECT_FALSE(queue.TryPop(data));

    EXPECT_EQ(data, 7);
}

TEST(BoundQueue, PopMovesTheElementOut) {
    BoundQueue<std::shared_ptr<int>> queue(1);
    auto element = std::make_shared<int>(5);
    ASSERT_TRUE(queue.Push(element));
    std::shared_ptr<int> taken;

    queue.Pop(taken);

    EXPECT_EQ(taken, element);
    EXPECT_EQ(element.use_count(), 2);
}

TEST(BoundQueue, PushIntoAFullQueueWaitsForRoom) {
    BoundQueue<int> queue(1);
    ASSERT_TRUE(queue.Push(1));
    bool stored = false;
    std::thread producer([&] { stored = queue.Push(2); });
    ASSERT_TRUE(RecordedLog::Instance().WaitFor(
        'W', "IsFULL, QueueName: BoundQueue, QueueCapacity:1, QueueSize:1"));
    int first = 0;
    int second = 0;

    queue.Pop(first);
    producer.join();
    queue.Pop(second);

    EXPECT_TRUE(stored);
    EXPECT_EQ(first, 1);
    EXPECT_EQ(second, 2);
}

TEST(BoundQueue, FullQueueWarnsOnceOfItselfAndAtEachLook) {
    const std::string full =
        "QueueFull,QueueName: BoundQueue, QueueCapacity:1, QueueSize:1, Percent:100.0000%";
    const std::string look = "IsFULL, QueueName: BoundQueue, QueueCapacity:1, QueueSize:1";
    BoundQueue<int> queue(1);
    ASSERT_TRUE(queue.Push(1));
    std::thread producer([&] { (void)queue.Push(2); });
    ASSERT_TRUE(RecordedLog::Instance().WaitFor('W', full));
    int data = 0;

    queue.Pop(data);
    producer.join();

    EXPECT_EQ(RecordedLog::Instance().Count('W', full), 1U);
    EXPECT_GE(RecordedLog::Instance().Count('W', look), 2U);
}

TEST(BoundQueue, WakeUpIntoAFullQueueWarnsAgain) {
    const std::string look = "IsFULL, QueueName: BoundQueue, QueueCapacity:1, QueueSize:1";
    BoundQueue<int> queue(1);
    ASSERT_TRUE(queue.Push(1));
    std::thread first([&] { (void)queue.Push(2); });
    std::thread second([&] { (void)queue.Push(3); });
    // Two looks of each producer before both of them wait.
    ASSERT_TRUE(WaitForCount(look, 4));
    int data = 0;

    queue.Pop(data);

    EXPECT_TRUE(WaitForCount(look, 5));
    queue.Quit();
    first.join();
    second.join();
}

TEST(BoundQueue, QueueWithRoomWarnsOfNothing) {
    BoundQueue<int> queue(2);

    ASSERT_TRUE(queue.Push(1));
    ASSERT_TRUE(queue.Push(2));

    EXPECT_EQ(RecordedLog::Instance().CountOf('W'), 0U);
}

TEST(BoundQueue, CapacityZeroBlocksUntilQuit) {
    BoundQueue<int> queue(0);
    bool stored = true;
    std::thread producer([&] { stored = queue.Push(1); });
    // The second look is the one that decides to wait.
    EXPECT_TRUE(WaitForCount("IsFULL, QueueName: BoundQueue, QueueCapacity:0, QueueSize:0", 2));

    queue.Quit();
    producer.join();

    EXPECT_FALSE(stored);
    EXPECT_EQ(queue.Size(), 0U);
    EXPECT_FALSE(RecordedLog::Instance().Contains('W', "QueueFull"));
}

TEST(BoundQueue, CapacityZeroWritesNoStatistics) {
    BoundQueue<int> queue(0);
    queue.Quit();

    PushTimes(queue, 500);

    EXPECT_EQ(RecordedLog::Instance().CountOf('I'), 0U);
}

TEST(BoundQueue, QuitRefusesPushesAndDeliversTheRest) {
    BoundQueue<int> queue(5);
    ASSERT_TRUE(queue.Push(1));
    ASSERT_TRUE(queue.Push(2));
    int data = 0;

    queue.Quit();

    EXPECT_FALSE(queue.Push(3));
    queue.Pop(data);
    EXPECT_EQ(data, 1);
    EXPECT_TRUE(queue.TryPop(data));
    EXPECT_EQ(data, 2);
}

TEST(BoundQueue, PopOfAnEmptyQueueThatQuitLeavesTheDataAlone) {
    BoundQueue<int> queue(1);
    int data = 7;
    queue.Quit();

    queue.Pop(data);

    EXPECT_EQ(data, 7);
}

TEST(BoundQueue, QuitWakesABlockedConsumer) {
    BoundQueue<int> queue(1);
    int data = 7;
    std::thread consumer([&] { queue.Pop(data); });

    queue.Quit();
    consumer.join();

    EXPECT_EQ(data, 7);
}

TEST(BoundQueue, EachFiveHundredthPushWritesStatistics) {
    BoundQueue<int> queue(1000);

    PushTimes(queue, 499);
    EXPECT_EQ(RecordedLog::Instance().CountOf('I'), 0U);
    PushTimes(queue, 1);

    EXPECT_EQ(RecordedLog::Instance().OwnTexts('I'),
              std::vector<std::string>({"QueueName: BoundQueue, QueueCapacity:1000, QueueSize:499, "
                                        "HisMaxCut:499, Percent:49.9000%"}));
}

TEST(BoundQueue, CountBeginsAgainBehindTheStatistics) {
    BoundQueue<int> queue(2000);

    PushTimes(queue, 999);
    EXPECT_EQ(RecordedLog::Instance().CountOf('I'), 1U);
    PushTimes(queue, 1);

    EXPECT_EQ(RecordedLog::Instance().CountOf('I'), 2U);
}

TEST(BoundQueue, LargestSizeIsRemembered) {
    BoundQueue<int> queue(1000);
    int data = 0;
    PushTimes(queue, 20);
    for (int i = 0; i < 19; ++i) {
        queue.Pop(data);
    }
    for (int i = 0; i < 480; ++i) {
        queue.Pop(data);
        PushTimes(queue, 1);
    }

    EXPECT_EQ(RecordedLog::Instance().OwnTexts('I'),
              std::vector<std::string>({"QueueName: BoundQueue, QueueCapacity:1000, QueueSize:0, "
                                        "HisMaxCut:19, Percent:0.0000 %"}));
}

TEST(BoundQueue, NameStandsInTheMessages) {
    BoundQueue<int> queue(0);

    queue.SetQueueName("uploads");
    queue.SetQueueName("");

    EXPECT_TRUE(queue.IsFull());
    EXPECT_TRUE(RecordedLog::Instance().Has(
        'W', "IsFULL, QueueName: uploads, QueueCapacity:0, QueueSize:0"));
}

TEST(BoundQueue, ManyProducersAndConsumersLoseNothing) {
    RecordedLog::Instance().SetLevel(DLOG_ERROR);
    BoundQueue<int> queue(4);
    std::multiset<int> taken[2];
    std::vector<std::thread> threads;
    threads.emplace_back([&] { PushTimes(queue, 1000); });
    threads.emplace_back([&] { PushTimes(queue, 1000); });
    for (auto& own : taken) {
        threads.emplace_back([&queue, &own] {
            for (int i = 0; i < 1000; ++i) {
                int data = -1;
                queue.Pop(data);
                own.insert(data);
            }
        });
    }
    for (auto& thread : threads) {
        thread.join();
    }

    taken[0].insert(taken[1].begin(), taken[1].end());

    EXPECT_EQ(taken[0].size(), 2000U);
    EXPECT_EQ(taken[0].count(999), 2U);
    EXPECT_EQ(taken[0].count(-1), 0U);
}

}  // namespace
}  // namespace analysis::rokt::common::queue
