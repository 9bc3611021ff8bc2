#include "DHCPCore/FileDescriptor.hpp"
#include "DHCPCore/Interfaces.hpp"
#include "DHCPCore/Sockets.hpp"

#include <algorithm>
#include <cstring>
#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/sockio.h>

namespace DHCPCore::Interfaces {

MediaStatus mediaStatus(const std::string& name) {
    const FileDescriptor socket = Sockets::open(AF_INET, SOCK_DGRAM, 0);
    if (!socket.isOpen()) {
        return {};
    }
    ifmediareq request{};
    std::memcpy(static_cast<char*>(request.ifm_name), name.data(),
                std::min(name.size(), sizeof request.ifm_name - 1)); // the last byte stays zero
    if (::ioctl(socket.number(), SIOCGIFMEDIA, &request) != 0) {
        return {};
    }
    return mediaStatusOf(request.ifm_status, request.ifm_active);
}

} // namespace DHCPCore::Interfaces
