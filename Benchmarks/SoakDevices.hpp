#pragma once

#include "Clients.hpp"
#include "DHCPCore/Addresses.hpp"
#include "DHCPCore/Date.hpp"
#include "DHCPCore/Packet.hpp"
#include "Wire.hpp"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <random>
#include <string>
#include <vector>

namespace DHCPLoad {

/// That a device had an address to itself, from its ACK until it gave it up or its lease ended.
struct Hold {
    std::string holder;
    DHCPCore::IPv4Address ip;
    DHCPCore::Date from;
    DHCPCore::Date until;

    bool operator==(const Hold&) const = default;
};

struct SoakPlan {
    std::uint32_t devices = 50;
    std::chrono::milliseconds duration{60'000};
};

struct SoakResult {
    std::size_t acquired = 0; ///< Addresses got by a whole handshake.
    std::size_t rebooted = 0; ///< Addresses got again at switching on.
    std::size_t renewed = 0;
    std::size_t released = 0;
    std::size_t declined = 0;
    std::size_t switchedOff = 0;
    std::size_t refused = 0;                ///< Answered by a NAK.
    std::size_t expired = 0;                ///< Leases that ended because no renewal was answered.
    std::size_t unanswered = 0;             ///< Messages that were sent again.
    std::size_t invalid = 0;                ///< Answers that no device could use.
    std::chrono::nanoseconds longestWait{}; ///< From wanting an address to having one.
    std::size_t withoutAddress = 0;         ///< Devices that never got one.
    std::vector<Hold> holds{};              ///< In the order of their ends.
};

/// Devices on one card that live as devices in a lab do: they get addresses, renew them, give them back, decline one
/// now and then, are switched off without a word and come back with the address that they had (RFC 2131, section 4.4).
class SoakDevices {
  public:
    SoakDevices(Wire& wire, const SoakPlan& plan);

    /// Once only.
    [[nodiscard]] SoakResult run();

  private:
    enum class State { off, discovering, requesting, rebooting, bound, renewing };

    struct Device {
        State state = State::off;
        Clock::time_point actAt;    ///< When it does something next, by itself.
        Clock::time_point wantedAt; ///< Since when it has wanted an address.
        Clock::time_point askedAt;  ///< When the message was sent first that an ACK's lease counts from.
        Clock::time_point endsAt;   ///< Of its lease.
        Clock::time_point leavesAt; ///< When it has had the address for long enough.
        std::uint32_t xid = 0;
        int tries = 0;
        DHCPCore::IPv4Address ip; ///< Zero when it knows none.
        DHCPCore::IPv4Address server;
        DHCPCore::MACAddress serverMAC;
        DHCPCore::Date heldSince;
        bool isHolding = false;
        bool hasEverHeld = false;
    };

    void act(std::uint32_t number);
    void switchOn(std::uint32_t number);
    void ask(std::uint32_t number, State state);
    void sendAgain(std::uint32_t number);
    void send(std::uint32_t number);
    void keepOrLeave(std::uint32_t number);
    void leave(std::uint32_t number);
    void take(const Arrival& arrival);
    void takeAnswer(std::uint32_t number, const DHCPCore::DHCPPacket& packet, const Arrival& arrival);
    void takeACK(std::uint32_t number, const DHCPCore::DHCPPacket& packet);
    void decline(std::uint32_t number);
    void hold(std::uint32_t number);
    void endHold(Device& device, std::uint32_t number);
    void switchOff(Device& device, std::uint32_t number, std::chrono::milliseconds pause);
    [[nodiscard]] bool happensOnceIn(int times);
    [[nodiscard]] std::chrono::milliseconds between(std::chrono::milliseconds least, std::chrono::milliseconds most);

    Wire& wire_;
    SoakPlan plan_;
    Messages messages_;
    std::vector<Device> devices_;
    std::mt19937 random_{std::random_device{}()};
    Clock::time_point now_;
    SoakResult result_;
};

} // namespace DHCPLoad
