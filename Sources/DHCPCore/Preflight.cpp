#include "DHCPCore/Preflight.hpp"

#include "DHCPCore/Error.hpp"
#include "DHCPCore/FileDescriptor.hpp"
#include "DHCPCore/Overloaded.hpp"
#include "DHCPCore/SocketAddress.hpp"
#include "DHCPCore/Sockets.hpp"
#include "DHCPCore/TextPieces.hpp"
#include "DHCPCore/Transport.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <netinet/in.h>
#include <sys/socket.h>

namespace DHCPCore::Preflight {

namespace {

using ID = PreflightCheck::ID;
using Status = PreflightCheck::Status;
using ConfigMethod = NetworkCard::ConfigMethod;

PreflightCheck check(ID id, Status status, std::string message) {
    return {.id = id, .status = status, .message = std::move(message), .fix = std::nullopt};
}

PreflightCheck wiredCheck(const NetworkCard& card) {
    if (card.kind != NetworkCard::Kind::ethernet) {
        return check(ID::wired, Status::fail, card.displayName + " is not a wired card.");
    }
    if (card.isPrimary) {
        return check(ID::wired, Status::fail, card.displayName + " is the Mac's main internet connection.");
    }
    return check(ID::wired, Status::pass, "Wired card, not the Mac's internet route");
}

/// The address that another DHCP server gave the card.
std::optional<IPv4Address> foreignAddress(const NetworkCard& card) {
    if (!std::holds_alternative<ConfigMethod::DHCP>(card.configMethod.value)) {
        return std::nullopt;
    }
    const auto leased =
        std::ranges::find_if(card.addresses, [](const Subnet& subnet) { return !subnet.address.isLinkLocal(); });
    return leased == card.addresses.end() ? std::nullopt : std::optional(leased->address);
}

PreflightCheck foreignDHCPCheck(const std::optional<IPv4Address>& foreign) {
    if (foreign) {
        return check(ID::foreignDHCP, Status::fail,
                     fmt::format("This card is on a network that already has a DHCP server (it got {}).",
                                 foreign->description()));
    }
    return check(ID::foreignDHCP, Status::pass, "No other DHCP server has configured this card");
}

std::string serverAddressText(const ServerConfig& config) {
    return fmt::format("{}/{}", config.serverIP.description(), config.prefixLength);
}

/// @param maySucceed whether the card's own configuration counts: not while another server configures the card.
PreflightCheck adapterCheck(const NetworkCard& card, const ServerConfig& config, bool maySucceed) {
    const ConfigMethod wanted{ConfigMethod::Manual{.ip = config.serverIP, .mask = config.mask()}};
    if (maySucceed && card.configMethod == wanted) {
        return check(
            ID::adapterConfigured, Status::pass,
            fmt::format("{} is set to {}", card.serviceName.value_or(card.bsdName), serverAddressText(config)));
    }
    if (card.serviceName) {
        PreflightCheck failed =
            check(ID::adapterConfigured, Status::fail, fmt::format("Card isn't set to {}", serverAddressText(config)));
        failed.fix = PreflightCheck::Fix{PreflightCheck::Fix::ConfigureAdapter{.service = *card.serviceName}};
        return failed;
    }
    return check(ID::adapterConfigured, Status::fail,
                 fmt::format("No network service for {}. Add it in System Settings > Network.", card.bsdName));
}

PreflightCheck subnetOverlapCheck(const std::vector<InterfaceAddress>& others, const Subnet& server) {
    const auto overlapping = std::ranges::find_if(others, [&server](const InterfaceAddress& other) {
        return !other.isPointToPoint && server.overlaps(other.subnet);
    });
    if (overlapping == others.end()) {
        return check(ID::subnetOverlap, Status::pass, "No overlap with other networks");
    }
    return check(
        ID::subnetOverlap, Status::fail,
        fmt::format("{} overlaps {} ({})", server.description(), overlapping->name, overlapping->subnet.description()));
}

/// Nothing when there is no warning: unlike the others, this check passes silently.
std::optional<PreflightCheck> vpnOverlapCheck(const std::vector<InterfaceAddress>& others, const Subnet& server) {
    const auto inside = std::ranges::find_if(others, [&server](const InterfaceAddress& other) {
        return other.isPointToPoint && server.contains(other.subnet.address);
    });
    if (inside == others.end()) {
        return std::nullopt;
    }
    return check(ID::vpnOverlap, Status::warn,
                 fmt::format("VPN address {} on {} is inside {}", inside->subnet.address.description(), inside->name,
                             server.description()));
}

PreflightCheck port67Check(const Port67State& state) {
    return std::visit(
        Overloaded{[](const Port67State::InUse& inUse) {
                       constexpr auto text =
                           "Port 67 is in use by {}. Turn off Internet Sharing or stop the VM's shared network.";
                       return check(ID::port67, Status::fail,
                                    fmt::format(text, inUse.holder.value_or("another program")));
                   },
                   [](const Port67State::Error& error) {
                       return check(ID::port67, Status::fail, fmt::format("Port 67 can't be opened: {}", error.text));
                   },
                   [](const Port67State::Free&) { return check(ID::port67, Status::pass, "Port 67 is free"); }},
        state.value);
}

PreflightCheck linkCheck(const NetworkCard& card) {
    if (card.linkUp) {
        return check(ID::link, Status::pass, fmt::format("Link up · {}", card.media.value_or("connected")));
    }
    return check(ID::link, Status::warn, "No link: the server will start and wait for a device");
}

bool isWhiteSpace(char character) { return character == ' ' || (character >= '\t' && character <= '\r'); }

/// The columns of a line, which stand two or more blanks apart: a single blank belongs to its column.
std::vector<std::string_view> columnsOf(std::string_view line) {
    std::vector<std::string_view> columns;
    std::size_t start = 0;
    const auto finish = [&](std::size_t end) {
        if (end > start) {
            columns.push_back(line.substr(start, end - start));
        }
    };
    for (std::size_t index = 0; index < line.size();) {
        std::size_t end = index;
        while (end < line.size() && isWhiteSpace(line[end])) {
            ++end;
        }
        if (end - index >= 2) {
            finish(index);
            start = end;
        }
        index = std::max(end, index + 1);
    }
    finish(line.size());
    return columns;
}

/// A process's name and id, as in "dnsmasq:812".
bool namesProcess(std::string_view column) {
    const auto colon = column.rfind(':');
    if (colon == std::string_view::npos || colon == 0 || column.find('*') != std::string_view::npos) {
        return false;
    }
    const std::string_view digits = column.substr(colon + 1);
    return !digits.empty() && std::ranges::all_of(digits, isDecimalDigit);
}

} // namespace

PreflightInput gather(const NetworkCard& card, const ServerConfig& config) {
    return {.card = card,
            .otherAddresses = Interfaces::interfaceAddresses(),
            .config = config,
            .port67 = port67State(),
            .vmwareRunning = vmwareRunning()};
}

std::vector<PreflightCheck> evaluate(const PreflightInput& input) {
    const NetworkCard& card = input.card;
    const Subnet server = input.config.subnet();
    std::vector<InterfaceAddress> others = input.otherAddresses;
    std::erase_if(others, [&card](const InterfaceAddress& address) {
        return address.name == card.bsdName || address.name == "lo0";
    });
    const auto foreign = foreignAddress(card);
    std::vector<PreflightCheck> checks{wiredCheck(card), foreignDHCPCheck(foreign),
                                       adapterCheck(card, input.config, !foreign.has_value()),
                                       subnetOverlapCheck(others, server)};
    if (const auto warning = vpnOverlapCheck(others, server)) {
        checks.push_back(*warning);
    }
    checks.push_back(port67Check(input.port67));
    checks.push_back(linkCheck(card));
    if (input.vmwareRunning) {
        checks.push_back(check(ID::vmware, Status::warn, "VMware Fusion is running and may grab the adapter"));
    }
    return checks;
}

bool canStart(const std::vector<PreflightCheck>& checks) {
    return std::ranges::none_of(checks, [](const PreflightCheck& check) { return check.status == Status::fail; });
}

Port67State port67State() {
    const FileDescriptor socket = Sockets::open(AF_INET, SOCK_DGRAM, IPPROTO_UDP);
    if (!socket.isOpen()) {
        return {Port67State::Error{.text = systemText(errno)}};
    }
    const sockaddr_in address = socketAddress(IPv4Address::zero, UDPTransport::serverPort);
    if (::bind(socket.number(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0) {
        return {Port67State::Free{}};
    }
    const int number = errno;
    if (number == EADDRINUSE) {
        return {Port67State::InUse{.holder = port67Holder()}};
    }
    return {Port67State::Error{.text = systemText(number)}};
}

std::optional<std::string> holderInNetstat(std::string_view output, int port) {
    constexpr std::size_t localAddressColumn = 3;
    const std::string ending = fmt::format(".{}", port);
    for (const std::string_view line : splitDroppingEmpty(output, '\n')) {
        const auto columns = columnsOf(line);
        if (columns.size() <= localAddressColumn + 1 || !columns[localAddressColumn].ends_with(ending)) {
            continue;
        }
        const auto holder = std::ranges::find_if(columns, namesProcess);
        if (holder != columns.end()) {
            return std::string(*holder);
        }
    }
    return std::nullopt;
}

} // namespace DHCPCore::Preflight
