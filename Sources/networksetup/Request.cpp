#include "networksetup/Request.hpp"

#include "networksetup/Printable.hpp"
#include "networksetup/Refusal.hpp"

#include <fmt/format.h>

#include <string_view>

namespace NetworkSetup {

using DHCPCore::IPv4Address;
using DHCPCore::Subnet;

namespace {

/// 0.0.0.0/8, 127.0.0.0/8 and everything from 224.0.0.0 on (RFC 6890, section 2.2.2).
bool isReserved(IPv4Address address) {
    const std::uint32_t firstOctet = address.value >> 24U;
    return firstOctet == 0 || firstOctet == 127 || firstOctet >= 224;
}

IPv4Address parseAddress(const std::string& text) {
    const auto address = IPv4Address::parse(text);
    if (!address) {
        throw Refusal(fmt::format("Not an IPv4 address: {}.", text));
    }
    if (isReserved(*address)) {
        throw Refusal(fmt::format("{} can't be the address of a card.", address->description()));
    }
    return *address;
}

int parseMask(const std::string& text) {
    const auto mask = IPv4Address::parse(text);
    const auto prefixLength = mask ? Subnet::prefixLengthOfMask(*mask) : std::nullopt;
    if (!prefixLength) {
        throw Refusal(fmt::format("Not a subnet mask: {}.", text));
    }
    constexpr int longestPrefix = 30; // room for the card, one device, and the two reserved addresses
    if (*prefixLength < 1 || *prefixLength > longestPrefix) {
        throw Refusal(fmt::format("The mask {} leaves no network to serve.", mask->description()));
    }
    return *prefixLength;
}

Subnet parseSubnet(const std::string& addressText, const std::string& maskText) {
    const Subnet subnet{.address = parseAddress(addressText), .prefixLength = parseMask(maskText)};
    const bool isNetwork = subnet.address == subnet.network();
    if (isNetwork || subnet.address == subnet.broadcast()) {
        throw Refusal(fmt::format("{} is the {} address of {}.", subnet.address.description(),
                                  isNetwork ? "network" : "broadcast", subnet.description()));
    }
    return subnet;
}

void requireCount(std::span<const std::string> words, std::size_t count, std::string_view form) {
    if (words.size() != count) {
        throw Refusal(fmt::format("Use it as networksetup {}.", form));
    }
    if (count > 1 && words[1].empty()) {
        throw Refusal("The service name is empty.");
    }
}

} // namespace

Request parseRequest(std::span<const std::string> words) {
    for (const std::string& word : words) {
        if (printable(word) != word) {
            throw Refusal("An argument holds what can't be printed.");
        }
    }
    const std::string verb = words.empty() ? "" : words[0];
    if (verb == "-setmanual") {
        requireCount(words, 4, "-setmanual SERVICE IP MASK");
        return {Request::SetManual{.service = words[1], .address = parseSubnet(words[2], words[3])}};
    }
    if (verb == "-setdhcp") {
        requireCount(words, 2, "-setdhcp SERVICE");
        return {Request::SetDHCP{.service = words[1]}};
    }
    if (verb == "--version") {
        requireCount(words, 1, "--version");
        return {Request::ShowVersion{}};
    }
    throw Refusal("Use it as networksetup -setmanual SERVICE IP MASK, or as networksetup -setdhcp SERVICE.");
}

} // namespace NetworkSetup
