#pragma once

#include "DHCPCore/Addresses.hpp"
#include "DHCPCore/Error.hpp"

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace DHCPCore {

/// What a failed script reports in its dictionary of errors; an entry of another type is absent.
struct ScriptError {
    std::optional<std::string> message;
    std::optional<int> number; ///< -128 when the user dismissed the dialog.

    /// Reads what osascript(1) prints when a script fails, as in "0:52: execution error: User canceled. (-128)".
    /// @return nothing when it prints that it could not compile the script; no entries for any other text. Pure.
    [[nodiscard]] static std::optional<ScriptError> parse(std::string_view output);

    bool operator==(const ScriptError&) const = default;
};

/// Why a command was not carried out. The message is the sentence for the user.
class HostSetupError : public Error {
  public:
    HostSetupError(std::string message, bool isCancellation);
    explicit HostSetupError(const ScriptError& error);

    bool isCancellation; ///< The user dismissed the authorisation dialog.

    [[nodiscard]] const std::string& message() const { return description(); }
    bool operator==(const HostSetupError& other) const;
};

/// The commands that give a card the server's address, and the rights to run them.
namespace HostSetup {

/// The program that configures a network service.
inline constexpr std::string_view networksetup = "/usr/sbin/networksetup";

/// The text as one single-quoted shell word.
[[nodiscard]] std::string shellQuote(std::string_view text);

/// Sets address and mask of a service, no router.
[[nodiscard]] std::string setManualCommand(std::string_view service, IPv4Address ip, IPv4Address mask);

/// Returns a service to DHCP.
[[nodiscard]] std::string setDHCPCommand(std::string_view service);

/// The command as a user types it who needs administrator rights for it.
[[nodiscard]] std::string sudoLine(std::string_view command);

/// The names of the host's network services, enabled or not, in system order. May run other programs. (Linux/,
/// Darwin/)
[[nodiscard]] std::vector<std::string> knownServiceNames();

/// The name, when it is exactly one of those given.
/// @throws HostSetupError when it is not.
[[nodiscard]] std::string validatedService(std::string_view service, const std::vector<std::string>& names);

/// Runs one shell command line with administrator rights, through the system's own dialog. Blocks until the user has
/// answered and the command has ended; what the command prints is not kept when it succeeds. (Linux/, Darwin/)
/// @throws HostSetupError when the user dismisses the dialog or is refused, when there is no dialog, and when the
///         command fails, with the command's own words.
void runAsAdministrator(const std::string& command);

/// The error of a system without a way to ask for administrator rights.
[[nodiscard]] HostSetupError noAdministratorDialog();

/// The AppleScript that runs a shell command line with administrator rights. Pure.
[[nodiscard]] std::string administratorScript(std::string_view command);

} // namespace HostSetup
} // namespace DHCPCore
