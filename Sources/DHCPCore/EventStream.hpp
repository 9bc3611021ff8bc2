#pragma once

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <deque>
#include <iterator>
#include <mutex>
#include <optional>
#include <utility>
#include <vector>

namespace DHCPCore {

/// An unbounded stream of values from a producer to one consumer on another thread, in the order of `yield`.
template <class T>
class EventStream {
  public:
    /// Adds a value; ignored once the stream is finished.
    void yield(T value) {
        {
            const std::lock_guard lock(mutex_);
            if (finished_) {
                return;
            }
            values_.push_back(std::move(value));
            ++waiting_;
        }
        ready_.notify_one();
    }

    /// Adds values in their order, and wakes the consumer once.
    void yieldAll(std::vector<T> values) {
        {
            const std::lock_guard lock(mutex_);
            if (finished_) {
                return;
            }
            std::ranges::move(values, std::back_inserter(values_));
            waiting_ += values.size();
        }
        ready_.notify_one();
    }

    /// Ends the stream: what was yielded before is still delivered. May be called twice.
    void finish() {
        {
            const std::lock_guard lock(mutex_);
            finished_ = true;
        }
        ready_.notify_all();
    }

    /// Waits for the next value; nothing once the stream is finished and every value delivered. The consumer only.
    [[nodiscard]] std::optional<T> next() {
        if (taken_.empty()) {
            std::unique_lock lock(mutex_);
            ready_.wait(lock, [this] { return finished_ || !values_.empty(); });
            taken_.swap(values_);
        }
        return pop();
    }

    /// As `next`, but nothing also when no value came within `patience`.
    template <class Duration>
    [[nodiscard]] std::optional<T> next(Duration patience) {
        if (taken_.empty()) {
            std::unique_lock lock(mutex_);
            ready_.wait_for(lock, patience, [this] { return finished_ || !values_.empty(); });
            taken_.swap(values_);
        }
        return pop();
    }

    /// How many values the consumer has yet to take. Any thread.
    [[nodiscard]] std::size_t waiting() const { return waiting_; }

    /// How many values the consumer has taken so far. Any thread.
    [[nodiscard]] std::size_t taken() const { return takenCount_; }

  private:
    [[nodiscard]] std::optional<T> pop() {
        if (taken_.empty()) {
            return std::nullopt;
        }
        std::optional<T> value(std::move(taken_.front()));
        taken_.pop_front();
        --waiting_;
        ++takenCount_;
        return value;
    }

    std::deque<T> taken_; ///< The consumer's own: what was there when it last came for values.

    std::mutex mutex_;
    std::condition_variable ready_;
    std::deque<T> values_;
    std::atomic<std::size_t> waiting_{0}; ///< In both.
    std::atomic<std::size_t> takenCount_{0};
    bool finished_ = false;
};

} // namespace DHCPCore
