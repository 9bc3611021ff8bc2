#include "DHCPCore/EventLog.hpp"
#include "DHCPCore/LeaseStore.hpp"
#include "DHCPCore/Responder.hpp"
#include "Model/Session.hpp"

#include <gtest/gtest.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <set>
#include <string>
#include <utility>
#include <variant>
#include <vector>

namespace DHCPCore {

namespace {

using Model::Session;
using Model::Step;

/// A number from the environment, for longer runs: `TARNWICK_MODEL_SESSIONS=100000`, and `TARNWICK_MODEL_SEED` to begin
/// elsewhere.
std::uint64_t setting(const char* name, std::uint64_t usual) {
    const char* text = std::getenv(name); // NOLINT(concurrency-mt-unsafe): nothing changes the environment
    return text == nullptr ? usual : std::stoull(text);
}

Decision decideForReal(const ServerConfig& config, const DHCPPacket& packet, DecisionContext context) {
    return Responder{config}.decide(packet, std::move(context));
}

/// A server that forgets who declined what.
Decision decideWithoutQuarantine(const ServerConfig& config, const DHCPPacket& packet, DecisionContext context) {
    context.table.pruneQuarantine(Date::max());
    return decideForReal(config, packet, std::move(context));
}

/// A server that thinks that a lease ends a microsecond later than it does.
Decision decideTooLate(const ServerConfig& config, const DHCPPacket& packet, DecisionContext context) {
    context.now -= std::chrono::microseconds{1};
    return decideForReal(config, packet, std::move(context));
}

/// A refusal's reason, or what kind of answer was given.
std::string outcomeOf(const Decision& decision) {
    if (const auto* reply = std::get_if<DecisionAction::Reply>(&decision.action.value)) {
        const bool refused = reply->reply.type == DHCPMessageType::nak;
        return refused ? reply->reply.note.value() : std::string{description(reply->reply.type)};
    }
    if (std::holds_alternative<DecisionAction::Probe>(decision.action.value)) {
        return "probe";
    }
    const ServerEvent& note = decision.notes.front();
    const auto* dropped = std::get_if<ServerEvent::Dropped>(&note.value);
    return dropped != nullptr ? dropped->reason.substr(0, 12) : std::string{EventLog::kind(note)};
}

std::size_t messagesIn(const Session& session) {
    std::size_t count = 0;
    for (const Step& step : session.steps) {
        count += std::holds_alternative<Step::Message>(step.value) ? 1U : 0U;
    }
    return count;
}

} // namespace

TEST(SessionModelTest, DecidesEveryMessageOfRandomSessionsByThePlainRules) {
    const std::uint64_t firstSeed = setting("TARNWICK_MODEL_SEED", 1);
    const std::uint64_t count = setting("TARNWICK_MODEL_SESSIONS", 48);
    std::size_t messages = 0;
    for (std::uint64_t seed = firstSeed; seed < firstSeed + count; ++seed) {
        const Session session = Model::randomSession(seed, 4000);
        messages += messagesIn(session);
        if (Model::firstDifference(session, decideForReal)) {
            const Session shrunk = Model::shrink(session, decideForReal);
            FAIL() << "seed " << seed << ", shrunk to:\n"
                   << Model::describe(shrunk) << "\n"
                   << Model::firstDifference(shrunk, decideForReal)->text;
        }
    }
    RecordProperty("messages", std::to_string(messages));
}

TEST(SessionModelTest, SeesEveryOutcomeInRandomSessions) {
    std::set<std::string> outcomes;
    const Model::Decider recording = [&outcomes](const ServerConfig& config, const DHCPPacket& packet,
                                                 DecisionContext context) {
        Decision decision = decideForReal(config, packet, std::move(context));
        outcomes.insert(outcomeOf(decision));
        return decision;
    };

    for (std::uint64_t seed = 1; seed <= 4; ++seed) {
        EXPECT_FALSE(Model::firstDifference(Model::randomSession(seed, 4000), recording));
    }

    const std::set<std::string> expected{"ACK",
                                         "ACK is a ser",
                                         "BOOTP reques",
                                         "DECLINE with",
                                         "INFORM from ",
                                         "NAK is a ser",
                                         "OFFER",
                                         "OFFER is a s",
                                         "address in use by another device",
                                         "address is not available for renewal",
                                         "address pool",
                                         "info",
                                         "leaseChanged",
                                         "leaseRemoved",
                                         "no requested address",
                                         "not Ethernet",
                                         "not a client",
                                         "probe",
                                         "relayed requ",
                                         "requested address is not available",
                                         "requested address is not on this network",
                                         "requested address is outside the range",
                                         "requested address was declined recently"};
    EXPECT_EQ(outcomes, expected);
}

TEST(SessionModelTest, ShrinksASessionToTheMessagesThatShowTheDifference) {
    const Session session = Model::randomSession(1, 2000);
    ASSERT_TRUE(Model::firstDifference(session, decideWithoutQuarantine));

    const Session shrunk = Model::shrink(session, decideWithoutQuarantine);

    EXPECT_TRUE(Model::firstDifference(shrunk, decideWithoutQuarantine));
    EXPECT_LE(shrunk.steps.size(), 2U) << Model::describe(shrunk);
}

TEST(SessionModelTest, NoticesALeaseThatLastsAMicrosecondTooLong) {
    EXPECT_TRUE(Model::firstDifference(Model::randomSession(1, 2000), decideTooLate));
}

} // namespace DHCPCore
