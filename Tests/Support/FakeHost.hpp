#pragma once

#include "DHCPCore/Addresses.hpp"
#include "DHCPCore/Date.hpp"
#include "DHCPCore/FileDescriptor.hpp"
#include "DHCPCore/Interfaces.hpp"
#include "DHCPCore/Packet.hpp"
#include "DHCPCore/Presence.hpp"
#include "DHCPCore/Queue.hpp"
#include "DHCPCore/ServerHost.hpp"
#include "DHCPCore/Transport.hpp"
#include "Support/Patience.hpp"

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <span>
#include <string>
#include <utility>
#include <variant>
#include <vector>

namespace DHCPCore::TestSupport {

/// A host made of values, for a server under test: its cards, its wire, its timers and its clock are the test's. May be
/// asked from any thread, and outlives every server that uses it.
class FakeHost : public std::enable_shared_from_this<FakeHost> {
  public:
    /// A reply that left.
    struct SentReply {
        DHCPPacket packet;
        std::size_t length = 0;
        ReplyDestination destination;
        bool operator==(const SentReply&) const = default;
    };
    struct Timer {
        std::chrono::seconds first;
        std::chrono::seconds interval;
        bool operator==(const Timer&) const = default;
    };
    /// One question of whether anything is at an address.
    struct Probe {
        std::string interfaceName;
        IPv4Address ip;
        bool operator==(const Probe&) const = default;
    };
    struct Alert {
        std::string interfaceName;
        IPv4Address nearby;
        bool operator==(const Alert&) const = default;
    };
    /// How one opening or one sending shall end: an error number, or any other exception with that text.
    using Failure = std::variant<int, std::string>;

    [[nodiscard]] ServerHost host();

    // The clock.
    [[nodiscard]] Date now();
    void setNow(Date date);

    // The cards.
    void plugIn(const std::string& name, std::uint32_t index);
    void unplug(const std::string& name);
    void setMedia(Interfaces::MediaStatus status);
    void setAddresses(std::vector<InterfaceAddress> addresses);
    /// The card of that hardware address has this name now.
    void nameCard(const MACAddress& mac, std::string name);
    [[nodiscard]] std::vector<Alert> alerts();

    // The wire.
    /// These datagrams are waiting from now on, all at once.
    void arrive(std::vector<Datagram> datagrams);
    /// The next reading ends so.
    void failReceiving(int code);
    void failOpening(std::vector<Failure> failures);
    void failSending(std::vector<Failure> failures);
    /// Runs on the server's queue, just before the next reply leaves.
    void beforeNextReply(std::function<void()> action);
    /// The next opening ends well, but with a descriptor that can't be watched.
    void openUnwatchable();
    [[nodiscard]] std::vector<SentReply> sent();
    /// Waits until so many replies have left; false when they did not in time.
    [[nodiscard]] bool waitForSent(std::size_t count);
    /// What was opened, or tried to be, in order.
    [[nodiscard]] std::vector<TransportMode> openings();
    /// The server's address as it was told to the last transport.
    [[nodiscard]] IPv4Address replySource();
    [[nodiscard]] int lastDescriptor();
    /// Whether the server still holds its end of the wire that was opened last.
    [[nodiscard]] bool isWireOpen();

    // Timers and delayed work, in the order of their making. They run on the server's queue, when the test says so.
    [[nodiscard]] std::vector<Timer> timers();
    /// Runs the work of the timer with that interval.
    void tick(std::chrono::seconds interval);
    /// The work of that timer, to be run by `runOnQueue` whatever became of the timer.
    [[nodiscard]] SerialQueue::Work workOfTimer(std::chrono::seconds interval);
    [[nodiscard]] std::vector<SerialQueue::Duration> delays();
    /// Runs and forgets all delayed work.
    void passDelays();
    void runOnQueue(const SerialQueue::Work& work);
    /// From now on delayed work waits in the server's queue for its real time.
    void delayForReal();

    // Probes.
    void answer(IPv4Address ip, ProbeResult result);
    /// Probes of that address do not come back before `release`.
    void hold(IPv4Address ip);
    void release(IPv4Address ip);
    void seeInARP(IPv4Address ip, const MACAddress& mac);
    [[nodiscard]] std::vector<Probe> probes();
    [[nodiscard]] int arpReadings();
    /// Waits until so many probes have begun; false when they did not in time.
    [[nodiscard]] bool waitForProbes(std::size_t count);

  private:
    class Wire;
    class FakeSubscription;
    struct TimerEntry {
        int key = 0;
        Timer timer;
        SerialQueue::Work work;
    };
    struct Delayed {
        SerialQueue::Duration delay;
        SerialQueue::Work work;
    };
    using Arrival = std::variant<Datagram, int>;

    [[nodiscard]] std::pair<FileDescriptor, std::uint32_t> open(const TransportMode& mode, IPv4Address serverIP);
    [[nodiscard]] Arrival takeArrival();
    void takeReply(std::span<const std::uint8_t> bytes, const ReplyDestination& destination);
    void announce(std::vector<Arrival> arrivals);
    [[nodiscard]] ProbeResult probe(const std::string& name, IPv4Address ip);
    [[nodiscard]] std::unique_ptr<Subscription> every(SerialQueue& queue, Timer timer, SerialQueue::Work work);
    void after(SerialQueue& queue, SerialQueue::Duration delay, SerialQueue::Work work);
    void addCardAnswers(ServerHost& host);

    std::mutex mutex_;
    std::condition_variable changed_;
    Date now_;
    std::map<std::string, std::uint32_t> indices_;
    Interfaces::MediaStatus media_;
    std::vector<InterfaceAddress> addresses_;
    std::vector<std::pair<MACAddress, std::string>> names_;
    std::vector<Alert> alerts_;

    FileDescriptor farEnd_;
    std::deque<Arrival> arrivals_;
    std::deque<Failure> openingFailures_;
    std::deque<Failure> sendingFailures_;
    std::function<void()> beforeNextReply_;
    bool unwatchable_ = false;
    int lastDescriptor_ = -1;
    std::vector<SentReply> sent_;
    std::vector<TransportMode> openings_;
    IPv4Address replySource_;

    SerialQueue* queue_ = nullptr; ///< The server's, which lives as long as the server.
    std::vector<TimerEntry> timers_;
    int lastKey_ = 0;
    std::vector<Delayed> delayed_;
    bool delayForReal_ = false;

    std::map<IPv4Address, ProbeResult> answers_;
    std::set<IPv4Address> held_;
    ARPTable::Map arp_;
    std::vector<Probe> probes_;
    int arpReadings_ = 0;
};

} // namespace DHCPCore::TestSupport
