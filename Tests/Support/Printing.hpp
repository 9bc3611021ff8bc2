#pragma once

#include <ostream>

namespace DHCPCore {

/// Lets GoogleTest show every value that has a printed form by it, so that a failure reads as a sentence.
template <class T>
requires requires(const T& value, std::ostream& out) { out << value.description(); }
void PrintTo(const T& value, std::ostream* out) { *out << value.description(); }

} // namespace DHCPCore
