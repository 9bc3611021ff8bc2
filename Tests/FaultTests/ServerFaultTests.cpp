// The server while its leases can't be saved: it says so, serves on, and saves again as soon as it can.
#include "DHCPCore/Error.hpp"
#include "FaultTests/SmallDisk.hpp"
#include "FaultTests/SystemFaults.hpp"
#include "Support/DescriptorLimit.hpp"
#include "Support/ServerHarness.hpp"

#include <fmt/format.h>

#include <cerrno>
#include <filesystem>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace DHCPCore {
namespace {

using namespace TestSupport; // NOLINT(*-build-using-namespace): the words of the tests
using std::chrono::hours;
using Events = std::vector<ServerEvent>;
using Kind = SystemCall::Kind;
using Names = std::vector<std::string>;

/// A server with a lease of device 1 that is saved already.
class ServerFaultTest : public ServerHarness {
  protected:
    void startWithALease() {
        saveLeases(tableOf({boundTo(1)}));
        start();
    }

    static Lease boundTo(std::uint8_t device) { return newlyBound(mac(device), ip(device + 9), now + hours{1}); }

    /// A device that takes its address.
    static ClientMessage taking(std::uint8_t device) { return request(mac(device)).requesting(ip(device + 9)); }

    /// What the server reports then, between the two parts of which is what it says of its saving.
    static Events servedWith(std::uint8_t device, std::optional<ServerEvent> saving) {
        Events events{received(taking(device)), changed(boundTo(device))};
        if (saving) {
            events.push_back(std::move(*saving));
        }
        events.push_back(granted(ip(device + 9), mac(device)));
        return events;
    }

    static ServerEvent refused(const std::string& reason) {
        return raised(NoticeKind::leaseSaveFailed, "Leases could not be saved: " + reason);
    }

    /// Devices 2 and 3 are served while nothing can be saved for that reason.
    void expectServiceWithout(const std::string& reason) {
        EXPECT_EQ(eventsOf(taking(2), 4), servedWith(2, refused(reason)));
        EXPECT_EQ(eventsOf(taking(3), 4), servedWith(3, refused(reason)));
    }

    /// The next message has everything saved.
    void expectRecovery() {
        EXPECT_EQ(eventsOf(taking(2), 4), servedWith(2, cleared(NoticeKind::leaseSaveFailed)));
        EXPECT_EQ(eventsOf(taking(2), 3), servedWith(2, std::nullopt));
        EXPECT_EQ(savedLeases(), tableOf({boundTo(1), boundTo(2), boundTo(3)}));
    }
};

class RefusedCallTest : public ServerFaultTest, public testing::WithParamInterface<std::pair<Kind, int>> {};

TEST_P(RefusedCallTest, DoesNotKeepTheServerFromServing) {
    const auto [kind, number] = GetParam();
    startWithALease();
    {
        const InjectedFaults faults([kind = kind, number = number](const SystemCall& call) {
            return call.kind == kind ? Fate{Fate::Fails{number}} : Fate{};
        });
        expectServiceWithout(fmt::format("Could not {} leases.json: {}", kind == Kind::rename ? "replace" : "write",
                                         systemText(number)));
    }
    EXPECT_EQ(savedLeases(), tableOf({boundTo(1)}));
    EXPECT_EQ(directory.names(), Names{"leases.json"});
    expectRecovery();
}

INSTANTIATE_TEST_SUITE_P(Any, RefusedCallTest,
                         testing::Values(std::pair{Kind::open, EMFILE}, std::pair{Kind::open, EROFS},
                                         std::pair{Kind::open, EACCES}, std::pair{Kind::write, ENOSPC},
                                         std::pair{Kind::write, EIO}, std::pair{Kind::close, EDQUOT},
                                         std::pair{Kind::rename, EIO}, std::pair{Kind::rename, EACCES}),
                         [](const auto& test) {
                             return fmt::format("{}_{}", description(test.param.first), test.param.second);
                         });

TEST_F(ServerFaultTest, ServesOnWhenNoDescriptorIsLeft) {
    startWithALease();
    {
        const DescriptorLimit limit(0);
        expectServiceWithout("Could not write leases.json: " + systemText(EMFILE));
    }
    expectRecovery();
}

TEST_F(ServerFaultTest, MakesTheFolderAgainThatSomebodyRemoved) {
    options.leaseFile.url = directory / "folder" / "leases.json";
    startWithALease();
    std::filesystem::remove_all(directory / "folder");
    EXPECT_EQ(eventsOf(taking(2), 3), servedWith(2, std::nullopt));
    EXPECT_EQ(savedLeases(), tableOf({boundTo(1), boundTo(2)}));
}

TEST_F(ServerFaultTest, ServesOnWhenItsFolderBecameAFile) {
    options.leaseFile.url = directory / "folder" / "leases.json";
    startWithALease();
    std::filesystem::remove_all(directory / "folder");
    writeText(directory / "folder", "in the way");
    expectServiceWithout(fmt::format("Could not create {}: {}", (directory / "folder").string(), systemText(EEXIST)));
    std::filesystem::remove(directory / "folder");
    expectRecovery();
}

TEST_F(ServerFaultTest, RemovesWhatAKilledSaveLeftWhenItStarts) {
    writeText(directory / ".leases.json.tmp-6F1C2B0E-5D7A-4C1B-9E3F-0A1B2C3D4E5F", "{");
    startWithALease();
    EXPECT_EQ(directory.names(), Names{"leases.json"});
}

TEST_F(ServerFaultTest, LeavesEverythingAsItIsBesideAFileThatItCanNotRead) {
    const Names names{".leases.json.tmp-6F1C2B0E-5D7A-4C1B-9E3F-0A1B2C3D4E5F", "leases.json"};
    writeText(directory / names[0], "perhaps the last good one");
    std::filesystem::create_directory(directory / "leases.json");
    start();
    EXPECT_EQ(directory.names(), names);
}

/// A server whose lease file lies on a disk of its own.
class DiskTest : public ServerFaultTest {
  protected:
    void SetUp() override {
        if (const auto reason = disk.whyThereIsNone()) {
            GTEST_SKIP() << *reason;
        }
        options.leaseFile.url = disk.path() / "leases.json";
    }

    SmallDisk disk{directory.path()};
};

TEST_F(DiskTest, ServesOnWhileItIsFull) {
    startWithALease();
    disk.fill();
    expectServiceWithout("Could not write leases.json: " + systemText(ENOSPC));
    EXPECT_EQ(savedLeases(), tableOf({boundTo(1)}));
    EXPECT_EQ(disk.names(), (Names{"filler", "leases.json"}));
    disk.makeRoom();
    expectRecovery();
}

TEST_F(DiskTest, ServesOnWhileItIsReadOnly) {
    startWithALease();
    disk.setReadOnly(true);
    expectServiceWithout("Could not write leases.json: " + systemText(EROFS));
    EXPECT_EQ(savedLeases(), tableOf({boundTo(1)}));
    disk.setReadOnly(false);
    expectRecovery();
    EXPECT_EQ(disk.names(), Names{"leases.json"});
}

} // namespace
} // namespace DHCPCore
