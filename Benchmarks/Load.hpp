#pragma once

#include "Clients.hpp"
#include "DHCPCore/Addresses.hpp"
#include "DHCPCore/Packet.hpp"
#include "ServerProcess.hpp"
#include "Wire.hpp"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <optional>
#include <sys/types.h>
#include <vector>

namespace DHCPLoad {

/// What the devices do, again and again.
enum class LoadKind {
    offers,     ///< DISCOVER, OFFER.
    handshakes, ///< DISCOVER, OFFER, REQUEST, ACK.
    renewals,   ///< REQUEST, ACK, by devices that had a handshake before the measurement.
};

struct LoadPlan {
    LoadKind kind = LoadKind::handshakes;
    std::uint32_t clients = 1; ///< 1 to `mostClients`; they take turns.
    std::uint32_t window = 1;  ///< How many of them wait for an answer at once.
    std::chrono::milliseconds duration{1000};
    std::chrono::milliseconds patience{5000}; ///< What is not answered by then is lost.
    std::optional<pid_t> server{};            ///< The server's process, where its own figures are wanted.
};

inline constexpr std::uint32_t mostClients = 1U << 17U;

struct LoadResult {
    std::chrono::nanoseconds span{};                    ///< Of the measurement.
    std::size_t completed = 0;                          ///< Exchanges that ended well within the span.
    std::size_t lost = 0;                               ///< Not answered in time.
    std::size_t refused = 0;                            ///< Answered by a NAK.
    std::size_t invalid = 0;                            ///< Answers that no device could use.
    std::size_t late = 0;                               ///< Answers to what nobody waits for any more.
    std::vector<std::chrono::nanoseconds> offerTimes{}; ///< From each DISCOVER to its OFFER, in order of arrival.
    std::vector<std::chrono::nanoseconds> ackTimes{};   ///< From each REQUEST to its ACK, likewise.
    /// What the server's process took for one exchange, with what it did about it afterwards.
    std::optional<std::chrono::nanoseconds> processorTimePerExchange{};
    std::optional<std::size_t> residentKiB{}; ///< Of the server's process, at the end.
};

/// Devices that keep a server busy, with a fixed number of exchanges open at any time.
class Load {
  public:
    Load(Wire& wire, const LoadPlan& plan);

    /// Once only. @throws std::runtime_error when the devices of renewals get no address.
    [[nodiscard]] LoadResult run();

  private:
    struct Client {
        enum class State { idle, discovering, requesting };
        State state = State::idle;
        std::uint32_t xid = 0;
        Clock::time_point sentAt;
        DHCPCore::IPv4Address ip; ///< Zero before its first ACK.
        DHCPCore::IPv4Address server;
        DHCPCore::MACAddress serverMAC;
    };

    void getAddresses();
    void keepBusy(Clock::time_point end);
    void finishOpenOnes();
    void begin(std::uint32_t number);
    void ask(std::uint32_t number, Client::State state);
    void sendRenewal(std::uint32_t number);
    void turn(Clock::time_point end);
    void take(const Arrival& arrival);
    void takeAnswer(std::uint32_t number, const DHCPCore::DHCPPacket& packet, const Arrival& arrival);
    void takeOffer(std::uint32_t number, const DHCPCore::DHCPPacket& packet, const Arrival& arrival);
    void takeACK(std::uint32_t number);
    void end(std::uint32_t number, bool well);
    void giveUpOldOnes();

    Wire& wire_;
    LoadPlan plan_;
    LoadKind kind_; ///< What the devices do now; handshakes first, where renewals are to follow.
    Messages messages_;
    std::vector<Client> clients_;
    std::deque<std::uint32_t> idle_;    ///< In the order of their turns.
    std::vector<std::uint32_t> open_{}; ///< The clients that wait for an answer.
    std::uint32_t sequence_;            ///< Makes transaction numbers differ.
    std::size_t ended_ = 0;             ///< Exchanges that ended well, the measurement's and those after it.
    bool isMeasuring_ = false;
    LoadResult result_;
};

} // namespace DHCPLoad
