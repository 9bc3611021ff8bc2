#include "DHCPCore/Presence.hpp"

#include "DHCPCore/EchoSocket.hpp"
#include "DHCPCore/FileDescriptor.hpp"
#include "DHCPCore/SocketAddress.hpp"
#include "DHCPCore/Sockets.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstddef>
#include <limits>
#include <netinet/in.h>
#include <poll.h>
#include <string_view>
#include <sys/socket.h>
#include <unistd.h>
#include <utility>
#include <variant>

namespace DHCPCore {

namespace {

using Clock = std::chrono::steady_clock;
using Seconds = std::chrono::duration<double>;

// RFC 792, echo or echo reply message.
constexpr std::uint8_t echoRequestType = 8;
constexpr std::uint8_t echoReplyType = 0;
constexpr std::size_t checksumOffset = 2;
constexpr std::size_t identifierOffset = 4;
constexpr std::size_t sequenceOffset = 6;
constexpr std::size_t payloadOffset = 8;
constexpr std::string_view echoPayload = "tarnwick?";

/// The Internet checksum (RFC 1071).
std::uint16_t internetChecksum(std::span<const std::uint8_t> bytes) {
    std::uint32_t sum = 0;
    for (std::size_t index = 0; index < bytes.size(); ++index) {
        sum += index % 2 == 0 ? std::uint32_t{bytes[index]} << 8U : bytes[index];
    }
    while (sum > 0xFFFF) {
        sum = (sum & 0xFFFFU) + (sum >> 16U);
    }
    return static_cast<std::uint16_t>(~sum);
}

/// The ICMP message in a datagram: raw sockets, and datagram sockets of some systems, give it with the IPv4 header
/// (RFC 791, section 3.1). Empty when nothing follows the header.
std::span<const std::uint8_t> icmpMessage(std::span<const std::uint8_t> datagram) {
    if (datagram.empty() || datagram[0] >> 4U != 4) {
        return datagram;
    }
    const std::size_t headerSize = std::size_t{4} * (datagram[0] & 0x0FU);
    return datagram.subspan(std::min(headerSize, datagram.size()));
}

/// What is being waited for on one socket.
struct Attempt {
    struct Echo {
        bool seesEveryReply;
    };
    struct Connect {
        std::uint16_t port;
    };
    FileDescriptor socket;
    std::variant<Echo, Connect> kind;
};

std::string openText(std::uint16_t port) { return fmt::format("tcp {} open", port); }
std::string refusedText(std::uint16_t port) { return fmt::format("tcp {} refused", port); }

/// One probe of one address: the attempts in flight, and the first answer. Its sockets are closed with it.
class Race {
  public:
    Race(IPv4Address ip, std::uint32_t interfaceIndex)
        : ip_(ip), interfaceIndex_(interfaceIndex),
          request_(Prober::echoRequest(static_cast<std::uint16_t>(::getpid()), 1)) {}

    void startEcho() {
        auto echo = openEchoSocket(interfaceIndex_);
        if (!echo) {
            return;
        }
        const sockaddr_in address = socketAddress(ip_, 0);
        if (::sendto(echo->socket.number(), request_.data(), request_.size(), 0,
                     reinterpret_cast<const sockaddr*>(&address), sizeof address) > 0) {
            attempts_.push_back(
                {.socket = std::move(echo->socket), .kind = Attempt::Echo{.seesEveryReply = echo->seesEveryReply}});
        }
    }

    /// @return the answer, when there is one at once.
    std::optional<std::string> startConnect(std::uint16_t port) {
        FileDescriptor socket = Sockets::open(AF_INET, SOCK_STREAM, IPPROTO_TCP);
        if (!socket.isOpen()) {
            return std::nullopt;
        }
        if (interfaceIndex_ != 0) {
            // An untied connect still asks the right device as long as the routes are right.
            static_cast<void>(Sockets::tieToInterface(socket, interfaceIndex_));
        }
        if (Sockets::setNonBlocking(socket) != 0) {
            return std::nullopt; // a connect that blocks would outlast every timeout
        }
        const sockaddr_in address = socketAddress(ip_, port);
        if (::connect(socket.number(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0) {
            return openText(port);
        }
        if (errno == ECONNREFUSED) {
            return refusedText(port); // a refusal proves that somebody is there
        }
        if (errno == EINPROGRESS) {
            attempts_.push_back({.socket = std::move(socket), .kind = Attempt::Connect{.port = port}});
        }
        return std::nullopt;
    }

    /// Waits for the first answer; nothing when none came in time.
    std::optional<std::string> wait(Seconds timeout) {
        while (!attempts_.empty()) {
            const Seconds remaining = timeout - elapsed();
            if (!(remaining.count() > 0)) {
                return std::nullopt;
            }
            std::vector<pollfd> entries;
            for (const Attempt& attempt : attempts_) {
                const bool isEcho = std::holds_alternative<Attempt::Echo>(attempt.kind);
                entries.push_back({.fd = attempt.socket.number(),
                                   .events = static_cast<short>(isEcho ? POLLIN : POLLOUT),
                                   .revents = 0});
            }
            const int ready = ::poll(entries.data(), static_cast<nfds_t>(entries.size()), milliseconds(remaining));
            if (ready == -1 && errno == EINTR) {
                continue;
            }
            if (ready < 1) {
                return std::nullopt;
            }
            if (auto answer = readAnswers(entries)) {
                return answer;
            }
        }
        return std::nullopt;
    }

  private:
    Clock::time_point start_ = Clock::now();
    IPv4Address ip_;
    std::uint32_t interfaceIndex_;
    Bytes request_;
    std::vector<Attempt> attempts_;

    [[nodiscard]] Seconds elapsed() const { return Clock::now() - start_; }

    static int milliseconds(Seconds remaining) {
        constexpr double longest = std::numeric_limits<int>::max();
        return static_cast<int>(std::clamp(remaining.count() * 1000, 1.0, longest));
    }

    /// The first answer among the sockets that have something to tell. Those that failed are dropped.
    std::optional<std::string> readAnswers(const std::vector<pollfd>& entries) {
        std::optional<std::string> answer;
        for (std::size_t index = 0; index < attempts_.size() && !answer; ++index) {
            if (entries[index].revents == 0) {
                continue;
            }
            Attempt& attempt = attempts_[index];
            if (const auto* echo = std::get_if<Attempt::Echo>(&attempt.kind)) {
                answer = readEcho(attempt.socket, echo->seesEveryReply);
            } else if (const auto* connect = std::get_if<Attempt::Connect>(&attempt.kind)) {
                answer = readConnect(attempt.socket, connect->port);
            }
        }
        std::erase_if(attempts_, [](const Attempt& attempt) { return !attempt.socket.isOpen(); });
        return answer;
    }

    [[nodiscard]] std::optional<std::string> readEcho(const FileDescriptor& socket, bool seesEveryReply) const {
        std::array<std::uint8_t, 1024> buffer{};
        sockaddr_in source{};
        socklen_t length = sizeof source;
        const ssize_t count =
            ::recvfrom(socket.number(), buffer.data(), buffer.size(), 0, reinterpret_cast<sockaddr*>(&source), &length);
        if (count < 1 || IPv4Address{ntohl(source.sin_addr.s_addr)} != ip_) {
            return std::nullopt;
        }
        const auto datagram = std::span(buffer).first(static_cast<std::size_t>(count));
        // Elsewhere the system matches replies itself, and puts an identifier of its own into the request.
        const auto expected =
            seesEveryReply ? std::span<const std::uint8_t>(request_) : std::span<const std::uint8_t>{};
        if (!Prober::isEchoReply(datagram, expected)) {
            return std::nullopt;
        }
        return fmt::format("icmp {:.1f} ms", elapsed().count() * 1000);
    }

    /// Closes the socket when the connect failed without showing that somebody is there.
    static std::optional<std::string> readConnect(FileDescriptor& socket, std::uint16_t port) {
        int error = 0;
        socklen_t length = sizeof error;
        if (::getsockopt(socket.number(), SOL_SOCKET, SO_ERROR, &error, &length) != 0) {
            error = errno;
        }
        if (error == 0) {
            return openText(port);
        }
        if (error == ECONNREFUSED) {
            return refusedText(port);
        }
        socket.close();
        return std::nullopt;
    }
};

std::optional<std::string> firstAnswer(const Prober& prober, IPv4Address ip, Seconds timeout) {
    Race race(ip, Sockets::indexOfInterface(prober.interfaceName));
    race.startEcho();
    for (const std::uint16_t port : prober.tcpPorts) {
        if (auto answer = race.startConnect(port)) {
            return answer;
        }
    }
    return race.wait(timeout);
}

} // namespace

ProbeResult Prober::probe(IPv4Address ip, std::chrono::duration<double> timeout) const {
    const auto answer = firstAnswer(*this, ip, timeout);
    return {.answered = answer.has_value(), .detail = answer.value_or("no answer")};
}

Bytes Prober::echoRequest(std::uint16_t identifier, std::uint16_t sequence) {
    Bytes message(payloadOffset + echoPayload.size());
    const auto put = [&message](std::size_t offset, const auto& bytes) {
        std::ranges::copy(bytes, message.begin() + static_cast<std::ptrdiff_t>(offset));
    };
    message[0] = echoRequestType;
    put(identifierOffset, bigEndianBytes(identifier));
    put(sequenceOffset, bigEndianBytes(sequence));
    put(payloadOffset, echoPayload);
    put(checksumOffset, bigEndianBytes(internetChecksum(message)));
    return message;
}

bool Prober::isEchoReply(std::span<const std::uint8_t> datagram, std::span<const std::uint8_t> request) {
    const auto message = icmpMessage(datagram);
    if (message.empty() || message[0] != echoReplyType) {
        return false;
    }
    if (request.empty()) {
        return true;
    }
    constexpr std::size_t size = payloadOffset - identifierOffset;
    return message.size() >= payloadOffset && request.size() >= payloadOffset &&
           std::ranges::equal(message.subspan(identifierOffset, size), request.subspan(identifierOffset, size));
}

PresenceState PresenceClassifier::classify(const std::optional<ProbeResult>& probe,
                                           const std::optional<MACAddress>& arpMAC, const MACAddress& leaseMAC,
                                           bool linkUp) {
    if (!linkUp) {
        return PresenceState::offline;
    }
    if (!probe) {
        return PresenceState::unknown;
    }
    if (!probe->answered) {
        return PresenceState::offline;
    }
    return !arpMAC || *arpMAC == leaseMAC ? PresenceState::online : PresenceState::conflict;
}

} // namespace DHCPCore
