#include "DHCPCore/Queue.hpp"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <future>
#include <latch>
#include <memory>
#include <stdexcept>
#include <thread>
#include <unistd.h>
#include <vector>

namespace DHCPCore {
namespace {

using namespace std::chrono_literals;

constexpr auto patience = 10s;

TEST(SerialQueueTest, RunsWorkInTheOrderInWhichItWasHandedIn) {
    SerialQueue queue("order");
    std::vector<int> order;
    for (int index = 0; index < 100; ++index) {
        queue.async([&order, index] { order.push_back(index); });
    }
    queue.sync([] {});
    std::vector<int> expected(100);
    for (int index = 0; index < 100; ++index) {
        expected[static_cast<std::size_t>(index)] = index;
    }
    EXPECT_EQ(order, expected);
}

TEST(SerialQueueTest, GivesTheResultOfSynchronousWork) {
    SerialQueue queue("result");
    EXPECT_EQ(queue.sync([] { return 42; }), 42);
}

TEST(SerialQueueTest, ThrowsWhatSynchronousWorkThrows) {
    SerialQueue queue("throw");
    EXPECT_THROW(queue.sync([] { throw std::runtime_error("no"); }), std::runtime_error);
    EXPECT_EQ(queue.sync([] { return 1; }), 1) << "the queue goes on";
}

TEST(SerialQueueTest, RunsSynchronousWorkAtOnceOnItsOwnThread) {
    SerialQueue queue("nested");
    EXPECT_EQ(queue.sync([&] { return queue.sync([] { return 7; }); }), 7);
}

TEST(SerialQueueTest, FinishesWhatWasHandedInBeforeItIsDestroyed) {
    std::atomic<int> done = 0;
    {
        SerialQueue queue("drain");
        for (int index = 0; index < 50; ++index) {
            queue.async([&] { ++done; });
        }
    }
    EXPECT_EQ(done, 50);
}

TEST(SerialQueueTest, ForgetsDelayedWorkWhenItIsDestroyed) {
    auto alive = std::make_shared<int>(1);
    {
        SerialQueue queue("forget");
        queue.after(1h, [alive] { FAIL() << "an hour has not passed"; });
    }
    EXPECT_EQ(alive.use_count(), 1) << "the work is gone with the queue";
}

TEST(SerialQueueTest, RunsDelayedWorkOnItsThread) {
    SerialQueue queue("delayed");
    std::promise<std::thread::id> ran;
    queue.after(1ms, [&] { ran.set_value(std::this_thread::get_id()); });
    auto future = ran.get_future();
    ASSERT_EQ(future.wait_for(patience), std::future_status::ready);
    EXPECT_EQ(future.get(), queue.sync([] { return std::this_thread::get_id(); }));
}

TEST(SerialQueueTest, RepeatsWorkUntilItsSubscriptionIsDropped) {
    SerialQueue queue("repeat");
    std::latch thrice(3);
    std::atomic<int> calls = 0;
    auto subscription = queue.every(1ms, 1ms, [&] {
        if (++calls <= 3) {
            thrice.count_down();
        }
    });
    thrice.wait();
    subscription.reset();
    const int before = calls;
    queue.sync([] {});
    EXPECT_EQ(calls, before);
}

TEST(SerialQueueTest, LetsRepeatedWorkDropItsOwnSubscription) {
    SerialQueue queue("selfish");
    std::unique_ptr<Subscription> subscription;
    std::promise<void> dropped;
    int calls = 0;
    queue.sync([&] {
        subscription = queue.every(0ms, 1ms, [&] {
            ++calls;
            subscription.reset();
            dropped.set_value();
        });
    });
    ASSERT_EQ(dropped.get_future().wait_for(patience), std::future_status::ready);
    EXPECT_EQ(queue.sync([&] { return calls; }), 1);
}

TEST(SerialQueueTest, TellsThatADescriptorIsReadableAndLeavesItOpen) {
    std::array<int, 2> ends{};
    ASSERT_EQ(::pipe(ends.data()), 0);
    {
        SerialQueue queue("readable");
        std::promise<char> read;
        auto subscription = queue.whenReadable(ends[0], [&] {
            char byte = 0;
            if (::read(ends[0], &byte, 1) == 1) {
                read.set_value(byte);
            }
        });
        ASSERT_EQ(::write(ends[1], "x", 1), 1);
        auto future = read.get_future();
        ASSERT_EQ(future.wait_for(patience), std::future_status::ready);
        EXPECT_EQ(future.get(), 'x');
    }
    EXPECT_EQ(::close(ends[0]), 0) << "the descriptor is the caller's";
    EXPECT_EQ(::close(ends[1]), 0);
}

TEST(SerialQueueTest, MayBeDestroyedOnItsOwnThread) {
    auto queue = std::make_shared<SerialQueue>("own thread");
    std::promise<void> destroyed;
    SerialQueue& itself = *queue;
    itself.async([&destroyed, last = std::move(queue)]() mutable {
        last.reset();
        destroyed.set_value();
    });
    EXPECT_EQ(destroyed.get_future().wait_for(patience), std::future_status::ready);
}

TEST(SerialQueueTest, DropsRemoteWorkOnceItIsGone) {
    std::function<void(SerialQueue::Work)> remote;
    {
        SerialQueue queue("remote");
        remote = queue.remote();
        std::promise<void> ran;
        remote([&] { ran.set_value(); });
        EXPECT_EQ(ran.get_future().wait_for(patience), std::future_status::ready);
    }
    remote([] { FAIL() << "there is no queue to run this"; });
}

TEST(SerialQueueTest, SurvivesASubscriptionThatOutlivesIt) {
    std::unique_ptr<Subscription> subscription;
    {
        SerialQueue queue("shorter");
        subscription = queue.every(1h, 1h, [] {});
    }
    subscription.reset();
}

TEST(ConcurrentQueueTest, RunsJobsInParallel) {
    ConcurrentQueue queue("parallel");
    std::latch together(8); // opens only when all eight run at the same time
    std::latch done(8);
    for (int index = 0; index < 8; ++index) {
        queue.async([&] {
            together.arrive_and_wait();
            done.count_down();
        });
    }
    done.wait();
}

TEST(ConcurrentQueueTest, NeverRunsMoreJobsAtOnceThanItsBound) {
    constexpr int jobs = 500;
    std::atomic<int> running = 0;
    std::atomic<int> most = 0;
    std::latch done(jobs);
    ConcurrentQueue queue("bounded");
    for (int index = 0; index < jobs; ++index) {
        queue.async([&] {
            const int now = ++running;
            int before = most;
            while (before < now && !most.compare_exchange_weak(before, now)) {
            }
            std::this_thread::yield();
            --running;
            done.count_down();
        });
    }
    done.wait();
    EXPECT_LE(most, static_cast<int>(ConcurrentQueue::maximumThreads));
}

TEST(ConcurrentQueueTest, DropsWhatHasNotBegunWhenItIsDestroyed) {
    std::atomic<int> ran = 0;
    std::latch allBusy(static_cast<std::ptrdiff_t>(ConcurrentQueue::maximumThreads));
    std::promise<void> go;
    const auto gate = go.get_future().share();
    auto queue = std::make_unique<ConcurrentQueue>("dropping");
    for (std::size_t index = 0; index < ConcurrentQueue::maximumThreads; ++index) {
        queue->async([&] {
            allBusy.count_down();
            gate.wait();
            ++ran;
        });
    }
    allBusy.wait();
    auto waiting = std::make_shared<int>(1);
    queue->async([waiting] { FAIL() << "every thread is busy"; });
    std::thread destroyer([&] { queue.reset(); });
    while (waiting.use_count() > 1) { // the destructor drops it before it waits
        std::this_thread::yield();
    }
    go.set_value();
    destroyer.join();
    EXPECT_EQ(ran, static_cast<int>(ConcurrentQueue::maximumThreads));
}

} // namespace
} // namespace DHCPCore
