#include "DHCPCore/InterfaceMonitor.hpp"

#include "DHCPCore/Error.hpp"
#include "DHCPCore/FileDescriptor.hpp"
#include "DHCPCore/Linux/Netlink.hpp"

#include <utility>

namespace DHCPCore {

namespace {

/// The kernel's notices of links and IPv4 addresses, heard one by one on a queue.
class Notices : public Subscription {
  public:
    /// @throws Error when the socket can't be watched.
    Notices(SerialQueue& queue, FileDescriptor socket, SerialQueue::Work changed) : socket_(std::move(socket)) {
        // One notice each time: between two of them the queue does what it was asked for meanwhile, such as to stop.
        reading_ = queue.whenReadable(socket_.number(), [this, changed = std::move(changed)] {
            if (Netlink::takeNotice(socket_)) {
                changed(); // nothing of this object after it: it may be gone
            }
        });
    }

  private:
    FileDescriptor socket_;
    std::unique_ptr<Subscription> reading_; // goes before the socket does
};

} // namespace

std::unique_ptr<Subscription> InterfaceMonitor::subscribe(SerialQueue& queue, SerialQueue::Work changed) {
    FileDescriptor socket = Netlink::openNotices();
    if (!socket.isOpen()) {
        return nullptr;
    }
    try {
        return std::make_unique<Notices>(queue, std::move(socket), std::move(changed));
    } catch (const Error&) {
        return nullptr; // no more descriptors can be watched: to the caller as if none could be had
    }
}

} // namespace DHCPCore
