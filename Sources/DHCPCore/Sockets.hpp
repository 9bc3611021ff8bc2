#pragma once

#include "DHCPCore/Addresses.hpp"
#include "DHCPCore/FileDescriptor.hpp"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>

struct msghdr;

/// What sockets need of the host beyond what every system names alike. Unless it says
/// otherwise, a function that returns an `int` gives 0, or the error number of the system call that was refused.
namespace DHCPCore::Sockets {

/// Opens a socket that is close-on-exec and never raises SIGPIPE; not open on failure, with `errno` saying why.
/// (Linux/, Darwin/)
[[nodiscard]] FileDescriptor open(int domain, int type, int protocol);

[[nodiscard]] int setNonBlocking(const FileDescriptor& socket);

/// The card's index; 0 when there is no such card.
[[nodiscard]] std::uint32_t indexOfInterface(const std::string& name);
/// The card's name; nothing when no card has that index.
[[nodiscard]] std::optional<std::string> nameOfInterface(std::uint32_t index);

/// The loopback device as this host calls it; "lo0" in everything that a user sees. (Linux/, Darwin/)
[[nodiscard]] std::string loopbackDevice();

/// Ties the socket to one card, so that it sends and receives through that card only. (Linux/, Darwin/)
[[nodiscard]] int tieToInterface(const FileDescriptor& socket, std::uint32_t index);

/// Has every datagram come with the card on which it arrived. (Linux/, Darwin/)
[[nodiscard]] int reportArrivalInterface(const FileDescriptor& socket);

/// The arrival card's index from the control bytes that came with a datagram; nothing when they don't tell. Any bytes
/// are welcome. (Linux/, Darwin/)
[[nodiscard]] std::optional<std::uint32_t> arrivalInterface(std::span<const std::uint8_t> control);

/// Waits so long for something to read. @return whether there is something. (Linux/, Darwin/)
[[nodiscard]] bool awaitReadable(const FileDescriptor& socket, std::chrono::nanoseconds patience);

constexpr std::size_t mostReceivedAtOnce = 16; ///< More would save little, and take room.

/// Receives datagrams that wait, one for each message at most, and not always all of them; `EAGAIN` when there is none.
/// An error that comes after some is left for the next call. (Linux/, Darwin/)
/// @param messages from one to `mostReceivedAtOnce`, as for recvmsg(2).
/// @param sizes as many: the sizes of the datagrams.
/// @return how many; -1 on failure, with `errno` saying why.
[[nodiscard]] int receive(const FileDescriptor& socket, std::span<msghdr> messages, std::span<std::size_t> sizes);

/// The destination of a datagram, and where it must come from.
struct Route {
    IPv4Address destination;
    std::uint16_t port = 0;
    std::uint32_t interfaceIndex = 0;  ///< The card to leave by.
    std::optional<IPv4Address> source; ///< Absent: the system chooses.
};

/// Whether the card itself holds the address now: systems are content with a source address of any card. False when
/// the system does not tell. (Linux/, Darwin/)
[[nodiscard]] bool holdsAddress(const FileDescriptor& socket, std::uint32_t interfaceIndex, IPv4Address address);

/// Sends one datagram whole. The card must hold the source address (see `holdsAddress`); one that the whole host lacks
/// is EADDRNOTAVAIL or ENETUNREACH where the system notices. (Linux/, Darwin/)
[[nodiscard]] int send(const FileDescriptor& socket, std::span<const std::uint8_t> bytes, const Route& route);

} // namespace DHCPCore::Sockets
