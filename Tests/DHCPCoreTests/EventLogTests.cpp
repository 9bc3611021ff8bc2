#include "DHCPCore/EventLog.hpp"
#include "Support/Builders.hpp"
#include "Support/Printing.hpp"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <chrono>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace DHCPCore {
namespace {

using namespace std::chrono_literals;
using namespace TestSupport::Literals;
using TestSupport::discover;
using TestSupport::mac;
using TestSupport::newLease;
using TestSupport::newlyBound;
using TestSupport::smallConfig;

constexpr Date noon = std::chrono::sys_days{2025y / 1 / 31} + 13h + 4min + 5s;
constexpr Date date = noon + 7ms;

std::optional<std::string> lineOf(decltype(ServerEvent::value) event) {
    return EventLog::line(ServerEvent{std::move(event)}, date, TimeZone::utc());
}

std::optional<std::string> jsonOf(decltype(ServerEvent::value) event) {
    return EventLog::json(ServerEvent{std::move(event)}, date);
}

std::string infoLine(std::string_view text) { return EventLog::line("INFO", text, date, TimeZone::utc()); }

PacketSummary fullSummary() {
    PacketSummary summary;
    summary.type = DHCPMessageType::request;
    summary.mac = mac(1);
    summary.xid = 0xABCD;
    summary.hostname = "pdu";
    summary.vendorClass = "APC 7900";
    summary.clientID = "01:02:00:00:00:00:01";
    summary.requestedIP = "10.0.0.10"_ip;
    summary.serverID = "10.0.0.1"_ip;
    summary.ciaddr = "10.0.0.11"_ip;
    summary.interface = "en5";
    return summary;
}

SentSummary sentSummary(std::optional<std::string> note) {
    return {.type = DHCPMessageType::ack,
            .ip = "10.0.0.10"_ip,
            .mac = mac(1),
            .destination = {ReplyDestination::Broadcast{}},
            .interface = "en5",
            .note = std::move(note)};
}

TEST(EventLogTest, WritesStarted) {
    const ServerEvent::Started event{.interface = "en5", .config = smallConfig()};
    EXPECT_EQ(lineOf(event), "13:04:05.007  START        en5 server 10.0.0.1/24 range 10.0.0.10-10.0.0.12 lease 1 h");
    EXPECT_EQ(jsonOf(event), R"({"event":"started","label":"START",)"
                             R"("text":"en5 server 10.0.0.1\/24 range 10.0.0.10-10.0.0.12 lease 1 h",)"
                             R"("time":"2025-01-31T13:04:05Z"})");
}

TEST(EventLogTest, WritesReceivedWithEveryField) {
    const ServerEvent::Received event{.summary = fullSummary()};
    EXPECT_EQ(lineOf(event),
              "13:04:05.007  RX REQUEST   02:00:00:00:00:01 host=pdu vendor=APC 7900 req=10.0.0.10 sid=10.0.0.1 "
              "ciaddr=10.0.0.11 cid=01:02:00:00:00:00:01 xid=0x0000abcd if=en5");
    EXPECT_EQ(jsonOf(event),
              R"({"event":"received","hostname":"pdu","label":"RX REQUEST","mac":"02:00:00:00:00:01",)"
              R"("requestedIP":"10.0.0.10","serverID":"10.0.0.1","text":"02:00:00:00:00:01 host=pdu vendor=APC 7900 )"
              R"(req=10.0.0.10 sid=10.0.0.1 ciaddr=10.0.0.11 cid=01:02:00:00:00:00:01 xid=0x0000abcd if=en5",)"
              R"("time":"2025-01-31T13:04:05Z","type":"REQUEST","vendorClass":"APC 7900","xid":"0x0000abcd"})");
}

TEST(EventLogTest, PadsTheLabelOfADiscoverByOneBlank) {
    const ServerEvent::Received event{.summary = PacketSummary(discover(mac(1)), std::nullopt)};
    EXPECT_EQ(lineOf(event), "13:04:05.007  RX DISCOVER  02:00:00:00:00:01 host=- vendor=- req=- xid=0x1234abcd");
}

TEST(EventLogTest, WritesReceivedWithoutATypeAsAQuestionMark) {
    const ServerEvent::Received event{.summary = PacketSummary{}};
    EXPECT_EQ(lineOf(event), "13:04:05.007  RX ?         - host=- vendor=- req=- xid=0x00000000");
    EXPECT_EQ(jsonOf(event), R"({"event":"received","label":"RX ?","text":"- host=- vendor=- req=- xid=0x00000000",)"
                             R"("time":"2025-01-31T13:04:05Z","xid":"0x00000000"})");
}

TEST(EventLogTest, WritesSent) {
    const ServerEvent::Sent event{.summary = sentSummary("lease 1 h, +APC cookie")};
    EXPECT_EQ(lineOf(event), "13:04:05.007  TX ACK       10.0.0.10 -> 255.255.255.255:68 via en5 "
                             "(lease 1 h, +APC cookie)");
    EXPECT_EQ(jsonOf(event), R"({"destination":"255.255.255.255:68","event":"sent","interface":"en5","ip":"10.0.0.10",)"
                             R"("label":"TX ACK","mac":"02:00:00:00:00:01","note":"lease 1 h, +APC cookie",)"
                             R"-("text":"10.0.0.10 -> 255.255.255.255:68 via en5 (lease 1 h, +APC cookie)",)-"
                             R"("time":"2025-01-31T13:04:05Z","type":"ACK"})");
}

TEST(EventLogTest, WritesSentWithoutANote) {
    const ServerEvent::Sent event{.summary = sentSummary(std::nullopt)};
    EXPECT_EQ(lineOf(event), "13:04:05.007  TX ACK       10.0.0.10 -> 255.255.255.255:68 via en5");
    EXPECT_EQ(jsonOf(event), R"({"destination":"255.255.255.255:68","event":"sent","interface":"en5","ip":"10.0.0.10",)"
                             R"("label":"TX ACK","mac":"02:00:00:00:00:01",)"
                             R"("text":"10.0.0.10 -> 255.255.255.255:68 via en5",)"
                             R"("time":"2025-01-31T13:04:05Z","type":"ACK"})");
}

TEST(EventLogTest, WritesDropped) {
    const ServerEvent::Dropped event{.reason = "address pool exhausted", .mac = mac(1)};
    EXPECT_EQ(lineOf(event), "13:04:05.007  DROP         address pool exhausted 02:00:00:00:00:01");
    EXPECT_EQ(jsonOf(event), R"({"event":"dropped","label":"DROP",)"
                             R"("text":"address pool exhausted 02:00:00:00:00:01","time":"2025-01-31T13:04:05Z"})");
}

TEST(EventLogTest, WritesDroppedWithoutAMAC) {
    const ServerEvent::Dropped event{.reason = "not a client request (op 2)", .mac = std::nullopt};
    EXPECT_EQ(lineOf(event), "13:04:05.007  DROP         not a client request (op 2)");
}

TEST(EventLogTest, WritesLeaseChanged) {
    ServerEvent::LeaseChanged event{.lease = newlyBound(mac(1), "10.0.0.10"_ip, noon)};
    EXPECT_EQ(lineOf(event), "13:04:05.007  LEASE        bound 10.0.0.10 02:00:00:00:00:01");
    event.lease.hostname = "pdu";
    EXPECT_EQ(lineOf(event), "13:04:05.007  LEASE        bound 10.0.0.10 02:00:00:00:00:01 host=pdu");
    EXPECT_EQ(jsonOf(event), R"({"event":"leaseChanged","ip":"10.0.0.10","label":"LEASE","mac":"02:00:00:00:00:01",)"
                             R"("state":"bound","text":"bound 10.0.0.10 02:00:00:00:00:01 host=pdu",)"
                             R"("time":"2025-01-31T13:04:05Z"})");
}

TEST(EventLogTest, NamesEveryLeaseState) {
    const std::vector<std::pair<Lease::State, std::string>> states{{Lease::State::offered, "offered"},
                                                                   {Lease::State::bound, "bound"},
                                                                   {Lease::State::released, "released"},
                                                                   {Lease::State::reclaimed, "reclaimed"}};
    for (const auto& [state, word] : states) {
        const ServerEvent event{ServerEvent::LeaseChanged{newLease(state, mac(1), "10.0.0.10"_ip, noon)}};
        EXPECT_EQ(EventLog::parts(event),
                  (EventLog::Parts{.label = "LEASE", .text = word + " 10.0.0.10 02:00:00:00:00:01"}));
    }
}

TEST(EventLogTest, WritesLeaseRemoved) {
    const ServerEvent::LeaseRemoved event{.mac = mac(1)};
    EXPECT_EQ(lineOf(event), "13:04:05.007  LEASE        removed 02:00:00:00:00:01");
    EXPECT_EQ(jsonOf(event), R"({"event":"leaseRemoved","label":"LEASE","text":"removed 02:00:00:00:00:01",)"
                             R"("time":"2025-01-31T13:04:05Z"})");
}

TEST(EventLogTest, WritesPresence) {
    const ServerEvent::Presence event{
        .ip = "10.0.0.10"_ip, .mac = mac(1), .state = PresenceState::online, .detail = "ping reply"};
    EXPECT_EQ(lineOf(event), "13:04:05.007  ONLINE       10.0.0.10 02:00:00:00:00:01 ping reply");
    EXPECT_EQ(jsonOf(event), R"({"event":"presence","ip":"10.0.0.10","label":"ONLINE","mac":"02:00:00:00:00:01",)"
                             R"("state":"online","text":"10.0.0.10 02:00:00:00:00:01 ping reply",)"
                             R"("time":"2025-01-31T13:04:05Z"})");
}

TEST(EventLogTest, LabelsPresenceWithItsStateInUpperCase) {
    const std::vector<std::pair<PresenceState, std::string>> labels{{PresenceState::unknown, "UNKNOWN"},
                                                                    {PresenceState::online, "ONLINE"},
                                                                    {PresenceState::offline, "OFFLINE"},
                                                                    {PresenceState::conflict, "CONFLICT"}};
    for (const auto& [state, label] : labels) {
        const ServerEvent event{
            ServerEvent::Presence{.ip = "10.0.0.10"_ip, .mac = mac(1), .state = state, .detail = "x"}};
        EXPECT_EQ(EventLog::parts(event), (EventLog::Parts{.label = label, .text = "10.0.0.10 02:00:00:00:00:01 x"}));
    }
}

TEST(EventLogTest, WritesLink) {
    EXPECT_EQ(lineOf(ServerEvent::Link{.up = true, .media = "1000baseT full-duplex"}),
              "13:04:05.007  LINK         up 1000baseT full-duplex");
    EXPECT_EQ(lineOf(ServerEvent::Link{.up = true, .media = std::nullopt}), "13:04:05.007  LINK         up");
    EXPECT_EQ(jsonOf(ServerEvent::Link{.up = true, .media = "1000baseT full-duplex"}),
              R"({"event":"link","label":"LINK","text":"up 1000baseT full-duplex","time":"2025-01-31T13:04:05Z"})");
}

TEST(EventLogTest, ShowsNoMediaOfALinkThatIsDown) {
    const ServerEvent::Link event{.up = false, .media = "1000baseT"};
    EXPECT_EQ(lineOf(event), "13:04:05.007  LINK         down");
    EXPECT_EQ(jsonOf(event), R"({"event":"link","label":"LINK","text":"down","time":"2025-01-31T13:04:05Z"})");
}

TEST(EventLogTest, WritesNoticeRaised) {
    const ServerEvent::NoticeRaised event{.notice = {.kind = NoticeKind::linkDown, .message = "No device."}};
    EXPECT_EQ(lineOf(event), "13:04:05.007  NOTICE       No device.");
    EXPECT_EQ(jsonOf(event),
              R"({"event":"notice","label":"NOTICE","text":"No device.","time":"2025-01-31T13:04:05Z"})");
}

TEST(EventLogTest, WritesNothingForNoticeCleared) {
    const ServerEvent::NoticeCleared event{.kind = NoticeKind::linkDown};
    EXPECT_EQ(lineOf(event), std::nullopt);
    EXPECT_EQ(jsonOf(event), std::nullopt);
    EXPECT_EQ(EventLog::parts({event}), std::nullopt);
    EXPECT_EQ(EventLog::kind({event}), "noticeCleared");
}

TEST(EventLogTest, WritesInfo) {
    const ServerEvent::Info event{.text = "waiting for the adapter…"};
    EXPECT_EQ(lineOf(event), "13:04:05.007  INFO         waiting for the adapter…");
    EXPECT_EQ(jsonOf(event),
              R"({"event":"info","label":"INFO","text":"waiting for the adapter…","time":"2025-01-31T13:04:05Z"})");
}

TEST(EventLogTest, WritesStopped) {
    EXPECT_EQ(lineOf(ServerEvent::Stopped{}), "13:04:05.007  STOP         server stopped");
    EXPECT_EQ(jsonOf(ServerEvent::Stopped{}),
              R"({"event":"stopped","label":"STOP","text":"server stopped","time":"2025-01-31T13:04:05Z"})");
}

TEST(EventLogTest, CutsTheTimeInJSONToTheSecond) {
    const ServerEvent event{ServerEvent::Stopped{}};
    EXPECT_EQ(EventLog::json(event, noon + 999999us), EventLog::json(event, noon));
    EXPECT_NE(EventLog::json(event, noon + 1s), EventLog::json(event, noon));
}

TEST(EventLogTest, ShowsTheWallClockOfTheZone) {
    EXPECT_EQ(EventLog::timestamp(date, TimeZone::utc()), "13:04:05.007");
    EXPECT_EQ(EventLog::timestamp(date, {.offset = 5h + 30min}), "18:34:05.007");
    EXPECT_EQ(EventLog::timestamp(date, {.offset = -14h}), "23:04:05.007");
}

TEST(EventLogTest, RoundsMillisecondsDown) {
    EXPECT_EQ(EventLog::timestamp(noon, TimeZone::utc()), "13:04:05.000");
    EXPECT_EQ(EventLog::timestamp(noon + 999us, TimeZone::utc()), "13:04:05.000");
    EXPECT_EQ(EventLog::timestamp(noon + 1000us, TimeZone::utc()), "13:04:05.001");
    EXPECT_EQ(EventLog::timestamp(noon + 999999us, TimeZone::utc()), "13:04:05.999");
}

TEST(EventLogTest, RoundsMillisecondsDownBefore1970) {
    EXPECT_EQ(EventLog::timestamp(Date{-1us}, TimeZone::utc()), "23:59:59.999");
    EXPECT_EQ(EventLog::timestamp(Date{-1500ms}, TimeZone::utc()), "23:59:58.500");
}

TEST(EventLogLineTest, PadsTheLabelToTwelveCharacters) {
    EXPECT_EQ(EventLog::line("", "text", date, TimeZone::utc()), "13:04:05.007               text");
    EXPECT_EQ(EventLog::line("elevenchars", "text", date, TimeZone::utc()), "13:04:05.007  elevenchars  text");
}

TEST(EventLogLineTest, KeepsALongLabelWhole) {
    EXPECT_EQ(EventLog::line("twelve-chars", "text", date, TimeZone::utc()), "13:04:05.007  twelve-chars text");
    EXPECT_EQ(EventLog::line("thirteenchars", "text", date, TimeZone::utc()), "13:04:05.007  thirteenchars text");
}

TEST(EventLogLineTest, EscapesControlCharacters) {
    const std::vector<std::pair<std::string_view, std::string_view>> escapes{{{"\0", 1}, "\\x00"},
                                                                             {"\n", "\\x0a"},
                                                                             {"\r", "\\x0d"},
                                                                             {"\t", "\\x09"},
                                                                             {"\x1b[2J", "\\x1b[2J"},
                                                                             {"\x1f", "\\x1f"},
                                                                             {" ", " "},
                                                                             {"~", "~"},
                                                                             {"\x7f", "\\x7f"},
                                                                             {"\u0080", "\\xc2\\x80"},
                                                                             {"\u009f", "\\xc2\\x9f"},
                                                                             {"\u00a0", "\u00a0"},
                                                                             {"a\\x1b", "a\\x1b"}};
    for (const auto& [text, escape] : escapes) {
        EXPECT_EQ(infoLine(text), "13:04:05.007  INFO         " + std::string(escape));
    }
}

TEST(EventLogLineTest, EscapesTheLabelToo) {
    EXPECT_EQ(EventLog::line("\x1b\n", "text", date, TimeZone::utc()), "13:04:05.007  \\x1b\\x0a     text");
}

TEST(EventLogLineTest, KeepsUTF8) {
    for (const std::string text : {"…", "·", "\u07ff", "\u0800", "\ud7ff", "\ue000", "\uffff", "\U00010000",
                                   "\U0010ffff", "Prüfling 測試 🙂"}) {
        EXPECT_EQ(infoLine(text), "13:04:05.007  INFO         " + text);
    }
}

TEST(EventLogLineTest, EscapesBytesThatAreNotUTF8) {
    const std::vector<std::pair<std::string_view, std::string_view>> escapes{
        {"a\x80z", R"(a\x80z)"},                              // a continuation without a start
        {"\xc0\xaf", R"(\xc0\xaf)"},                          // overlong, two bytes
        {"\xc1\xbf", R"(\xc1\xbf)"},                          // likewise
        {"\xc3", R"(\xc3)"},                                  // cut after the start
        {"\xc3(", R"(\xc3()"},                                // a start without a continuation
        {"\xe0\x9f\xbf", R"(\xe0\x9f\xbf)"},                  // overlong, three bytes
        {"\xe2\x80", R"(\xe2\x80)"},                          // cut after the second byte
        {"\xe2\x80…", R"(\xe2\x80…)"},                        // what follows is read afresh
        {"\xed\xa0\x80", R"(\xed\xa0\x80)"},                  // a surrogate
        {"\xf0\x8f\xbf\xbf", R"(\xf0\x8f\xbf\xbf)"},          // overlong, four bytes
        {"\xf0\x9f\x99", R"(\xf0\x9f\x99)"},                  // cut after the third byte
        {"\xf4\x90\x80\x80", R"(\xf4\x90\x80\x80)"},          // beyond U+10FFFF
        {"\xf5\x80\x80\x80\xff", R"(\xf5\x80\x80\x80\xff)"}}; // never a start
    for (const auto& [text, escape] : escapes) {
        EXPECT_EQ(infoLine(text), "13:04:05.007  INFO         " + std::string(escape));
    }
}

TEST(EventLogJSONTest, EscapesWhatATerminalCouldActUpon) {
    const ServerEvent::Info event{.text = "a/b\n\x1b[2J\x7f\u0080\u009f\u00a0\"\\"};
    EXPECT_EQ(jsonOf(event), "{\"event\":\"info\",\"label\":\"INFO\","
                             "\"text\":\"a\\/b\\n\\u001b[2J\\u007f\\u0080\\u009f\u00a0\\\"\\\\\","
                             "\"time\":\"2025-01-31T13:04:05Z\"}");
}

TEST(EventLogJSONTest, RepairsBytesThatAreNotUTF8) {
    const ServerEvent::Info event{.text = "a\xff"
                                          "b\xc3"};
    EXPECT_EQ(jsonOf(event), "{\"event\":\"info\",\"label\":\"INFO\",\"text\":\"a\ufffdb\ufffd\","
                             "\"time\":\"2025-01-31T13:04:05Z\"}");
}

TEST(EventLogJSONTest, IsReadBackAsItWasWritten) {
    std::string everyASCII;
    for (char character = 0; character >= 0 && character < 127; ++character) {
        everyASCII += character;
    }
    everyASCII += "\x7f\u0085…🙂";
    const auto text = jsonOf(ServerEvent::Info{.text = everyASCII});
    ASSERT_TRUE(text);
    EXPECT_EQ(nlohmann::json::parse(*text).at("text"), everyASCII);
}

} // namespace
} // namespace DHCPCore
