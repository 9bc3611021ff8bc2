#include "Support/OpenDescriptors.hpp"
#include "Support/TemporaryDirectory.hpp"
#include "networksetup/Execution.hpp"
#include "networksetup/Refusal.hpp"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

namespace NetworkSetup {
namespace {

using DHCPCore::TestSupport::openDescriptors;
using DHCPCore::TestSupport::readText;
using DHCPCore::TestSupport::TemporaryDirectory;
using DHCPCore::TestSupport::writeText;
namespace fs = std::filesystem;

class ExecutionTest : public testing::Test {
  protected:
    [[nodiscard]] std::string path(const std::string& name) const { return folder / name; }

    /// A program that writes down its arguments, one a line and a line of dashes after them, then does as told.
    [[nodiscard]] std::string program(const std::string& name, const std::string& then = "exit 0") const {
        writeText(path(name), "#!/bin/sh\nprintf '%s\\n' \"$0\" \"$@\" >>'" + path("calls") + "'\necho -- >>'" +
                                  path("calls") + "'\n" + then + "\n");
        fs::permissions(path(name), fs::perms::owner_all);
        return path(name);
    }

    [[nodiscard]] static Step run(const std::string& program, std::vector<std::string> arguments) {
        return {.value = Step::RunProgram{.path = program, .arguments = std::move(arguments)},
                .failure = "Could not run"};
    }

    [[nodiscard]] static Step write(const std::string& path, const std::string& text) {
        return {.value = Step::WriteFile{.path = path, .text = text}, .failure = "Could not write"};
    }

    /// The sentence about the step that failed; empty when all went well.
    [[nodiscard]] static std::string refusalOf(const std::vector<Step>& steps) {
        try {
            carryOut({.steps = steps, .done = "Done"});
            return {};
        } catch (const Refusal& refusal) {
            return refusal.description();
        }
    }

    TemporaryDirectory folder;
};

TEST_F(ExecutionTest, RunsProgramsInOrderWithTheirArgumentsAsTheyAre) {
    const std::string first = program("first");
    const std::string second = program("second");

    EXPECT_EQ(refusalOf({run(first, {"a b", "", "$(reboot)", "'"}), run(second, {"; reboot"})}), "");

    EXPECT_EQ(readText(path("calls")), first + "\na b\n\n$(reboot)\n'\n--\n" + second + "\n; reboot\n--\n");
}

TEST_F(ExecutionTest, EndsAtTheFirstProgramThatFails) {
    const std::string bad = program("bad", R"(printf '\n\033[2J  Error: not allowed.\nmore\n' >&2; exit 4)");
    const std::string next = program("next");

    EXPECT_EQ(refusalOf({run(bad, {}), run(next, {})}), "Could not run: [2J  Error: not allowed.");

    EXPECT_EQ(readText(path("calls")), bad + "\n--\n");
}

TEST_F(ExecutionTest, TellsTheStatusOfAProgramThatSaysNothing) {
    EXPECT_EQ(refusalOf({run(program("bad", "exit 4"), {})}), "Could not run: bad ended with status 4.");
}

TEST_F(ExecutionTest, TellsWhyAProgramCouldNotBeLaunched) {
    EXPECT_EQ(refusalOf({run(path("none"), {})}), "Could not run: No such file or directory.");
}

TEST_F(ExecutionTest, ReplacesAFileAndKeepsItsMode) {
    writeText(path("file"), "old");
    fs::permissions(path("file"), fs::perms::owner_read | fs::perms::owner_write);

    EXPECT_EQ(refusalOf({write(path("file"), "new\n")}), "");

    EXPECT_EQ(readText(path("file")), "new\n");
    EXPECT_EQ(fs::status(path("file")).permissions(), fs::perms::owner_read | fs::perms::owner_write);
    EXPECT_EQ(folder.names(), std::vector<std::string>{"file"});
}

TEST_F(ExecutionTest, MakesAFileThatEverybodyMayReadAndItsFolder) {
    EXPECT_EQ(refusalOf({write(path("new/folder/file"), "new\n")}), "");

    EXPECT_EQ(readText(path("new/folder/file")), "new\n");
    EXPECT_EQ(fs::status(path("new/folder/file")).permissions(), static_cast<fs::perms>(0644));
}

TEST_F(ExecutionTest, TellsWhyAFileCantBeWritten) {
    fs::create_directory(path("folder"));

    EXPECT_EQ(refusalOf({write(path("folder"), "x"), run(program("next"), {})}),
              "Could not write: Could not replace folder: Is a directory.");

    EXPECT_EQ(folder.names(), (std::vector<std::string>{"folder", "next"}));
}

TEST_F(ExecutionTest, WritesInItsTurn) {
    writeText(path("file"), "old");
    const std::string reader = program("reader", "cat '" + path("file") + "' >>'" + path("calls") + "'");

    EXPECT_EQ(refusalOf({run(reader, {}), write(path("file"), "new"), run(reader, {})}), "");

    EXPECT_EQ(readText(path("calls")), reader + "\n--\nold" + reader + "\n--\nnew");
}

TEST_F(ExecutionTest, LeavesNoDescriptorOpen) {
    const auto before = openDescriptors();

    static_cast<void>(refusalOf({write(path("file"), "x"), run(program("p"), {}), run(path("none"), {})}));

    EXPECT_EQ(openDescriptors(), before);
}

} // namespace
} // namespace NetworkSetup
