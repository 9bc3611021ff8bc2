#include "DHCPCore/Addresses.hpp"
#include "DHCPCore/Config.hpp"
#include "DHCPCore/LeaseStore.hpp"
#include "DHCPCore/Packet.hpp"
#include "DHCPCore/PresenceState.hpp"
#include "Model/DecisionModel.hpp"
#include "Model/LeaseModel.hpp"
#include "Model/Random.hpp"
#include "Model/Session.hpp"
#include "Support/LeaseBuilders.hpp"

#include <algorithm>
#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>
#include <variant>
#include <vector>

namespace DHCPCore::Model {

namespace {

using std::chrono::microseconds;
using std::chrono::seconds;

Bytes bytesOf(IPv4Address ip) {
    const auto bytes = ip.bytes();
    return {bytes.begin(), bytes.end()};
}

/// Writes a session while it plays it to the model.
class Author {
  public:
    explicit Author(std::uint64_t seed) : random_(seed), backwards_(seed % 4 == 3), now_(TestSupport::now) {
        session_.start = now_;
        session_.config = config(seed);
        clients_ = seed % 16 == 5 ? 200 : 1 + random_.below(12);
    }

    Session write(std::size_t length) {
        while (session_.steps.size() < length) {
            const std::uint64_t kind = random_.below(100);
            if (kind < 70) {
                message();
            } else if (kind < 84) {
                wait();
            } else if (kind < 97) {
                sight();
            } else {
                upkeep();
            }
        }
        return session_;
    }

  private:
    /// Mostly a small pool that fills up. Values that no user could start the server with occur as well: the rules
    /// say what they mean.
    ServerConfig config(std::uint64_t seed) {
        const std::uint32_t base = random_.oneIn(8) ? 0xFFFFFF00U : 0x0A000000U;
        const std::uint32_t last = seed % 16 == 5 ? 240 : 10 + static_cast<std::uint32_t>(random_.below(9));
        ServerConfig config{.serverIP = IPv4Address{base + (random_.oneIn(4) ? 12 : 1)},
                            .prefixLength = random_.oneIn(8) ? static_cast<int>(random_.below(40)) - 4 : 24,
                            .rangeStart = IPv4Address{base + 10},
                            .rangeEnd = IPv4Address{base + (random_.oneIn(16) ? 255 : last)},
                            .leaseSeconds = random_.oneOf<std::uint32_t>({60, 90, 3600, 86400, 4294967295U}),
                            .router = {},
                            .dns = {}};
        if (random_.oneIn(16)) {
            std::swap(config.rangeStart, config.rangeEnd);
        }
        if (random_.oneIn(2)) {
            config.router = IPv4Address{base + 1};
            config.dns.assign(random_.below(4), IPv4Address{base + 3});
        }
        return config;
    }

    MACAddress client() {
        const auto number = static_cast<std::uint16_t>(random_.below(clients_));
        return {.bytes = {0x02, 0, 0, 0, static_cast<std::uint8_t>(number >> 8U), static_cast<std::uint8_t>(number)}};
    }

    IPv4Address inPool() {
        const IPv4Address lower = std::min(session_.config.rangeStart, session_.config.rangeEnd);
        const IPv4Address upper = std::max(session_.config.rangeStart, session_.config.rangeEnd);
        return IPv4Address{lower.value + static_cast<std::uint32_t>(random_.below(upper.value - lower.value + 1ULL))};
    }

    IPv4Address anyAddress(const MACAddress& mac) {
        const std::uint32_t server = session_.config.serverIP.value;
        switch (random_.below(12)) {
        case 0:
        case 1:
        case 2:
            return inPool();
        case 3:
            return model_.leases.empty() ? inPool() : random_.oneOf(model_.leases).ip;
        case 4:
            return model_.quarantine.empty() ? inPool() : random_.oneOf(model_.quarantine).ip;
        case 5:
            return random_.oneOf<IPv4Address>({IPv4Address{server}, IPv4Address{server | 255U},
                                               IPv4Address{server & ~255U}, IPv4Address{server + 65536}, IPv4Address{0},
                                               IPv4Address{192, 168, 7, 7}});
        case 6:
            return random_.oneOf<IPv4Address>({IPv4Address{session_.config.rangeStart.value - 1},
                                               session_.config.rangeStart, session_.config.rangeEnd,
                                               IPv4Address{session_.config.rangeEnd.value + 1}});
        default: {
            const auto own = model_.lease(mac);
            return own ? own->ip : inPool();
        }
        }
    }

    void message() {
        DHCPPacket packet;
        const MACAddress mac = client();
        std::ranges::copy(mac.bytes, packet.chaddr.begin());
        packet.xid = static_cast<std::uint32_t>(random_.below(0x100000000ULL));
        packet.flags = random_.oneIn(2) ? 0x8000 : static_cast<std::uint16_t>(random_.below(0x10000));
        switch (random_.below(16)) {
        case 0:
        case 1:
        case 2:
        case 3:
        case 4:
            discover(packet, mac);
            break;
        case 5:
        case 6:
        case 7:
        case 8:
            selecting(packet, mac);
            break;
        case 9:
        case 10:
            type(packet, DHCPMessageType::request);
            packet.ciaddr = anyAddress(mac);
            break;
        case 11:
            type(packet, DHCPMessageType::request);
            packet.options.push_back({.code = OptionCode::requestedIP, .data = bytesOf(anyAddress(mac))});
            break;
        case 12:
            leave(packet, mac, DHCPMessageType::release);
            break;
        case 13:
            leave(packet, mac, DHCPMessageType::decline);
            break;
        default:
            anything(packet, mac);
        }
        texts(packet);
        oddities(packet);
        deliver({.packet = packet, .answers = static_cast<unsigned>(random_.below(32))});
    }

    static void type(DHCPPacket& packet, DHCPMessageType type) {
        packet.options.push_back({.code = OptionCode::messageType, .data = {static_cast<std::uint8_t>(type)}});
    }

    void discover(DHCPPacket& packet, const MACAddress& mac) {
        type(packet, DHCPMessageType::discover);
        if (random_.oneIn(2)) {
            packet.options.push_back({.code = OptionCode::requestedIP, .data = bytesOf(anyAddress(mac))});
        }
    }

    /// A client that takes an offer, ours for the most part.
    void selecting(DHCPPacket& packet, const MACAddress& mac) {
        type(packet, DHCPMessageType::request);
        const IPv4Address server =
            random_.oneIn(10) ? IPv4Address{session_.config.serverIP.value + 1} : session_.config.serverIP;
        packet.options.push_back({.code = OptionCode::serverID, .data = bytesOf(server)});
        if (!random_.oneIn(10)) {
            packet.options.push_back({.code = OptionCode::requestedIP, .data = bytesOf(anyAddress(mac))});
        }
        if (random_.oneIn(10)) {
            packet.ciaddr = anyAddress(mac);
        }
    }

    /// A client that gives its address up, for one reason or another.
    void leave(DHCPPacket& packet, const MACAddress& mac, DHCPMessageType how) {
        type(packet, how);
        packet.ciaddr = anyAddress(mac);
        packet.options.push_back({.code = OptionCode::serverID, .data = bytesOf(session_.config.serverIP)});
        packet.options.push_back({.code = OptionCode::requestedIP, .data = bytesOf(packet.ciaddr)});
    }

    void anything(DHCPPacket& packet, const MACAddress& mac) {
        type(packet, static_cast<DHCPMessageType>(random_.below(10)));
        for (const std::uint8_t code : {OptionCode::requestedIP, OptionCode::serverID}) {
            if (random_.oneIn(2)) {
                Bytes data = bytesOf(random_.oneIn(2) ? anyAddress(mac) : session_.config.serverIP);
                data.resize(random_.oneIn(3) ? random_.below(6) : 4);
                packet.options.push_back({.code = code, .data = data});
            }
        }
        if (random_.oneIn(2)) {
            packet.ciaddr = anyAddress(mac);
        }
    }

    void texts(DHCPPacket& packet) {
        constexpr std::array<std::string_view, 6> samples{"", "bench-7", "APC UPS 9.2", "apc", "a\x1b[31m\n\xC3\"%s",
                                                          "x"};
        for (const std::uint8_t code : {OptionCode::hostname, OptionCode::vendorClass, OptionCode::clientID}) {
            if (random_.oneIn(4)) {
                const std::string_view sample = samples.at(random_.below(samples.size()));
                Bytes data{sample.begin(), sample.end()};
                data.resize(random_.oneIn(6) ? 63 + random_.below(3) : data.size(), random_.byte());
                packet.options.push_back({.code = code, .data = data});
            }
        }
    }

    void oddities(DHCPPacket& packet) {
        if (!random_.oneIn(12)) {
            return;
        }
        switch (random_.below(6)) {
        case 0:
            packet.op = random_.byte();
            break;
        case 1:
            packet.htype = random_.byte();
            break;
        case 2:
            packet.hlen = random_.byte();
            break;
        case 3:
            packet.giaddr = inPool();
            break;
        case 4:
            packet.options.erase(packet.options.begin());
            break;
        default: // every option twice, the second time with nothing in it
            for (std::size_t count = packet.options.size(), index = 0; index < count; ++index) {
                packet.options.push_back({.code = packet.options[index].code, .data = {}});
            }
        }
    }

    void deliver(const Step::Message& message) {
        ProbeAnswers probes;
        for (;;) {
            const Outcome outcome = decide(session_.config, message.packet,
                                           {.table = model_, .presence = presence_, .probes = probes, .now = now_});
            model_ = outcome.table;
            const auto* probe = std::get_if<DecisionAction::Probe>(&outcome.action.value);
            if (probe == nullptr || probes.contains(probe->ip)) {
                break;
            }
            const bool answered = (message.answers >> probes.size() & 1U) != 0;
            probes.emplace(probe->ip, answered);
        }
        session_.steps.push_back({message});
    }

    /// A moment, a while, or up to the very instant at which something ends, a microsecond before or after it.
    void wait() {
        std::vector<microseconds> times{microseconds{random_.below(2'000'000)}, seconds{random_.below(30)},
                                        seconds{random_.below(2 * std::uint64_t{session_.config.leaseSeconds})}};
        if (backwards_ && random_.oneIn(4)) {
            times = {-seconds{random_.below(7200)}};
        }
        std::vector<Date> ends;
        for (const Lease& lease : model_.leases) {
            ends.push_back(lease.expiresAt);
        }
        for (const Quarantine& record : model_.quarantine) {
            ends.push_back(record.until);
        }
        std::erase_if(ends, [this](Date end) { return end <= now_ + microseconds{1}; });
        microseconds time = random_.oneOf(times);
        if (!ends.empty() && random_.oneIn(2)) {
            time = random_.oneOf(ends) - now_ + microseconds{static_cast<int>(random_.below(3)) - 1};
        }
        now_ += time;
        session_.steps.push_back({Step::Wait{time}});
    }

    void sight() {
        const IPv4Address ip = model_.leases.empty() || random_.oneIn(3) ? inPool() : random_.oneOf(model_.leases).ip;
        std::optional<PresenceState> presence;
        if (!random_.oneIn(5)) {
            presence = random_.oneOf<PresenceState>(
                {PresenceState::unknown, PresenceState::online, PresenceState::offline, PresenceState::conflict});
            presence_[ip] = *presence;
        } else {
            presence_.erase(ip);
        }
        session_.steps.push_back({Step::Sight{.ip = ip, .presence = presence}});
    }

    void upkeep() {
        switch (random_.below(3)) {
        case 0: {
            const MACAddress mac = client();
            model_.remove(mac);
            session_.steps.push_back({Step::Forget{mac}});
            break;
        }
        case 1:
            model_.clearInactive(now_);
            session_.steps.push_back({Step::ClearInactive{}});
            break;
        default:
            model_.dropOutside({.lower = std::min(session_.config.rangeStart, session_.config.rangeEnd),
                                .upper = std::max(session_.config.rangeStart, session_.config.rangeEnd)});
            session_.steps.push_back({Step::Restart{}});
        }
    }

    Random random_;
    bool backwards_;
    std::uint64_t clients_ = 1;
    Date now_;
    PresenceMap presence_;
    Table model_;
    Session session_;
};

} // namespace

Session randomSession(std::uint64_t seed, std::size_t length) { return Author{seed}.write(length); }

} // namespace DHCPCore::Model
