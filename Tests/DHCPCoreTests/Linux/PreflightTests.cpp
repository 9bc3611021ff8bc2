#include "DHCPCore/FileDescriptor.hpp"
#include "DHCPCore/Linux/PortHolder.hpp"
#include "DHCPCore/Linux/Processes.hpp"
#include "DHCPCore/Preflight.hpp"
#include "DHCPCore/SocketAddress.hpp"
#include "Support/FreshNetwork.hpp"
#include "Support/OpenDescriptors.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <optional>
#include <string>
#include <sys/socket.h>
#include <tuple>
#include <unistd.h>
#include <vector>

namespace DHCPCore {
namespace {

using Inodes = std::vector<std::uint64_t>;
using TestSupport::inFreshNetwork;

constexpr const char* notAllowed = "this process may not make a network namespace";

/// As /proc/net/udp shows it: 0.0.0.0:67 twice, 127.0.0.1:67, and port 68.
constexpr std::string_view udpTable = "   sl  local_address rem_address   st tx_queue rx_queue tr tm->when retrnsmt   "
                                      "uid  timeout inode ref pointer drops"
                                      "            \n"
                                      "  100: 00000000:0043 00000000:0000 07 00000000:00000000 00:00000000 00000000    "
                                      " 0        0 4711 2 0000000000000000 "
                                      "0         \n"
                                      "  101: 00000000:0044 00000000:0000 07 00000000:00000000 00:00000000 00000000    "
                                      " 0        0 4712 2 0000000000000000 "
                                      "0         \n"
                                      "  102: 0100007F:0043 00000000:0000 07 00000000:00000000 00:00000000 00000000  "
                                      "1000        0 4713 2 0000000000000000 "
                                      "0         \n";

TEST(PortHolderTest, FindsTheSocketsOfAPort) {
    EXPECT_EQ(PortHolder::inodesOfPort(udpTable, 67), (Inodes{4711, 4713}));
    EXPECT_EQ(PortHolder::inodesOfPort(udpTable, 68), (Inodes{4712}));
    EXPECT_EQ(PortHolder::inodesOfPort(udpTable, 4), Inodes{});
}

TEST(PortHolderTest, FindsTheSocketsOfIPv6AsWell) {
    const std::string table =
        "  353: 00000000000000000000000000000000:0043 00000000000000000000000000000000:0000 07 00000000:00000000 "
        "00:00000000 00000000     0        0 99 2 0000000000000000 0\n";
    EXPECT_EQ(PortHolder::inodesOfPort(table, 67), (Inodes{99}));
}

TEST(PortHolderTest, SkipsLinesThatAreNoneOfASocket) {
    const std::string whole = "1: 00000000:0043 2 3 4 5 6 7 8 4711";
    EXPECT_EQ(PortHolder::inodesOfPort(whole, 67), (Inodes{4711}));
    for (const std::string table : {"", "\n\n", "1: 00000000:0043 2 3 4 5 6 7 8", "1: 00000000:0043 2 3 4 5 6 7 8 x",
                                    "1: 0043x 2 3 4 5 6 7 8 9", "1: 0:10043 2 3 4 5 6 7 8 9", "1: 0: 2 3 4 5 6 7 8 9",
                                    "1: 00000000:0043 2 3 4 5 6 7 8 99999999999999999999"}) {
        EXPECT_EQ(PortHolder::inodesOfPort(table, 67), Inodes{}) << table;
    }
}

TEST(PortHolderTest, ReadsTheSocketThatALinkNames) {
    EXPECT_EQ(PortHolder::inodeOfLink("socket:[4711]"), 4711U);
    for (const std::string link :
         {"", "pipe:[4711]", "socket:[]", "socket:[", "socket:[x]", "socket:4711", "/dev/null"}) {
        EXPECT_EQ(PortHolder::inodeOfLink(link), std::nullopt) << link;
    }
}

/// A socket bound to a port of that address; not open when that is refused.
FileDescriptor boundSocket(IPv4Address ip, std::uint16_t port) {
    FileDescriptor socket{::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)};
    const sockaddr_in address = socketAddress(ip, port);
    if (::bind(socket.number(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        socket.close();
    }
    return socket;
}

std::string thisProcess() { return Processes::name(::getpid()) + ":" + std::to_string(::getpid()); }

TEST(PortHolderTest, NamesThisProcessForAPortOfItsOwn) {
    const FileDescriptor socket = boundSocket(IPv4Address::loopback, 0);
    ASSERT_TRUE(socket.isOpen());
    sockaddr_in address{};
    socklen_t length = sizeof address;
    ASSERT_EQ(::getsockname(socket.number(), reinterpret_cast<sockaddr*>(&address), &length), 0);
    EXPECT_EQ(PortHolder::find(ntohs(address.sin_port)), thisProcess());
}

TEST(Port67Test, IsFreeWhereNobodyHoldsIt) {
    const bool made = inFreshNetwork([] {
        const auto before = TestSupport::openDescriptors();
        EXPECT_EQ(Preflight::port67State(), Port67State{Port67State::Free{}});
        EXPECT_EQ(Preflight::port67State(), Port67State{Port67State::Free{}}) << "the test itself must not keep it";
        EXPECT_EQ(Preflight::port67Holder(), std::nullopt);
        EXPECT_EQ(TestSupport::openDescriptors(), before);
    });
    if (!made) {
        GTEST_SKIP() << notAllowed;
    }
}

TEST(Port67Test, IsInUseWhoeverHoldsItAtWhateverAddress) {
    const bool made = inFreshNetwork([] {
        for (const IPv4Address ip : {IPv4Address::zero, IPv4Address::loopback}) {
            const FileDescriptor holder = boundSocket(ip, 67);
            ASSERT_TRUE(holder.isOpen());
            const auto before = TestSupport::openDescriptors();
            EXPECT_EQ(Preflight::port67State(), Port67State{Port67State::InUse{.holder = thisProcess()}});
            EXPECT_EQ(Preflight::port67Holder(), thisProcess());
            EXPECT_EQ(TestSupport::openDescriptors(), before);
        }
    });
    if (!made) {
        GTEST_SKIP() << notAllowed;
    }
}

TEST(Port67Test, IsAnErrorForAProcessThatMayNotOpenIt) {
    if (::geteuid() == 0) {
        GTEST_SKIP() << "this process may open every port";
    }
    const Port67State state = Preflight::port67State();
    if (state == Port67State{Port67State::Free{}}) {
        GTEST_SKIP() << "this host lets everybody open port 67";
    }
    EXPECT_EQ(state, Port67State{Port67State::Error{.text = "Permission denied"}});
}

TEST(ProcessesTest, ListThisOneAmongTheOthersInOrder) {
    const auto ids = Processes::ids();
    EXPECT_TRUE(std::ranges::is_sorted(ids));
    EXPECT_TRUE(std::ranges::binary_search(ids, ::getpid()));
}

std::string commandLine(const std::vector<std::string>& words) {
    std::string line;
    for (const std::string& word : words) {
        line += word + '\0';
    }
    return line;
}

TEST(VMwareTest, IsRunningWhenOneOfItsServicesIs) {
    EXPECT_TRUE(Processes::isVMwareService("vmware-usbarbit", commandLine({"/usr/bin/vmware-usbarbitrator"})));
    EXPECT_TRUE(Processes::isVMwareService("vmnet-bridge", commandLine({"/usr/bin/vmnet-bridge", "-s", "6"})));
    EXPECT_TRUE(Processes::isVMwareService("renamed", commandLine({"/opt/vmware-usbarbitrator"})));
    EXPECT_TRUE(Processes::isVMwareService("vmnet-bridge", "")) << "a script, or a program that hides its words";
}

TEST(VMwareTest, IsNotRunningBecauseSomebodyLooksForIt) {
    constexpr const char* pattern = "vmware-usbarbitrator|vmnet-bridge";
    const std::vector<std::pair<std::string, std::vector<std::string>>> processes{
        {"pgrep", {"/usr/bin/pgrep", "-f", pattern}},
        {"pgrep", {"pgrep", "-f", "vmnet-bridge"}},
        {"sh", {"/bin/sh", "-c", "pgrep -f vmware-usbarbitrator || sleep 9"}},
        {"bash", {"bash", "vmware-usbarbitrator"}},
        {"vim", {"vim", "/etc/init.d/vmnet-bridge"}},
        {"vmware-usbarbi", {"x"}},
        {"vmnet-bridge2", {"vmnet-bridge2"}},
        {"kworker/0:0", {}}};
    for (const auto& [name, words] : processes) {
        EXPECT_FALSE(Processes::isVMwareService(name, commandLine(words))) << name;
    }
}

TEST(PreflightGatherTest, CarriesCardAndConfigurationAndTheHostsAddresses) {
    const bool made = inFreshNetwork([] {
        NetworkCard card;
        card.bsdName = "en5";
        ServerConfig config;
        config.serverIP = IPv4Address{192, 168, 0, 1};
        const PreflightInput expected{.card = card,
                                      .otherAddresses = Interfaces::interfaceAddresses(),
                                      .config = config,
                                      .port67 = {Port67State::Free{}},
                                      .vmwareRunning = Preflight::vmwareRunning()};
        EXPECT_EQ(expected.otherAddresses.size(), 1U);
        EXPECT_EQ(Preflight::gather(card, config), expected);
    });
    if (!made) {
        GTEST_SKIP() << notAllowed;
    }
}

} // namespace
} // namespace DHCPCore
