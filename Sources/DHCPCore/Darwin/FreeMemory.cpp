#include "DHCPCore/FreeMemory.hpp"

#include <malloc/malloc.h>

namespace DHCPCore {

void giveBackFreeMemory() { ::malloc_zone_pressure_relief(nullptr, 0); }

} // namespace DHCPCore
