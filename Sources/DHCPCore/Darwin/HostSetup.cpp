#include "DHCPCore/HostSetup.hpp"

#include "DHCPCore/Darwin/NetworkPreferences.hpp"
#include "DHCPCore/ProcessRunner.hpp"

namespace DHCPCore::HostSetup {

std::vector<std::string> knownServiceNames() { return NetworkServices::names(NetworkPreferences::services()); }

void runAsAdministrator(const std::string& command) {
    if (command.find('\0') != std::string::npos) { // a part of it would be run
        throw noAdministratorDialog();
    }
    const auto output = ProcessRunner::run("/usr/bin/osascript", {"-e", administratorScript(command)});
    if (output.status == 0) {
        return;
    }
    if (output.status == ProcessRunner::unknownEnd) {
        throw HostSetupError("The command ended, but how is not known.", false);
    }
    const auto error = ScriptError::parse(output.text);
    throw output.status != ProcessRunner::notLaunched && error ? HostSetupError(*error) : noAdministratorDialog();
}

} // namespace DHCPCore::HostSetup
