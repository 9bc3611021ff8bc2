#include "networksetup/Printable.hpp"

#include "DHCPCore/UTF8.hpp"

#include <cstddef>

namespace NetworkSetup {

std::string printable(std::string_view text) {
    const std::string repaired = DHCPCore::repairedUTF8(text);
    std::string shown;
    for (std::size_t index = 0; index < repaired.size(); ++index) {
        const auto byte = static_cast<unsigned char>(repaired[index]);
        // U+0080 to U+009F are 0xC2 and their own number; valid UTF-8 has a byte after every 0xC2.
        const bool isC1 = byte == 0xC2 && static_cast<unsigned char>(repaired[index + 1]) < 0xA0;
        if (isC1) {
            ++index;
        } else if (byte >= 0x20 && byte != 0x7F) {
            shown += repaired[index];
        }
    }
    return shown;
}

} // namespace NetworkSetup
