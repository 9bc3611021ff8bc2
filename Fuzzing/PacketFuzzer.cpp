#include "DHCPCore/Events.hpp"
#include "DHCPCore/Packet.hpp"
#include "Fuzzing/Fuzzing.hpp"

#include <span>

using namespace DHCPCore; // NOLINT(google-build-using-namespace): a program of one function

namespace {

using Fuzzing::require;

void checkAccessors(const DHCPPacket& packet) {
    const PacketSummary summary{packet, std::nullopt};
    for (const auto& text : {summary.hostname, summary.vendorClass}) {
        require(!text || (text->size() <= 64 && Fuzzing::isOneCleanLine(*text)), "a text of a packet can be shown");
    }
    require(!summary.clientID || summary.clientID->find_first_not_of("0123456789abcdef:") == std::string::npos,
            "a client identifier is hexadecimal");
    require(!summary.mac || packet.hlen == 6, "a hardware address has six bytes");
}

void checkRoundTrip(const DHCPPacket& packet, std::size_t minimumLength) {
    const Bytes bytes = packet.serialize(minimumLength);
    require(bytes.size() >= minimumLength, "a packet has its least length");
    require(DHCPPacket::parse(bytes) == packet, "a packet written and read again is the same");
}

} // namespace

/// A datagram.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    try {
        const DHCPPacket packet = DHCPPacket::parse(std::span(data, size));
        checkAccessors(packet);
        checkRoundTrip(packet, 0);
        checkRoundTrip(packet, DHCPPacket::minimumReplyLength);
        DHCPPacket changed = packet;
        changed.setOption(OptionCode::hostname, std::span(data, size).first(5));
        checkRoundTrip(changed, 0);
    } catch (const PacketError& error) {
        require(!error.description().empty(), "an error has its sentence");
    }
    return 0;
}
