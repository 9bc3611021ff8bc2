#include "DHCPCore/HostSetup.hpp"
#include "DHCPCore/ProcessRunner.hpp"

#include <gtest/gtest.h>

#include <string>
#include <string_view>
#include <vector>

namespace DHCPCore {
namespace {

constexpr IPv4Address serverIP{192, 168, 0, 1};
constexpr IPv4Address mask{255, 255, 255, 0};

TEST(HostSetupTest, QuotesAnEmptyTextAsAnEmptyWord) { EXPECT_EQ(HostSetup::shellQuote(""), "''"); }

TEST(HostSetupTest, QuotesASingleQuoteByLeavingTheQuotes) {
    EXPECT_EQ(HostSetup::shellQuote("Joe's USB LAN"), R"('Joe'\''s USB LAN')");
    EXPECT_EQ(HostSetup::shellQuote("'"), R"(''\''')");
}

TEST(HostSetupTest, LeavesEveryOtherCharacterAsItIs) {
    EXPECT_EQ(HostSetup::shellQuote(R"(a"b\c$d`e)"), R"('a"b\c$d`e')");
}

TEST(HostSetupTest, GivesTheShellOneWordThatIsTheTextItself) {
    for (const std::string text : {"", "'", "Joe's USB LAN", R"(5" \ $HOME `id` \)", "a\nb", "''\\''", "*", "-n"}) {
        SCOPED_TRACE(text);
        const auto output = ProcessRunner::run("/bin/sh", {"-c", "printf '[%s]' " + HostSetup::shellQuote(text)});
        EXPECT_EQ(output, (ProcessRunner::Output{.status = 0, .text = "[" + text + "]"}));
    }
}

TEST(HostSetupTest, SetsAddressAndMaskOfAServiceWithoutRouter) {
    EXPECT_EQ(HostSetup::setManualCommand("USB LAN", serverIP, mask),
              "/usr/sbin/networksetup -setmanual 'USB LAN' 192.168.0.1 255.255.255.0");
}

TEST(HostSetupTest, ReturnsAServiceToDHCP) {
    EXPECT_EQ(HostSetup::setDHCPCommand("Joe's LAN"), R"(/usr/sbin/networksetup -setdhcp 'Joe'\''s LAN')");
}

TEST(HostSetupTest, PutsSudoBeforeACommand) {
    EXPECT_EQ(HostSetup::sudoLine(HostSetup::setManualCommand("en5", serverIP, mask)),
              "sudo /usr/sbin/networksetup -setmanual 'en5' 192.168.0.1 255.255.255.0");
}

/// The error that the work ends with; one that says so when it ends well.
HostSetupError errorOfValidation(std::string_view name, const std::vector<std::string>& names) {
    try {
        return {"valid: " + HostSetup::validatedService(name, names), false};
    } catch (const HostSetupError& error) {
        return error;
    }
}

TEST(HostSetupTest, GivesBackAServiceThatIsKnown) {
    EXPECT_EQ(HostSetup::validatedService("USB LAN", {"Ethernet", "USB LAN"}), "USB LAN");
}

TEST(HostSetupTest, RefusesAServiceThatIsNotExactlyOneOfThoseKnown) {
    for (const std::string name : {"ethernet", "Ethernet ", " Ethernet", "Ether", "Ethernet2", ""}) {
        EXPECT_EQ(errorOfValidation(name, {"Ethernet"}), HostSetupError("Unknown network service: " + name, false));
    }
    EXPECT_EQ(errorOfValidation("Ethernet", {}), HostSetupError("Unknown network service: Ethernet", false));
}

TEST(HostSetupErrorTest, HasItsMessageAsDescription) {
    const HostSetupError error("It went wrong.", false);
    EXPECT_EQ(error.message(), "It went wrong.");
    EXPECT_EQ(error.description(), "It went wrong.");
    EXPECT_FALSE(error.isCancellation);
}

TEST(HostSetupErrorTest, IsEqualOnlyInMessageAndCancellation) {
    EXPECT_EQ(HostSetupError("a", true), HostSetupError("a", true));
    EXPECT_NE(HostSetupError("a", true), HostSetupError("a", false));
    EXPECT_NE(HostSetupError("a", true), HostSetupError("b", true));
}

TEST(HostSetupErrorTest, TellsACancellationByItsNumber) {
    EXPECT_EQ(HostSetupError(ScriptError{.message = "User canceled.", .number = -128}),
              HostSetupError("User canceled.", true));
    EXPECT_EQ(HostSetupError(ScriptError{.message = "No such service.", .number = -127}),
              HostSetupError("No such service.", false));
    EXPECT_EQ(HostSetupError(ScriptError{.message = "No such service.", .number = 128}),
              HostSetupError("No such service.", false));
}

TEST(HostSetupErrorTest, SaysThatTheCommandFailedWhereTheScriptDoesNotSay) {
    EXPECT_EQ(HostSetupError(ScriptError{}), HostSetupError("The command failed.", false));
    EXPECT_EQ(HostSetupError(ScriptError{.message = std::nullopt, .number = -128}),
              HostSetupError("The command failed.", true));
}

TEST(ScriptErrorTest, ReadsMessageAndNumberFromWhatOsascriptPrints) {
    const ScriptError dismissed{.message = "User canceled.", .number = -128};
    EXPECT_EQ(ScriptError::parse("0:52: execution error: User canceled. (-128)\n"), dismissed);
    EXPECT_EQ(ScriptError::parse("0:52: execution error: User canceled. (-128)"), dismissed);
    EXPECT_EQ(ScriptError::parse("a warning\n0:52: execution error: User canceled. (-128)\n"), dismissed);
    EXPECT_EQ(ScriptError::parse("0:91: execution error: ** Error: (2) lines\nof words. (4)\n"),
              (ScriptError{.message = "** Error: (2) lines\nof words.", .number = 4}));
    EXPECT_EQ(ScriptError::parse("0:9: execution error: a: syntax error: b (1)"),
              (ScriptError{.message = "a: syntax error: b", .number = 1}));
}

TEST(ScriptErrorTest, HasNoNumberWhereNoneStandsAtTheEnd) {
    for (const std::string message : {"No number.", "In the (1) middle.", "No digits (x)", "Open (1", "Empty ()", "()",
                                      "Too large (99999999999)", "(7)", ""}) {
        EXPECT_EQ(ScriptError::parse("0:9: execution error: " + message),
                  (ScriptError{.message = message, .number = std::nullopt}));
    }
}

TEST(ScriptErrorTest, IsEmptyForAnyOtherText) {
    for (const std::string text : {"", "\n", "osascript: can't do that", "execution error: a (1)"}) {
        EXPECT_EQ(ScriptError::parse(text), ScriptError{}) << text;
    }
}

TEST(ScriptErrorTest, IsAbsentWhereTheScriptCouldNotBeCompiled) {
    EXPECT_EQ(ScriptError::parse("0:5: syntax error: Expected end of line but found number. (-2741)\n"), std::nullopt);
}

TEST(HostSetupTest, SaysThatThereIsNoDialog) {
    EXPECT_EQ(HostSetup::noAdministratorDialog(), HostSetupError("Could not prepare the administrator dialog.", false));
}

TEST(HostSetupTest, PutsACommandIntoAScript) {
    EXPECT_EQ(HostSetup::administratorScript("id -u"), R"(do shell script "id -u" with administrator privileges)");
}

TEST(HostSetupTest, EscapesBackslashesAndDoubleQuotesInAScriptOnce) {
    EXPECT_EQ(HostSetup::administratorScript(R"(a"b\c\"d)"),
              R"(do shell script "a\"b\\c\\\"d" with administrator privileges)");
}

/// The command as the script's language reads it: without what surrounds it, each escape undone.
std::string commandIn(const std::string& script) {
    const std::string before = "do shell script \"";
    const std::string after = "\" with administrator privileges";
    EXPECT_TRUE(script.starts_with(before) && script.ends_with(after));
    std::string command;
    for (std::size_t index = before.size(); index < script.size() - after.size(); ++index) {
        index += script[index] == '\\' ? 1U : 0U;
        command += script[index];
    }
    return command;
}

TEST(HostSetupTest, BringsAServiceNameThroughShellAndScriptUnchanged) {
    const std::string service = R"(Joe's 5" \ "LAN\" $HOME)";
    std::string command = commandIn(HostSetup::administratorScript(HostSetup::setDHCPCommand(service)));
    EXPECT_EQ(command, HostSetup::setDHCPCommand(service));
    command.replace(0, HostSetup::networksetup.size(), "printf '[%s]'");
    EXPECT_EQ(ProcessRunner::run("/bin/sh", {"-c", command}),
              (ProcessRunner::Output{.status = 0, .text = "[-setdhcp][" + service + "]"}));
}

} // namespace
} // namespace DHCPCore
