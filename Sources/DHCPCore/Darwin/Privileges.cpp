#include "DHCPCore/Privileges.hpp"

namespace DHCPCore::Privileges {

// There is nothing to give up: serving needs no rights here, and root's can't be divided.
int keepOnlyThoseForServing() { return 0; }

} // namespace DHCPCore::Privileges
