#pragma once

#include <cstddef>
#include <functional>
#include <ostream>
#include <string>
#include <string_view>
#include <variant>

/// Faults in the calls of the system that the library makes in this process. The linker leads each of these calls here
/// (`--wrap`); without an `InjectedFaults` they go on to the system.
namespace DHCPCore::TestSupport {

struct SystemCall {
    enum class Kind { open, read, write, close, rename, unlink, mkdir, lock, changeOwner, changeMode };

    Kind kind = Kind::open;
    std::size_t place = 0; ///< Among all calls since the faults were injected, from 0.
    std::string path;      ///< Empty for a call about a descriptor.
};

[[nodiscard]] std::string_view description(SystemCall::Kind kind);
inline void PrintTo(SystemCall::Kind kind, std::ostream* out) { *out << description(kind); }

/// What becomes of a call.
struct Fate {
    struct Passes {};
    /// Refused, with this error number. What `close` is asked to close is closed all the same.
    struct Fails {
        int number;
    };
    /// So many bytes are written at most.
    struct WritesShort {
        std::size_t bytes;
    };
    /// The process is killed before the call reaches the system, or when the system has carried it out.
    struct Kills {
        bool afterwards;
    };
    std::variant<Passes, Fails, WritesShort, Kills> value{};
};

/// As long as it lives, each call is shown to `judge`, on the thread that makes it and one at a time.
class InjectedFaults {
  public:
    using Judge = std::function<Fate(const SystemCall&)>;

    explicit InjectedFaults(Judge judge);
    InjectedFaults(const InjectedFaults&) = delete;
    InjectedFaults& operator=(const InjectedFaults&) = delete;
    InjectedFaults(InjectedFaults&&) = delete;
    InjectedFaults& operator=(InjectedFaults&&) = delete;
    ~InjectedFaults();
};

} // namespace DHCPCore::TestSupport
