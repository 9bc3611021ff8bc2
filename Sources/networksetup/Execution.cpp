#include "networksetup/Execution.hpp"

#include "DHCPCore/Error.hpp"
#include "DHCPCore/Overloaded.hpp"
#include "DHCPCore/ProcessRunner.hpp"
#include "DHCPCore/TextPieces.hpp"
#include "networksetup/CardAddresses.hpp"
#include "networksetup/Printable.hpp"
#include "networksetup/Refusal.hpp"
#include "networksetup/StagedFile.hpp"

#include <fmt/format.h>

#include <chrono>
#include <filesystem>
#include <functional>
#include <memory>
#include <thread>

namespace NetworkSetup {

using DHCPCore::Error;

namespace {

/// Runs a part of the step. @throws Refusal with the step's sentence when it fails.
template <class Work>
auto attempt(const Step& step, Work work) {
    try {
        return work();
    } catch (const Error& error) {
        std::string reason = error.description();
        while (reason.ends_with('.')) {
            reason.pop_back();
        }
        throw Refusal(fmt::format("{}: {}.", step.failure, reason));
    }
}

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

} // namespace

void carryOut(const Plan& plan) {
    std::vector<std::unique_ptr<StagedFile>> files; // element i belongs to step i; empty where it writes no file
    for (const Step& step : plan.steps) {
        const auto* const file = std::get_if<Step::WriteFile>(&step.value);
        files.push_back(file == nullptr ? nullptr : attempt(step, [file] {
            return std::make_unique<StagedFile>(file->path, file->text);
        }));
    }
    for (std::size_t index = 0; index < plan.steps.size(); ++index) {
        const Step& step = plan.steps[index];
        attempt(step, [&] {
            std::visit(DHCPCore::Overloaded{
                           [](const Step::RunProgram& program) { run(program); },
                           [&](const Step::WriteFile&) { files[index]->putInPlace(); },
                           [](const Step::SetAddress& wanted) { CardAddresses::set(wanted.card, wanted.address); },
                           [](const Step::RemoveAddresses& gone) { CardAddresses::remove(gone.card, gone.all); },
                           [](const Step::AwaitAddress& wanted) { await(wanted); }},
                       step.value);
        });
    }
}

} // namespace NetworkSetup
