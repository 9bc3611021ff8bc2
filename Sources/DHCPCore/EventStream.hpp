#pragma once

#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <deque>
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
            if (values_.empty() || values_.back().size() >= batchSize) {
                values_.emplace_back();
            }
            values_.back().push_back(std::move(value));
            ++waiting_;
        }
        ready_.notify_one();
    }

    /// Takes the values over, in their order, and wakes the consumer once. Leaves the vector empty, with room that an
    /// earlier one had: to ask for it and give it back with every burst would cost more than the rest.
    void yieldAll(std::vector<T>& values) {
        if (values.empty()) {
            return;
        }
        Batch room;
        {
            const std::lock_guard lock(mutex_);
            if (!finished_) {
                const std::size_t count = values.size();
                values_.push_back(std::move(values));
                waiting_ += count;
                room.swap(spare_);
            }
        }
        ready_.notify_one();
        values = std::move(room);
        values.clear();
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
    /// Values that change hands together: piece by piece they would have the two threads wait for each other whenever
    /// one gives back memory that the other asked for.
    using Batch = std::vector<T>;
    static constexpr std::size_t batchSize = 64;

    [[nodiscard]] std::optional<T> pop() {
        if (taken_.empty()) {
            return std::nullopt;
        }
        Batch& batch = taken_.front();
        std::optional<T> value(std::move(batch[nextOfBatch_]));
        if (++nextOfBatch_ == batch.size()) {
            keepRoom(std::move(batch));
            taken_.pop_front();
            nextOfBatch_ = 0;
        }
        --waiting_;
        ++takenCount_;
        return value;
    }

    void keepRoom(Batch batch) {
        batch.clear();
        const std::unique_lock lock(mutex_, std::try_to_lock); // not worth waiting, or keeping the producer waiting
        if (lock.owns_lock() && spare_.capacity() < batch.capacity()) {
            spare_.swap(batch);
        }
    }

    std::deque<Batch> taken_;     ///< The consumer's own: what was there when it last came for values. None is empty.
    std::size_t nextOfBatch_ = 0; ///< In the first of them.

    std::mutex mutex_;
    std::condition_variable ready_;
    std::deque<Batch> values_;
    Batch spare_;                         ///< Empty, with the room of one that is done with.
    std::atomic<std::size_t> waiting_{0}; ///< In both.
    std::atomic<std::size_t> takenCount_{0};
    bool finished_ = false;
};

} // namespace DHCPCore
