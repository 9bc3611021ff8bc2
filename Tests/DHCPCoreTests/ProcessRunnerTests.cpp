#include "DHCPCore/ProcessRunner.hpp"
#include "DHCPCore/Threads.hpp"
#include "Support/DescriptorLimit.hpp"
#include "Support/OpenDescriptors.hpp"

#include <gtest/gtest.h>

#include <csignal>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

namespace DHCPCore {
namespace {

using ProcessRunner::Output;
using ProcessRunner::run;

Output shell(const std::string& script) { return run("/bin/sh", {"-c", script}); }

TEST(ProcessRunnerTest, ReturnsTheExitStatusAndWhatWasWritten) {
    EXPECT_EQ(shell("echo hello; exit 3"), (Output{.status = 3, .text = "hello\n"}));
}

TEST(ProcessRunnerTest, TakesBothOutputsIntoOneTextInTheirOrder) {
    EXPECT_EQ(shell("echo one; echo two >&2; echo three"), (Output{.status = 0, .text = "one\ntwo\nthree\n"}));
}

TEST(ProcessRunnerTest, SaysWhyAProgramCouldNotBeLaunched) {
    EXPECT_EQ(run("/nonexistent/program", {}), (Output{.status = -1, .text = "No such file or directory"}));
    EXPECT_EQ(run("/", {}), (Output{.status = -1, .text = "Permission denied"}));
    EXPECT_EQ(run("", {}), (Output{.status = -1, .text = "No such file or directory"}));
}

TEST(ProcessRunnerTest, DoesNotLookForProgramsByName) { EXPECT_EQ(run("sh", {"-c", "exit 0"}).status, -1); }

TEST(ProcessRunnerTest, PassesArgumentsUntouchedByAnyShell) {
    EXPECT_EQ(run("/bin/sh", {"-c", R"(printf '[%s]' "$@")", "sh", "", "a b", "$HOME", "'", "*"}),
              (Output{.status = 0, .text = "[][a b][$HOME]['][*]"}));
}

TEST(ProcessRunnerTest, ReadsMoreThanAPipeHolds) {
    const Output output = shell("head -c 1000000 /dev/zero | tr '\\0' x");
    EXPECT_EQ(output, (Output{.status = 0, .text = std::string(1000000, 'x')}));
}

TEST(ProcessRunnerTest, ReplacesBytesThatAreNoUTF8) {
    EXPECT_EQ(shell("printf 'a\\377b\\303\\251\\342\\202'"), (Output{.status = 0, .text = "a\uFFFDb\u00E9\uFFFD"}));
}

TEST(ProcessRunnerTest, ReportsTheSignalThatEndedAProgram) {
    EXPECT_EQ(shell("echo before; kill -KILL $$").status, 128 + SIGKILL);
    EXPECT_EQ(shell("kill -TERM $$").status, 128 + SIGTERM);
}

TEST(ProcessRunnerTest, GivesAProgramNothingToRead) {
    EXPECT_EQ(shell("cat; echo done"), (Output{.status = 0, .text = "done\n"}));
}

TEST(ProcessRunnerTest, GivesAProgramTheUsualSignalsOnAThreadThatBlocksThemAll) {
    Output output;
    Threads::start("worker", [&] { output = shell("kill -TERM $$; echo survived"); }).join();
    EXPECT_EQ(output, (Output{.status = 128 + SIGTERM, .text = ""}));
}

TEST(ProcessRunnerTest, GivesAProgramTheUsualSignalsWhenTheProcessIgnoresThem) {
    for (const int number : {SIGINT, SIGPIPE}) {
        const auto previous = std::signal(number, SIG_IGN);
        const Output output = shell("kill -" + std::to_string(number) + " $$; echo survived");
        std::signal(number, previous);
        EXPECT_EQ(output, (Output{.status = 128 + number, .text = ""}));
    }
}

TEST(ProcessRunnerTest, HandsAProgramNoDescriptorButTheThreeItKnows) {
    const ProcessRunner::Pipe pipe = ProcessRunner::openPipe();
    ASSERT_TRUE(pipe.reading.isOpen());
    for (const int fd : {pipe.reading.number(), pipe.writing.number()}) {
        const std::string path = "/dev/fd/" + std::to_string(fd);
        EXPECT_EQ(shell("[ -e " + path + " ]").status, 1) << path;
    }
}

TEST(ProcessRunnerTest, LeavesNoDescriptorOpen) {
    const auto before = TestSupport::openDescriptors();
    std::ignore = shell("echo output");
    std::ignore = run("/nonexistent/program", {});
    EXPECT_EQ(TestSupport::openDescriptors(), before);
}

TEST(ProcessRunnerTest, SaysSoWhenNoDescriptorIsLeft) {
    for (const int left : {0, 1}) {
        const TestSupport::DescriptorLimit limit(left);
        EXPECT_EQ(shell("echo never"), (Output{.status = -1, .text = "Too many open files"})) << left;
    }
}

TEST(ProcessRunnerTest, RunsProgramsOnSeveralThreadsAtOnce) {
    std::vector<Output> outputs(8);
    std::vector<std::thread> threads;
    for (std::size_t index = 0; index < outputs.size(); ++index) {
        threads.emplace_back([&outputs, index] { outputs[index] = shell("echo " + std::to_string(index)); });
    }
    for (std::size_t index = 0; index < outputs.size(); ++index) {
        threads[index].join();
        EXPECT_EQ(outputs[index], (Output{.status = 0, .text = std::to_string(index) + "\n"}));
    }
}

} // namespace
} // namespace DHCPCore
