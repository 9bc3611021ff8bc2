#pragma once

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <utility>
#include <vector>

namespace DHCPCore {

/// Records in the order of their insertion. One that is taken out leaves a gap, and the others keep their positions: it
/// costs the same however many there are. `pack` closes the gaps.
template <class Record>
class Records {
  public:
    using value_type = Record;

    /// Steps from record to record, over the gaps.
    class Iterator {
      public:
        using iterator_category = std::forward_iterator_tag;
        using value_type = Record;
        using difference_type = std::ptrdiff_t;
        using pointer = const Record*;
        using reference = const Record&;

        Iterator() = default;
        Iterator(const Records& records, std::size_t position) : records_(&records), position_(position) { skipGaps(); }

        reference operator*() const { return records_->records_[position_]; }
        pointer operator->() const { return &**this; }
        Iterator& operator++() {
            ++position_;
            skipGaps();
            return *this;
        }
        Iterator operator++(int) {
            Iterator before = *this;
            ++*this;
            return before;
        }
        bool operator==(const Iterator&) const = default;

        [[nodiscard]] std::size_t position() const { return position_; }

      private:
        void skipGaps() {
            while (position_ < records_->serials_.size() && !records_->isAt(position_)) {
                ++position_;
            }
        }

        const Records* records_ = nullptr;
        std::size_t position_ = 0;
    };
    using iterator = Iterator;
    using const_iterator = Iterator;

    Records() = default;
    Records(const Records&) = default;
    Records& operator=(const Records&) = default;
    Records(Records&& other) noexcept
        : records_(std::move(other.records_)), serials_(std::move(other.serials_)),
          gaps_(std::exchange(other.gaps_, 0)) {}
    Records& operator=(Records&& other) noexcept {
        records_ = std::move(other.records_);
        serials_ = std::move(other.serials_);
        gaps_ = std::exchange(other.gaps_, 0);
        return *this;
    }
    ~Records() = default;
    explicit Records(std::vector<Record> records) : records_(std::move(records)), serials_(records_.size()) {
        std::ranges::generate(serials_, nextSerial);
    }

    [[nodiscard]] Iterator begin() const { return {*this, 0}; }
    [[nodiscard]] Iterator end() const { return {*this, serials_.size()}; }
    [[nodiscard]] std::size_t size() const { return serials_.size() - gaps_; }
    [[nodiscard]] bool empty() const { return size() == 0; }
    [[nodiscard]] std::vector<Record> all() const { return {begin(), end()}; }

    /// Whether a record stands there and not a gap.
    [[nodiscard]] bool isAt(std::size_t position) const { return serials_[position] != gap; }
    [[nodiscard]] const Record& operator[](std::size_t position) const { return records_[position]; }
    /// Where `append` puts the next one.
    [[nodiscard]] std::size_t endPosition() const { return serials_.size(); }

    void append(Record record) {
        records_.push_back(std::move(record));
        serials_.push_back(nextSerial());
    }
    void replace(std::size_t position, Record record) { change(position) = std::move(record); }
    /// The record, about to be changed.
    [[nodiscard]] Record& change(std::size_t position) {
        serials_[position] = nextSerial();
        return records_[position];
    }
    Record take(std::size_t position) {
        serials_[position] = gap;
        ++gaps_;
        return std::exchange(records_[position], Record{});
    }

    /// Takes out those that meet the predicate, and packs. @return how many they were.
    template <class Predicate>
    std::size_t eraseIf(Predicate goes) {
        const std::size_t before = size();
        for (auto record = begin(); record != end(); ++record) {
            if (goes(*record)) {
                take(record.position());
            }
        }
        pack();
        return before - size();
    }

    /// Whether there are more gaps than records: who packs then has paid for it by what was taken out before.
    [[nodiscard]] bool isSparse() const { return gaps_ > size(); }
    /// Closes the gaps: the record that is the n-th now stands at position n.
    void pack() {
        std::size_t kept = 0;
        for (auto record = begin(); record != end(); ++record, ++kept) {
            if (kept != record.position()) {
                records_[kept] = std::move(records_[record.position()]);
                serials_[kept] = std::exchange(serials_[record.position()], gap);
            }
        }
        records_.resize(kept);
        serials_.resize(kept);
        gaps_ = 0;
    }

    /// A number per position. Two records with the same number are equal, wherever they stand: what was made of one is
    /// good for the other.
    [[nodiscard]] const std::vector<std::uint64_t>& serials() const { return serials_; }
    /// Stands for no record.
    static constexpr std::uint64_t gap = 0;

    bool operator==(const Records& other) const { return std::ranges::equal(*this, other); }
    bool operator==(const std::vector<Record>& other) const { return std::ranges::equal(*this, other); }

  private:
    static std::uint64_t nextSerial() {
        static std::atomic<std::uint64_t> last{gap};
        return ++last;
    }

    std::vector<Record> records_; ///< In a gap there is an empty one.
    std::vector<std::uint64_t> serials_;
    std::size_t gaps_ = 0;
};

} // namespace DHCPCore
