#include "Load.hpp"

#include <algorithm>
#include <array>
#include <numeric>
#include <random>
#include <span>
#include <stdexcept>

namespace DHCPLoad {

using namespace DHCPCore;

namespace {

constexpr std::uint8_t bootReply = 2; // RFC 2131, section 2

/// A transaction number holds its client's number, so that an answer is found without a search.
constexpr unsigned clientBits = 17;
static_assert(mostClients == 1U << clientBits);

} // namespace

Load::Load(Wire& wire, const LoadPlan& plan)
    : wire_(wire), plan_(plan), kind_(plan.kind), clients_(plan.clients), idle_(plan.clients),
      sequence_(std::random_device{}()) {
    std::iota(idle_.begin(), idle_.end(), 0U);
}

LoadResult Load::run() {
    if (kind_ == LoadKind::renewals) {
        getAddresses();
    }
    const auto before = plan_.server ? processorTime(*plan_.server) : std::chrono::nanoseconds{};
    const auto start = Clock::now();
    isMeasuring_ = true;
    keepBusy(start + plan_.duration);
    isMeasuring_ = false;
    result_.span = Clock::now() - start;
    finishOpenOnes();
    if (plan_.server) {
        awaitIdle(*plan_.server);
        if (ended_ > 0) {
            result_.processorTimePerExchange =
                (processorTime(*plan_.server) - before) / static_cast<std::chrono::nanoseconds::rep>(ended_);
        }
        result_.residentKiB = residentKiB(*plan_.server);
    }
    return result_;
}

/// A handshake for every device, which also tells where the server is.
void Load::getAddresses() {
    constexpr std::chrono::seconds longest{60};
    wire_.answerAddressRequests([this](IPv4Address asked) -> std::optional<MACAddress> {
        const auto client = std::ranges::find(clients_, asked, &Client::ip);
        return client == clients_.end()
                   ? std::nullopt
                   : std::optional(macOfClient(static_cast<std::uint32_t>(client - clients_.begin())));
    });
    const auto end = Clock::now() + longest;
    kind_ = LoadKind::handshakes;
    const auto lacksAddress = [](const Client& client) { return client.ip == IPv4Address::zero; };
    while (std::ranges::any_of(clients_, lacksAddress)) {
        if (Clock::now() > end) {
            throw std::runtime_error("not every device got an address to renew");
        }
        keepBusy(Clock::now() + std::chrono::milliseconds{100});
    }
    finishOpenOnes();
    kind_ = LoadKind::renewals;
    result_ = {};
    ended_ = 0;
}

void Load::keepBusy(Clock::time_point end) {
    while (Clock::now() < end) {
        while (open_.size() < plan_.window && !idle_.empty()) {
            const std::uint32_t number = idle_.front();
            idle_.pop_front();
            begin(number);
        }
        turn(end);
    }
}

/// So that the server's next load does not begin with this one's rest.
void Load::finishOpenOnes() {
    while (!open_.empty()) {
        turn(Clock::now() + plan_.patience);
    }
}

void Load::begin(std::uint32_t number) {
    open_.push_back(number);
    if (kind_ == LoadKind::renewals) {
        sendRenewal(number);
        return;
    }
    ask(number, Client::State::discovering);
    wire_.add({.from = macOfClient(number)}, messages_.discover(number, clients_[number].xid));
}

/// Notes that a message of a new transaction goes out now.
void Load::ask(std::uint32_t number, Client::State state) {
    Client& client = clients_[number];
    client.state = state;
    client.xid = ++sequence_ << clientBits | number;
    client.sentAt = Clock::now();
}

void Load::sendRenewal(std::uint32_t number) {
    ask(number, Client::State::requesting);
    const Client& client = clients_[number];
    wire_.add({.from = macOfClient(number), .to = client.serverMAC, .source = client.ip, .destination = client.server},
              messages_.renewal(number, client.xid, client.ip));
}

void Load::turn(Clock::time_point end) {
    constexpr std::chrono::nanoseconds longest = std::chrono::milliseconds{10};
    wire_.flush();
    const std::chrono::nanoseconds left = end - Clock::now();
    wire_.receive(std::clamp(left, std::chrono::nanoseconds{}, longest),
                  [this](const Arrival& arrival) { take(arrival); });
    giveUpOldOnes();
}

void Load::take(const Arrival& arrival) {
    if (!arrival.isSound) {
        ++result_.invalid;
        return;
    }
    try {
        const DHCPPacket packet = DHCPPacket::parse(arrival.payload);
        const std::uint32_t number = packet.xid & (mostClients - 1);
        if (number >= clients_.size() || clients_[number].state == Client::State::idle ||
            clients_[number].xid != packet.xid) {
            ++result_.late;
        } else if (packet.op != bootReply || packet.mac() != macOfClient(number)) {
            ++result_.invalid;
        } else {
            takeAnswer(number, packet, arrival);
        }
    } catch (const PacketError&) {
        ++result_.invalid;
    }
}

void Load::takeAnswer(std::uint32_t number, const DHCPPacket& packet, const Arrival& arrival) {
    const bool isDiscovering = clients_[number].state == Client::State::discovering;
    const auto type = packet.messageType();
    if (type == DHCPMessageType::offer && isDiscovering && packet.serverID() && packet.yiaddr != IPv4Address::zero) {
        takeOffer(number, packet, arrival);
    } else if (type == DHCPMessageType::ack && !isDiscovering && packet.yiaddr == clients_[number].ip) {
        takeACK(number);
    } else if (type == DHCPMessageType::nak && !isDiscovering) {
        ++result_.refused;
        end(number, false);
    } else {
        ++result_.invalid;
    }
}

void Load::takeOffer(std::uint32_t number, const DHCPPacket& packet, const Arrival& arrival) {
    Client& client = clients_[number];
    if (isMeasuring_) {
        result_.offerTimes.emplace_back(Clock::now() - client.sentAt);
    }
    if (kind_ == LoadKind::offers) {
        end(number, true);
        return;
    }
    client.ip = packet.yiaddr;
    client.server = *packet.serverID();
    client.serverMAC = arrival.from;
    // A new transaction number is allowed, but common devices keep theirs (RFC 2131, section 4.4.1).
    client.state = Client::State::requesting;
    client.sentAt = Clock::now();
    wire_.add({.from = macOfClient(number)}, messages_.request(number, client.xid, client.ip, client.server));
}

void Load::takeACK(std::uint32_t number) {
    if (isMeasuring_) {
        result_.ackTimes.emplace_back(Clock::now() - clients_[number].sentAt);
    }
    end(number, true);
}

void Load::end(std::uint32_t number, bool well) {
    clients_[number].state = Client::State::idle;
    std::erase(open_, number);
    idle_.push_back(number);
    if (well) {
        ++ended_;
        result_.completed += isMeasuring_ ? 1U : 0U;
    }
}

void Load::giveUpOldOnes() {
    const auto eldest = Clock::now() - plan_.patience;
    const auto isOld = [this, eldest](std::uint32_t number) { return clients_[number].sentAt < eldest; };
    for (auto old = std::ranges::find_if(open_, isOld); old != open_.end(); old = std::ranges::find_if(open_, isOld)) {
        ++result_.lost;
        end(*old, false);
    }
}

} // namespace DHCPLoad
