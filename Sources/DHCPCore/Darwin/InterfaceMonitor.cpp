#include "DHCPCore/InterfaceMonitor.hpp"

#include "DHCPCore/Darwin/CoreFoundation.hpp"

#include <SystemConfiguration/SystemConfiguration.h>
#include <dispatch/dispatch.h>
#include <utility>

namespace DHCPCore {

namespace {

using CoreFoundation::arrayOf;
using CoreFoundation::owned;

/// What a notification finds: the way to the monitor's queue, and the work, unless that was dropped.
struct Listener {
    std::function<void(SerialQueue::Work)> post;
    std::weak_ptr<const SerialQueue::Work> changed;
};

void notified(SCDynamicStoreRef, CFArrayRef, void* info) {
    const auto* const listener = static_cast<const Listener*>(info);
    listener->post([weak = listener->changed] {
        if (const auto changed = weak.lock()) { // held until it has returned: it may drop the subscription
            (*changed)();
        }
    });
}

struct ReleaseQueue {
    void operator()(dispatch_queue_t queue) const { dispatch_release(queue); }
};
using DispatchQueue = std::unique_ptr<dispatch_queue_s, ReleaseQueue>;

/// The system's own queue, which passes notifications on. It owns the listener: as long as a notification is under way,
/// somebody holds the queue, and the listener is there.
DispatchQueue makeQueue(std::unique_ptr<Listener> listener) {
    DispatchQueue queue(dispatch_queue_create("tarnwick.interfaces", DISPATCH_QUEUE_SERIAL));
    if (queue) {
        dispatch_set_finalizer_f(queue.get(), [](void* context) { delete static_cast<Listener*>(context); });
        dispatch_set_context(queue.get(), listener.release());
    }
    return queue;
}

CoreFoundation::Owned<SCDynamicStoreRef> makeStore(void* info) {
    SCDynamicStoreContext context{
        .version = 0, .info = info, .retain = nullptr, .release = nullptr, .copyDescription = nullptr};
    auto store = owned(SCDynamicStoreCreate(nullptr, CFSTR("Tarnwick"), notified, &context));
    if (!store) {
        return nullptr;
    }
    const auto keys = arrayOf({CFSTR("State:/Network/Interface")});
    const auto patterns =
        arrayOf({CFSTR("State:/Network/Interface/[^/]+/Link"), CFSTR("State:/Network/Interface/[^/]+/IPv4"),
                 CFSTR("Setup:/Network/Service/[^/]+/IPv4")});
    return SCDynamicStoreSetNotificationKeys(store.get(), keys.get(), patterns.get()) != 0 ? std::move(store) : nullptr;
}

/// A connection to the dynamic store that tells of changes until it is destroyed.
class Notifications : public Subscription {
  public:
    Notifications(std::shared_ptr<const SerialQueue::Work> changed, DispatchQueue queue,
                  CoreFoundation::Owned<SCDynamicStoreRef> store)
        : changed_(std::move(changed)), queue_(std::move(queue)), store_(std::move(store)) {}
    Notifications(const Notifications&) = delete;
    Notifications& operator=(const Notifications&) = delete;
    Notifications(Notifications&&) = delete;
    Notifications& operator=(Notifications&&) = delete;
    ~Notifications() override { SCDynamicStoreSetDispatchQueue(store_.get(), nullptr); }

  private:
    std::shared_ptr<const SerialQueue::Work> changed_; // what a notification still under way finds gone
    DispatchQueue queue_;                              // goes after the store that delivers to it
    CoreFoundation::Owned<SCDynamicStoreRef> store_;
};

} // namespace

std::unique_ptr<Subscription> InterfaceMonitor::subscribe(SerialQueue& queue, SerialQueue::Work changed) {
    auto work = std::make_shared<const SerialQueue::Work>(std::move(changed));
    auto passing = makeQueue(std::make_unique<Listener>(Listener{.post = queue.remote(), .changed = work}));
    if (!passing) {
        return nullptr;
    }
    auto store = makeStore(dispatch_get_context(passing.get()));
    if (!store || SCDynamicStoreSetDispatchQueue(store.get(), passing.get()) == 0) {
        return nullptr;
    }
    return std::make_unique<Notifications>(std::move(work), std::move(passing), std::move(store));
}

} // namespace DHCPCore
