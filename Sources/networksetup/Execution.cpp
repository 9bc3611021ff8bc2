#include "networksetup/Execution.hpp"

#include "DHCPCore/Error.hpp"
#include "DHCPCore/FileReplacement.hpp"
#include "DHCPCore/Overloaded.hpp"
#include "DHCPCore/ProcessRunner.hpp"
#include "DHCPCore/TextPieces.hpp"
#include "networksetup/CardAddresses.hpp"
#include "networksetup/Printable.hpp"
#include "networksetup/Refusal.hpp"

#include <fmt/format.h>

#include <chrono>
#include <filesystem>
#include <string>
#include <string_view>
#include <thread>
#include <variant>

namespace NetworkSetup {

using DHCPCore::Error;

namespace {

/// The first line with something to read on it; nothing when there is none.
std::string firstLine(const std::string& output) {
    for (const std::string_view line : DHCPCore::splitDroppingEmpty(output, '\n')) {
        if (std::string shown = printable(line); !shown.empty()) {
            return shown;
        }
    }
    return {};
}

void run(const Step::RunProgram& program) {
    const auto output = DHCPCore::ProcessRunner::run(program.path, program.arguments);
    if (output.status == 0) {
        return;
    }
    const std::string line = firstLine(output.text);
    const std::string name = std::filesystem::path(program.path).filename();
    throw Error(line.empty() ? fmt::format("{} ended with status {}", name, output.status) : line);
}

void await(const Step::AwaitAddress& wanted) {
    using namespace std::chrono_literals;
    const auto deadline = std::chrono::steady_clock::now() + 10s;
    while (!CardAddresses::has(wanted.card, wanted.address)) {
        if (std::chrono::steady_clock::now() > deadline) {
            throw Error("the address does not stand on the card");
        }
        std::this_thread::sleep_for(50ms);
    }
}

void carryOut(const Step& step) {
    std::visit(
        DHCPCore::Overloaded{[](const Step::RunProgram& program) { run(program); },
                             [](const Step::WriteFile& file) { DHCPCore::replaceFile(file.path, file.text); },
                             [](const Step::SetAddress& wanted) { CardAddresses::set(wanted.card, wanted.address); },
                             [](const Step::RemoveAddresses& gone) { CardAddresses::remove(gone.card, gone.all); },
                             [](const Step::AwaitAddress& wanted) { await(wanted); }},
        step.value);
}

} // namespace

void carryOut(const Plan& plan) {
    for (const Step& step : plan.steps) {
        try {
            carryOut(step);
        } catch (const Error& error) {
            std::string reason = error.description();
            while (reason.ends_with('.')) {
                reason.pop_back();
            }
            throw Refusal(fmt::format("{}: {}.", step.failure, reason));
        }
    }
}

} // namespace NetworkSetup
