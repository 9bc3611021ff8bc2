#pragma once

#include <string>
#include <vector>

/// Runs other programs. Blocks.
namespace DHCPCore::ProcessRunner {

struct Output {
    int status = -1;  ///< The exit status; -1 when the program could not be launched.
    std::string text; ///< Standard output and standard error together; why it could not be launched.

    bool operator==(const Output&) const = default;
};

/// Runs the program at that path, without a shell, and waits for its end. Bytes that are no UTF-8 come out replaced.
[[nodiscard]] Output run(const std::string& path, const std::vector<std::string>& arguments);

} // namespace DHCPCore::ProcessRunner
