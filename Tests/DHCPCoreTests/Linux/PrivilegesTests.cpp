#include "DHCPCore/Privileges.hpp"
#include "Support/TemporaryDirectory.hpp"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <sys/wait.h>
#include <unistd.h>

namespace DHCPCore {
namespace {

/// An entry of the kernel's account of this process, as in "CapPrm:\t00000000000000c0".
std::uint64_t entry(const std::string& name) {
    const std::string text = TestSupport::readText("/proc/self/status");
    const auto start = text.find("\n" + name + ":\t");
    return start == std::string::npos ? ~std::uint64_t{0}
                                      : std::stoull(text.substr(start + name.size() + 3), nullptr, 16);
}

bool hasGivenUpTheRest() {
    constexpr std::uint64_t network = 1U << 10U | 1U << 13U; // the port, and raw sockets
    constexpr std::uint64_t filesOfOthers = 0b1011;
    const std::uint64_t kept = entry("CapPrm") & (::geteuid() == 0 ? network | filesOfOthers : network);
    return Privileges::keepOnlyThoseForServing() == 0 && entry("CapPrm") == kept && (entry("CapEff") & ~kept) == 0 &&
           entry("CapInh") == 0 && entry("CapAmb") == 0 && entry("NoNewPrivs") == 1;
}

TEST(PrivilegesTest, GivesUpAllButThoseForServingAndMayBeAskedTwice) {
    const pid_t child = ::fork(); // it is for good, and the other tests need theirs
    if (child == 0) {
        const bool once = hasGivenUpTheRest();
        const bool twice = hasGivenUpTheRest();
        ::_exit(once && twice ? 0 : 1);
    }
    int status = 0;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
}

} // namespace
} // namespace DHCPCore
