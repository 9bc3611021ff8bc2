#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace Tarnwick {

/// Why this process can make no networks, as a reason to skip a test; nothing when it can.
[[nodiscard]] std::optional<std::string> whyNoNetworks();

/// A network namespace under a name that no other test has. At its end, what still runs in it is killed, and it is
/// removed; those of a test that died are removed by the next test.
class Network {
  public:
    /// With a loopback device that is up, and nothing else. @throws std::runtime_error
    explicit Network(std::string_view purpose);
    Network(const Network&) = delete;
    Network& operator=(const Network&) = delete;
    Network(Network&&) = delete;
    Network& operator=(Network&&) = delete;
    ~Network();

    [[nodiscard]] const std::string& name() const { return name_; }

    /// The words that run a program in it, when they stand before the program's own.
    [[nodiscard]] std::vector<std::string> prefix() const { return {"ip", "netns", "exec", name_}; }

    /// Runs `ip` with these words in it. @throws std::runtime_error when it is refused.
    void ip(const std::string& words) const;

    /// Sets one of its parameters, as in "net.ipv4.ip_forward=1". @throws std::runtime_error when it is refused.
    void set(const std::string& parameter) const;

    /// Runs the work on a thread of its own that sees this network. A socket opened there stays in it.
    void within(const std::function<void()>& work) const;

    /// Waits until the card has link. @throws std::runtime_error when it gets none in time.
    void awaitLink(const std::string& card) const;

  private:
    std::string name_;
};

} // namespace Tarnwick
