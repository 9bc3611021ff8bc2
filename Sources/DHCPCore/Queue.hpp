#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <type_traits>

namespace DHCPCore {

/// Work that a queue does again and again, until the subscription is destroyed. Destroyed on its queue, no call begins
/// afterwards; destroyed elsewhere, a call that has begun may still be running.
class Subscription {
  public:
    Subscription() = default;
    Subscription(const Subscription&) = delete;
    Subscription& operator=(const Subscription&) = delete;
    Subscription(Subscription&&) = delete;
    Subscription& operator=(Subscription&&) = delete;
    virtual ~Subscription() = default;
};

/// A serial queue: work runs one piece at a time, in the order in which it was handed in, on one thread that carries
/// the queue's name. Work must not throw, except through `sync`.
///
/// Destroying the queue cancels delayed and repeated work, lets what `async` handed in finish, and waits for it; on the
/// queue's own thread it does not wait.
class SerialQueue {
  public:
    using Work = std::function<void()>;
    using Duration = std::chrono::steady_clock::duration;

    explicit SerialQueue(std::string name);
    SerialQueue(const SerialQueue&) = delete;
    SerialQueue& operator=(const SerialQueue&) = delete;
    SerialQueue(SerialQueue&&) = delete;
    SerialQueue& operator=(SerialQueue&&) = delete;
    ~SerialQueue();

    void async(Work work);

    /// Runs the work on the queue and waits for its result; what it throws is thrown here. On the queue's own thread
    /// it runs at once.
    template <class F>
    std::invoke_result_t<F> sync(F work) {
        using Result = std::invoke_result_t<F>;
        if constexpr (std::is_void_v<Result>) {
            runAndWait(work);
        } else {
            std::optional<Result> result;
            runAndWait([&] { result.emplace(work()); });
            return std::move(*result);
        }
    }

    /// Runs the work once, so much later; forgotten when the queue is destroyed before.
    void after(Duration delay, Work work);

    /// Runs the work first after `first`, then at every further `interval`, which does not drift.
    [[nodiscard]] std::unique_ptr<Subscription> every(Duration first, Duration interval, Work work);

    /// Runs the work whenever the descriptor has something to read. The descriptor stays the caller's, and must stay
    /// open as long as the subscription lives.
    /// @throws Error when the system can't watch that descriptor.
    [[nodiscard]] std::unique_ptr<Subscription> whenReadable(int fd, Work work);

    /// A way to hand in work that does not keep the queue alive; once the queue is gone, the work is dropped. This is
    /// what a job on another thread holds.
    [[nodiscard]] std::function<void(Work)> remote() const;

  private:
    struct Core;
    std::shared_ptr<Core> core_;

    void runAndWait(const Work& work);
};

/// A concurrent queue for blocking work: jobs run in parallel on at most `maximumThreads` threads, which are started
/// when there is work for them and end when they were idle for a while. Jobs start in the order of `async`.
///
/// Destroying the queue drops what has not begun and waits for what has.
class ConcurrentQueue {
  public:
    using Work = std::function<void()>;
    static constexpr std::size_t maximumThreads = 56;

    explicit ConcurrentQueue(std::string name);
    ConcurrentQueue(const ConcurrentQueue&) = delete;
    ConcurrentQueue& operator=(const ConcurrentQueue&) = delete;
    ConcurrentQueue(ConcurrentQueue&&) = delete;
    ConcurrentQueue& operator=(ConcurrentQueue&&) = delete;
    ~ConcurrentQueue();

    void async(Work work);

  private:
    struct Core;
    std::shared_ptr<Core> core_;
};

} // namespace DHCPCore
