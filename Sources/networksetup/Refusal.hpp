#pragma once

#include "DHCPCore/Error.hpp"

namespace NetworkSetup {

/// Why the program did not do what it was asked for. Its description is the one sentence for the user.
class Refusal : public DHCPCore::Error {
  public:
    using Error::Error;
    bool operator==(const Refusal& other) const { return description() == other.description(); }
};

} // namespace NetworkSetup
