#include "DHCPCore/HostSetup.hpp"

#include <fmt/format.h>

namespace DHCPCore::HostSetup {

std::string shellQuote(std::string_view text) {
    std::string word = "'";
    for (const char character : text) {
        // Nothing is special within single quotes but their end: close, an escaped quote, open again.
        if (character == '\'') {
            word += R"('\'')";
        } else {
            word += character;
        }
    }
    return word + "'";
}

std::string setManualCommand(std::string_view service, IPv4Address ip, IPv4Address mask) {
    return fmt::format("{} -setmanual {} {} {}", networksetup, shellQuote(service), ip.description(),
                       mask.description());
}

std::string setDHCPCommand(std::string_view service) {
    return fmt::format("{} -setdhcp {}", networksetup, shellQuote(service));
}

std::string sudoLine(std::string_view command) { return fmt::format("sudo {}", command); }

} // namespace DHCPCore::HostSetup
