#include "DHCPCore/Interfaces.hpp"

#include "DHCPCore/FileDescriptor.hpp"
#include "DHCPCore/Linux/CardFacts.hpp"
#include "DHCPCore/Linux/CardOwners.hpp"
#include "DHCPCore/Linux/Netlink.hpp"
#include "DHCPCore/Linux/SystemFiles.hpp"
#include "DHCPCore/ProcessRunner.hpp"
#include "DHCPCore/Sockets.hpp"

#include <algorithm>
#include <array>
#include <cstring>
#include <filesystem>
#include <glob.h>
#include <linux/ethtool.h>
#include <linux/sockios.h>
#include <net/if.h>
#include <net/if_arp.h>
#include <string_view>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace DHCPCore::Interfaces {

namespace {

namespace fs = std::filesystem;

std::vector<Netlink::Link> links() {
    return Netlink::parseLinks(Netlink::ask(Netlink::Question::links).value_or(Bytes{}));
}

std::vector<Netlink::Address> addresses() {
    return Netlink::parseAddresses(Netlink::ask(Netlink::Question::addresses).value_or(Bytes{}));
}

bool isLoopback(const Netlink::Link& link) { return (link.flags & IFF_LOOPBACK) != 0; }

/// The links that are cards.
std::vector<Netlink::Link> cardLinks() {
    auto cards = links();
    std::erase_if(cards, [](const Netlink::Link& link) { return isLoopback(link) || link.name.empty(); });
    return cards;
}

/// The card's folder in sysfs. What is mounted there may show another network than the process is in: a card of the
/// same name counts only when index and address are the same as well.
std::optional<fs::path> folderOf(const Netlink::Link& link) {
    fs::path folder = fs::path("/sys/class/net") / link.name;
    const auto index = SystemFiles::readLine(folder / "ifindex");
    const auto mac = SystemFiles::readLine(folder / "address");
    if (index != std::to_string(link.index) || !mac || MACAddress::parse(*mac) != link.mac) {
        return std::nullopt;
    }
    return folder;
}

bool isWireless(const fs::path& folder) {
    std::error_code ignored;
    return fs::exists(folder / "wireless", ignored) || fs::exists(folder / "phy80211", ignored);
}

/// The identification under which the hardware database knows a device, or else the one that carries it: a virtual
/// adapter sits on a PCI one.
std::optional<std::string> modalias(fs::path device) {
    constexpr int levels = 2;
    for (int level = 0; level < levels; ++level, device = device.parent_path()) {
        auto alias = SystemFiles::readLine(device / "modalias");
        if (alias && (alias->starts_with("pci:") || alias->starts_with("usb:"))) {
            return alias;
        }
    }
    return std::nullopt;
}

std::optional<std::string> adapterName(const fs::path& folder) {
    std::error_code error;
    const fs::path device = fs::canonical(folder / "device", error);
    if (error) {
        return std::nullopt;
    }
    if (const auto product = SystemFiles::readLine(device.parent_path() / "product")) {
        return CardFacts::productName(*product);
    }
    const auto alias = modalias(device);
    if (!alias) {
        return std::nullopt;
    }
    const auto output = ProcessRunner::run("/usr/bin/systemd-hwdb", {"query", *alias});
    return output.status == 0 ? CardFacts::modelInHardwareDatabase(output.text) : std::nullopt;
}

/// What is known about who configures the host's cards, read once for a whole list.
struct Owners {
    std::vector<NetworkManager::Device> devices;
    std::vector<Ifupdown::Stanza> stanzas;
};

constexpr const char* nmcli = "/usr/bin/nmcli";

/// What the tool prints; nothing where it fails.
std::string askNetworkManager(const std::vector<std::string>& arguments) {
    const auto output = ProcessRunner::run(nmcli, arguments);
    return output.status == 0 ? output.text : std::string();
}

std::vector<NetworkManager::Device> networkManagerDevices() {
    std::error_code ignored;
    // It makes this folder when it starts. Without it, the tool would be asked in vain.
    if (!fs::exists("/run/NetworkManager", ignored)) {
        return {};
    }
    auto devices = NetworkManager::parseDevices(askNetworkManager(NetworkManager::deviceArguments()));
    if (std::ranges::any_of(devices, NetworkManager::isWaiting)) {
        const std::string uuids = askNetworkManager(NetworkManager::connectionListArguments());
        NetworkManager::assignConnections(
            devices, NetworkManager::parseConnections(
                         uuids.empty() ? uuids : askNetworkManager(NetworkManager::connectionArguments(uuids))));
    }
    return devices;
}

std::vector<fs::path> filesMatching(const std::string& pattern) {
    const fs::path absolute = fs::path("/etc/network") / pattern; // an absolute pattern replaces what is before it
    glob_t found{};
    std::vector<fs::path> files;
    if (::glob(absolute.c_str(), GLOB_NOSORT, nullptr, &found) == 0) {
        files.assign(found.gl_pathv, found.gl_pathv + found.gl_pathc);
    }
    ::globfree(&found);
    std::ranges::sort(files);
    return files;
}

/// Adds the stanzas of a file and of the files that it names.
void addStanzas(const fs::path& file, int depth, std::vector<Ifupdown::Stanza>& stanzas) {
    constexpr int deepest = 4; // a file that names itself must not be read for ever
    const auto configuration = Ifupdown::parse(SystemFiles::read(file).value_or(""));
    stanzas.insert(stanzas.end(), configuration.stanzas.begin(), configuration.stanzas.end());
    for (const std::string& source : configuration.sources) {
        for (const fs::path& next : depth < deepest ? filesMatching(source) : std::vector<fs::path>{}) {
            addStanzas(next, depth + 1, stanzas);
        }
    }
}

Owners readOwners() {
    Owners owners{.devices = networkManagerDevices(), .stanzas = {}};
    // The file alone means nothing on a host whose ifupdown was removed.
    if (::access("/usr/sbin/ifup", X_OK) == 0 || ::access("/sbin/ifup", X_OK) == 0) {
        addStanzas("/etc/network/interfaces", 0, owners.stanzas);
    }
    return owners;
}

struct Service {
    std::optional<std::string> name;
    NetworkCard::ConfigMethod method;
};

NetworkCard::ConfigMethod methodOfConnection(const std::string& uuid) {
    if (uuid.empty()) {
        return {};
    }
    return NetworkManager::parseMethod(askNetworkManager(NetworkManager::methodArguments(uuid)));
}

std::optional<NetworkCard::ConfigMethod> networkdMethod(const Netlink::Link& link) {
    const auto state = SystemFiles::read(fs::path("/run/systemd/netif/links") / std::to_string(link.index));
    const auto file = Networkd::networkFile(state.value_or(""));
    const auto text = file ? SystemFiles::read(*file) : std::nullopt;
    return text ? Networkd::parseMethod(*text, link.name, link.mac) : std::nullopt;
}

/// The configuration that owns the card.
/// @param needsMethod whether anybody wants to know the owner's method, which may cost a further question.
Service serviceOf(const Netlink::Link& link, bool isWired, bool needsMethod, const Owners& owners) {
    const std::optional<std::string> ownName = isWired ? std::optional(link.name) : std::nullopt;
    const auto device = std::ranges::find_if(owners.devices, [&link](const NetworkManager::Device& candidate) {
        return candidate.isManaged && candidate.name == link.name && candidate.mac == link.mac;
    });
    if (device != owners.devices.end()) {
        return {.name = device->connection.empty() ? ownName : device->connection,
                .method = needsMethod ? methodOfConnection(device->connectionUUID) : NetworkCard::ConfigMethod{}};
    }
    if (const auto method = networkdMethod(link)) {
        return {.name = link.name, .method = *method};
    }
    if (const auto method = Ifupdown::methodOf(owners.stanzas, link.name)) {
        return {.name = link.name, .method = *method};
    }
    return {.name = ownName, .method = {}};
}

NetworkCard cardOf(const Netlink::Link& link, const std::vector<Netlink::Address>& own, const Owners& owners) {
    const auto folder = folderOf(link);
    const MediaStatus status = mediaStatus(link.name);
    NetworkCard card;
    card.bsdName = link.name;
    card.displayName = (folder ? adapterName(*folder) : std::nullopt).value_or(link.name);
    card.kind = CardFacts::kind(link, folder && isWireless(*folder));
    card.mac = link.mac;
    card.linkUp = status.linkUp;
    card.media = status.description;
    std::ranges::transform(own, std::back_inserter(card.addresses), &Netlink::Address::subnet);
    const Service service = serviceOf(link, card.kind == NetworkCard::Kind::ethernet, own.empty(), owners);
    card.serviceName = service.name;
    card.configMethod = CardFacts::configMethod(own, service.method);
    return card;
}

/// A request about one interface; nothing for a name that none can have.
std::optional<ifreq> requestFor(const std::string& name) {
    ifreq request{};
    if (name.empty() || name.size() >= sizeof request.ifr_name) {
        return std::nullopt;
    }
    std::memcpy(static_cast<char*>(request.ifr_name), name.data(), name.size());
    return request;
}

bool isUpAndRunning(const FileDescriptor& socket, ifreq request) {
    constexpr unsigned wanted = IFF_UP | IFF_RUNNING;
    return ::ioctl(socket.number(), SIOCGIFFLAGS, &request) == 0 &&
           (static_cast<unsigned>(request.ifr_flags) & wanted) == wanted;
}

bool isEthernet(const FileDescriptor& socket, ifreq request) {
    return ::ioctl(socket.number(), SIOCGIFHWADDR, &request) == 0 && request.ifr_hwaddr.sa_family == ARPHRD_ETHER;
}

/// Speed and duplex as a media word; 0 when the driver does not tell.
std::int32_t mediaWordOf(const FileDescriptor& socket, ifreq request) {
    constexpr std::size_t mostMaskBytes = std::size_t{3} * 127 * sizeof(std::uint32_t); // three masks, int8_t words
    alignas(ethtool_link_settings) std::array<std::uint8_t, sizeof(ethtool_link_settings) + mostMaskBytes> buffer{};
    ethtool_link_settings settings{};
    settings.cmd = ETHTOOL_GLINKSETTINGS;
    request.ifr_data = reinterpret_cast<char*>(buffer.data());
    // The first answer only says how long the masks behind the settings are, as a negative number.
    for (int round = 0; round < 2; ++round) {
        std::memcpy(buffer.data(), &settings, sizeof settings);
        if (::ioctl(socket.number(), SIOCETHTOOL, &request) != 0) {
            return 0;
        }
        std::memcpy(&settings, buffer.data(), sizeof settings);
        if (settings.link_mode_masks_nwords > 0) {
            return CardFacts::mediaWord(settings.speed, settings.duplex);
        }
        settings.cmd = ETHTOOL_GLINKSETTINGS;
        settings.link_mode_masks_nwords = static_cast<std::int8_t>(-settings.link_mode_masks_nwords);
    }
    return 0;
}

} // namespace

std::vector<NetworkCard> list() {
    const auto all = addresses();
    const auto primary = primaryInterface();
    const Owners owners = readOwners();
    std::vector<NetworkCard> cards;
    for (const Netlink::Link& link : cardLinks()) {
        std::vector<Netlink::Address> own;
        std::ranges::copy_if(all, std::back_inserter(own),
                             [&link](const Netlink::Address& address) { return address.interfaceIndex == link.index; });
        cards.push_back(cardOf(link, own, owners));
        cards.back().isPrimary = primary == link.name;
    }
    return cards;
}

std::vector<InterfaceAddress> interfaceAddresses() {
    const auto known = links();
    std::vector<InterfaceAddress> result;
    for (const Netlink::Address& address : addresses()) {
        const auto link = std::ranges::find(known, address.interfaceIndex, &Netlink::Link::index);
        if (link != known.end()) {
            result.push_back({.name = isLoopback(*link) ? "lo0" : link->name,
                              .subnet = address.subnet,
                              .isPointToPoint = (link->flags & IFF_POINTOPOINT) != 0});
        }
    }
    return result;
}

std::optional<std::string> bsdNameForMAC(const MACAddress& mac) {
    const auto cards = cardLinks();
    const auto card = std::ranges::find(cards, mac, &Netlink::Link::mac);
    return card == cards.end() ? std::nullopt : std::optional(card->name);
}

std::optional<std::string> primaryInterface() {
    const auto index = Netlink::parseDefaultInterface(Netlink::ask(Netlink::Question::routes).value_or(Bytes{}));
    return index ? Sockets::nameOfInterface(*index) : std::nullopt;
}

MediaStatus mediaStatus(const std::string& name) {
    const FileDescriptor socket = Sockets::open(AF_INET, SOCK_DGRAM, 0);
    const auto request = requestFor(name);
    if (!socket.isOpen() || !request || !isUpAndRunning(socket, *request)) {
        return {};
    }
    const std::int32_t word = isEthernet(socket, *request) ? mediaWordOf(socket, *request) : 0;
    return {.linkUp = true, .description = describeMedia(word)};
}

} // namespace DHCPCore::Interfaces
