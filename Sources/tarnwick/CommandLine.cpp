#include "tarnwick/CommandLine.hpp"

#include "DHCPCore/TextPieces.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <iterator>
#include <utility>
#include <vector>

namespace Tarnwick {

using DHCPCore::IPv4Address;
using DHCPCore::parseDecimal;
using DHCPCore::parseDuration;
using DHCPCore::splitDroppingEmpty;
using DHCPCore::Subnet;

namespace {

struct Flag {
    std::string_view name;
    bool ServeOptions::*field;
};

constexpr std::array flags{
    Flag{"--json", &ServeOptions::json},
    Flag{"--test-loopback", &ServeOptions::loopback},
};

/// Stores what was read. @return false when nothing was.
template <class Field, class Read>
bool store(Field& field, const std::optional<Read>& read) {
    if (read) {
        field = *read;
    }
    return read.has_value();
}

using Value = const std::string&;

bool takeInterface(ServeOptions& options, Value name) { return store(options.interface, std::optional(name)); }

bool takeServer(ServeOptions& options, Value value) {
    const auto subnet = Subnet::parse(value);
    if (!subnet) {
        return false;
    }
    options.config.serverIP = subnet->address;
    options.config.prefixLength = subnet->prefixLength;
    return true;
}

bool takeRange(ServeOptions& options, Value value) {
    const auto pieces = splitDroppingEmpty(value, '-');
    if (pieces.size() != 2) {
        return false;
    }
    const auto start = IPv4Address::parse(pieces[0]);
    const auto end = IPv4Address::parse(pieces[1]);
    return store(options.config.rangeStart, start) && store(options.config.rangeEnd, end);
}

bool takeLease(ServeOptions& options, Value value) { return store(options.config.leaseSeconds, parseDuration(value)); }

bool takeRouter(ServeOptions& options, Value value) { return store(options.config.router, IPv4Address::parse(value)); }

/// A text without any address empties the list.
bool takeDNS(ServeOptions& options, Value value) {
    std::vector<IPv4Address> servers;
    for (const std::string_view piece : splitDroppingEmpty(value, ',')) {
        const auto server = IPv4Address::parse(piece);
        if (!server) {
            return false;
        }
        servers.push_back(*server);
    }
    options.config.dns = std::move(servers);
    return true;
}

bool takeLeasePath(ServeOptions& options, Value path) { return store(options.leasePath, std::optional(path)); }

bool takePort(ServeOptions& options, Value value) { return store(options.port, parseDecimal<std::uint16_t>(value)); }

bool takeClientPort(ServeOptions& options, Value value) {
    return store(options.clientPort, parseDecimal<std::uint16_t>(value));
}

struct ValueOption {
    std::string_view name;
    bool (*take)(ServeOptions& options, Value value); ///< Stores the value; false when it is bad.
    std::string_view complaint; ///< Follows the name when the value is bad; any text is a good name or path.
};

constexpr std::array valueOptions{
    ValueOption{"--iface", takeInterface, ""},
    ValueOption{"--server", takeServer, "must look like 192.168.0.1/24"},
    ValueOption{"--range", takeRange, "must look like 192.168.0.100-192.168.0.200"},
    ValueOption{"--lease", takeLease, "must look like 90s, 15m, 24h or 7d"},
    ValueOption{"--router", takeRouter, "must be an IPv4 address"},
    ValueOption{"--dns", takeDNS, "must be IPv4 addresses separated by commas"},
    ValueOption{"--leases", takeLeasePath, ""},
    ValueOption{"--port", takePort, "must be a port number"},
    ValueOption{"--client-port", takeClientPort, "must be a port number"},
};

CLIError usageError(std::string text) { return {std::move(text), true}; }

} // namespace

CLIError::CLIError(std::string text, bool usage) : Error(std::move(text)), isUsage(usage) {}

const std::string_view usageText =
    "usage:\n"
    "  tarnwick list\n"
    "  tarnwick serve --iface <bsd> [--server 192.168.0.1/24] [--range 192.168.0.100-192.168.0.200]\n"
    "                  [--lease 24h] [--router <ip>] [--dns <ip>[,<ip>]] [--leases <path>] [--json]\n"
    "  tarnwick serve --test-loopback [--port 6767] [--client-port 6868] [--leases <path>] [--json]\n"
    "  tarnwick --version";

ServeOptions parseServe(std::span<const std::string> arguments) {
    ServeOptions options;
    for (auto argument = arguments.begin(); argument != arguments.end(); ++argument) {
        if (const auto flag = std::ranges::find(flags, *argument, &Flag::name); flag != flags.end()) {
            options.*(flag->field) = true;
            continue;
        }
        const auto option = std::ranges::find(valueOptions, *argument, &ValueOption::name);
        if (option == valueOptions.end()) {
            throw usageError("unknown option " + *argument);
        }
        ++argument;
        if (argument == arguments.end()) {
            throw usageError(fmt::format("{} needs a value", option->name));
        }
        if (!option->take(options, *argument)) {
            throw usageError(fmt::format("{} {}", option->name, option->complaint));
        }
    }
    if (!options.loopback && !options.interface) {
        throw usageError("serve needs --iface <bsd> or --test-loopback");
    }
    return options;
}

} // namespace Tarnwick
