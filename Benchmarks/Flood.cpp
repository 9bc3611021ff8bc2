#include "Flood.hpp"

#include "Clients.hpp"

#include <algorithm>
#include <array>
#include <random>
#include <unordered_map>

namespace DHCPLoad {

using namespace DHCPCore;

namespace {

constexpr std::uint32_t honestClient = 0;
constexpr std::uint32_t floodingClient = 0xFFFFFF; // no client of a load

/// One of each kind that a server must throw away: too short, without the cookie, with an option that overruns the
/// packet, with an option that lacks its length, no request, and one byte.
std::vector<Bytes> malformedPackets() {
    constexpr std::size_t cookie = DHCPPacket::headerLength;
    Messages messages;
    const Bytes good = messages.discover(floodingClient, 1);
    std::vector<Bytes> packets(6, good);
    packets[0].resize(DHCPPacket::headerLength - 1);
    packets[1][cookie] ^= 0xFFU;
    packets[2].resize(cookie + DHCPPacket::magicCookie.size());
    packets[2].insert(packets[2].end(), {OptionCode::hostname, 255, 'x'});
    packets[3].resize(cookie + DHCPPacket::magicCookie.size());
    packets[3].push_back(OptionCode::hostname);
    packets[4][0] = 0;
    packets[5].resize(1);
    return packets;
}

class Flood {
  public:
    Flood(Wire& wire, const FloodPlan& plan) : wire_(wire), plan_(plan), xid_(std::random_device{}()) {}

    FloodResult run() {
        constexpr std::chrono::seconds patience{1};
        const auto start = Clock::now();
        const auto end = start + plan_.duration;
        for (auto now = start; now < end; now = Clock::now()) {
            askWhenDue(now);
            addDue(now - start);
            wire_.flush();
            // At full rate nothing is waited for: what has come is taken between two bursts.
            receive(plan_.rate == 0 ? std::chrono::nanoseconds{} : pause);
        }
        result_.span = Clock::now() - start;
        while (!sentAt_.empty() && Clock::now() < end + patience) {
            receive(pause);
        }
        return result_;
    }

  private:
    void askWhenDue(Clock::time_point now) {
        constexpr std::chrono::milliseconds interval{20};
        if (now < nextAsking_) {
            return;
        }
        nextAsking_ = now + interval;
        sentAt_[++xid_] = now;
        ++result_.asked;
        wire_.add({.from = macOfClient(honestClient)}, messages_.discover(honestClient, xid_));
    }

    void addDue(std::chrono::nanoseconds passed) {
        constexpr std::size_t burst = 32;
        const double seconds = std::chrono::duration<double>(passed).count();
        const auto due = plan_.rate == 0 ? result_.flooded + burst : static_cast<std::size_t>(plan_.rate * seconds);
        for (; result_.flooded < due; ++result_.flooded) {
            wire_.add({.from = macOfClient(floodingClient)}, malformed_[result_.flooded % malformed_.size()]);
        }
    }

    void receive(std::chrono::nanoseconds longest) {
        wire_.receive(longest, [this](const Arrival& arrival) {
            try {
                take(DHCPPacket::parse(arrival.payload));
            } catch (const PacketError&) {
                return; // no answer at all
            }
        });
    }

    void take(const DHCPPacket& packet) {
        constexpr std::chrono::milliseconds prompt{100};
        const auto question = sentAt_.find(packet.xid);
        if (question == sentAt_.end() || packet.messageType() != DHCPMessageType::offer ||
            packet.mac() != macOfClient(honestClient)) {
            return;
        }
        const auto time = Clock::now() - question->second;
        sentAt_.erase(question);
        ++result_.answered;
        result_.promptly += time <= prompt ? 1U : 0U;
        result_.offerTimes.emplace_back(time);
    }

    static constexpr std::chrono::nanoseconds pause = std::chrono::milliseconds{1};

    Wire& wire_;
    FloodPlan plan_;
    Messages messages_;
    std::vector<Bytes> malformed_ = malformedPackets();
    std::uint32_t xid_;
    Clock::time_point nextAsking_;
    std::unordered_map<std::uint32_t, Clock::time_point> sentAt_; ///< The honest device's open questions.
    FloodResult result_;
};

} // namespace

FloodResult flood(Wire& wire, const FloodPlan& plan) { return Flood(wire, plan).run(); }

} // namespace DHCPLoad
