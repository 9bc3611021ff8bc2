#include "SoakDevices.hpp"

#include <algorithm>

namespace DHCPLoad {

using namespace DHCPCore;

namespace {

using namespace std::chrono_literals;
using std::chrono::milliseconds;

constexpr auto firstPatience = 1s;      // for an answer; then twice as long each time
constexpr int mostTries = 4;            // then it starts over
constexpr auto turn = 10ms;             // how exactly devices keep their times
constexpr auto pauseAfterDecline = 10s; // RFC 2131, section 3.1, step 5
// The server's file holds whole seconds, cut: after a restart, a lease may end so much earlier.
constexpr auto cautionAtTheEnd = 1s;

std::optional<std::chrono::seconds> leaseTime(const DHCPPacket& packet) {
    const auto data = packet.option(OptionCode::leaseTime);
    const auto number = data && data->size() == 4 ? IPv4Address::fromBytes(*data) : std::nullopt;
    return number ? std::optional(std::chrono::seconds{number->value}) : std::nullopt;
}

} // namespace

SoakDevices::SoakDevices(Wire& wire, const SoakPlan& plan) : wire_(wire), plan_(plan), devices_(plan.devices) {}

SoakResult SoakDevices::run() {
    wire_.answerAddressRequests([this](IPv4Address asked) -> std::optional<MACAddress> {
        const auto owner = std::ranges::find_if(
            devices_, [asked](const Device& device) { return device.isHolding && device.ip == asked; });
        return owner == devices_.end()
                   ? std::nullopt
                   : std::optional(macOfClient(static_cast<std::uint32_t>(owner - devices_.begin())));
    });
    now_ = Clock::now();
    const auto end = now_ + plan_.duration;
    for (Device& device : devices_) {
        device.actAt = now_ + between(0ms, 2s);
    }
    while (now_ < end) {
        for (std::uint32_t number = 0; number < devices_.size(); ++number) {
            if (devices_[number].actAt <= now_) {
                act(number);
            }
        }
        wire_.flush();
        wire_.receive(turn, [this](const Arrival& arrival) { take(arrival); });
        now_ = Clock::now();
    }
    for (std::uint32_t number = 0; number < devices_.size(); ++number) {
        endHold(devices_[number], number);
    }
    result_.withoutAddress = static_cast<std::size_t>(std::ranges::count(devices_, false, &Device::hasEverHeld));
    return result_;
}

void SoakDevices::act(std::uint32_t number) {
    switch (devices_[number].state) {
    case State::off:
        return switchOn(number);
    case State::discovering:
    case State::requesting:
    case State::rebooting:
        return sendAgain(number);
    case State::bound:
    case State::renewing:
        return keepOrLeave(number);
    }
}

void SoakDevices::switchOn(std::uint32_t number) {
    Device& device = devices_[number];
    device.wantedAt = now_;
    ask(number, device.ip == IPv4Address::zero ? State::discovering : State::rebooting);
}

/// Begins an exchange.
void SoakDevices::ask(std::uint32_t number, State state) {
    Device& device = devices_[number];
    device.state = state;
    device.xid = static_cast<std::uint32_t>(random_());
    device.tries = 0;
    device.askedAt = now_;
    send(number);
}

void SoakDevices::sendAgain(std::uint32_t number) {
    Device& device = devices_[number];
    ++result_.unanswered;
    if (++device.tries < mostTries) {
        send(number);
        return;
    }
    device.ip = IPv4Address::zero;
    ask(number, State::discovering);
}

void SoakDevices::send(std::uint32_t number) {
    Device& device = devices_[number];
    Route route{.from = macOfClient(number)};
    device.actAt = now_ + firstPatience * (1 << std::min(device.tries, 3)) + between(0ms, 500ms);
    switch (device.state) {
    case State::discovering:
        return wire_.add(route, messages_.discover(number, device.xid));
    case State::requesting:
        return wire_.add(route, messages_.request(number, device.xid, device.ip, device.server));
    case State::rebooting:
        return wire_.add(route, messages_.reboot(number, device.xid, device.ip));
    case State::renewing:
        route.source = device.ip;
        if (device.tries < 2) { // then to everybody (REBINDING)
            route.to = device.serverMAC;
            route.destination = device.server;
        }
        return wire_.add(route, messages_.renewal(number, device.xid, device.ip));
    case State::off:
    case State::bound:
        return;
    }
}

void SoakDevices::keepOrLeave(std::uint32_t number) {
    Device& device = devices_[number];
    if (now_ >= device.endsAt) {
        ++result_.expired;
        endHold(device, number);
        device.wantedAt = now_;
        ask(number, State::discovering);
    } else if (device.state == State::renewing) {
        ++result_.unanswered;
        ++device.tries;
        send(number);
        device.actAt = std::min(device.actAt, device.endsAt);
    } else if (now_ >= device.leavesAt) {
        leave(number);
    } else {
        ask(number, State::renewing);
    }
}

/// Gives the address back, or is switched off and will ask for it again.
void SoakDevices::leave(std::uint32_t number) {
    Device& device = devices_[number];
    if (happensOnceIn(2)) {
        ++result_.switchedOff;
        switchOff(device, number, between(1s, 10s));
        return;
    }
    ++result_.released;
    const auto xid = static_cast<std::uint32_t>(random_());
    wire_.add({.from = macOfClient(number), .to = device.serverMAC, .source = device.ip, .destination = device.server},
              messages_.release(number, xid, device.ip, device.server));
    switchOff(device, number, between(1s, 10s));
    device.ip = IPv4Address::zero;
}

void SoakDevices::take(const Arrival& arrival) {
    if (!arrival.isSound) {
        ++result_.invalid;
        return;
    }
    try {
        const DHCPPacket packet = DHCPPacket::parse(arrival.payload);
        const auto mac = packet.mac();
        const auto number = mac ? clientOfMAC(*mac) : std::nullopt;
        // Answers to others on the same cable are none of ours.
        if (number && *number < devices_.size() && devices_[*number].xid == packet.xid) {
            takeAnswer(*number, packet, arrival);
        }
    } catch (const PacketError&) {
        ++result_.invalid;
    }
}

void SoakDevices::takeAnswer(std::uint32_t number, const DHCPPacket& packet, const Arrival& arrival) {
    Device& device = devices_[number];
    const auto type = packet.messageType();
    if (device.state == State::off || device.state == State::bound) {
        return; // a second answer to a message that was sent twice
    }
    if (type == DHCPMessageType::offer && device.state == State::discovering && packet.serverID()) {
        device.ip = packet.yiaddr;
        device.server = *packet.serverID();
        device.serverMAC = arrival.from;
        device.state = State::requesting;
        device.tries = 0;
        device.askedAt = now_;
        send(number);
    } else if (type == DHCPMessageType::ack && device.state != State::discovering) {
        takeACK(number, packet);
    } else if (type == DHCPMessageType::nak && device.state != State::discovering) {
        ++result_.refused;
        endHold(device, number);
        device.ip = IPv4Address::zero;
        ask(number, State::discovering);
    }
}

void SoakDevices::takeACK(std::uint32_t number, const DHCPPacket& packet) {
    constexpr int ratherSeldom = 25;
    Device& device = devices_[number];
    const auto lease = leaseTime(packet);
    if (packet.yiaddr != device.ip || !lease) {
        ++result_.invalid;
        return;
    }
    const State asked = device.state;
    device.endsAt = device.askedAt + *lease - cautionAtTheEnd;
    device.state = State::bound;
    if (asked == State::requesting && happensOnceIn(ratherSeldom)) {
        decline(number);
        return;
    }
    result_.acquired += asked == State::requesting ? 1U : 0U;
    result_.rebooted += asked == State::rebooting ? 1U : 0U;
    result_.renewed += asked == State::renewing ? 1U : 0U;
    if (asked != State::renewing) {
        hold(number);
        device.leavesAt = now_ + between(20s, 240s);
    }
    const auto half = std::chrono::duration_cast<milliseconds>(*lease) / 2;
    device.actAt = std::min(device.leavesAt, device.askedAt + between(half - half / 10, half));
}

/// As if it had found somebody else at the address.
void SoakDevices::decline(std::uint32_t number) {
    Device& device = devices_[number];
    ++result_.declined;
    wire_.add({.from = macOfClient(number)},
              messages_.decline(number, static_cast<std::uint32_t>(random_()), device.ip, device.server));
    switchOff(device, number, pauseAfterDecline);
    device.ip = IPv4Address::zero;
}

void SoakDevices::hold(std::uint32_t number) {
    Device& device = devices_[number];
    device.isHolding = true;
    device.hasEverHeld = true;
    device.heldSince = currentDate();
    result_.longestWait = std::max<std::chrono::nanoseconds>(result_.longestWait, Clock::now() - device.wantedAt);
}

void SoakDevices::endHold(Device& device, std::uint32_t number) {
    if (device.isHolding) {
        device.isHolding = false;
        result_.holds.push_back(
            {.holder = nameOfClient(number), .ip = device.ip, .from = device.heldSince, .until = currentDate()});
    }
}

void SoakDevices::switchOff(Device& device, std::uint32_t number, milliseconds pause) {
    endHold(device, number);
    device.state = State::off;
    device.actAt = now_ + pause;
}

bool SoakDevices::happensOnceIn(int times) { return std::uniform_int_distribution<>(1, times)(random_) == 1; }

milliseconds SoakDevices::between(milliseconds least, milliseconds most) {
    return milliseconds{std::uniform_int_distribution<milliseconds::rep>(least.count(), most.count())(random_)};
}

} // namespace DHCPLoad
