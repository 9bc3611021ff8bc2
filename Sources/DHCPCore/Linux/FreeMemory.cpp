#include "DHCPCore/FreeMemory.hpp"

#include <malloc.h>

namespace DHCPCore {

void giveBackFreeMemory() {
#ifdef __GLIBC__ // other libraries give it back by themselves
    ::malloc_trim(0);
#endif
}

} // namespace DHCPCore
