#include "networksetup/Survey.hpp"

#include "DHCPCore/Linux/SystemFiles.hpp"
#include "DHCPCore/ProcessRunner.hpp"
#include "DHCPCore/TextPieces.hpp"
#include "networksetup/InterfacesFile.hpp"
#include "networksetup/Plan.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <glob.h>
#include <iterator>
#include <memory>
#include <net/if.h>
#include <optional>
#include <system_error>
#include <unistd.h>

namespace NetworkSetup {

using DHCPCore::NetworkCard;
using DHCPCore::splitDroppingEmpty;
namespace NetworkManager = DHCPCore::NetworkManager;
namespace SystemFiles = DHCPCore::SystemFiles;

namespace {

namespace fs = std::filesystem;

std::optional<std::string> installed(const Places::Program& candidates) {
    const auto found =
        std::ranges::find_if(candidates, [](const std::string& path) { return ::access(path.c_str(), X_OK) == 0; });
    return found == candidates.end() ? std::nullopt : std::optional(*found);
}

/// What the program wrote; nothing when it failed.
std::optional<std::string> ask(const std::string& program, const std::vector<std::string>& arguments) {
    const auto output = DHCPCore::ProcessRunner::run(program, arguments);
    return output.status == 0 ? std::optional(output.text) : std::nullopt;
}

std::optional<NetworkManagerFacts> surveyNetworkManager(const std::vector<NetworkCard>& cards, const Places& places) {
    const auto nmcli = installed(places.nmcli);
    const auto devices = nmcli ? ask(*nmcli, NetworkManager::deviceArguments()) : std::nullopt;
    if (!devices) { // not installed, or it does not run
        return std::nullopt;
    }
    const std::string list = ask(*nmcli, NetworkManager::connectionListArguments()).value_or("");
    const auto connections = list.empty() ? std::nullopt : ask(*nmcli, NetworkManager::connectionArguments(list));
    auto manager = networkManagerFrom(connections.value_or(""), NetworkManager::parseDevices(*devices), cards);
    manager.nmcli = *nmcli;
    return manager;
}

std::optional<NetworkdFacts> surveyNetworkd(const std::string& service, const std::vector<NetworkCard>& cards,
                                            const Places& places) {
    const auto networkctl = installed(places.networkctl);
    const auto systemctl = installed(places.systemctl);
    if (!networkctl || !systemctl) {
        return std::nullopt;
    }
    NetworkdFacts networkd{
        .networkctl = *networkctl, .directory = places.networkdDirectory, .files = {}, .presentText = {}};
    for (const NetworkCard& card : cards) {
        const unsigned index = ::if_nametoindex(card.bsdName.c_str());
        const auto state = SystemFiles::read(fs::path(places.networkdLinks) / std::to_string(index));
        if (const auto file = DHCPCore::Networkd::networkFile(state.value_or(""))) {
            networkd.files.emplace(card.bsdName, *file);
        }
    }
    // The state files outlive the service.
    if (networkd.files.empty() || !ask(*systemctl, {"is-active", "--quiet", "systemd-networkd.service"})) {
        return std::nullopt;
    }
    if (networkd.files.contains(service)) {
        networkd.presentText = SystemFiles::read(networkdFile(networkd.directory, service));
    }
    return networkd;
}

/// The files that fit the pattern, in order.
std::vector<std::string> matches(const std::string& pattern) {
    glob_t found{};
    std::vector<std::string> paths;
    if (::glob(pattern.c_str(), 0, nullptr, &found) == 0) {
        paths.assign(found.gl_pathv, found.gl_pathv + found.gl_pathc);
    }
    ::globfree(&found);
    return paths;
}

/// The whole text of a file that may be written anew.
std::optional<std::string> wholeText(const std::string& path) {
    std::error_code ignored;
    std::ifstream file(path, std::ios::binary);
    if (!fs::is_regular_file(path, ignored) || !file) {
        return std::nullopt;
    }
    return std::string{std::istreambuf_iterator<char>(file), {}};
}

void readInterfaces(const std::string& name, std::vector<IfupdownFacts::File>& files) {
    constexpr std::size_t mostFiles = 1000;
    std::error_code missing;
    const fs::path path = fs::canonical(name, missing); // where a link leads is what would be written anew
    const auto text = missing ? std::nullopt : wholeText(path);
    // Files may name each other, and themselves.
    if (!text || files.size() >= mostFiles ||
        std::ranges::count(files, path.string(), &IfupdownFacts::File::path) > 0) {
        return;
    }
    files.push_back({.path = path, .text = *text});
    for (const std::string& source : DHCPCore::Ifupdown::parse(*text).sources) {
        // An absolute pattern stands for itself.
        for (const std::string& included : matches(fs::path(name).parent_path() / source)) {
            readInterfaces(included, files);
        }
    }
}

std::optional<IfupdownFacts> surveyIfupdown(const Places& places) {
    const auto ifup = installed(places.ifup);
    const auto ifdown = installed(places.ifdown);
    if (!ifup || !ifdown) {
        return std::nullopt;
    }
    IfupdownFacts ifupdown{.ifup = *ifup, .ifdown = *ifdown, .files = {}, .upCards = {}};
    readInterfaces(places.interfaces, ifupdown.files);
    ifupdown.upCards = upCardsIn(SystemFiles::read(places.ifstate).value_or(""));
    return ifupdown;
}

std::optional<std::string> linkTarget(const fs::path& link) {
    std::error_code error;
    const fs::path target = fs::read_symlink(link, error);
    return error ? std::nullopt : std::optional(target.string());
}

} // namespace

Facts survey(const std::string& service, const std::vector<NetworkCard>& cards, const Places& places) {
    Facts facts;
    for (const auto& card : cards) {
        facts.cards.push_back(
            {.name = card.bsdName, .isWired = card.kind == NetworkCard::Kind::ethernet, .hasLink = card.linkUp});
    }
    facts.networkManager = surveyNetworkManager(cards, places);
    facts.networkd = surveyNetworkd(service, cards, places);
    facts.ifupdown = surveyIfupdown(places);
    return facts;
}

Places placesOfThisNetwork() {
    const auto managers = linkTarget("/proc/1/ns/net"); // they are started by the first process, in its network
    const auto own = linkTarget("/proc/thread-self/ns/net");
    if (managers && own && *managers != *own) {
        return {.nmcli = {}, .systemctl = {}, .networkctl = {}, .ifup = {}, .ifdown = {}};
    }
    return {};
}

NetworkManagerFacts networkManagerFrom(std::string_view connections, const std::vector<NetworkManager::Device>& devices,
                                       const std::vector<NetworkCard>& cards) {
    NetworkManagerFacts manager;
    for (const auto& profile : NetworkManager::parseConnections(connections)) {
        manager.connections.push_back(
            {.name = profile.name,
             .uuid = profile.uuid,
             .type = profile.type,
             .card = profile.interfaceName.empty() ? std::nullopt : std::optional(profile.interfaceName),
             .isActive = false});
    }
    for (const auto& device : devices) {
        const bool isCard = std::ranges::any_of(cards, [&device](const NetworkCard& card) {
            return card.bsdName == device.name && card.mac == device.mac;
        });
        if (!isCard || !device.isManaged) {
            continue;
        }
        manager.cards.insert(device.name);
        const auto active =
            std::ranges::find(manager.connections, device.connectionUUID, &NetworkManagerFacts::Connection::uuid);
        if (active != manager.connections.end()) {
            active->card = device.name;
            active->isActive = true;
        }
    }
    return manager;
}

std::set<std::string> upCardsIn(std::string_view state) {
    std::set<std::string> cards;
    for (const std::string_view line : splitDroppingEmpty(state, '\n')) {
        cards.emplace(line.substr(0, line.find('=')));
    }
    return cards;
}

} // namespace NetworkSetup
