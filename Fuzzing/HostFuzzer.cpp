#include "DHCPCore/Linux/CardFacts.hpp"
#include "DHCPCore/Linux/CardOwners.hpp"
#include "DHCPCore/Linux/PortHolder.hpp"
#include "DHCPCore/Linux/Processes.hpp"
#include "DHCPCore/Preflight.hpp"
#include "DHCPCore/Presence.hpp"
#include "Fuzzing/Fuzzing.hpp"

#include <algorithm>
#include <array>
#include <string>
#include <string_view>
#include <vector>

using namespace DHCPCore; // NOLINT(google-build-using-namespace): a program of small functions

namespace {

using Fuzzing::require;

void checkNetstat(const std::string& output) {
    if (const auto holder = Preflight::holderInNetstat(output, 67)) {
        require(output.find(*holder) != std::string::npos, "a holder stands in what was read");
        require(holder->find(':') != std::string::npos, "a holder has a process id");
    }
}

void checkSockets(const std::string& table) {
    const auto inodes = PortHolder::inodesOfPort(table, 67);
    require(inodes.size() <= table.size(), "no socket comes from nowhere");
}

void checkLink(const std::string& link) {
    if (const auto inode = PortHolder::inodeOfLink(link)) {
        require(link.starts_with("socket:["), "only a socket's link names one");
    }
}

void checkProcess(const std::string& commandLine) {
    if (Processes::isVMwareService("sh", commandLine)) {
        require(commandLine.find("vm") != std::string::npos, "a service stands in what was read");
    }
}

void checkNetworkManager(const std::string& output) {
    for (const auto& device : NetworkManager::parseDevices(output)) {
        require(device.name.size() <= output.size(), "a device's name was read");
    }
    static_cast<void>(NetworkManager::parseMethod(output));
}

void checkNetworkd(const std::string& text) {
    static_cast<void>(Networkd::networkFile(text));
    static_cast<void>(Networkd::parseMethod(text, "en7", MACAddress{}));
    static_cast<void>(Networkd::parseMethod(text, "en7", std::nullopt));
}

void checkIfupdown(const std::string& text) {
    const auto configuration = Ifupdown::parse(text);
    require(configuration.stanzas.size() <= text.size(), "no stanza comes from nowhere");
    static_cast<void>(Ifupdown::methodOf(configuration.stanzas, "en7"));
}

void checkProductName(const std::string& text) {
    for (const auto& name : {CardFacts::productName(text), CardFacts::modelInHardwareDatabase(text)}) {
        require(!name || (!name->empty() && Fuzzing::isOneCleanLine(*name)), "a product's name can be shown");
    }
}

void checkEcho(const std::string& text) {
    const Bytes datagram{text.begin(), text.end()};
    const Bytes request = Prober::echoRequest(7, 1);
    if (Prober::isEchoReply(datagram, request)) {
        require(Prober::isEchoReply(datagram), "an answer to this request is an answer");
        require(datagram.size() >= 8, "an answer has a header");
    }
}

constexpr std::array checks{checkNetstat,  checkSockets,  checkLink,        checkProcess, checkNetworkManager,
                            checkNetworkd, checkIfupdown, checkProductName, checkEcho};

} // namespace

/// A letter that says who reads it, "a" for the first of the checks; then what the host says.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Fuzzing::Input input{data, size};
    const std::size_t reader = input.byte() % 32U;
    if (reader >= 1 && reader <= checks.size()) {
        checks.at(reader - 1)(input.text());
    }
    return 0;
}
