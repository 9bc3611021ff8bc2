// Answers every DISCOVER and REQUEST at once with a minimal OFFER or ACK and remembers nothing: how fast any DHCP
// server could be that answers through the same sockets, and, where it replaces a file, one that writes one at each
// ACK.
#include "Arguments.hpp"
#include "Clients.hpp"
#include "DHCPCore/Addresses.hpp"
#include "DHCPCore/FileDescriptor.hpp"
#include "DHCPCore/Packet.hpp"
#include "DHCPCore/SocketAddress.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <fcntl.h>
#include <limits>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <sys/socket.h>
#include <system_error>
#include <unistd.h>
#include <utility>
#include <vector>

namespace {

using namespace DHCPCore;
using namespace DHCPLoad;

constexpr std::string_view usage = R"(usage:
  dhcp-echo WHERE [--first 10.77.1.0] [--replace FILE --size BYTES] [--drain]
WHERE: --iface CARD --server ADDRESS, or --loopback [--port 6767] [--client-port 6868]
--replace: writes a file anew at each ACK, before the ACK; --drain: once for all messages that wait together.)";

[[noreturn]] void fail(const std::string& deed) { throw std::system_error(errno, std::generic_category(), deed); }

/// A file of one size that is written beside its place and moved there.
class Replacement {
  public:
    Replacement(std::string file, std::size_t size)
        : file_(std::move(file)), other_(file_ + ".new"), content_(size, 'x') {}

    void perform() const {
        const FileDescriptor descriptor{
            ::open(other_.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, S_IRUSR | S_IWUSR)};
        if (!descriptor.isOpen()) {
            fail("opening " + other_);
        }
        errno = writeAll(descriptor.number(), content_);
        if (errno != 0 || std::rename(other_.c_str(), file_.c_str()) != 0) {
            fail("replacing " + file_);
        }
    }

  private:
    std::string file_;
    std::string other_;
    std::string content_;
};

struct Setting {
    std::string card; ///< Empty on loopback.
    IPv4Address server = IPv4Address::loopback;
    IPv4Address first; ///< The address of client 0.
    std::uint16_t port = 67;
    std::uint16_t clientPort = 68;
    std::optional<Replacement> replacement;
    bool drains = false;
};

class Echo {
  public:
    explicit Echo(Setting setting)
        : setting_(std::move(setting)), socket_(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
        constexpr int yes = 1;
        const bool isOnCard = !setting_.card.empty();
        const sockaddr_in own = socketAddress(isOnCard ? IPv4Address::zero : setting_.server, setting_.port);
        if (isOnCard && (::setsockopt(socket_.number(), SOL_SOCKET, SO_BROADCAST, &yes, sizeof yes) != 0 ||
                         ::setsockopt(socket_.number(), SOL_SOCKET, SO_BINDTODEVICE, setting_.card.c_str(),
                                      static_cast<socklen_t>(setting_.card.size())) != 0)) {
            fail("using " + setting_.card);
        }
        if (::bind(socket_.number(), reinterpret_cast<const sockaddr*>(&own), sizeof own) != 0) {
            fail("binding");
        }
        client_ = socketAddress(isOnCard ? IPv4Address::broadcast : setting_.server, setting_.clientPort);
    }

    /// Until a signal ends the process.
    [[noreturn]] void run() {
        for (;;) {
            if (receive(0)) {
                for (std::size_t count = 1; setting_.drains && count < mostAtOnce && receive(MSG_DONTWAIT); ++count) {
                }
                answerAll();
            }
        }
    }

  private:
    static constexpr std::size_t mostAtOnce = 64;

    /// Takes one datagram. @return whether one was there.
    bool receive(int flags) {
        const ssize_t count = ::recv(socket_.number(), buffer_.data(), buffer_.size(), flags);
        if (count < 0) {
            if (errno != EAGAIN && errno != EINTR && errno != ECONNREFUSED) {
                fail("receiving");
            }
            return false;
        }
        try {
            answer(DHCPPacket::parse(std::span(buffer_).first(static_cast<std::size_t>(count))));
        } catch (const PacketError&) {
            return true; // nothing to answer
        }
        return true;
    }

    /// Prepares the answer.
    void answer(const DHCPPacket& request) {
        constexpr std::uint8_t bootRequest = 1;
        constexpr std::uint8_t bootReply = 2;
        const auto type = request.messageType();
        const auto mac = request.mac();
        const auto client = mac ? clientOfMAC(*mac) : std::nullopt;
        if (request.op != bootRequest || !client ||
            (type != DHCPMessageType::discover && type != DHCPMessageType::request)) {
            return;
        }
        DHCPPacket reply;
        reply.op = bootReply;
        reply.xid = request.xid;
        reply.flags = request.flags;
        reply.chaddr = request.chaddr;
        reply.yiaddr = IPv4Address{setting_.first.value + *client};
        const bool isACK = type == DHCPMessageType::request;
        reply.setOption(OptionCode::messageType,
                        std::array{static_cast<std::uint8_t>(isACK ? DHCPMessageType::ack : DHCPMessageType::offer)});
        reply.setOption(OptionCode::serverID, setting_.server.bytes());
        reply.setOption(OptionCode::leaseTime, bigEndianBytes(std::uint32_t{86400}));
        mustReplace_ = mustReplace_ || isACK;
        replies_.push_back(reply.serialize(DHCPPacket::minimumReplyLength));
    }

    void answerAll() {
        if (std::exchange(mustReplace_, false) && setting_.replacement) {
            setting_.replacement->perform();
        }
        for (const Bytes& reply : replies_) {
            ::sendto(socket_.number(), reply.data(), reply.size(), 0, reinterpret_cast<const sockaddr*>(&client_),
                     sizeof client_);
        }
        replies_.clear();
    }

    Setting setting_;
    FileDescriptor socket_;
    sockaddr_in client_{};
    std::array<std::uint8_t, 2048> buffer_{};
    std::vector<Bytes> replies_;
    bool mustReplace_ = false;
};

Setting settingFrom(const Arguments& arguments) {
    constexpr std::uint32_t highestPort = std::numeric_limits<std::uint16_t>::max();
    constexpr std::uint32_t largestFile = 1U << 28U;
    Setting setting;
    setting.first = arguments.address("--first", {10, 77, 1, 0});
    setting.drains = arguments.has("--drain");
    if (const auto file = arguments.text("--replace")) {
        setting.replacement.emplace(*file, arguments.number("--size", 0, 0, largestFile));
    }
    if (arguments.has("--loopback")) {
        setting.port = static_cast<std::uint16_t>(arguments.number("--port", 6767, 1, highestPort));
        setting.clientPort = static_cast<std::uint16_t>(arguments.number("--client-port", 6868, 1, highestPort));
    } else {
        setting.card = arguments.requiredText("--iface");
        setting.server = arguments.address("--server", {10, 77, 0, 1});
    }
    return setting;
}

} // namespace

int main(int argumentCount, char** arguments) {
    try {
        const std::vector<std::string> words(arguments + 1, arguments + argumentCount);
        Echo(settingFrom({words,
                          {"--loopback", "--drain"},
                          {"--iface", "--server", "--port", "--client-port", "--first", "--replace", "--size"}}))
            .run();
    } catch (const UsageError& error) {
        fmt::print(stderr, "dhcp-echo: {}\n{}\n", error.what(), usage);
        return 2;
    } catch (const std::exception& error) {
        fmt::print(stderr, "dhcp-echo: {}\n", error.what());
        return EXIT_FAILURE;
    }
}
