#pragma once

#include <string_view>

namespace Tarnwick {

/// Opens whichever of standard input, output and error the parent closed on "/dev/null", so that no file or socket
/// opened later takes its number and gets what was meant for the user.
void openMissingStandardDescriptors();

/// Writes the text and a line feed to standard output, at once. @return as `DHCPCore::writeAll`.
int printLine(std::string_view text);

/// Writes "tarnwick: ", the text and a line feed to standard error.
void printError(std::string_view text);

} // namespace Tarnwick
