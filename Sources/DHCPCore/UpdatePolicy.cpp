#include "DHCPCore/UpdatePolicy.hpp"

namespace DHCPCore::UpdatePolicy {

bool mayCheck(UpdateCheckKind kind, bool serverRunning) {
    return kind == UpdateCheckKind::userInitiated || !serverRunning;
}

} // namespace DHCPCore::UpdatePolicy
