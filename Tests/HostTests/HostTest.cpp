#include "HostTests/HostTest.hpp"

#include "DHCPCore/Date.hpp"
#include "DHCPCore/LeaseFile.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <iterator>
#include <regex>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <thread>

namespace Tarnwick {

using namespace DHCPCore;

namespace {

constexpr const char* resolverFile = "/etc/resolv.conf";

/// Takes leave of processes that ended without their parent.
void reapOrphans() {
    while (::waitpid(-1, nullptr, WNOHANG) > 0) {
    }
}

} // namespace

void HostTest::SetUp() {
    if (const auto reason = whyNoNetworks()) {
        GTEST_SKIP() << *reason;
    }
    ::prctl(PR_SET_CHILD_SUBREAPER, 1); // what a client leaves behind comes to us, and not to the machine
    resolverBefore_ = TestSupport::readText(resolverFile);
    lab_.emplace();
}

void HostTest::TearDown() {
    lab_.reset();
    reapOrphans();
    EXPECT_EQ(TestSupport::readText(resolverFile), resolverBefore_) << "a test changed the machine's own name servers";
}

ToolProcess::Setting HostTest::serving(const std::vector<std::string>& further) const {
    std::vector<std::string> arguments{"serve", "--iface", "en5", "--leases", leases().string()};
    arguments.insert(arguments.end(), further.begin(), further.end());
    return {.arguments = std::move(arguments), .prefix = lab().host().prefix()};
}

void HostTest::keepLeases(const std::vector<Lease>& kept) const {
    LeaseFile{.url = leases()}.save(LeaseTable(kept, {}));
}

Lease HostTest::keptLease(const MACAddress& mac, IPv4Address ip) {
    const Date now = currentDate();
    return TestSupport::newlyBound(mac, ip, now + std::chrono::hours{1}, now);
}

std::vector<std::string> HostTest::eventsThrough(ToolProcess& tool, const std::string& start) {
    std::vector<std::string> events;
    while (const auto line = tool.line()) {
        events.push_back(withoutTime(*line));
        if (events.back().starts_with(start)) {
            return events;
        }
    }
    ADD_FAILURE() << fmt::format("no event \"{}\" came, but: {}", start, fmt::join(events, "\n"));
    events.emplace_back("(nothing)"); // so that there is a last one
    return events;
}

std::vector<std::string> HostTest::started(ToolProcess& tool) {
    std::vector<std::string> events{withoutTime(tool.linesThrough("  START  ").back())};
    std::ranges::move(eventsThrough(tool, "LINK "), std::back_inserter(events));
    return events;
}

std::vector<std::string> HostTest::stop(ToolProcess& tool) {
    tool.signal(SIGINT);
    std::vector<std::string> events;
    while (const auto line = tool.line()) {
        events.push_back(withoutTime(*line));
    }
    EXPECT_EQ(tool.wait(), 0);
    EXPECT_EQ(tool.errors(), "");
    return events;
}

std::ptrdiff_t HostTest::entries(const ToolProcess& tool, const std::string& folder) {
    return std::distance(std::filesystem::directory_iterator(fmt::format("/proc/{}/{}", tool.pid(), folder)), {});
}

std::string HostTest::logged(const ToolProcess& tool) {
    std::vector<std::filesystem::path> files;
    if (std::filesystem::is_directory(logFolder(tool))) {
        std::ranges::copy(std::filesystem::directory_iterator(logFolder(tool)), std::back_inserter(files));
    }
    std::ranges::sort(files);
    std::string text;
    for (const auto& file : files) {
        EXPECT_TRUE(std::regex_match(file.filename().string(), std::regex(R"(\d{4}-\d\d-\d\d\.log)"))) << file;
        text += TestSupport::readText(file);
    }
    return text;
}

void HostTest::awaitLogged(const ToolProcess& tool, const std::string& text) {
    const auto deadline = std::chrono::steady_clock::now() + patience;
    while (logged(tool).find(text) == std::string::npos) {
        if (std::chrono::steady_clock::now() > deadline) {
            FAIL() << "no \"" << text << "\" was logged, but: " << logged(tool);
        }
        std::this_thread::sleep_for(std::chrono::milliseconds{1});
    }
}

bool tells(const std::vector<std::string>& events, const std::string& start) {
    return std::ranges::any_of(events, [&start](const std::string& event) { return event.starts_with(start); });
}

} // namespace Tarnwick
