#include "DHCPCore/HostSetup.hpp"

#include "DHCPCore/TextPieces.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

namespace DHCPCore {

namespace {

constexpr int userCancelled = -128; // the number that scripts give for it

} // namespace

std::optional<ScriptError> ScriptError::parse(std::string_view output) {
    constexpr std::string_view executionMark = ": execution error: ";
    constexpr std::string_view syntaxMark = ": syntax error: ";
    const auto execution = output.find(executionMark);
    if (output.find(syntaxMark) < execution) { // behind the other mark it is the command's own words
        return std::nullopt;
    }
    if (execution == std::string_view::npos) {
        return ScriptError{};
    }
    std::string_view message = output.substr(execution + executionMark.size());
    message = message.substr(0, message.find_last_not_of('\n') + 1); // npos + 1 is 0
    ScriptError error;
    const auto opening = message.rfind(" (");
    if (opening != std::string_view::npos && message.ends_with(')')) {
        error.number = parseDecimal<int>(message.substr(opening + 2, message.size() - opening - 3));
    }
    error.message = error.number ? message.substr(0, opening) : message;
    return error;
}

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
