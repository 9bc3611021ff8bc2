// Real clients on a cable with the built tool: each through the life of a lease.
#include "DHCPCore/LeaseFile.hpp"
#include "HostTests/Clients.hpp"
#include "HostTests/HostTest.hpp"
#include "HostTests/Wire.hpp"

#include <fmt/format.h>

#include <chrono>

namespace Tarnwick {
namespace {

using namespace DHCPCore;
using namespace DHCPCore::TestSupport;

/// One kind of client on a device of its own.
class ClientTest : public HostTest, public testing::WithParamInterface<ClientKind> {
  protected:
    void SetUp() override {
        if (!isInstalled(GetParam().name)) {
            GTEST_SKIP() << GetParam().name << " is not installed";
        }
        HostTest::SetUp();
        if (!IsSkipped()) {
            device_.emplace(lab(), std::uint8_t{1});
        }
    }
    void TearDown() override {
        device_.reset();
        HostTest::TearDown();
    }

    [[nodiscard]] const Device& device() const { return *device_; }
    [[nodiscard]] std::unique_ptr<DHCPClient> client(bool checksConflicts = false) const {
        return GetParam().make(device(), checksConflicts);
    }

    /// The start of the event that tells of the device's lease.
    [[nodiscard]] std::string leaseEvent(const std::string& state, const std::string& ip) const {
        return fmt::format("LEASE        {} {} {}", state, ip, device().mac().description());
    }

  private:
    std::optional<Device> device_;
};

TEST_P(ClientTest, GetsRenewsAndReleasesALease) {
    ToolProcess tool(serving());
    started(tool);
    const auto client = this->client();
    client->start();
    EXPECT_TRUE(tells(eventsThrough(tool, "TX ACK"), leaseEvent("bound", "192.168.0.100")));
    client->awaitAddress("192.168.0.100"_ip);

    client->renew();
    const auto renewal = eventsThrough(tool, "TX ACK");
    EXPECT_TRUE(tells(renewal, "RX REQUEST   " + device().mac().description()));
    EXPECT_TRUE(tells(renewal, leaseEvent("bound", "192.168.0.100")));
    EXPECT_EQ(renewal.back(), "TX ACK       192.168.0.100 -> 192.168.0.100:68 via en5 (lease 24 h)");
    client->awaitAddress("192.168.0.100"_ip);

    client->release();
    eventsThrough(tool, leaseEvent("released", "192.168.0.100"));
    stop(tool);
    EXPECT_EQ(LeaseFile{.url = leases()}.load(currentDate()).table.leases().all().at(0).state, Lease::State::released);
}

TEST_P(ClientTest, RebootsWithTheAddressThatItKept) {
    const auto client = this->client();
    {
        ToolProcess tool(serving());
        started(tool);
        const Wire wire(device().network(), "eth0");
        ASSERT_EQ(messageIn(wire.ask(discover(mac(9)))).yiaddr, "192.168.0.100"_ip); // so the lowest is taken
        client->start();
        client->awaitAddress("192.168.0.101"_ip);
        client->cutPower();
        stop(tool);
    }
    std::filesystem::remove(leases()); // so only the client knows
    ToolProcess tool(serving());
    started(tool);
    client->start();
    const auto events = eventsThrough(tool, "TX ACK");
    EXPECT_TRUE(events.front().starts_with("RX " + client->firstMessageWithKeptAddress())) << events.front();
    EXPECT_NE(events.front().find(" req=192.168.0.101 "), std::string::npos) << events.front();
    EXPECT_TRUE(tells(events, leaseEvent("bound", "192.168.0.101")));
    client->awaitAddress("192.168.0.101"_ip);
}

TEST_P(ClientTest, RenewsWithAServerThatWasRestarted) {
    const auto client = this->client();
    {
        ToolProcess tool(serving());
        started(tool);
        client->start();
        client->awaitAddress("192.168.0.100"_ip);
        stop(tool);
    }
    ToolProcess tool(serving());
    EXPECT_TRUE(tells(started(tool), leaseEvent("bound", "192.168.0.100")));
    client->renew();
    EXPECT_EQ(eventsThrough(tool, "TX ACK").back(),
              "TX ACK       192.168.0.100 -> 192.168.0.100:68 via en5 (lease 24 h)");
}

std::string nameOf(const testing::TestParamInfo<ClientKind>& parameter) { return parameter.param.name; }

INSTANTIATE_TEST_SUITE_P(Each, ClientTest, testing::Values(dhclient(), udhcpc(), dhcpcd()), nameOf);

/// The clients that look on the cable for their address before they take it.
using CarefulClientTest = ClientTest;

TEST_P(CarefulClientTest, DeclinesAnAddressThatAnotherDeviceUses) {
    const Device other(lab(), 2);
    other.setAddress("192.168.0.100/24");
    ToolProcess tool(serving());
    started(tool);
    const auto client = this->client(true);
    client->start();

    const auto events = eventsThrough(tool, "INFO         conflict");
    EXPECT_TRUE(tells(events, "RX DECLINE   " + device().mac().description()));
    EXPECT_TRUE(tells(events, "LEASE        removed " + device().mac().description()));
    EXPECT_EQ(events.back(), fmt::format("INFO         conflict: {} reports 192.168.0.100 is already in use; "
                                         "quarantined for 10 m",
                                         device().mac().description()));
    client->awaitAddress("192.168.0.101"_ip);

    const Date now = currentDate();
    const LeaseTable table = LeaseFile{.url = leases()}.load(now).table;
    EXPECT_TRUE(table.isQuarantined("192.168.0.100"_ip, now));
    EXPECT_FALSE(table.isQuarantined("192.168.0.100"_ip, now + std::chrono::seconds{600}));
}

INSTANTIATE_TEST_SUITE_P(Each, CarefulClientTest, testing::Values(udhcpc(), dhcpcd()), nameOf);

} // namespace
} // namespace Tarnwick
