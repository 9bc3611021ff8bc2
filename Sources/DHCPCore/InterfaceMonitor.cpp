#include "DHCPCore/InterfaceMonitor.hpp"

#include <utility>

namespace DHCPCore {

InterfaceMonitor::InterfaceMonitor(std::function<void()> onChange)
    : onChange_(std::make_shared<const std::function<void()>>(std::move(onChange))), queue_("tarnwick.interfaces") {}

InterfaceMonitor::~InterfaceMonitor() { stop(); }

void InterfaceMonitor::start() {
    queue_.sync([this] {
        if (auto store = subscribe(queue_, [onChange = onChange_] { (*onChange)(); })) {
            store_ = std::move(store);
        }
    });
}

void InterfaceMonitor::stop() {
    queue_.sync([this] { store_.reset(); });
}

} // namespace DHCPCore
