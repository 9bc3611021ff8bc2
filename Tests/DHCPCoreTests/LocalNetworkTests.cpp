#include "DHCPCore/LocalNetwork.hpp"
#include "DHCPCore/Sockets.hpp"
#include "Support/OpenDescriptors.hpp"

#include <gtest/gtest.h>

#include <cerrno>
#include <string>

namespace DHCPCore {
namespace {

using TestSupport::openDescriptors;

/// The errors of a network that can't be used.
constexpr auto unusable = {EADDRNOTAVAIL, ENETDOWN, ENETUNREACH, EHOSTUNREACH};

TransportError failedSend(int code) { return {"send to 255.255.255.255:68", code}; }

TEST(LocalNetworkTest, BlamesTheLinkWhileItIsDown) {
    for (const int code : unusable) {
        SCOPED_TRACE(code);
        EXPECT_EQ(LocalNetwork::classify(failedSend(code), false, false), SendFailure{SendFailure::LinkDown{}});
        EXPECT_EQ(LocalNetwork::classify(failedSend(code), false, true), SendFailure{SendFailure::LinkDown{}});
    }
}

TEST(LocalNetworkTest, BlamesTheMissingAddressWhenTheLinkIsUp) {
    for (const int code : unusable) {
        SCOPED_TRACE(code);
        EXPECT_EQ(LocalNetwork::classify(failedSend(code), true, false), SendFailure{SendFailure::AddressMissing{}});
    }
}

TEST(LocalNetworkTest, SuspectsThePermissionWhenLinkAndAddressAreFine) {
    for (const int code : unusable) {
        SCOPED_TRACE(code);
        EXPECT_EQ(LocalNetwork::classify(failedSend(code), true, true), SendFailure{SendFailure::PossiblyDenied{}});
    }
}

TEST(LocalNetworkTest, PassesAnyOtherErrorOnInItsOwnWords) {
    for (const int code : {EPERM, EACCES, ENOBUFS, EHOSTDOWN, ENETRESET, EADDRINUSE, ENODEV, EBADF, EIO, 0}) {
        SCOPED_TRACE(code);
        const SendFailure other{SendFailure::Other{failedSend(code).description()}};
        for (const bool linkUp : {false, true}) {
            for (const bool addressPresent : {false, true}) {
                EXPECT_EQ(LocalNetwork::classify(failedSend(code), linkUp, addressPresent), other);
            }
        }
    }
}

TEST(LocalNetworkTest, ShowsAnotherErrorAsTheWholeSentence) {
    const SendFailure failure = LocalNetwork::classify(failedSend(EPERM), true, true);
    const auto* const other = std::get_if<SendFailure::Other>(&failure.value);
    ASSERT_NE(other, nullptr);
    EXPECT_EQ(other->text, "send to 255.255.255.255:68 failed: Operation not permitted (errno 1)");
}

TEST(LocalNetworkTest, AsksForThePermissionWithoutLeavingASocketBehind) {
    const auto before = openDescriptors();
    LocalNetwork::triggerAlert(Sockets::loopbackDevice(), IPv4Address::loopback);
    EXPECT_EQ(openDescriptors(), before);
}

TEST(LocalNetworkTest, AsksForThePermissionOfACardThatDoesNotExistInSilence) {
    const auto before = openDescriptors();
    LocalNetwork::triggerAlert("nosuchcard0", IPv4Address::loopback);
    LocalNetwork::triggerAlert("", IPv4Address::loopback);
    LocalNetwork::triggerAlert(std::string(1000, 'x'), IPv4Address::loopback);
    EXPECT_EQ(openDescriptors(), before);
}

} // namespace
} // namespace DHCPCore
