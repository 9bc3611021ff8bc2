#include "HostileMessages.hpp"

#include "DHCPCore/Packet.hpp"

#include <algorithm>
#include <array>
#include <span>
#include <string>
#include <utility>

namespace DHCPLoad {

using namespace DHCPCore;
using namespace std::string_view_literals;

namespace {

constexpr std::uint32_t firstClient = 0x0100'0000; // no client of a load
constexpr std::size_t endOfCookie = DHCPPacket::headerLength + DHCPPacket::magicCookie.size();

/// One of each kind that a server must throw away: too short, without the cookie, with an option that overruns the
/// packet, with an option that lacks its length, no request, and one byte.
std::vector<Bytes> malformedPackets() {
    Messages messages;
    const Bytes good = messages.discover(firstClient, 1);
    std::vector<Bytes> packets(6, good);
    packets[0].resize(DHCPPacket::headerLength - 1);
    packets[1][DHCPPacket::headerLength] ^= 0xFFU;
    packets[2].resize(endOfCookie);
    packets[2].insert(packets[2].end(), {OptionCode::hostname, 255, 'x'});
    packets[3].resize(endOfCookie);
    packets[3].push_back(OptionCode::hostname);
    packets[4][0] = 0;
    packets[5].resize(1);
    return packets;
}

/// Names that would do something to a careless reader of the output.
std::vector<Bytes> hostileNames() {
    std::vector<Bytes> names;
    for (const std::string_view text :
         {"%s%n%x%p{}{0}"sv, "\n12:00:00.000  STOP         server stopped"sv, "\r\x1b[2J\x1b]0;title\x07"sv,
          R"("'\`$(reboot))"sv, "\xC3"sv, "\xE2\x82"sv, "\xF0\x9F\x92\xA9\xC2\x9B"sv, "\xC0\x80\xED\xA0\x80\xFF\xFE"sv,
          "\0\0"sv, R"(","event":"stopped)"sv}) {
        names.emplace_back(text.begin(), text.end());
    }
    for (int start = 0; start < 256; start += 32) {
        Bytes bytes(32);
        for (std::size_t index = 0; index < bytes.size(); ++index) {
            bytes[index] = static_cast<std::uint8_t>(static_cast<std::size_t>(start) + index);
        }
        names.push_back(std::move(bytes));
    }
    return names;
}

} // namespace

std::optional<Hostility> hostilityNamed(std::string_view name) {
    constexpr std::array<std::pair<std::string_view, Hostility>, 6> kinds{{{"malformed", Hostility::malformed},
                                                                           {"garbage", Hostility::garbage},
                                                                           {"discovers", Hostility::discovers},
                                                                           {"declines", Hostility::declines},
                                                                           {"names", Hostility::names},
                                                                           {"oversized", Hostility::oversized}}};
    const auto* const found = std::ranges::find(kinds, name, &std::pair<std::string_view, Hostility>::first);
    return found == kinds.end() ? std::nullopt : std::optional(found->second);
}

HostileMessages::HostileMessages(Hostility kind) : kind_(kind), malformed_(malformedPackets()) {}

const Bytes& HostileMessages::next() {
    ++count_;
    const auto client = firstClient + static_cast<std::uint32_t>(count_);
    switch (kind_) {
    case Hostility::malformed:
        return malformed_[count_ % malformed_.size()];
    case Hostility::garbage:
        makeGarbage();
        break;
    case Hostility::discovers:
        bytes_ = messages_.discover(client, client);
        break;
    case Hostility::declines:
        makeDecline();
        break;
    case Hostility::names:
        makeNames();
        break;
    case Hostility::oversized:
        makeOversized();
        break;
    }
    return bytes_;
}

void HostileMessages::makeGarbage() {
    constexpr std::size_t longest = 600;
    constexpr std::size_t kinds = 3;
    const std::size_t kind = count_ % kinds;
    if (kind == 0) {
        bytes_ = malformed_[count_ / kinds % malformed_.size()];
        return;
    }
    if (kind == 1) {
        bytes_.resize(below(longest));
        std::ranges::generate(bytes_, [this] { return static_cast<std::uint8_t>(below(256)); });
        return;
    }
    bytes_ = messages_.discover(firstClient, 1);
    for (std::size_t changes = 1 + below(8); changes > 0; --changes) {
        bytes_[below(bytes_.size())] = static_cast<std::uint8_t>(below(256));
    }
}

void HostileMessages::makeDecline() {
    const auto client = firstClient + static_cast<std::uint32_t>(count_);
    const auto world = static_cast<std::uint32_t>(count_ * 2'654'435'761U); // spreads, and repeats none for long
    bytes_ = messages_.decline(client, client, IPv4Address{world}, IPv4Address{10, 77, 0, 1});
}

void HostileMessages::makeNames() {
    static const std::vector<Bytes> names = hostileNames();
    constexpr std::uint32_t devices = 50; // their leases hold the names, and are told again and again
    const auto client = firstClient + static_cast<std::uint32_t>(count_ % devices);
    DHCPPacket packet = DHCPPacket::parse(messages_.discover(client, client));
    packet.setOption(OptionCode::hostname, names[count_ % names.size()]);
    packet.setOption(OptionCode::vendorClass, names[(count_ + 1) % names.size()]);
    packet.setOption(OptionCode::clientID, names[(count_ + 2) % names.size()]);
    bytes_ = packet.serialize(0);
}

void HostileMessages::makeOversized() {
    constexpr std::size_t names = 100;
    constexpr std::size_t longest = 255;
    bytes_ = messages_.discover(firstClient, 1);
    bytes_.resize(endOfCookie);
    bytes_.insert(bytes_.end(), {OptionCode::messageType, 1, static_cast<std::uint8_t>(DHCPMessageType::discover)});
    for (std::size_t count = 0; count < names; ++count) {
        bytes_.insert(bytes_.end(), {OptionCode::hostname, longest});
        bytes_.insert(bytes_.end(), longest, 'x');
    }
    bytes_.push_back(OptionCode::end);
}

std::size_t HostileMessages::below(std::size_t end) { return random_() % end; }

} // namespace DHCPLoad
