#include "DHCPCore/Addresses.hpp"
#include "DHCPCore/Linux/CardOwners.hpp"
#include "DHCPCore/TextPieces.hpp"
#include "Fuzzing/Fuzzing.hpp"
#include "networksetup/InterfacesFile.hpp"
#include "networksetup/Plan.hpp"
#include "networksetup/Printable.hpp"
#include "networksetup/Refusal.hpp"
#include "networksetup/Request.hpp"
#include "networksetup/Survey.hpp"

#include <array>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

using namespace DHCPCore;     // NOLINT(google-build-using-namespace): a program of small functions
using namespace NetworkSetup; // NOLINT(google-build-using-namespace): likewise

namespace {

using Fuzzing::require;

/// One argument on each line.
void checkArguments(const std::string& text) {
    std::vector<std::string> words;
    for (const std::string_view piece : splitKeepingEmpty(text, '\n')) {
        words.emplace_back(piece);
    }
    try {
        const Request request = parseRequest(words);
        if (const auto* manual = std::get_if<Request::SetManual>(&request.value)) {
            require(manual->service == words.at(1), "the service is the one asked for");
            require(manual->address.address.description() == IPv4Address::parse(words.at(2)).value().description(),
                    "the address is the one asked for");
        }
    } catch (const Refusal& refusal) {
        require(!refusal.description().empty(), "a refusal has its sentence");
    }
}

void checkInterfacesFile(const std::string& text) {
    const std::optional<Subnet> wanted = Subnet::make(IPv4Address{192, 168, 0, 1}, 24);
    const auto stanzas = InterfacesFile::stanzas(text, "en7");
    for (const auto& address : {wanted, std::optional<Subnet>{}}) {
        const std::string changed = InterfacesFile::withAddress(text, "en7", address);
        require(!stanzas.empty() || changed == text, "a file without the card's stanza stays as it is");
        require(InterfacesFile::stanzas(changed, "en7").size() == stanzas.size(), "no stanza is lost");
        require(InterfacesFile::withAddress(changed, "en7", address) == changed, "doing it twice changes nothing more");
        require(InterfacesFile::stanzas(changed, "en8") == InterfacesFile::stanzas(text, "en8"),
                "another card's stanzas stay as they are");
    }
}

void checkPrintable(const std::string& text) {
    const std::string shown = printable(text);
    require(Fuzzing::isOneCleanLine(shown), "a shown text is one line");
    require(printable(shown) == shown, "a shown text can be shown");
}

void checkConnections(const std::string& text) {
    const auto devices = NetworkManager::parseDevices(text);
    static_cast<void>(networkManagerFrom(text, devices, {}));
    require(!DHCPCore::NetworkManager::connectionArguments(text).empty(), "there is something to ask");
    static_cast<void>(upCardsIn(text));
}

/// A plan for a card of which ifupdown's file says anything.
void checkPlan(const std::string& text) {
    Facts facts;
    facts.cards = {{.name = "en7", .isWired = true, .hasLink = true}};
    facts.ifupdown = IfupdownFacts{.ifup = "/sbin/ifup",
                                   .ifdown = "/sbin/ifdown",
                                   .files = {{.path = "/etc/network/interfaces", .text = text}},
                                   .upCards = {"en7"}};
    try {
        const Plan plan = makePlan("en7", Subnet::make(IPv4Address{192, 168, 0, 1}, 24), facts);
        require(!plan.steps.empty() && !plan.done.empty(), "a plan does something");
    } catch (const Refusal& refusal) {
        require(!refusal.description().empty(), "a refusal has its sentence");
    }
}

constexpr std::array checks{checkArguments, checkInterfacesFile, checkPrintable, checkConnections, checkPlan};

} // namespace

/// A letter that says who reads it, "a" for the first of the checks; then the text.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Fuzzing::Input input{data, size};
    const std::size_t reader = input.byte() % 32U;
    if (reader >= 1 && reader <= checks.size()) {
        checks.at(reader - 1)(input.text());
    }
    return 0;
}
