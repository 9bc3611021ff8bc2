#include "DHCPCore/Sockets.hpp"

#include <array>
#include <cerrno>
#include <fcntl.h>
#include <net/if.h>

namespace DHCPCore::Sockets {

int setNonBlocking(const FileDescriptor& socket) {
    const int flags = ::fcntl(socket.number(), F_GETFL);
    if (flags == -1 || ::fcntl(socket.number(), F_SETFL, flags | O_NONBLOCK) != 0) {
        return errno;
    }
    return 0;
}

std::uint32_t indexOfInterface(const std::string& name) { return ::if_nametoindex(name.c_str()); }

std::optional<std::string> nameOfInterface(std::uint32_t index) {
    std::array<char, IF_NAMESIZE> name{};
    if (::if_indextoname(index, name.data()) == nullptr) {
        return std::nullopt;
    }
    return std::string(name.data());
}

} // namespace DHCPCore::Sockets
