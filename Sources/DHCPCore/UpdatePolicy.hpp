#pragma once

namespace DHCPCore {

/// Who asks for a look for a newer version.
enum class UpdateCheckKind { userInitiated, background };

namespace UpdatePolicy {

/// The user may always look; a schedule may not while the server runs.
[[nodiscard]] bool mayCheck(UpdateCheckKind kind, bool serverRunning);

} // namespace UpdatePolicy
} // namespace DHCPCore
