#include "DHCPCore/HostSetup.hpp"
#include "Support/EnvironmentVariable.hpp"
#include "Support/FreshNetwork.hpp"
#include "Support/TemporaryDirectory.hpp"

#include <gtest/gtest.h>

#include <csignal>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace DHCPCore {
namespace {

using TestSupport::EnvironmentVariable;
using TestSupport::readText;
using TestSupport::TemporaryDirectory;
using TestSupport::writeText;

/// Allows everything and becomes the program, as pkexec does.
constexpr const char* allowing = "exec \"$@\"";

/// The error of the command; nothing when it ran.
std::optional<HostSetupError> errorOf(const std::string& command) {
    try {
        HostSetup::runAsAdministrator(command);
        return std::nullopt;
    } catch (const HostSetupError& error) {
        return error;
    }
}

/// A host with a pkexec that a test wrote, and the shell's own programs.
class AdministratorTest : public testing::Test {
  protected:
    void writePkexec(const std::string& script) const {
        writeText(pkexec(), "#!/bin/sh\n" + script + "\n");
        std::filesystem::permissions(pkexec(), std::filesystem::perms::owner_all);
    }
    [[nodiscard]] std::filesystem::path pkexec() const { return directory / "pkexec"; }
    /// Where a command of a test writes.
    [[nodiscard]] std::filesystem::path result() const { return directory / "result"; }
    [[nodiscard]] std::string intoResult() const { return " > " + HostSetup::shellQuote(result().string()); }

    TemporaryDirectory directory;
    EnvironmentVariable path{"PATH", directory.path().string()};
};

TEST_F(AdministratorTest, RunsTheCommandThroughPkexec) {
    writePkexec(R"(printf '%s\n' "$@" > )" + HostSetup::shellQuote(result().string()));
    EXPECT_EQ(errorOf("/usr/sbin/networksetup -setdhcp 'en5'"), std::nullopt);
    EXPECT_EQ(readText(result()), "/bin/sh\n-c\n/bin/sh -c -- \"$1\" || exit 1\nsh\n"
                                  "/usr/sbin/networksetup -setdhcp 'en5'\n");
}

TEST_F(AdministratorTest, BringsEveryCharacterOfTheCommandThrough) {
    writePkexec(allowing);
    const EnvironmentVariable variable("TARNWICK_TEST", "value");
    const std::string command =
        R"(printf '[%s]' "double  quoted" 'single "quoted"' back\\slash "a\\b" "$TARNWICK_TEST" '$HOME' 'two)"
        "\n"
        R"(lines' `echo ticks` \ )";
    EXPECT_EQ(errorOf(command + intoResult()), std::nullopt);
    EXPECT_EQ(readText(result()), "[double  quoted][single \"quoted\"][back\\slash][a\\b][value][$HOME][two\nlines]"
                                  "[ticks][ ]");
}

TEST_F(AdministratorTest, BringsAQuotedTextThroughUnchanged) {
    writePkexec(allowing);
    for (const std::string text : {R"(Joe's 5" \ "LAN\" $HOME)", "two\nlines\n", " ", "-n", "`id`", "$(id)", "*"}) {
        SCOPED_TRACE(text);
        EXPECT_EQ(errorOf("printf '[%s]' " + HostSetup::shellQuote(text) + intoResult()), std::nullopt);
        EXPECT_EQ(readText(result()), "[" + text + "]");
    }
}

TEST_F(AdministratorTest, RunsSeveralLines) {
    writePkexec(allowing);
    const std::string file = HostSetup::shellQuote(result().string());
    EXPECT_EQ(errorOf("echo one > " + file + "\n# a comment, it's one\necho two >> " + file), std::nullopt);
    EXPECT_EQ(readText(result()), "one\ntwo\n");
}

TEST_F(AdministratorTest, KeepsNothingOfWhatASuccessfulCommandPrints) {
    writePkexec(allowing);
    EXPECT_EQ(errorOf("echo words; echo warning >&2"), std::nullopt);
}

TEST_F(AdministratorTest, TellsThatTheDialogWasDismissed) {
    writePkexec("echo 'Error executing command as another user: Request dismissed' >&2; exit 126");
    EXPECT_EQ(errorOf("true"), HostSetupError("Error executing command as another user: Request dismissed", true));
}

TEST_F(AdministratorTest, TellsThatTheUserWasRefused) {
    writePkexec("echo 'Error executing command as another user: Not authorized' >&2\n"
                "echo >&2; echo 'This incident has been reported.' >&2; exit 127");
    EXPECT_EQ(errorOf("true"), HostSetupError("Error executing command as another user: Not authorized\n\n"
                                              "This incident has been reported.",
                                              false));
}

TEST_F(AdministratorTest, HasWordsOfItsOwnForASilentRefusal) {
    writePkexec("exit 126");
    EXPECT_EQ(errorOf("true"), HostSetupError("The administrator dialog was dismissed.", true));
    writePkexec("exit 127");
    EXPECT_EQ(errorOf("true"), HostSetupError("Administrator rights were refused.", false));
}

TEST_F(AdministratorTest, GivesTheFailingCommandsOwnWords) {
    writePkexec(allowing);
    EXPECT_EQ(errorOf("echo 'en5 is not a recognized network service.' >&2; exit 4"),
              HostSetupError("en5 is not a recognized network service.", false));
    EXPECT_EQ(errorOf("echo '\tfirst'; echo 'second ' >&2; exit 1"), HostSetupError("first\nsecond", false));
}

TEST_F(AdministratorTest, DoesNotTakeACommandThatRanForOneThatDidNot) {
    writePkexec(allowing);
    const auto before = std::signal(SIGCHLD, SIG_IGN); // the kernel drops what children end with
    const auto error = errorOf("echo x" + intoResult());
    std::signal(SIGCHLD, before);
    EXPECT_EQ(TestSupport::readText(result()), "x\n");
    EXPECT_EQ(error, HostSetupError("The command ended, but how is not known.", false));
}

TEST_F(AdministratorTest, SaysThatASilentCommandFailed) {
    writePkexec(allowing);
    EXPECT_EQ(errorOf("exit 1"), HostSetupError("The command failed.", false));
    EXPECT_EQ(errorOf("kill -9 $$"), HostSetupError("Killed", false)) << "the shell's own word for it";
    writePkexec("kill -9 $$");
    EXPECT_EQ(errorOf("true"), HostSetupError("The command failed.", false));
}

TEST_F(AdministratorTest, DoesNotTakeTheCommandsStatusForThatOfPkexec) {
    writePkexec(allowing);
    EXPECT_EQ(errorOf("exit 126"), HostSetupError("The command failed.", false));
    EXPECT_EQ(errorOf("exit 127"), HostSetupError("The command failed.", false));
    EXPECT_EQ(errorOf("echo 'no such card' >&2; exit 126"), HostSetupError("no such card", false));
}

TEST_F(AdministratorTest, TellsThatThereIsNoPkexec) {
    EXPECT_EQ(errorOf("true"), HostSetup::noAdministratorDialog());
    writeText(pkexec(), "not a program");
    EXPECT_EQ(errorOf("true"), HostSetup::noAdministratorDialog()) << "not executable";
    std::filesystem::permissions(pkexec(), std::filesystem::perms::owner_all);
    EXPECT_EQ(errorOf("true"), HostSetup::noAdministratorDialog()) << "not a program that the system can launch";
}

TEST_F(AdministratorTest, TakesTheFirstPkexecOfThePathAndNoneOfARelativeFolder) {
    writePkexec(allowing);
    {
        const EnvironmentVariable later("PATH", "/nowhere::" + directory.path().string());
        EXPECT_EQ(errorOf("true"), std::nullopt);
    }
    const auto relative = std::filesystem::relative(directory.path()).string();
    const EnvironmentVariable fromHere("PATH", relative);
    EXPECT_EQ(errorOf("true"), HostSetup::noAdministratorDialog());
}

TEST_F(AdministratorTest, RunsNoPartOfACommandThatCannotBeTold) {
    writePkexec(allowing);
    EXPECT_EQ(errorOf("touch " + HostSetup::shellQuote(result().string()) + std::string(1, '\0') + "2"),
              HostSetup::noAdministratorDialog());
    EXPECT_EQ(errorOf("touch " + HostSetup::shellQuote(result().string()) + " # " + std::string(200000, 'x')),
              HostSetup::noAdministratorDialog())
        << "longer than an argument may be";
    EXPECT_FALSE(std::filesystem::exists(result()));
}

TEST(HostSetupLinuxTest, KnowsTheServicesOfTheHostsCards) {
    std::vector<std::string> names;
    const bool made = TestSupport::inFreshNetwork([&] {
        ASSERT_TRUE(TestSupport::ip("link add en5 type veth peer name en6"));
        ASSERT_TRUE(TestSupport::ip("link set en6 up"));
        ASSERT_TRUE(TestSupport::ip("link add br0 type bridge"));
        names = HostSetup::knownServiceNames();
    });
    if (!made) {
        GTEST_SKIP() << "this process may not make a network namespace";
    }
    // In the kernel's order, switched off or not; the loopback device and a bridge that nobody manages have none.
    EXPECT_EQ(names, (std::vector<std::string>{"en6", "en5"}));
}

TEST(HostSetupLinuxTest, KnowsNoServiceWithoutACard) {
    std::vector<std::string> names{"en5"};
    const bool made = TestSupport::inFreshNetwork([&] { names = HostSetup::knownServiceNames(); });
    if (!made) {
        GTEST_SKIP() << "this process may not make a network namespace";
    }
    EXPECT_EQ(names, std::vector<std::string>{});
}

} // namespace
} // namespace DHCPCore
