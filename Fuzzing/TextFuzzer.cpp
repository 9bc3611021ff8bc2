#include "DHCPCore/Addresses.hpp"
#include "DHCPCore/Config.hpp"
#include "DHCPCore/Date.hpp"
#include "DHCPCore/EventLog.hpp"
#include "DHCPCore/HostSetup.hpp"
#include "DHCPCore/Interfaces.hpp"
#include "DHCPCore/TextPieces.hpp"
#include "DHCPCore/UTF8.hpp"
#include "Fuzzing/Fuzzing.hpp"
#include "tarnwick/CommandLine.hpp"

#include <array>
#include <chrono>
#include <functional>
#include <limits>
#include <string>
#include <vector>

using namespace DHCPCore; // NOLINT(google-build-using-namespace): a program of small functions

namespace {

using Fuzzing::require;

bool consistsOf(const std::string& text, std::string_view characters) {
    return text.find_first_not_of(characters) == std::string::npos;
}

void checkAddress(const std::string& text) {
    const auto address = IPv4Address::parse(text);
    if (!address) {
        return;
    }
    require(text.size() <= 15 && consistsOf(text, "0123456789."), "an address is digits and dots");
    require(IPv4Address::parse(address->description()) == address, "a shown address is read again");
    require(IPv4Address::fromBytes(address->bytes()) == address, "an address comes back from its bytes");
}

void checkHardwareAddress(const std::string& text) {
    const auto mac = MACAddress::parse(text);
    if (!mac) {
        return;
    }
    require(text.size() == 17 && consistsOf(text, "0123456789abcdefABCDEF:"), "a hardware address is pairs of digits");
    require(MACAddress::parse(mac->description()) == mac, "a shown hardware address is read again");
}

void checkSubnet(const std::string& text) {
    const auto subnet = Subnet::parse(text);
    if (!subnet) {
        return;
    }
    const auto shown = Subnet::parse(subnet->description());
    require(shown && shown->network() == subnet->network() && shown->prefixLength == subnet->prefixLength,
            "a shown subnet is read again");
    require(subnet->contains(subnet->address) && subnet->contains(subnet->broadcast()), "a subnet has its addresses");
    require(subnet->overlaps(*shown), "a subnet overlaps itself");
}

void checkMask(const std::string& text) {
    const auto mask = IPv4Address::parse(text);
    const auto length = mask ? Subnet::prefixLengthOfMask(*mask) : std::nullopt;
    if (length) {
        require(Subnet::make(*mask, *length).value().mask() == *mask, "a mask comes back from its length");
    }
}

void checkDuration(const std::string& text) {
    if (const auto seconds = parseDuration(text)) {
        require(consistsOf(text, "0123456789smhd"), "a duration is digits and a unit");
        require(parseDuration(std::to_string(*seconds)) == seconds, "a duration in seconds is read again");
        require(!formatDuration(*seconds).empty(), "a duration can be shown");
    }
}

void checkDate(const std::string& text) {
    const auto date = parseISO8601(text);
    if (!date) {
        return;
    }
    const std::string written = iso8601(*date);
    const auto again = parseISO8601(written);
    require(again && iso8601(*again) == written, "a written date is read again");
    require(!EventLog::timestamp(*date, TimeZone::utc()).empty(), "a date has a time of day");
}

void checkNumber(const std::string& text) {
    const auto wide = parseDecimal<std::int64_t>(text);
    const auto narrow = parseDecimal<std::uint16_t>(text);
    const bool fits = wide && *wide >= 0 && *wide <= std::numeric_limits<std::uint16_t>::max();
    require(fits ? narrow == static_cast<std::uint16_t>(*wide) : !narrow, "a number is read by every type it fits in");
}

/// One argument on each line.
void checkCommandLine(const std::string& text) {
    std::vector<std::string> arguments;
    for (const std::string_view piece : splitKeepingEmpty(text, '\n')) {
        arguments.emplace_back(piece);
    }
    try {
        const Tarnwick::ServeOptions options = Tarnwick::parseServe(arguments);
        for (const ConfigError& error : options.config.validate()) {
            require(!error.description().empty(), "a fault has its sentence");
        }
    } catch (const Tarnwick::CLIError& error) {
        require(!error.description().empty(), "an error has its sentence");
    }
}

/// What a shell makes of a word in single quotes, with quotes behind a backslash between them; nothing for other words.
std::optional<std::string> unquoted(std::string_view word) {
    std::string text;
    bool quoted = false;
    for (std::size_t index = 0; index < word.size(); ++index) {
        if (word[index] == '\'') {
            quoted = !quoted;
        } else if (quoted) {
            text += word[index];
        } else if (word[index] == '\\' && index + 1 < word.size()) {
            text += word[++index];
        } else {
            return std::nullopt;
        }
    }
    return quoted ? std::nullopt : std::optional{text};
}

void checkQuoting(const std::string& text) {
    require(unquoted(HostSetup::shellQuote(text)) == text, "a shell reads a quoted word as it was");
}

void checkUTF8(const std::string& text) {
    const std::string repaired = repairedUTF8(text);
    for (std::string_view rest = repaired; !rest.empty();) {
        const std::size_t length = characterLength(rest);
        require(length > 0, "a repaired text is UTF-8");
        rest.remove_prefix(length);
    }
    require(repairedUTF8(repaired) == repaired, "a repaired text needs no repair");
}

void checkLine(const std::string& text) {
    const std::string line = EventLog::line("info", text, Date{}, TimeZone::utc());
    require(Fuzzing::isOneCleanLine(line), "an event's line is one line");
    require(repairedUTF8(line) == line, "an event's line is UTF-8");
    const auto json = EventLog::json({ServerEvent::Info{text}}, Date{});
    require(json && Fuzzing::isOneCleanLine(*json) && repairedUTF8(*json) == *json, "an event's JSON is one line");
}

void checkScriptError(const std::string& text) {
    const auto error = ScriptError::parse(text);
    if (!error) {
        return;
    }
    const std::string message = HostSetupError(*error).message();
    require(error->message ? message == *error->message : !message.empty(), "a failed script has its sentence");
    if (error->message) {
        const std::string number = error->number ? " (" + std::to_string(*error->number) + ")" : "";
        require(text.find(*error->message) != std::string::npos, "a script's message is its own");
        require(ScriptError::parse("0:1: execution error: " + *error->message + number + "\n") == error,
                "a script's error is read again");
    }
}

constexpr std::array checks{checkAddress, checkHardwareAddress, checkSubnet,      checkMask,    checkDuration,
                            checkDate,    checkNumber,          checkCommandLine, checkQuoting, checkUTF8,
                            checkLine,    checkScriptError};

} // namespace

/// A letter that says who reads it, "a" for the first of the checks; then the text.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Fuzzing::Input input{data, size};
    const std::size_t reader = input.byte() % 32U;
    if (reader >= 1 && reader <= checks.size()) {
        checks.at(reader - 1)(input.text());
    }
    return 0;
}
