#pragma once

#include "DHCPCore/Config.hpp"
#include "DHCPCore/Date.hpp"
#include "DHCPCore/Events.hpp"
#include "DHCPCore/Packet.hpp"
#include "DHCPCore/Responder.hpp"
#include "Model/LeaseModel.hpp"

#include <vector>

namespace DHCPCore::Model {

/// What one packet leads to by the plain rules.
struct Outcome {
    DecisionAction action;
    Table table;
    bool tableChanged = false;
    std::vector<ServerEvent> notes;
};

/// What a decision rests on beside the packet and the configuration.
struct Circumstances {
    Table table;
    PresenceMap presence;
    ProbeAnswers probes;
    Date now;
};

/// What `Responder::decide` does. Reads the packet's options and builds the reply by itself.
[[nodiscard]] Outcome decide(const ServerConfig& config, const DHCPPacket& packet, const Circumstances& circumstances);

[[nodiscard]] bool agree(const Outcome& outcome, const Decision& decision);

} // namespace DHCPCore::Model
