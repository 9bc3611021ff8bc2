#pragma once

#include "DHCPCore/Queue.hpp"

#include <functional>
#include <memory>

namespace DHCPCore {

/// Tells its owner that something about the host's cards changed: a card came or went, a link went up or down, an IPv4
/// address or the way it is configured changed. What changed is not told: the owner asks `Interfaces::list()` again.
///
/// All of its work is done on its serial queue "tarnwick.interfaces", in the network of the thread that made it. Any
/// thread may call it, the callback included, and may drop it there.
class InterfaceMonitor {
  public:
    /// Does not start yet. The callback is called on the queue, one call at a time, and must not throw.
    explicit InterfaceMonitor(std::function<void()> onChange);
    InterfaceMonitor(const InterfaceMonitor&) = delete;
    InterfaceMonitor& operator=(const InterfaceMonitor&) = delete;
    InterfaceMonitor(InterfaceMonitor&&) = delete;
    InterfaceMonitor& operator=(InterfaceMonitor&&) = delete;
    /// Stops.
    ~InterfaceMonitor();

    /// Begins to call, once for each notification of the system: a burst of changes is a burst of calls. Where the
    /// system refuses, nothing is monitored, and nothing is said. Started already, it begins anew.
    void start();

    /// No call begins after this has returned; one that is running is waited for, except by itself. Harmless when not
    /// started. It may be started again.
    void stop();

  private:
    std::shared_ptr<const std::function<void()>> onChange_; // shared with a running call, which may drop this
    SerialQueue queue_;
    std::unique_ptr<Subscription> store_; // present while monitoring; touched on the queue only

    /// Has the system tell of changes: the work is run on the queue, once for each notification, until the subscription
    /// is destroyed. Called on the queue, and the subscription is destroyed there, maybe by the work itself; the work
    /// is kept until it has returned.
    /// @return nothing when the system refuses. (Linux/, Darwin/)
    [[nodiscard]] static std::unique_ptr<Subscription> subscribe(SerialQueue& queue, SerialQueue::Work changed);
};

} // namespace DHCPCore
