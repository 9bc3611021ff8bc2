#include "DHCPCore/Linux/CardFacts.hpp"
#include "DHCPCore/Linux/Netlink.hpp"
#include "Fuzzing/Fuzzing.hpp"

#include <algorithm>
#include <span>

using namespace DHCPCore; // NOLINT(google-build-using-namespace): a program of one function

using Fuzzing::require;

/// A dump of the kernel, read as the answer to each of the questions.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    constexpr std::size_t leastMessage = 16;
    const std::span dump(data, size);

    const auto links = Netlink::parseLinks(dump);
    require(links.size() <= size / leastMessage, "no link comes from nowhere");
    require(std::ranges::is_sorted(links, {}, &Netlink::Link::index), "links come in order");
    for (const Netlink::Link& link : links) {
        require(link.name.find('\0') == std::string::npos, "a name ends at its zero byte");
        static_cast<void>(CardFacts::kind(link, false));
    }

    const auto addresses = Netlink::parseAddresses(dump);
    require(std::ranges::is_sorted(addresses, {}, &Netlink::Address::interfaceIndex), "addresses come in order");
    for (const Netlink::Address& address : addresses) {
        require(address.subnet.prefixLength >= 0 && address.subnet.prefixLength <= 32, "a prefix has 0 to 32 bits");
    }

    static_cast<void>(Netlink::parseDefaultInterface(dump));
    require(Netlink::parseNeighbours(dump).size() <= size / leastMessage, "no neighbour comes from nowhere");
    return 0;
}
