#include "Flood.hpp"

#include "Clients.hpp"

#include <algorithm>
#include <cstdint>
#include <random>
#include <stdexcept>
#include <unordered_map>

namespace DHCPLoad {

using namespace DHCPCore;

namespace {

using namespace std::chrono_literals;

constexpr std::uint32_t honestClient = 0;
constexpr std::uint32_t floodingClient = 0xFFFFFF; // no client of a load

class Flood {
  public:
    Flood(Wire& wire, const FloodPlan& plan) : wire_(wire), plan_(plan), xid_(std::random_device{}()) {}

    FloodResult run() {
        constexpr auto patience = 1s;
        if (plan_.renews) {
            getAddress();
        }
        if (plan_.server) {
            result_.before = processFigures(*plan_.server);
            result_.worst = result_.before;
        }
        const auto start = Clock::now();
        const auto end = start + plan_.duration;
        for (auto now = start; now < end; now = Clock::now()) {
            askWhenDue(now);
            const bool isBehind = addDue(now - start);
            wire_.flush();
            receive(isBehind ? 0ns : pause);
            lookAtServer(now);
        }
        result_.span = Clock::now() - start;
        while (!sentAt_.empty() && Clock::now() < end + patience) {
            receive(pause);
        }
        if (plan_.server) {
            awaitIdle(*plan_.server);
            result_.after = processFigures(*plan_.server);
            result_.worst = worst(*result_.worst, *result_.after);
        }
        return result_;
    }

  private:
    void getAddress() {
        wire_.answerAddressRequests([this](IPv4Address asked) {
            return asked == ip_ && asked != IPv4Address::zero ? std::optional(macOfClient(honestClient)) : std::nullopt;
        });
        const auto end = Clock::now() + 10s;
        auto askAgainAt = Clock::now();
        for (auto now = askAgainAt; !isBound_; now = Clock::now()) {
            if (now > end) {
                throw std::runtime_error("the honest device got no address");
            }
            if (now >= askAgainAt) {
                askAgainAt = now + 1s;
                wire_.add({.from = macOfClient(honestClient)}, messages_.discover(honestClient, ++xid_));
            }
            wire_.flush();
            receive(pause);
        }
    }

    void askWhenDue(Clock::time_point now) {
        if (now < nextAsking_) {
            return;
        }
        nextAsking_ = now + plan_.interval;
        sentAt_[++xid_] = now;
        ++result_.asked;
        if (plan_.renews) {
            wire_.add({.from = macOfClient(honestClient), .to = serverMAC_, .source = ip_, .destination = server_},
                      messages_.renewal(honestClient, xid_, ip_));
        } else {
            wire_.add({.from = macOfClient(honestClient)}, messages_.discover(honestClient, xid_));
        }
    }

    /// @return whether more are due: a turn is kept short, so that the honest device's answers are taken in time.
    bool addDue(std::chrono::nanoseconds passed) {
        constexpr std::size_t burst = 128;
        const double seconds = std::chrono::duration<double>(passed).count();
        const auto due = plan_.rate == 0 ? SIZE_MAX : static_cast<std::size_t>(plan_.rate * seconds);
        const std::size_t end = std::min({due, result_.flooded + burst, plan_.most});
        for (; result_.flooded < end; ++result_.flooded) {
            wire_.add({.from = macOfClient(floodingClient)}, hostile_.next());
        }
        return result_.flooded < std::min(due, plan_.most);
    }

    void lookAtServer(Clock::time_point now) {
        constexpr auto interval = 200ms;
        if (plan_.server && now >= nextLook_) {
            nextLook_ = now + interval;
            result_.worst = worst(*result_.worst, processFigures(*plan_.server));
        }
    }

    void receive(std::chrono::nanoseconds longest) {
        wire_.receive(longest, [this](const Arrival& arrival) {
            try {
                take(DHCPPacket::parse(arrival.payload), arrival);
            } catch (const PacketError&) {
                return; // no answer at all
            }
        });
    }

    void take(const DHCPPacket& packet, const Arrival& arrival) {
        if (packet.mac() != macOfClient(honestClient)) {
            return;
        }
        if (plan_.renews && !isBound_) {
            takeAddress(packet, arrival);
            return;
        }
        constexpr auto prompt = 100ms;
        const auto question = sentAt_.find(packet.xid);
        const auto wanted = plan_.renews ? DHCPMessageType::ack : DHCPMessageType::offer;
        if (question == sentAt_.end() || packet.messageType() != wanted) {
            return;
        }
        const auto time = Clock::now() - question->second;
        sentAt_.erase(question);
        ++result_.answered;
        result_.promptly += time <= prompt ? 1U : 0U;
        result_.answerTimes.emplace_back(time);
    }

    void takeAddress(const DHCPPacket& packet, const Arrival& arrival) {
        const auto type = packet.messageType();
        if (type == DHCPMessageType::offer && packet.serverID()) {
            server_ = *packet.serverID();
            wire_.add({.from = macOfClient(honestClient)},
                      messages_.request(honestClient, packet.xid, packet.yiaddr, server_));
        } else if (type == DHCPMessageType::ack) {
            ip_ = packet.yiaddr;
            serverMAC_ = arrival.from;
            isBound_ = true;
        }
    }

    static constexpr std::chrono::nanoseconds pause = 1ms;

    Wire& wire_;
    FloodPlan plan_;
    Messages messages_;
    HostileMessages hostile_{plan_.kind};
    std::uint32_t xid_;
    Clock::time_point nextAsking_;
    Clock::time_point nextLook_;
    std::unordered_map<std::uint32_t, Clock::time_point> sentAt_; ///< The honest device's open questions.
    bool isBound_ = false;
    IPv4Address ip_;
    IPv4Address server_;
    MACAddress serverMAC_;
    FloodResult result_;
};

} // namespace

FloodResult flood(Wire& wire, const FloodPlan& plan) { return Flood(wire, plan).run(); }

} // namespace DHCPLoad
