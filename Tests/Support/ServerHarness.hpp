#pragma once

#include "DHCPCore/Server.hpp"
#include "Support/Builders.hpp"
#include "Support/FakeHost.hpp"
#include "Support/LeaseBuilders.hpp"
#include "Support/Printing.hpp"
#include "Support/TemporaryDirectory.hpp"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace DHCPCore::TestSupport {

/// A server on a fake host, with a lease file in a folder of its own. It serves "en7", index 7, whose link is up, with
/// the server's address on it; the pool is 10.0.0.10 to 10.0.0.12; nobody is probed. What differs is set before `make`.
class ServerHarness : public testing::Test {
  protected:
    ServerHarness();

    static constexpr std::uint32_t cardIndex = 7;
    static constexpr IPv4Address serverIP{10, 0, 0, 1};
    static constexpr MACAddress cardMAC{.bytes = {0x02, 0, 0, 0, 0, 0xCA}};

    /// Makes the server that `options` describe.
    void make();
    /// Makes the server where that is still to be done, starts it, and gives all events so far.
    std::vector<ServerEvent> start();
    /// The next events, so many; fewer, and a failure, when they do not come.
    std::vector<ServerEvent> take(std::size_t count);
    /// Everything that is reported once the queue has done what it was given before; not for datagrams on their way.
    std::vector<ServerEvent> settled();

    /// A client's message arrives on the served card.
    void arrive(const DHCPPacket& packet);
    /// Likewise, and gives the events that it leads to, so many, when nothing follows them.
    std::vector<ServerEvent> eventsOf(const DHCPPacket& packet, std::size_t count);
    [[nodiscard]] static Datagram datagram(const DHCPPacket& packet, std::optional<std::uint32_t> index = cardIndex);

    void saveLeases(const LeaseTable& table) const { options.leaseFile.save(table); }
    [[nodiscard]] LeaseTable savedLeases() const { return options.leaseFile.load(now).table; }
    /// Puts the lease file where no file can be written until `unblockSaving`.
    void blockSaving();
    void unblockSaving();
    /// The reason that the system gives for a save that is refused.
    [[nodiscard]] std::string savingError() const;

    void setLink(bool up);

    [[nodiscard]] ServerEvent started() const;
    [[nodiscard]] static ServerEvent received(const DHCPPacket& packet, std::string interface = "en7");
    /// A reply that was broadcast.
    [[nodiscard]] static ServerEvent sent(DHCPMessageType type, IPv4Address ip, const MACAddress& mac,
                                          std::optional<std::string> note = std::nullopt,
                                          std::string interface = "en7");
    /// The ACK of a lease of the pool.
    [[nodiscard]] static ServerEvent granted(IPv4Address ip, const MACAddress& mac);
    [[nodiscard]] static ServerEvent dropped(std::string reason);
    [[nodiscard]] static ServerEvent changed(const Lease& lease);
    [[nodiscard]] static ServerEvent removed(const MACAddress& mac);
    [[nodiscard]] static ServerEvent presence(const Lease& lease, PresenceState state, std::string detail);
    [[nodiscard]] static ServerEvent link(bool up);
    [[nodiscard]] static ServerEvent raised(NoticeKind kind, std::string message);
    [[nodiscard]] static ServerEvent cleared(NoticeKind kind);
    [[nodiscard]] static ServerEvent info(std::string text);
    [[nodiscard]] static ServerEvent stopped();
    [[nodiscard]] static ServerEvent linkDownRaised(const std::string& interface = "en7");

    TemporaryDirectory directory;
    std::shared_ptr<FakeHost> host = std::make_shared<FakeHost>();
    DHCPServer::Options options;
    std::shared_ptr<DHCPServer> server;
    std::shared_ptr<EventStream<ServerEvent>> events;
};

} // namespace DHCPCore::TestSupport
