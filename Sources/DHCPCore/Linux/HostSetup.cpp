#include "DHCPCore/HostSetup.hpp"

#include "DHCPCore/Interfaces.hpp"
#include "DHCPCore/ProcessRunner.hpp"
#include "DHCPCore/TextPieces.hpp"

#include <algorithm>
#include <cstdlib>
#include <unistd.h>

namespace DHCPCore::HostSetup {

namespace {

// What pkexec(1) ends with when it did not run the program; else it ends as the program does.
constexpr int dismissed = 126;
constexpr int refused = 127;

/// Runs its first argument as a shell command line. A command that fails ends as 1, so that its own 126 and 127 are not
/// taken for those of pkexec.
constexpr const char* runner = R"(/bin/sh -c -- "$1" || exit 1)";

/// The first program of that name in the folders of PATH; relative folders are left out.
std::optional<std::string> programNamed(const std::string& name) {
    const char* const path = std::getenv("PATH"); // NOLINT(concurrency-mt-unsafe): nobody here changes it
    for (const std::string_view folder : splitDroppingEmpty(path == nullptr ? "/usr/bin:/bin" : path, ':')) {
        std::string program = std::string(folder) + "/" + name;
        if (folder.starts_with('/') && ::access(program.c_str(), X_OK) == 0) {
            return program;
        }
    }
    return std::nullopt;
}

std::string trimmed(const std::string& text) {
    constexpr std::string_view blanks = " \t\r\n";
    const auto first = text.find_first_not_of(blanks);
    return first == std::string::npos ? "" : text.substr(first, text.find_last_not_of(blanks) - first + 1);
}

HostSetupError errorOf(const ProcessRunner::Output& output) {
    const std::string text = trimmed(output.text);
    const auto orIfSilent = [&text](const char* words) { return text.empty() ? words : text; };
    if (output.status == dismissed) {
        return {orIfSilent("The administrator dialog was dismissed."), true};
    }
    if (output.status == refused) {
        return {orIfSilent("Administrator rights were refused."), false};
    }
    if (output.status == ProcessRunner::unknownEnd) {
        return {orIfSilent("The command ended, but how is not known."), false};
    }
    return {orIfSilent("The command failed."), false};
}

} // namespace

std::vector<std::string> knownServiceNames() {
    std::vector<std::string> names;
    for (const NetworkCard& card : Interfaces::list()) {
        // One configuration may own several cards.
        if (card.serviceName && std::ranges::find(names, *card.serviceName) == names.end()) {
            names.push_back(*card.serviceName);
        }
    }
    return names;
}

void runAsAdministrator(const std::string& command) {
    const auto pkexec = programNamed("pkexec");
    const bool isWhole = command.find('\0') == std::string::npos; // else a part of it would be run
    if (!pkexec || !isWhole) {
        throw noAdministratorDialog();
    }
    const auto output = ProcessRunner::run(*pkexec, {"/bin/sh", "-c", runner, "sh", command});
    if (output.status == ProcessRunner::notLaunched) {
        throw noAdministratorDialog();
    }
    if (output.status != 0) {
        throw errorOf(output);
    }
}

} // namespace DHCPCore::HostSetup
