// What the built tool says about a host's cards, and the checks before it serves one.
#include "DHCPCore/ProcessRunner.hpp"
#include "HostTests/HostTest.hpp"

#include <fmt/format.h>

namespace Tarnwick {
namespace {

using namespace DHCPCore;
using namespace DHCPCore::TestSupport;

const std::string wired = "✓ Wired card, not the Mac's internet route";
const std::string noServer = "✓ No other DHCP server has configured this card";
const std::string configured = "✓ en5 is set to 192.168.0.1/24";
const std::string notConfigured = "✗ Card isn't set to 192.168.0.1/24";
const std::string noOverlap = "✓ No overlap with other networks";
const std::string portFree = "✓ Port 67 is free";
const std::string linked = "✓ Link up · 10GBase-T full-duplex";
const std::string fix = "\n\nRun this, then start tarnwick again:\n"
                        "  sudo /usr/sbin/networksetup -setmanual 'en5' 192.168.0.1 255.255.255.0";

class CheckTest : public HostTest {
  protected:
    /// The tool on the host, run to its end.
    [[nodiscard]] Finished run(const std::vector<std::string>& arguments) const {
        ToolProcess tool({.arguments = arguments, .prefix = lab().host().prefix()});
        return finish(tool);
    }

    [[nodiscard]] Finished serve(const std::string& card = "en5") const { return run({"serve", "--iface", card}); }

    /// A start that was refused after these lines.
    [[nodiscard]] static Finished refused(const std::vector<std::string>& lines) {
        return {.status = 1, .output = fmt::format("{}\n", fmt::join(lines, "\n")), .errors = ""};
    }

    /// Runs a line in a shell on the host, with the built networksetup installed there and nowhere else.
    [[nodiscard]] ProcessRunner::Output pasted(const std::string& line) const {
        std::vector<std::string> words = lab().host().prefix(); // it gives the shell mounts of its own, too
        words.insert(words.end(), {"sh", "-ec",
                                   "mount -t tmpfs none /usr/sbin; bash " INSTALL_NETWORKSETUP_PATH
                                   " " NETWORKSETUP_PATH " 2>/dev/null\n" +
                                       line});
        return ProcessRunner::run("/usr/bin/env", words);
    }

    /// The next lines of a tool that goes on.
    [[nodiscard]] static std::vector<std::string> lines(ToolProcess& tool, std::size_t count) {
        std::vector<std::string> read;
        while (read.size() < count) {
            read.push_back(tool.line().value_or("(nothing)"));
        }
        return read;
    }
};

TEST_F(CheckTest, ListsTheWiredCardsLinkedOnesFirst) {
    lab().host().ip("link add en1 address 02:00:00:00:ff:01 type veth peer name en2 address 02:00:00:00:ff:02");
    lab().host().ip("link add wires type bridge");
    EXPECT_EQ(run({"list"}),
              (Finished{.status = 0,
                        .output = "en5     service: en5  02:00:00:00:ff:05  ● link up 10GBase-T full-duplex  "
                                  "192.168.0.1 (manual)\n"
                                  "en1     service: en1  02:00:00:00:ff:01  ○ no link  no address\n"
                                  "en2     service: en2  02:00:00:00:ff:02  ○ no link  no address\n",
                        .errors = ""}));
}

TEST_F(CheckTest, NamesACardThatIsNotThere) {
    EXPECT_EQ(
        serve("en99"),
        (Finished{.status = 1, .output = "", .errors = "tarnwick: no network card named en99; run `tarnwick list`\n"}));
}

TEST_F(CheckTest, PassesACardThatIsSetUpAndServesIt) {
    ToolProcess tool(serving());
    EXPECT_EQ(lines(tool, 6), (std::vector<std::string>{wired, noServer, configured, noOverlap, portFree, linked}));
    EXPECT_EQ(withoutTime(lines(tool, 1).front()), startLine);
    EXPECT_EQ(withoutTime(lines(tool, 1).front()), "LINK         up 10GBase-T full-duplex");
    EXPECT_EQ(stop(tool), (std::vector<std::string>{"STOP         server stopped"}));
}

TEST_F(CheckTest, PrintsTheChecksAsTextBeforeJSON) {
    ToolProcess tool(serving({"--json"}));
    EXPECT_EQ(lines(tool, 6), (std::vector<std::string>{wired, noServer, configured, noOverlap, portFree, linked}));
    EXPECT_TRUE(lines(tool, 1).front().starts_with(R"({"event":"started","label":"START","text":"en5 server )"));
}

TEST_F(CheckTest, PrintsTheFixForACardWithoutTheAddress) {
    lab().removeAddress("en5");
    EXPECT_EQ(serve(), refused({wired, noServer, notConfigured, noOverlap, portFree, linked + fix}));
}

TEST_F(CheckTest, PrintsAFixThatMendsTheCardWhenRunWordForWord) {
    lab().removeAddress("en5");
    const Finished before = serve();
    ASSERT_TRUE(before.output.ends_with(fix + "\n")) << before.output;
    const std::string line = before.output.substr(before.output.rfind("  sudo "));

    EXPECT_EQ(pasted(line),
              (ProcessRunner::Output{
                  .status = 0,
                  .text = "Set en5 to 192.168.0.1/24 until the next restart, as no network manager owns it.\n"}));

    ToolProcess tool(serving());
    EXPECT_EQ(lines(tool, 6), (std::vector<std::string>{wired, noServer, configured, noOverlap, portFree, linked}));
    EXPECT_EQ(withoutTime(lines(tool, 1).front()), startLine);
}

TEST_F(CheckTest, PrintsTheFixForACardWithAnotherMask) {
    lab().removeAddress("en5");
    lab().host().ip("address add 192.168.0.1/16 dev en5");
    EXPECT_EQ(serve(), refused({wired, noServer, notConfigured, noOverlap, portFree, linked + fix}));
}

TEST_F(CheckTest, RefusesACardThatAnotherServerConfigured) {
    lab().removeAddress("en5");
    lab().host().ip("address add 192.168.0.1/24 dev en5 valid_lft 3600 preferred_lft 3600");
    EXPECT_EQ(serve(),
              refused({wired, "✗ This card is on a network that already has a DHCP server (it got 192.168.0.1).",
                       notConfigured, noOverlap, portFree, linked + fix}));
}

TEST_F(CheckTest, RefusesTheCardOfTheDefaultRoute) {
    lab().host().ip("route add default via 192.168.0.254");
    EXPECT_EQ(serve(), refused({"✗ en5 is the Mac's main internet connection.", noServer, configured, noOverlap,
                                portFree, linked}));
}

TEST_F(CheckTest, RefusesANetworkThatAnotherCardIsIn) {
    lab().plugCard("en6", mac(6));
    lab().host().ip("address add 192.168.7.7/16 dev en6");
    EXPECT_EQ(serve(), refused({wired, noServer, configured, "✗ 192.168.0.0/24 overlaps en6 (192.168.0.0/16)", portFree,
                                linked}));
}

TEST_F(CheckTest, RefusesACardThatIsNotWired) {
    lab().host().ip("link add wires type bridge");
    EXPECT_EQ(serve("wires"), refused({"✗ wires is not a wired card.", noServer,
                                       "✗ No network service for wires. Add it in System Settings > Network.",
                                       "✗ 192.168.0.0/24 overlaps en5 (192.168.0.0/24)", portFree,
                                       "⚠ No link: the server will start and wait for a device"}));
}

TEST_F(CheckTest, NamesTheProcessThatHoldsThePort) {
    ToolProcess first(serving());
    started(first);
    const std::string inUse = fmt::format("✗ Port 67 is in use by tarnwick:{}. Turn off Internet Sharing or stop the "
                                          "VM's shared network.",
                                          first.pid());
    EXPECT_EQ(serve(), refused({wired, noServer, configured, noOverlap, inUse, linked}));
    EXPECT_EQ(stop(first), (std::vector<std::string>{"STOP         server stopped"}));
}

TEST_F(CheckTest, StartsWithoutLinkAndServesWhenItComes) {
    lab().cutCable();
    ToolProcess tool(serving());
    EXPECT_EQ(lines(tool, 6), (std::vector<std::string>{wired, noServer, configured, noOverlap, portFree,
                                                        "⚠ No link: the server will start and wait for a device"}));
    EXPECT_EQ(eventsThrough(tool, "NOTICE"),
              (std::vector<std::string>{startLine, "LINK         down",
                                        "NOTICE       Link down. No device is connected to en5. Serving resumes on "
                                        "its own when the link returns."}));
    lab().mendCable();
    EXPECT_EQ(eventsThrough(tool, "LINK").back(), "LINK         up 10GBase-T full-duplex");
}

} // namespace
} // namespace Tarnwick
