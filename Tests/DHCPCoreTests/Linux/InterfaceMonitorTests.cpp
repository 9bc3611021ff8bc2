#include "DHCPCore/InterfaceMonitor.hpp"
#include "DHCPCore/Interfaces.hpp"
#include "DHCPCore/Linux/Netlink.hpp"
#include "Support/DescriptorLimit.hpp"
#include "Support/FreshNetwork.hpp"
#include "Support/OpenDescriptors.hpp"
#include "Support/TemporaryDirectory.hpp"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <condition_variable>
#include <functional>
#include <future>
#include <memory>
#include <mutex>
#include <optional>
#include <pthread.h>
#include <string>
#include <sys/socket.h>
#include <vector>

namespace DHCPCore {
namespace {

using namespace std::chrono_literals;
using TestSupport::ip;

constexpr auto patience = 20s;

/// Every test runs in a network of its own.
class InterfaceMonitorTest : public testing::Test {
  protected:
    static void run(const std::function<void()>& test) {
        if (!TestSupport::inFreshNetwork(test)) {
            GTEST_SKIP() << "this process may not make a network namespace";
        }
    }
};

/// A number that one thread counts up and another waits for.
class Count {
  public:
    void add() {
        const std::lock_guard lock(mutex_);
        ++number_;
        changed_.notify_all();
    }
    [[nodiscard]] int number() {
        const std::lock_guard lock(mutex_);
        return number_;
    }
    /// Whether it reached that much in time.
    [[nodiscard]] bool reaches(int number) {
        std::unique_lock lock(mutex_);
        return changed_.wait_for(lock, patience, [&] { return number_ >= number; });
    }

  private:
    std::mutex mutex_;
    std::condition_variable changed_;
    int number_ = 0;
};

/// A gate that holds a callback until it is opened.
class Gate {
  public:
    void open() { opening_.set_value(); }
    void pass() const { open_.wait_for(patience); }

  private:
    std::promise<void> opening_;
    std::shared_future<void> open_ = opening_.get_future().share();
};

/// One change, told by one notice.
[[nodiscard]] bool addAddress(int last) { return ip(fmt::format("addr add 10.0.0.{}/32 dev lo", last)); }

TEST_F(InterfaceMonitorTest, CallsOnceForEachNotice) {
    run([] {
        Count calls;
        InterfaceMonitor monitor([&] { calls.add(); });
        monitor.start();
        for (const int last : {1, 2, 3, 4, 5}) {
            ASSERT_TRUE(addAddress(last));
        }
        EXPECT_TRUE(calls.reaches(5));
        ASSERT_TRUE(addAddress(6));
        EXPECT_TRUE(calls.reaches(6));
        monitor.stop();
        EXPECT_EQ(calls.number(), 6);
    });
}

TEST_F(InterfaceMonitorTest, CallsOnItsQueue) {
    run([] {
        std::promise<std::string> name;
        std::once_flag once;
        InterfaceMonitor monitor([&] {
            std::array<char, 16> buffer{};
            ::pthread_getname_np(::pthread_self(), buffer.data(), buffer.size());
            std::call_once(once, [&] { name.set_value(buffer.data()); });
        });
        monitor.start();
        ASSERT_TRUE(addAddress(1));
        auto future = name.get_future();
        ASSERT_EQ(future.wait_for(patience), std::future_status::ready);
        EXPECT_EQ(future.get(), "tarnwick.interf") << "as much of \"tarnwick.interfaces\" as the system keeps";
    });
}

TEST_F(InterfaceMonitorTest, NeverCallsBeforeItIsStarted) {
    run([] {
        Count unstartedCalls;
        Count calls;
        InterfaceMonitor unstarted([&] { unstartedCalls.add(); });
        InterfaceMonitor witness([&] { calls.add(); });
        witness.start();
        ASSERT_TRUE(addAddress(1));
        EXPECT_TRUE(calls.reaches(1));
        unstarted.stop();
        EXPECT_EQ(unstartedCalls.number(), 0);
    });
}

/// The card list that a monitor keeps up to date, and who waits for it.
class Cards {
  public:
    void refresh() {
        auto cards = Interfaces::list();
        const std::lock_guard lock(mutex_);
        cards_ = std::move(cards);
        changed_.notify_all();
    }
    /// Whether the card came to be like this in time; absent while there is none of that name.
    [[nodiscard]] bool becomes(const std::string& name,
                               const std::function<bool(const std::optional<NetworkCard>&)>& isLikeThis) {
        std::unique_lock lock(mutex_);
        return changed_.wait_for(lock, patience, [&] {
            const auto card = std::ranges::find(cards_, name, &NetworkCard::bsdName);
            return isLikeThis(card == cards_.end() ? std::nullopt : std::optional(*card));
        });
    }

  private:
    std::mutex mutex_;
    std::condition_variable changed_;
    std::vector<NetworkCard> cards_;
};

TEST_F(InterfaceMonitorTest, FollowsACardFromItsComingToItsGoing) {
    run([] {
        Cards cards;
        InterfaceMonitor monitor([&] { cards.refresh(); });
        monitor.start();
        ASSERT_TRUE(ip("link add en5 type veth peer name en6"));
        EXPECT_TRUE(cards.becomes("en5", [](const auto& card) { return card && !card->linkUp; })) << "created";
        ASSERT_TRUE(ip("link set en5 up"));
        ASSERT_TRUE(ip("link set en6 up"));
        EXPECT_TRUE(cards.becomes("en5", [](const auto& card) { return card && card->linkUp; })) << "set up";
        ASSERT_TRUE(ip("addr add 192.168.0.1/24 dev en5"));
        const std::vector<Subnet> given{{.address = IPv4Address{192, 168, 0, 1}, .prefixLength = 24}};
        EXPECT_TRUE(cards.becomes("en5", [&](const auto& card) { return card && card->addresses == given; }))
            << "given an address";
        ASSERT_TRUE(ip("addr del 192.168.0.1/24 dev en5"));
        EXPECT_TRUE(cards.becomes("en5", [](const auto& card) { return card && card->addresses.empty(); }))
            << "deprived of it";
        ASSERT_TRUE(ip("link set en6 down"));
        EXPECT_TRUE(cards.becomes("en5", [](const auto& card) { return card && !card->linkUp; })) << "set down";
        ASSERT_TRUE(ip("link del en5"));
        EXPECT_TRUE(cards.becomes("en5", [](const auto& card) { return !card; })) << "deleted";
    });
}

TEST_F(InterfaceMonitorTest, BeginsNoCallAfterItWasStopped) {
    run([] {
        Count stoppedCalls;
        Count calls;
        InterfaceMonitor monitor([&] { stoppedCalls.add(); });
        InterfaceMonitor witness([&] { calls.add(); });
        monitor.start();
        witness.start();
        ASSERT_TRUE(addAddress(1));
        EXPECT_TRUE(stoppedCalls.reaches(1));
        monitor.stop();
        monitor.stop();
        ASSERT_TRUE(addAddress(2));
        EXPECT_TRUE(calls.reaches(2));
        EXPECT_EQ(stoppedCalls.number(), 1);
    });
}

TEST_F(InterfaceMonitorTest, ForgetsNoticesThatWaitWhenItIsStopped) {
    run([] {
        Count calls;
        Gate gate;
        InterfaceMonitor monitor([&] {
            calls.add();
            gate.pass();
            monitor.stop();
        });
        monitor.start();
        for (const int last : {1, 2, 3}) {
            ASSERT_TRUE(addAddress(last));
        }
        EXPECT_TRUE(calls.reaches(1));
        gate.open();
        monitor.stop(); // waits for the call
        EXPECT_EQ(calls.number(), 1);
    });
}

TEST_F(InterfaceMonitorTest, WaitsForARunningCallWhenItIsStopped) {
    run([] {
        Count calls;
        Gate gate;
        bool hasEnded = false;
        InterfaceMonitor monitor([&] {
            calls.add();
            gate.pass();
            hasEnded = true;
        });
        monitor.start();
        ASSERT_TRUE(addAddress(1));
        EXPECT_TRUE(calls.reaches(1));
        const auto opening = std::async(std::launch::async, [&] { gate.open(); });
        monitor.stop();
        EXPECT_TRUE(hasEnded);
    });
}

TEST_F(InterfaceMonitorTest, CanBeStartedAgain) {
    run([] {
        Count calls;
        InterfaceMonitor monitor([&] { calls.add(); });
        for (const int last : {1, 2, 3}) {
            monitor.start();
            ASSERT_TRUE(addAddress(last));
            EXPECT_TRUE(calls.reaches(last));
            monitor.stop();
            ASSERT_TRUE(addAddress(last + 100));
        }
        EXPECT_EQ(calls.number(), 3);
    });
}

TEST_F(InterfaceMonitorTest, CanBeStartedAgainByItsCallback) {
    run([] {
        Count calls;
        InterfaceMonitor monitor([&] {
            monitor.stop();
            monitor.start();
            calls.add();
        });
        monitor.start();
        for (const int last : {1, 2, 3}) {
            ASSERT_TRUE(addAddress(last));
            EXPECT_TRUE(calls.reaches(last));
        }
        monitor.stop();
        EXPECT_EQ(calls.number(), 3);
    });
}

TEST_F(InterfaceMonitorTest, CallsOnceForEachNoticeWhenItIsStartedTwice) {
    run([] {
        Count calls;
        InterfaceMonitor monitor([&] { calls.add(); });
        monitor.start();
        const auto once = TestSupport::openDescriptors();
        monitor.start();
        EXPECT_EQ(TestSupport::openDescriptors().size(), once.size());
        for (const int last : {1, 2, 3}) {
            ASSERT_TRUE(addAddress(last));
            EXPECT_TRUE(calls.reaches(last));
        }
        monitor.stop();
        EXPECT_EQ(calls.number(), 3);
    });
}

TEST_F(InterfaceMonitorTest, IsStoppedByDroppingIt) {
    run([] {
        Count droppedCalls;
        Count calls;
        const auto before = TestSupport::openDescriptors();
        {
            InterfaceMonitor dropped([&] { droppedCalls.add(); });
            dropped.start();
            ASSERT_TRUE(addAddress(1));
            EXPECT_TRUE(droppedCalls.reaches(1));
        }
        EXPECT_EQ(TestSupport::openDescriptors(), before);
        InterfaceMonitor witness([&] { calls.add(); });
        witness.start();
        ASSERT_TRUE(addAddress(2));
        EXPECT_TRUE(calls.reaches(1));
        EXPECT_EQ(droppedCalls.number(), 1);
    });
}

TEST_F(InterfaceMonitorTest, IsStoppedByDroppingItInsideItsCallback) {
    run([] {
        Count calls;
        Gate gate;
        std::promise<void> callbackGone;
        std::unique_ptr<InterfaceMonitor> monitor;
        std::shared_ptr<int> held(new int(42), [&callbackGone](const int* number) {
            delete number;
            callbackGone.set_value();
        });
        monitor = std::make_unique<InterfaceMonitor>([&, held = std::move(held)] {
            calls.add();
            gate.pass();
            monitor.reset();
            EXPECT_EQ(*held, 42) << "what the callback holds lives until it has returned";
        });
        monitor->start();
        for (const int last : {1, 2, 3}) {
            ASSERT_TRUE(addAddress(last));
        }
        EXPECT_TRUE(calls.reaches(1));
        gate.open();
        EXPECT_EQ(callbackGone.get_future().wait_for(patience), std::future_status::ready);
        EXPECT_EQ(calls.number(), 1);
    });
}

TEST_F(InterfaceMonitorTest, SaysNothingWhereTheSystemRefuses) {
    run([] {
        Count calls;
        InterfaceMonitor monitor([&] { calls.add(); });
        {
            const TestSupport::DescriptorLimit none(0);
            monitor.start();
        }
        ASSERT_TRUE(addAddress(1));
        monitor.start();
        ASSERT_TRUE(addAddress(2));
        EXPECT_TRUE(calls.reaches(1));
        monitor.stop();
        EXPECT_EQ(calls.number(), 1) << "the first change was not heard";
    });
}

TEST_F(InterfaceMonitorTest, KeepsMonitoringWhereStartingAnewIsRefused) {
    run([] {
        Count calls;
        InterfaceMonitor monitor([&] { calls.add(); });
        monitor.start();
        {
            const TestSupport::DescriptorLimit none(0);
            monitor.start();
        }
        ASSERT_TRUE(addAddress(1));
        EXPECT_TRUE(calls.reaches(1));
    });
}

TEST_F(InterfaceMonitorTest, CallsAlsoForABurstThatTheKernelCannotKeep) {
    run([] {
        constexpr int burst = 2000; // many times what the kernel keeps for a reader that is late
        const TestSupport::TemporaryDirectory directory;
        std::string batch;
        for (int index = 0; index < burst; ++index) {
            batch += fmt::format("addr add 10.1.{}.{}/32 dev lo\n", index / 200, index % 200);
        }
        TestSupport::writeText(directory / "batch", batch);
        Count calls;
        Gate gate;
        Cards cards;
        InterfaceMonitor monitor([&] {
            calls.add();
            gate.pass();
            if (calls.number() > 1) { // the first call is not about the burst
                cards.refresh();
            }
        });
        const FileDescriptor twin = Netlink::openNotices();
        monitor.start();
        ASSERT_TRUE(addAddress(1));
        ASSERT_TRUE(calls.reaches(1));
        ASSERT_TRUE(Netlink::takeNotice(twin));
        ASSERT_TRUE(ip("-batch " + (directory / "batch").string()));
        std::uint8_t byte = 0;
        ASSERT_EQ(::recv(twin.number(), &byte, 1, 0), -1);
        ASSERT_EQ(errno, ENOBUFS);
        int kept = 0;
        while (Netlink::takeNotice(twin)) {
            ++kept;
        }
        gate.open();
        EXPECT_TRUE(calls.reaches(1 + kept + 1)) << "one more, for what the kernel did not keep";
        ASSERT_TRUE(ip("link add en5 type veth peer name en6"));
        EXPECT_TRUE(cards.becomes("en5", [](const auto& card) { return card.has_value(); }));
        ASSERT_TRUE(ip("link del en5"));
        EXPECT_TRUE(cards.becomes("en5", [](const auto& card) { return !card; })) << "it goes on";
        monitor.stop();
        EXPECT_LT(calls.number(), burst);
    });
}

} // namespace
} // namespace DHCPCore
