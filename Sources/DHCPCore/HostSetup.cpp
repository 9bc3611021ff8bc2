#include "DHCPCore/HostSetup.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

namespace DHCPCore {

namespace {

constexpr int userCancelled = -128; // the number that scripts give for it

} // namespace

HostSetupError::HostSetupError(std::string message, bool cancellation)
    : Error(std::move(message)), isCancellation(cancellation) {}

HostSetupError::HostSetupError(const ScriptError& error)
    : HostSetupError(error.message.value_or("The command failed."), error.number == userCancelled) {}

bool HostSetupError::operator==(const HostSetupError& other) const {
    return message() == other.message() && isCancellation == other.isCancellation;
}

namespace HostSetup {

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

std::string validatedService(std::string_view service, const std::vector<std::string>& names) {
    if (std::ranges::find(names, service) == names.end()) {
        throw HostSetupError(fmt::format("Unknown network service: {}", service), false);
    }
    return std::string(service);
}

HostSetupError noAdministratorDialog() { return {"Could not prepare the administrator dialog.", false}; }

std::string administratorScript(std::string_view command) {
    std::string escaped;
    for (const char character : command) {
        if (character == '\\' || character == '"') {
            escaped += '\\';
        }
        escaped += character;
    }
    return fmt::format("do shell script \"{}\" with administrator privileges", escaped);
}

} // namespace HostSetup
} // namespace DHCPCore
