#pragma once

#include "Support/Patience.hpp"

#include <chrono>
#include <thread>
#include <type_traits>

namespace DHCPCore::TestSupport {

/// What `look` gave last: at most `most` as soon as it is, or whatever it is when patience is over. For counts that
/// another thread or process raises for moments, while it writes a line or ends.
template <typename Look>
[[nodiscard]] auto settled(const Look& look, const std::invoke_result_t<Look>& most) {
    const auto end = std::chrono::steady_clock::now() + patience;
    auto count = look();
    while (count > most && std::chrono::steady_clock::now() < end) {
        std::this_thread::sleep_for(std::chrono::milliseconds{1});
        count = look();
    }
    return count;
}

} // namespace DHCPCore::TestSupport
