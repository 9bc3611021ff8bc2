#include "Support/FakeHost.hpp"

#include "Support/TestHost.hpp"

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <fcntl.h>
#include <iterator>
#include <optional>
#include <stdexcept>
#include <sys/socket.h>
#include <utility>
#include <vector>

namespace DHCPCore::TestSupport {

namespace {

/// Ends as the next of these failures says, if there is one.
void failAsTold(std::deque<FakeHost::Failure>& failures, const std::string& operation) {
    if (failures.empty()) {
        return;
    }
    const FakeHost::Failure failure = std::move(failures.front());
    failures.pop_front();
    if (const int* code = std::get_if<int>(&failure)) {
        throw TransportError(operation, *code);
    }
    throw std::runtime_error(std::get<std::string>(failure));
}

} // namespace

/// A transport whose datagrams come from the test. One byte is readable for each datagram that is waiting.
class FakeHost::Wire : public UDPTransport {
  public:
    Wire(std::shared_ptr<FakeHost> host, const TransportMode& mode, IPv4Address serverIP)
        : UDPTransport(mode, serverIP), host_(std::move(host)), serverIP_(serverIP) {}

    void open() override {
        auto [socket, index] = host_->open(mode(), serverIP_);
        adopt(std::move(socket), index);
    }

    std::vector<Datagram> receiveSome(std::size_t most) override {
        std::vector<Datagram> datagrams;
        while (datagrams.size() < most && !failure_) {
            char byte = 0;
            if (::recv(fd(), &byte, 1, MSG_DONTWAIT) != 1) {
                return datagrams;
            }
            Arrival arrival = host_->takeArrival();
            if (const int* code = std::get_if<int>(&arrival)) {
                failure_ = *code;
            } else {
                datagrams.push_back(std::get<Datagram>(std::move(arrival)));
            }
        }
        if (datagrams.empty()) {
            throw TransportError("recvmsg", std::exchange(failure_, std::nullopt).value());
        }
        return datagrams;
    }

    void send(std::span<const std::uint8_t> bytes, const ReplyDestination& destination) override {
        host_->takeReply(bytes, destination);
    }

  private:
    std::shared_ptr<FakeHost> host_;
    IPv4Address serverIP_;
    std::optional<int> failure_; ///< Told once what came before it is received.
};

/// A timer, as long as it is kept.
class FakeHost::FakeSubscription : public Subscription {
  public:
    FakeSubscription(std::shared_ptr<FakeHost> host, int key) : host_(std::move(host)), key_(key) {}
    FakeSubscription(const FakeSubscription&) = delete;
    FakeSubscription& operator=(const FakeSubscription&) = delete;
    FakeSubscription(FakeSubscription&&) = delete;
    FakeSubscription& operator=(FakeSubscription&&) = delete;
    ~FakeSubscription() override {
        const std::lock_guard lock(host_->mutex_);
        std::erase_if(host_->timers_, [this](const TimerEntry& entry) { return entry.key == key_; });
    }

  private:
    std::shared_ptr<FakeHost> host_;
    int key_;
};

ServerHost FakeHost::host() {
    const auto self = shared_from_this();
    ServerHost host;
    host.makeTransport = [self](const TransportMode& mode, IPv4Address serverIP) {
        return std::make_unique<Wire>(self, mode, serverIP);
    };
    host.probe = [self](const std::string& name, IPv4Address ip) { return self->probe(name, ip); };
    host.readARPTable = [self] {
        const std::lock_guard lock(self->mutex_);
        ++self->arpReadings_;
        return self->arp_;
    };
    host.every = [self](SerialQueue& queue, std::chrono::seconds first, std::chrono::seconds interval,
                        SerialQueue::Work work) {
        return self->every(queue, {.first = first, .interval = interval}, std::move(work));
    };
    host.after = [self](SerialQueue& queue, SerialQueue::Duration delay, SerialQueue::Work work) {
        self->after(queue, delay, std::move(work));
    };
    addCardAnswers(host);
    return host;
}

void FakeHost::addCardAnswers(ServerHost& host) {
    const auto self = shared_from_this();
    host.indexOfInterface = [self](const std::string& name) {
        const std::lock_guard lock(self->mutex_);
        const auto entry = self->indices_.find(name);
        return entry == self->indices_.end() ? std::uint32_t{0} : entry->second;
    };
    host.nameOfInterface = [self](std::uint32_t index) -> std::optional<std::string> {
        const std::lock_guard lock(self->mutex_);
        const auto entry = std::ranges::find(self->indices_, index, [](const auto& card) { return card.second; });
        return entry == self->indices_.end() ? std::nullopt : std::optional(entry->first);
    };
    host.mediaStatus = [self](const std::string& name) {
        const std::lock_guard lock(self->mutex_);
        return self->indices_.contains(name) ? self->media_ : Interfaces::MediaStatus{};
    };
    host.interfaceAddresses = [self] {
        const std::lock_guard lock(self->mutex_);
        return self->addresses_;
    };
    host.bsdNameForMAC = [self](const MACAddress& mac) -> std::optional<std::string> {
        const std::lock_guard lock(self->mutex_);
        const auto entry = std::ranges::find(self->names_, mac, [](const auto& card) { return card.first; });
        return entry == self->names_.end() ? std::nullopt : std::optional(entry->second);
    };
    host.triggerAlert = [self](const std::string& name, IPv4Address nearby) {
        const std::lock_guard lock(self->mutex_);
        self->alerts_.push_back({.interfaceName = name, .nearby = nearby});
    };
}

Date FakeHost::now() {
    const std::lock_guard lock(mutex_);
    return now_;
}

void FakeHost::setNow(Date date) {
    const std::lock_guard lock(mutex_);
    now_ = date;
}

void FakeHost::plugIn(const std::string& name, std::uint32_t index) {
    const std::lock_guard lock(mutex_);
    indices_[name] = index;
}

void FakeHost::unplug(const std::string& name) {
    const std::lock_guard lock(mutex_);
    indices_.erase(name);
}

void FakeHost::setMedia(Interfaces::MediaStatus status) {
    const std::lock_guard lock(mutex_);
    media_ = std::move(status);
}

void FakeHost::setAddresses(std::vector<InterfaceAddress> addresses) {
    const std::lock_guard lock(mutex_);
    addresses_ = std::move(addresses);
}

void FakeHost::nameCard(const MACAddress& mac, std::string name) {
    const std::lock_guard lock(mutex_);
    std::erase_if(names_, [&mac](const auto& card) { return card.first == mac; });
    names_.emplace_back(mac, std::move(name));
}

std::vector<FakeHost::Alert> FakeHost::alerts() {
    const std::lock_guard lock(mutex_);
    return alerts_;
}

void FakeHost::arrive(std::vector<Datagram> datagrams) {
    announce({std::make_move_iterator(datagrams.begin()), std::make_move_iterator(datagrams.end())});
}

void FakeHost::failReceiving(int code) { announce({Arrival{code}}); }

void FakeHost::announce(std::vector<Arrival> arrivals) {
    const std::lock_guard lock(mutex_);
    const std::string bytes(arrivals.size(), 'x');
    std::ranges::move(arrivals, std::back_inserter(arrivals_));
    if (::send(farEnd_.number(), bytes.data(), bytes.size(), MSG_NOSIGNAL | MSG_DONTWAIT) !=
        static_cast<ssize_t>(bytes.size())) {
        throw std::logic_error("nobody listens on the wire");
    }
}

void FakeHost::failOpening(std::vector<Failure> failures) {
    const std::lock_guard lock(mutex_);
    openingFailures_ = {failures.begin(), failures.end()};
}

void FakeHost::failSending(std::vector<Failure> failures) {
    const std::lock_guard lock(mutex_);
    sendingFailures_ = {failures.begin(), failures.end()};
}

void FakeHost::beforeNextReply(std::function<void()> action) {
    const std::lock_guard lock(mutex_);
    beforeNextReply_ = std::move(action);
}

void FakeHost::openUnwatchable() {
    const std::lock_guard lock(mutex_);
    unwatchable_ = true;
}

std::vector<FakeHost::SentReply> FakeHost::sent() {
    const std::lock_guard lock(mutex_);
    return sent_;
}

std::vector<TransportMode> FakeHost::openings() {
    const std::lock_guard lock(mutex_);
    return openings_;
}

IPv4Address FakeHost::replySource() {
    const std::lock_guard lock(mutex_);
    return replySource_;
}

bool FakeHost::isWireOpen() {
    const std::lock_guard lock(mutex_);
    char byte = 0;
    return ::recv(farEnd_.number(), &byte, 1, MSG_DONTWAIT) == -1 && errno == EAGAIN; // nothing is ever sent this way
}

int FakeHost::lastDescriptor() {
    const std::lock_guard lock(mutex_);
    return lastDescriptor_;
}

std::pair<FileDescriptor, std::uint32_t> FakeHost::open(const TransportMode& mode, IPv4Address serverIP) {
    const std::lock_guard lock(mutex_);
    openings_.push_back(mode);
    replySource_ = serverIP;
    failAsTold(openingFailures_, "bind 0.0.0.0:67");
    int ends[2] = {-1, -1}; // NOLINT(*-avoid-c-arrays): as the system call takes it
    if (::socketpair(AF_UNIX, SOCK_STREAM, 0, ends) != 0) {
        throw std::runtime_error("no socket pair");
    }
    FileDescriptor nearEnd(ends[0]);
    farEnd_ = FileDescriptor(ends[1]);
    arrivals_.clear();
    const std::uint32_t index = mode.isLoopback() ? 1 : indices_[mode.interfaceName()];
    if (std::exchange(unwatchable_, false)) {
        nearEnd = unwatchableDescriptor();
    }
    lastDescriptor_ = nearEnd.number();
    return {std::move(nearEnd), index};
}

FakeHost::Arrival FakeHost::takeArrival() {
    const std::lock_guard lock(mutex_);
    Arrival arrival = std::move(arrivals_.front());
    arrivals_.pop_front();
    return arrival;
}

void FakeHost::takeReply(std::span<const std::uint8_t> bytes, const ReplyDestination& destination) {
    std::unique_lock lock(mutex_);
    if (const auto action = std::exchange(beforeNextReply_, nullptr)) {
        lock.unlock();
        action();
        lock.lock();
    }
    failAsTold(sendingFailures_, "send to " + destination.description());
    sent_.push_back({.packet = DHCPPacket::parse(bytes), .length = bytes.size(), .destination = destination});
    changed_.notify_all();
}

std::vector<FakeHost::Timer> FakeHost::timers() {
    const std::lock_guard lock(mutex_);
    std::vector<Timer> timers;
    std::ranges::transform(timers_, std::back_inserter(timers), &TimerEntry::timer);
    return timers;
}

SerialQueue::Work FakeHost::workOfTimer(std::chrono::seconds interval) {
    const std::lock_guard lock(mutex_);
    const auto entry = std::ranges::find(timers_, interval, [](const TimerEntry& each) { return each.timer.interval; });
    if (entry == timers_.end()) {
        throw std::logic_error("no such timer");
    }
    return entry->work;
}

void FakeHost::tick(std::chrono::seconds interval) { runOnQueue(workOfTimer(interval)); }

std::vector<SerialQueue::Duration> FakeHost::delays() {
    const std::lock_guard lock(mutex_);
    std::vector<SerialQueue::Duration> delays;
    std::ranges::transform(delayed_, std::back_inserter(delays), &Delayed::delay);
    return delays;
}

void FakeHost::passDelays() {
    std::vector<Delayed> due;
    {
        const std::lock_guard lock(mutex_);
        due.swap(delayed_);
    }
    for (const Delayed& delayed : due) {
        runOnQueue(delayed.work);
    }
}

void FakeHost::runOnQueue(const SerialQueue::Work& work) { queue_->sync(work); }

void FakeHost::delayForReal() {
    const std::lock_guard lock(mutex_);
    delayForReal_ = true;
}

std::unique_ptr<Subscription> FakeHost::every(SerialQueue& queue, Timer timer, SerialQueue::Work work) {
    const std::lock_guard lock(mutex_);
    queue_ = &queue;
    timers_.push_back({.key = ++lastKey_, .timer = timer, .work = std::move(work)});
    return std::make_unique<FakeSubscription>(shared_from_this(), lastKey_);
}

void FakeHost::after(SerialQueue& queue, SerialQueue::Duration delay, SerialQueue::Work work) {
    const std::lock_guard lock(mutex_);
    queue_ = &queue;
    if (delayForReal_) {
        queue.after(delay, std::move(work));
    } else {
        delayed_.push_back({.delay = delay, .work = std::move(work)});
    }
}

void FakeHost::answer(IPv4Address ip, ProbeResult result) {
    const std::lock_guard lock(mutex_);
    answers_[ip] = std::move(result);
}

void FakeHost::hold(IPv4Address ip) {
    const std::lock_guard lock(mutex_);
    held_.insert(ip);
}

void FakeHost::release(IPv4Address ip) {
    {
        const std::lock_guard lock(mutex_);
        held_.erase(ip);
    }
    changed_.notify_all();
}

void FakeHost::seeInARP(IPv4Address ip, const MACAddress& mac) {
    const std::lock_guard lock(mutex_);
    arp_[ip] = mac;
}

std::vector<FakeHost::Probe> FakeHost::probes() {
    const std::lock_guard lock(mutex_);
    return probes_;
}

int FakeHost::arpReadings() {
    const std::lock_guard lock(mutex_);
    return arpReadings_;
}

bool FakeHost::waitForSent(std::size_t count) {
    std::unique_lock lock(mutex_);
    return changed_.wait_for(lock, patience, [&] { return sent_.size() >= count; });
}

bool FakeHost::waitForProbes(std::size_t count) {
    std::unique_lock lock(mutex_);
    return changed_.wait_for(lock, patience, [&] { return probes_.size() >= count; });
}

ProbeResult FakeHost::probe(const std::string& name, IPv4Address ip) {
    std::unique_lock lock(mutex_);
    probes_.push_back({.interfaceName = name, .ip = ip});
    changed_.notify_all();
    // The bound keeps a failing test from hanging.
    changed_.wait_for(lock, 3 * patience, [&] { return !held_.contains(ip); });
    const auto entry = answers_.find(ip);
    return entry == answers_.end() ? ProbeResult{.answered = false, .detail = "no answer"} : entry->second;
}

} // namespace DHCPCore::TestSupport
