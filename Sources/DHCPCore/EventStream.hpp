#pragma once

#include <condition_variable>
#include <deque>
#include <mutex>
#include <optional>
#include <utility>

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

    /// Waits for the next value; nothing once the stream is finished and every value delivered.
    [[nodiscard]] std::optional<T> next() {
        std::unique_lock lock(mutex_);
        ready_.wait(lock, [this] { return finished_ || !values_.empty(); });
        if (values_.empty()) {
            return std::nullopt;
        }
        std::optional<T> value(std::move(values_.front()));
        values_.pop_front();
        return value;
    }

    /// As `next`, but nothing also when no value came within `patience`.
    template <class Duration>
    [[nodiscard]] std::optional<T> next(Duration patience) {
        {
            std::unique_lock lock(mutex_);
            ready_.wait_for(lock, patience, [this] { return finished_ || !values_.empty(); });
            if (values_.empty()) {
                return std::nullopt;
            }
        }
        return next(); // one consumer: nobody else takes the value in between
    }

  private:
    std::mutex mutex_;
    std::condition_variable ready_;
    std::deque<T> values_;
    bool finished_ = false;
};

} // namespace DHCPCore
