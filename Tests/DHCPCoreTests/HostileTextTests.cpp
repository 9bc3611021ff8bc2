// What a device may call itself, on its way to a terminal, a log and a program that reads JSON.
#include "DHCPCore/EventLog.hpp"
#include "Support/Builders.hpp"
#include "Support/HostileTexts.hpp"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <string>

namespace DHCPCore {
namespace {

using namespace TestSupport; // NOLINT(*-build-using-namespace): the words of the tests
using nlohmann::json;

ServerEvent receivedFrom(const HostileText& text) {
    return {ServerEvent::Received{PacketSummary(discover(mac(1))
                                                    .with(OptionCode::hostname, text.bytes)
                                                    .with(OptionCode::vendorClass, text.bytes)
                                                    .with(OptionCode::clientID, text.bytes),
                                                "en7")}};
}

std::string hexadecimal(const Bytes& bytes) {
    constexpr std::string_view digits = "0123456789abcdef";
    std::string text;
    for (const std::uint8_t byte : bytes) {
        text += text.empty() ? "" : ":";
        text += {digits[byte / 16U], digits[byte % 16U]};
    }
    return text;
}

std::string shownText(const HostileText& text) {
    return "02:00:00:00:00:01 host=" + text.shown + " vendor=" + text.shown + " req=- cid=" + hexadecimal(text.bytes) +
           " xid=0x1234abcd if=en7";
}

TEST(HostileTextTest, ShowsEveryByteOfANameInOneLine) {
    for (const HostileText& text : hostileTexts()) {
        SCOPED_TRACE(text.shown);
        const auto line = EventLog::line(receivedFrom(text), Date{}, TimeZone::utc());
        EXPECT_EQ(line, "00:00:00.000  RX DISCOVER  " + shownText(text));
        EXPECT_TRUE(isOneLine(line.value()));
    }
}

TEST(HostileTextTest, ShowsEveryByteOfANameInOneJSONObject) {
    for (const HostileText& text : hostileTexts()) {
        SCOPED_TRACE(text.shown);
        const auto line = EventLog::json(receivedFrom(text), Date{}).value();
        EXPECT_TRUE(isOneLine(line));
        EXPECT_EQ(json::parse(line), (json{{"time", "1970-01-01T00:00:00Z"},
                                           {"event", "received"},
                                           {"label", "RX DISCOVER"},
                                           {"text", shownText(text)},
                                           {"type", "DISCOVER"},
                                           {"mac", "02:00:00:00:00:01"},
                                           {"hostname", text.shown},
                                           {"vendorClass", text.shown},
                                           {"xid", "0x1234abcd"}}));
    }
}

TEST(HostileTextTest, ShowsEveryNameOfALeaseInOneLineWhereverItCameFrom) {
    for (const HostileText& text : hostileTexts()) {
        SCOPED_TRACE(text.shown);
        Lease lease = newlyBound(mac(1), "10.0.0.10"_ip, now);
        lease.hostname = std::string(text.bytes.begin(), text.bytes.end()); // as a file may have it
        const ServerEvent event{ServerEvent::LeaseChanged{lease}};
        EXPECT_TRUE(isOneLine(EventLog::line(event, Date{}, TimeZone::utc()).value()));
        const auto object = EventLog::json(event, Date{}).value();
        EXPECT_TRUE(isOneLine(object));
        EXPECT_EQ(json::parse(object).at("event"), "leaseChanged");
    }
}

} // namespace
} // namespace DHCPCore
