#include "networksetup/Plan.hpp"

#include "networksetup/InterfacesFile.hpp"
#include "networksetup/Refusal.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <filesystem>
#include <string_view>

namespace NetworkSetup {

using DHCPCore::Subnet;
using Address = std::optional<Subnet>;
using Connection = NetworkManagerFacts::Connection;

namespace {

constexpr std::string_view wiredConnection = "802-3-ethernet";
constexpr std::string_view ownFileMark = "# Written by networksetup";

std::string text(const Subnet& address) {
    return fmt::format("{}/{}", address.address.description(), address.prefixLength);
}

/// What the service is set to, in words.
std::string target(const Address& address) { return address ? text(*address) : "DHCP"; }

/// Whether a name can stand in a file of systemd-networkd and in a file's name as it is: there, other characters are
/// patterns, separators or negations.
bool isPlain(std::string_view name) {
    const auto isAllowed = [](char character) {
        return (character >= 'a' && character <= 'z') || (character >= 'A' && character <= 'Z') ||
               (character >= '0' && character <= '9') || character == '_' || character == '-' || character == '.';
    };
    return !name.empty() && name[0] != '-' && name[0] != '.' && std::ranges::all_of(name, isAllowed);
}

void requirePlainName(const Card& card) {
    if (!isPlain(card.name)) {
        throw Refusal(fmt::format("The name {} can't stand in a configuration file.", card.name));
    }
}

const Card* cardNamed(const Facts& facts, const std::string& name) {
    const auto card = std::ranges::find(facts.cards, name, &Card::name);
    return card == facts.cards.end() ? nullptr : &*card;
}

// NetworkManager

/// The connection of that name; the active one where there are several. Nothing where there is none.
std::optional<Connection> connectionNamed(const NetworkManagerFacts& manager, const std::string& name) {
    std::vector<Connection> found;
    std::ranges::copy_if(manager.connections, std::back_inserter(found), [&](const Connection& connection) {
        return connection.name == name && connection.type == wiredConnection;
    });
    if (found.size() > 1) {
        std::erase_if(found, [](const Connection& connection) { return !connection.isActive; });
        if (found.size() != 1) {
            throw Refusal(fmt::format("Several NetworkManager connections are named {}.", name));
        }
    }
    return found.empty() ? std::nullopt : std::optional(found.front());
}

/// The properties that make a connection manual, or a DHCP one. A manual one connects by itself, so that the address
/// comes back with the cable.
std::vector<std::string> properties(const Address& address) {
    if (!address) {
        return {"ipv4.method", "auto", "ipv4.addresses", "", "ipv4.gateway", ""};
    }
    return {"ipv4.method",  "manual", "ipv4.addresses",         text(*address),
            "ipv4.gateway", "",       "connection.autoconnect", "yes"};
}

Step nmcliStep(const NetworkManagerFacts& manager, std::vector<std::string> arguments, std::vector<std::string> more,
               std::string failure) {
    arguments.insert(arguments.end(), more.begin(), more.end());
    return {.value = Step::RunProgram{.path = manager.nmcli, .arguments = std::move(arguments)},
            .failure = std::move(failure)};
}

/// Brings the connection up where there is a cable; NetworkManager refuses to without one.
void addActivation(Plan& plan, const NetworkManagerFacts& manager, const std::vector<std::string>& connection,
                   const Card* card, const Address& address) {
    if (card != nullptr && !card->hasLink) {
        plan.done += "; it takes effect when the cable is plugged in";
        return;
    }
    // A DHCP answer may never come on a lab's cable: nobody waits for it.
    std::vector<std::string> arguments{"--wait", address ? "30" : "0", "connection", "up"};
    arguments.insert(arguments.end(), connection.begin(), connection.end());
    std::vector<std::string> onCard;
    if (card != nullptr) {
        onCard = {"ifname", card->name};
    }
    plan.steps.push_back(nmcliStep(manager, arguments, onCard, plan.done + ", but could not bring it up"));
}

Plan planForConnection(const NetworkManagerFacts& manager, const Connection& connection, const Facts& facts,
                       const Address& address) {
    const std::string name = "the NetworkManager connection " + connection.name;
    Plan plan{.steps = {}, .done = fmt::format("Set {} to {}", name, target(address))};
    plan.steps.push_back(nmcliStep(manager, {"connection", "modify", "uuid", connection.uuid}, properties(address),
                                   "Could not change " + name));
    const Card* const card = connection.card ? cardNamed(facts, *connection.card) : nullptr;
    addActivation(plan, manager, {"uuid", connection.uuid}, card, address);
    return plan;
}

/// For a card that NetworkManager manages without any connection: it gets one of its own name.
Plan planForNewConnection(const NetworkManagerFacts& manager, const Card& card, const Address& address) {
    if (!card.isWired) {
        throw Refusal(fmt::format("{} is not a wired card, and has no NetworkManager connection.", card.name));
    }
    requirePlainName(card);
    const std::string name = "the NetworkManager connection " + card.name;
    Plan plan{.steps = {}, .done = fmt::format("Made {} and set it to {}", name, target(address))};
    plan.steps.push_back(
        nmcliStep(manager, {"connection", "add", "type", "ethernet", "con-name", card.name, "ifname", card.name},
                  properties(address), "Could not make " + name));
    addActivation(plan, manager, {"id", card.name}, &card, address);
    return plan;
}

Plan planForManagedCard(const NetworkManagerFacts& manager, const Card& card, const Facts& facts,
                        const Address& address) {
    std::vector<Connection> own;
    std::ranges::copy_if(manager.connections, std::back_inserter(own),
                         [&](const Connection& connection) { return connection.card == card.name; });
    const auto active = std::ranges::find(own, true, &Connection::isActive);
    if (active != own.end()) {
        throw Refusal(fmt::format("{} belongs to the NetworkManager connection {}.", card.name, active->name));
    }
    if (own.size() > 1) {
        throw Refusal(fmt::format("Several NetworkManager connections are tied to {}.", card.name));
    }
    // Without a cable no connection is active, and the card goes by its own name.
    return own.empty() ? planForNewConnection(manager, card, address)
                       : planForConnection(manager, own.front(), facts, address);
}

// systemd-networkd

std::string networkdText(const std::string& card, const Address& address) {
    // The card of a lab keeps its address without a cable, and no start of the host waits for it.
    const std::string method =
        address ? fmt::format("Address={}\nDHCP=no\nConfigureWithoutCarrier=yes\n", text(*address)) : "DHCP=ipv4\n";
    return fmt::format("{} (Tarnwick). Delete this file and run \"networkctl reload\" to undo it.\n"
                       "[Match]\nName={}\n\n[Link]\nRequiredForOnline=no\n\n[Network]\n{}",
                       ownFileMark, card, method);
}

Plan planForNetworkd(const NetworkdFacts& networkd, const std::string& present, const Card& card,
                     const Address& address) {
    requirePlainName(card);
    const std::string path = networkdFile(networkd.directory, card.name);
    if (networkd.presentText && !networkd.presentText->starts_with(ownFileMark)) {
        throw Refusal(fmt::format("{} was written by somebody else.", path));
    }
    // systemd-networkd takes the first file that fits, by name, whatever its folder.
    const std::string presentName = std::filesystem::path(present).filename();
    if (present != path && presentName <= std::filesystem::path(path).filename().string()) {
        throw Refusal(
            fmt::format("{} configures {} and stands before every file of this program.", present, card.name));
    }
    Plan plan{.steps = {}, .done = fmt::format("Set {} to {} in {}", card.name, target(address), path)};
    const std::string afterwards = plan.done + ", but systemd-networkd did not take it";
    plan.steps.push_back({.value = Step::WriteFile{.path = path, .text = networkdText(card.name, address)},
                          .failure = fmt::format("Could not set {} to {}", card.name, target(address))});
    plan.steps.push_back(
        {.value = Step::RunProgram{.path = networkd.networkctl, .arguments = {"reload"}}, .failure = afterwards});
    plan.steps.push_back(
        {.value = Step::RunProgram{.path = networkd.networkctl, .arguments = {"reconfigure", card.name}},
         .failure = afterwards});
    if (address) {
        plan.steps.push_back(
            {.value = Step::AwaitAddress{.card = card.name, .address = *address}, .failure = afterwards});
    }
    return plan;
}

// ifupdown

/// The one file with the card's stanza; nothing when no file has one.
/// @throws Refusal when there is more about the card than one stanza without extras.
const IfupdownFacts::File* fileWithStanza(const IfupdownFacts& ifupdown, const std::string& card) {
    const IfupdownFacts::File* found = nullptr;
    for (const IfupdownFacts::File& file : ifupdown.files) {
        for (const auto& stanza : InterfacesFile::stanzas(file.text, card)) {
            if (found != nullptr) {
                throw Refusal(fmt::format("{} has more than one stanza in the files of ifupdown.", card));
            }
            if (stanza.empty()) {
                throw Refusal(fmt::format("The stanza of {} in {} has no method.", card, file.path));
            }
            if (stanza.size() > 1) {
                throw Refusal(fmt::format("The stanza of {} in {} has more than a method.", card, file.path));
            }
            found = &file;
        }
    }
    return found;
}

Plan planForIfupdown(const IfupdownFacts& ifupdown, const IfupdownFacts::File& file, const Card& card,
                     const Address& address) {
    requirePlainName(card);
    Plan plan{.steps = {}, .done = fmt::format("Set {} to {} in {}", card.name, target(address), file.path)};
    std::string notWritten = fmt::format("Could not set {} to {}", card.name, target(address));
    // Taken down by the old stanza, so that a DHCP client which runs for it ends.
    if (ifupdown.upCards.contains(card.name)) {
        plan.steps.push_back({.value = Step::RunProgram{.path = ifupdown.ifdown, .arguments = {"--force", card.name}},
                              .failure = fmt::format("Could not take {} down", card.name)});
        notWritten += ", and left it down";
    }
    plan.steps.push_back({.value = Step::WriteFile{.path = file.path,
                                                   .text = InterfacesFile::withAddress(file.text, card.name, address)},
                          .failure = notWritten});
    plan.steps.push_back({.value = Step::RemoveAddresses{.card = card.name, .all = true},
                          .failure = plan.done + ", but could not remove its old addresses"});
    plan.steps.push_back({.value = Step::RunProgram{.path = ifupdown.ifup, .arguments = {card.name}},
                          .failure = plan.done + ", but could not bring it up"});
    return plan;
}

// Nobody

Plan planForBareCard(const Card& card, const Address& address) {
    if (!card.isWired) {
        throw Refusal(fmt::format("{} is not a wired card, and no network manager owns it.", card.name));
    }
    if (!address) {
        return {.steps = {{.value = Step::RemoveAddresses{.card = card.name, .all = false},
                           .failure = fmt::format("Could not remove the fixed addresses of {}", card.name)}},
                .done = fmt::format("Removed the fixed addresses of {}, but no network manager owns it, so nobody asks "
                                    "DHCP for another",
                                    card.name)};
    }
    return {.steps = {{.value = Step::SetAddress{.card = card.name, .address = *address},
                       .failure = fmt::format("Could not set {} to {}", card.name, text(*address))}},
            .done = fmt::format("Set {} to {} until the next restart, as no network manager owns it", card.name,
                                text(*address))};
}

Plan planForCard(const Card& card, const Address& address, const Facts& facts) {
    if (facts.networkManager && facts.networkManager->cards.contains(card.name)) {
        return planForManagedCard(*facts.networkManager, card, facts, address);
    }
    if (facts.networkd) {
        const auto file = facts.networkd->files.find(card.name);
        if (file != facts.networkd->files.end()) {
            return planForNetworkd(*facts.networkd, file->second, card, address);
        }
    }
    if (facts.ifupdown) {
        if (const auto* const file = fileWithStanza(*facts.ifupdown, card.name)) {
            return planForIfupdown(*facts.ifupdown, *file, card, address);
        }
    }
    return planForBareCard(card, address);
}

} // namespace

std::string networkdFile(const std::string& directory, const std::string& card) {
    return fmt::format("{}/00-networksetup-{}.network", directory, card);
}

Plan makePlan(const std::string& service, const Address& address, const Facts& facts) {
    if (facts.networkManager) {
        if (const auto connection = connectionNamed(*facts.networkManager, service)) {
            return planForConnection(*facts.networkManager, *connection, facts, address);
        }
    }
    const Card* const card = cardNamed(facts, service);
    if (card == nullptr) {
        throw Refusal(fmt::format("No network service is named {}.", service));
    }
    return planForCard(*card, address, facts);
}

} // namespace NetworkSetup
