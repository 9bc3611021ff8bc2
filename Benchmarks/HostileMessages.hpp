#pragma once

#include "Clients.hpp"
#include "DHCPCore/Addresses.hpp"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <random>
#include <string_view>
#include <vector>

namespace DHCPLoad {

/// What somebody may send to a server that means it no good.
enum class Hostility {
    malformed, ///< Packets that a server must throw away.
    garbage,   ///< Those, bytes at random, and good packets with bytes changed at random.
    discovers, ///< DISCOVERs, each from a device that was never seen.
    declines,  ///< DECLINEs from new devices, for addresses all over the world.
    names,     ///< DISCOVERs whose names hold every byte, escape sequences, format directives and broken UTF-8.
    oversized, ///< DISCOVERs with 100 names of 255 bytes each.
};

/// The kind of that name; nothing for any other text.
[[nodiscard]] std::optional<Hostility> hostilityNamed(std::string_view name);

/// An endless supply of messages of one kind.
class HostileMessages {
  public:
    explicit HostileMessages(Hostility kind);

    /// The next one, valid until the one after it.
    [[nodiscard]] const DHCPCore::Bytes& next();

  private:
    void makeGarbage();
    void makeDecline();
    void makeNames();
    void makeOversized();
    [[nodiscard]] std::size_t below(std::size_t end);

    Hostility kind_;
    std::vector<DHCPCore::Bytes> malformed_;
    Messages messages_;
    std::minstd_rand random_{std::random_device{}()};
    std::size_t count_ = 0;
    DHCPCore::Bytes bytes_;
};

} // namespace DHCPLoad
