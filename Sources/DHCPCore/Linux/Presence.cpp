#include "DHCPCore/Presence.hpp"

#include "DHCPCore/Linux/Netlink.hpp"

namespace DHCPCore {

ARPTable::Map ARPTable::read() {
    Map map;
    for (const Netlink::Neighbour& neighbour :
         Netlink::parseNeighbours(Netlink::ask(Netlink::Question::neighbours).value_or(Bytes{}))) {
        map.insert_or_assign(neighbour.ip, neighbour.mac);
    }
    return map;
}

} // namespace DHCPCore
