#include "DHCPCore/Linux/CardOwners.hpp"

#include "DHCPCore/Linux/SystemFiles.hpp"
#include "DHCPCore/TextPieces.hpp"

#include <algorithm>
#include <array>
#include <fnmatch.h>
#include <utility>

namespace DHCPCore {

namespace {

using ConfigMethod = NetworkCard::ConfigMethod;
using SystemFiles::trimmed;

/// A line's two halves around the first separator, without blanks; nothing when there is no separator.
std::optional<std::pair<std::string_view, std::string_view>> halves(std::string_view line, char separator) {
    const auto position = line.find(separator);
    if (position == std::string_view::npos) {
        return std::nullopt;
    }
    return std::pair{trimmed(line.substr(0, position)), trimmed(line.substr(position + 1))};
}

std::vector<std::string_view> words(std::string_view text) {
    std::vector<std::string_view> found;
    constexpr std::string_view blanks = " \t\r";
    while (!(text = trimmed(text)).empty()) {
        const auto end = std::min(text.find_first_of(blanks), text.size());
        found.push_back(text.substr(0, end));
        text.remove_prefix(end);
    }
    return found;
}

/// The lines of a text; one that ends with a backslash goes on in the next.
std::vector<std::string> joinedLines(std::string_view text) {
    std::vector<std::string> lines;
    bool goesOn = false;
    for (const std::string_view piece : splitKeepingEmpty(text, '\n')) {
        const bool ends = !piece.ends_with('\\');
        const std::string_view content = ends ? piece : piece.substr(0, piece.size() - 1);
        if (goesOn) {
            lines.back() += ' ';
            lines.back() += content;
        } else {
            lines.emplace_back(content);
        }
        goesOn = !ends;
    }
    return lines;
}

ConfigMethod manual(const Subnet& subnet) {
    return {ConfigMethod::Manual{.ip = subnet.address, .mask = subnet.mask()}};
}

/// A method that is said to be manual, with an address that can't be used.
ConfigMethod unusableManual() { return {ConfigMethod::Other{.method = "Manual"}}; }

} // namespace

namespace NetworkManager {

namespace {

constexpr int unmanagedState = 10; // the device states above it are NetworkManager's business

bool isManagedState(std::string_view state) {
    return parseDecimal<int>(state.substr(0, state.find(' '))).value_or(0) > unmanagedState;
}

/// What stands behind the key, as it is: a name may begin or end with a blank.
std::optional<std::string> valueAfter(std::string_view key, std::string_view line) {
    return line.starts_with(key) ? std::optional<std::string>(line.substr(key.size())) : std::nullopt;
}

std::string valueOrEmpty(std::string_view value) { return std::string(value == "--" ? "" : value); }

} // namespace

std::vector<std::string> deviceArguments() {
    return {"--terse",
            "--escape",
            "no",
            "--fields",
            "GENERAL.DEVICE,GENERAL.HWADDR,GENERAL.STATE,GENERAL.CONNECTION,GENERAL.CON-UUID",
            "device",
            "show"};
}

std::vector<Device> parseDevices(std::string_view output) {
    std::vector<Device> devices;
    for (const std::string_view line : splitDroppingEmpty(output, '\n')) {
        const auto pair = halves(line, ':');
        if (!pair) {
            continue;
        }
        const auto& [key, value] = *pair;
        if (key == "GENERAL.DEVICE") {
            devices.push_back(
                {.name = std::string(value), .mac = {}, .isManaged = false, .connection = {}, .connectionUUID = {}});
        } else if (devices.empty()) {
            continue;
        } else if (key == "GENERAL.HWADDR") {
            devices.back().mac = MACAddress::parse(value);
        } else if (key == "GENERAL.STATE") {
            devices.back().isManaged = isManagedState(value);
        } else if (key == "GENERAL.CONNECTION") {
            devices.back().connection = valueOrEmpty(value);
        } else if (key == "GENERAL.CON-UUID") {
            devices.back().connectionUUID = valueOrEmpty(value);
        }
    }
    return devices;
}

std::vector<std::string> connectionListArguments() { return {"--terse", "--fields", "UUID", "connection", "show"}; }

std::vector<std::string> connectionArguments(std::string_view list) {
    std::vector<std::string> arguments{"--terse",
                                       "--escape",
                                       "no",
                                       "--fields",
                                       "connection.uuid,connection.id,connection.type,connection.interface-name",
                                       "connection",
                                       "show"};
    for (const std::string_view uuid : splitDroppingEmpty(list, '\n')) {
        arguments.insert(arguments.end(), {"uuid", std::string(uuid)});
    }
    return arguments;
}

std::vector<Connection> parseConnections(std::string_view output) {
    std::vector<Connection> connections;
    for (const std::string_view line : splitDroppingEmpty(output, '\n')) {
        if (const auto uuid = valueAfter("connection.uuid:", line)) {
            connections.push_back({.name = {}, .uuid = *uuid, .type = {}, .interfaceName = {}});
        } else if (connections.empty()) {
            continue;
        } else if (const auto name = valueAfter("connection.id:", line)) {
            connections.back().name = *name;
        } else if (const auto type = valueAfter("connection.type:", line)) {
            connections.back().type = *type;
        } else if (const auto card = valueAfter("connection.interface-name:", line)) {
            connections.back().interfaceName = *card;
        }
    }
    return connections;
}

bool isWaiting(const Device& device) { return device.isManaged && device.connectionUUID.empty(); }

void assignConnections(std::vector<Device>& devices, const std::vector<Connection>& connections) {
    for (Device& device : devices) {
        const auto tied = [&device](const Connection& connection) { return connection.interfaceName == device.name; };
        if (isWaiting(device) && std::ranges::count_if(connections, tied) == 1) {
            const auto found = std::ranges::find_if(connections, tied);
            device.connection = found->name;
            device.connectionUUID = found->uuid;
        }
    }
}

std::vector<std::string> methodArguments(const std::string& connectionUUID) {
    return {"--terse",    "--escape", "no",   "--fields",    "ipv4.method,ipv4.addresses",
            "connection", "show",     "uuid", connectionUUID};
}

ConfigMethod parseMethod(std::string_view output) {
    std::string_view method;
    std::string_view addresses;
    for (const std::string_view line : splitDroppingEmpty(output, '\n')) {
        const auto pair = halves(line, ':').value_or(std::pair<std::string_view, std::string_view>{});
        if (pair.first == "ipv4.method") {
            method = pair.second;
        } else if (pair.first == "ipv4.addresses") {
            addresses = pair.second;
        }
    }
    if (method == "auto") {
        return {ConfigMethod::DHCP{}};
    }
    if (method == "manual") {
        const auto first = Subnet::parse(trimmed(addresses.substr(0, addresses.find(','))));
        return first ? manual(*first) : unusableManual();
    }
    return method.empty() ? ConfigMethod{} : ConfigMethod{ConfigMethod::Other{.method = std::string(method)}};
}

} // namespace NetworkManager

namespace Networkd {

namespace {

struct Entry {
    std::string section;
    std::string key;
    std::string value;
};

/// The entries of a unit file. An empty value takes back what the same key said before it.
std::vector<Entry> entriesOf(std::string_view text) {
    std::vector<Entry> entries;
    std::string section;
    for (const std::string& joined : joinedLines(text)) {
        const std::string_view line = trimmed(joined);
        if (line.starts_with('[') && line.ends_with(']')) {
            section = line.substr(1, line.size() - 2);
            continue;
        }
        const auto pair = halves(line, '=');
        if (!pair || line.starts_with('#') || line.starts_with(';')) {
            continue;
        }
        const auto& [key, value] = *pair;
        if (value.empty()) {
            std::erase_if(entries, [&, wanted = key](const Entry& entry) {
                return entry.section == section && entry.key == wanted;
            });
        } else {
            entries.push_back({.section = section, .key = std::string(key), .value = std::string(value)});
        }
    }
    return entries;
}

/// All words of a key.
std::vector<std::string_view> wordsOf(const std::vector<Entry>& entries, std::string_view section,
                                      std::string_view key) {
    std::vector<std::string_view> all;
    for (const Entry& entry : entries) {
        if (entry.section == section && entry.key == key) {
            const auto more = words(entry.value);
            all.insert(all.end(), more.begin(), more.end());
        }
    }
    return all;
}

/// Whether one of the patterns fits the name; an exclamation mark before the first turns them all round.
bool fitsName(std::vector<std::string_view> patterns, const std::string& name) {
    const bool isInverted = patterns.front().starts_with('!');
    if (isInverted) {
        patterns.front().remove_prefix(1);
    }
    const bool fits = std::ranges::any_of(patterns, [&name](std::string_view pattern) {
        return ::fnmatch(std::string(pattern).c_str(), name.c_str(), 0) == 0;
    });
    return fits != isInverted;
}

bool namesCard(const std::vector<Entry>& entries, const std::string& name, const std::optional<MACAddress>& mac) {
    const auto patterns = wordsOf(entries, "Match", "Name");
    if (!patterns.empty()) {
        return fitsName(patterns, name);
    }
    for (const std::string_view key : {"MACAddress", "PermanentMACAddress"}) {
        const auto macs = wordsOf(entries, "Match", key);
        const bool holds =
            std::ranges::any_of(macs, [&mac](std::string_view text) { return mac && MACAddress::parse(text) == mac; });
        if (holds) {
            return true;
        }
    }
    return false;
}

bool asksForDHCP(std::string_view value) {
    constexpr std::array<std::string_view, 8> yes{"yes", "y", "true", "t", "on", "1", "ipv4", "both"};
    return std::ranges::find(yes, value) != yes.end();
}

} // namespace

std::optional<std::string> networkFile(std::string_view runtimeFile) {
    for (const std::string_view line : splitDroppingEmpty(runtimeFile, '\n')) {
        const auto pair = halves(line, '=');
        if (pair && pair->first == "NETWORK_FILE" && !pair->second.empty()) {
            return std::string(pair->second);
        }
    }
    return std::nullopt;
}

std::optional<ConfigMethod> parseMethod(std::string_view networkFile, const std::string& cardName,
                                        const std::optional<MACAddress>& mac) {
    const auto entries = entriesOf(networkFile);
    if (!namesCard(entries, cardName, mac)) {
        return std::nullopt;
    }
    const auto dhcp = wordsOf(entries, "Network", "DHCP");
    if (!dhcp.empty() && asksForDHCP(dhcp.back())) {
        return ConfigMethod{ConfigMethod::DHCP{}};
    }
    for (const std::string_view section : {"Network", "Address"}) {
        for (const std::string_view address : wordsOf(entries, section, "Address")) {
            if (const auto subnet = Subnet::parse(address)) {
                return manual(*subnet);
            }
        }
    }
    return ConfigMethod{};
}

} // namespace Networkd

namespace Ifupdown {

namespace {

/// One stanza as it is being read.
struct OpenStanza {
    std::string cardName;
    std::string method;
    std::string address;
    std::string netmask;
};

std::optional<Subnet> subnetOf(const OpenStanza& stanza) {
    if (stanza.address.find('/') != std::string::npos) {
        return Subnet::parse(stanza.address);
    }
    const auto address = IPv4Address::parse(stanza.address);
    auto prefixLength = parseDecimal<int>(stanza.netmask);
    if (const auto mask = IPv4Address::parse(stanza.netmask)) {
        prefixLength = Subnet::prefixLengthOfMask(*mask);
    }
    return address && prefixLength ? Subnet::make(*address, *prefixLength) : std::nullopt;
}

ConfigMethod methodOf(const OpenStanza& stanza) {
    if (stanza.method == "dhcp") {
        return {ConfigMethod::DHCP{}};
    }
    if (stanza.method == "static") {
        const auto subnet = subnetOf(stanza);
        return subnet ? manual(*subnet) : unusableManual();
    }
    return {ConfigMethod::Other{.method = stanza.method}};
}

bool beginsAnotherStanza(std::string_view word) {
    constexpr std::array<std::string_view, 9> keywords{
        "iface", "mapping", "auto", "no-auto-down", "no-scripts", "source", "source-directory", "rename", "template"};
    return std::ranges::find(keywords, word) != keywords.end() || word.starts_with("allow-");
}

/// Reads line by line; the stanza that is open ends where another begins.
class Reader {
  public:
    void read(const std::vector<std::string_view>& line) {
        if (beginsAnotherStanza(line[0])) {
            close();
        }
        if (line[0] == "iface" && line.size() >= 4 && line[2] == "inet") {
            open_ = OpenStanza{
                .cardName = std::string(line[1]), .method = std::string(line[3]), .address = {}, .netmask = {}};
        } else if (line[0] == "source" && line.size() >= 2) {
            configuration_.sources.emplace_back(line[1]);
        } else if (line[0] == "source-directory" && line.size() >= 2) {
            configuration_.sources.push_back(std::string(line[1]) + "/*");
        } else if (open_ && line[0] == "address" && line.size() >= 2) {
            open_->address = line[1];
        } else if (open_ && line[0] == "netmask" && line.size() >= 2) {
            open_->netmask = line[1];
        }
    }

    [[nodiscard]] Configuration finish() {
        close();
        return std::move(configuration_);
    }

  private:
    Configuration configuration_;
    std::optional<OpenStanza> open_;

    void close() {
        if (open_) {
            configuration_.stanzas.push_back({.cardName = open_->cardName, .method = methodOf(*open_)});
        }
        open_.reset();
    }
};

} // namespace

Configuration parse(std::string_view text) {
    Reader reader;
    for (const std::string& line : joinedLines(text)) {
        const auto pieces = words(line);
        if (!pieces.empty() && !pieces[0].starts_with('#')) {
            reader.read(pieces);
        }
    }
    return reader.finish();
}

std::optional<ConfigMethod> methodOf(const std::vector<Stanza>& stanzas, const std::string& cardName) {
    const auto first = std::ranges::find(stanzas, cardName, &Stanza::cardName);
    return first == stanzas.end() ? std::nullopt : std::optional(first->method);
}

} // namespace Ifupdown
} // namespace DHCPCore
