#include "DHCPCore/DHCPCore.hpp"
#include "DHCPCore/FileDescriptor.hpp"
#include "DHCPCore/Interfaces.hpp"
#include "DHCPCore/Overloaded.hpp"
#include "networksetup/Execution.hpp"
#include "networksetup/Plan.hpp"
#include "networksetup/Printable.hpp"
#include "networksetup/Refusal.hpp"
#include "networksetup/Request.hpp"
#include "networksetup/Survey.hpp"
#include "tarnwick/Output.hpp"

#include <fmt/format.h>

#include <csignal>
#include <cstdlib>
#include <exception>
#include <optional>
#include <span>
#include <string>
#include <sys/stat.h>
#include <tuple>
#include <unistd.h>
#include <variant>
#include <vector>

namespace NetworkSetup {
namespace {

/// The programs that are run get nothing of the caller's: their texts are read, and root runs them.
void useOwnEnvironment() {
    ::clearenv();
    ::setenv("PATH", "/usr/sbin:/usr/bin:/sbin:/bin", 1);
    ::setenv("LC_ALL", "C.UTF-8", 1);
    ::umask(022); // everybody may read how a card is configured
}

/// @return the sentence about what was done, without its full stop.
std::string serve(const std::string& service, const std::optional<DHCPCore::Subnet>& address) {
    if (::geteuid() != 0) {
        throw Refusal("Only root may set up a card: put sudo before the command.");
    }
    const Plan plan = makePlan(service, address, survey(service, DHCPCore::Interfaces::list(), placesOfThisNetwork()));
    carryOut(plan);
    return plan.done;
}

std::string run(std::span<const std::string> words) {
    const Request request = parseRequest(words);
    return std::visit(DHCPCore::Overloaded{
                          [](const Request::SetManual& manual) { return serve(manual.service, manual.address) + "."; },
                          [](const Request::SetDHCP& dhcp) { return serve(dhcp.service, std::nullopt) + "."; },
                          [](const Request::ShowVersion&) {
                              return fmt::format("tarnwick networksetup {}", DHCPCore::DHCPCoreInfo::version);
                          }},
                      request.value);
}

} // namespace
} // namespace NetworkSetup

int main(int argumentCount, char** arguments) {
    using namespace NetworkSetup;
    Tarnwick::openMissingStandardDescriptors();
    std::signal(SIGPIPE, SIG_IGN); // what was begun is not left half done because nobody reads about it
    useOwnEnvironment();
    try {
        const std::vector<std::string> words(arguments, arguments + argumentCount);
        Tarnwick::printLine(printable(run(std::span(words).subspan(words.empty() ? 0 : 1))));
        return EXIT_SUCCESS;
    } catch (const std::exception& error) {
        std::ignore = DHCPCore::writeAll(STDERR_FILENO, fmt::format("networksetup: {}\n", printable(error.what())));
        return EXIT_FAILURE;
    }
}
