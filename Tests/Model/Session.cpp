#include "Model/Session.hpp"

#include "DHCPCore/LeaseStore.hpp"
#include "DHCPCore/Overloaded.hpp"
#include "Model/DecisionModel.hpp"
#include "Model/LeaseModel.hpp"
#include "Support/Printing.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <set>
#include <sstream>
#include <utility>

namespace DHCPCore::Model {

namespace {

using testing::PrintToString;

/// A session on its way, in the model and in the real thing side by side.
class Play {
  public:
    Play(const Session& session, const Decider& decider)
        : config_(session.config), decider_(decider), now_(session.start), monotone_(isMonotone(session)) {}

    /// @return the difference that the step shows.
    std::optional<std::string> take(const Step& step) {
        std::optional<std::string> difference =
            std::visit(Overloaded{[this](const Step::Message& message) { return receive(message); },
                                  [this](const Step::Wait& wait) { return let(wait); },
                                  [this](const Step::Sight& sight) { return see(sight); },
                                  [this](const Step::Forget& forget) { return remove(forget.mac); },
                                  [this](const Step::ClearInactive&) { return clearInactive(); },
                                  [this](const Step::Restart&) { return restart(); }},
                       step.value);
        return difference ? difference : lookUps();
    }

  private:
    using Found = std::optional<std::string>;

    static bool isMonotone(const Session& session) {
        return std::ranges::none_of(session.steps, [](const Step& step) {
            const auto* wait = std::get_if<Step::Wait>(&step.value);
            return wait != nullptr && wait->time.count() < 0;
        });
    }

    Found receive(const Step::Message& message) {
        ProbeAnswers probes;
        for (;;) {
            const Outcome expected = decide(config_, message.packet,
                                            {.table = model_, .presence = presence_, .probes = probes, .now = now_});
            Decision decision =
                decider_(config_, message.packet,
                         {.table = std::move(table_), .presence = presence_, .probes = probes, .now = now_});
            if (!agree(expected, decision)) {
                return differ(expected, decision);
            }
            model_ = expected.table;
            table_ = std::move(decision.table);
            const auto* probe = std::get_if<DecisionAction::Probe>(&expected.action.value);
            if (probe == nullptr) {
                return std::nullopt;
            }
            if (probes.size() >= Timing::maxProbesPerPacket || probes.contains(probe->ip)) {
                return "more probes than allowed, or the same one again";
            }
            const bool answered = (message.answers >> probes.size() & 1U) != 0;
            probes.emplace(probe->ip, answered);
        }
    }

    static std::string differ(const Outcome& expected, const Decision& decision) {
        const Decision wanted{.action = expected.action,
                              .table = {expected.table.leases, expected.table.quarantine},
                              .tableChanged = expected.tableChanged,
                              .notes = expected.notes};
        return "by the rules: " + PrintToString(wanted) + "\ndecided: " + PrintToString(decision);
    }

    Found let(const Step::Wait& wait) {
        now_ += wait.time;
        return std::nullopt;
    }

    Found see(const Step::Sight& sight) {
        if (sight.presence) {
            presence_[sight.ip] = *sight.presence;
        } else {
            presence_.erase(sight.ip);
        }
        return std::nullopt;
    }

    Found remove(const MACAddress& mac) {
        return model_.remove(mac) == table_.remove(mac) ? compareTables() : "another lease was removed";
    }

    Found clearInactive() {
        return model_.clearInactive(now_) == table_.clearInactive(now_) ? compareTables() : "another number cleared";
    }

    Found restart() {
        table_ = LeaseTable{table_.leases().all(), table_.quarantine().all()};
        const AddressRange range{.lower = std::min(config_.rangeStart, config_.rangeEnd),
                                 .upper = std::max(config_.rangeStart, config_.rangeEnd)};
        return model_.dropOutside(range) == table_.dropOutside(range) ? compareTables() : "other leases dropped";
    }

    [[nodiscard]] Found compareTables() const {
        if (agree(model_, table_)) {
            return std::nullopt;
        }
        return "by the rules: " + PrintToString(LeaseTable{model_.leases, model_.quarantine}) +
               "\nin the table: " + PrintToString(table_);
    }

    /// What the table says of everybody in it, and that nobody has what another has.
    [[nodiscard]] Found lookUps() const {
        std::set<IPv4Address> held;
        for (const Lease& lease : model_.leases) {
            if (model_.lease(lease.mac) != lease) {
                return "two records for " + lease.mac.description();
            }
            if (table_.lease(lease.mac) != lease) {
                return "the table does not find the record of " + lease.mac.description();
            }
            if (table_.holder(lease.ip, now_) != holder(model_.leases, lease.ip, now_)) {
                return "the table finds another holder of " + lease.ip.description();
            }
            if (monotone_ && holdsAddress(lease, now_) && !held.insert(lease.ip).second) {
                return lease.ip.description() + " is held twice";
            }
        }
        for (const Quarantine& record : model_.quarantine) {
            if (table_.isQuarantined(record.ip, now_) != model_.isQuarantined(record.ip, now_)) {
                return "the table is wrong about the quarantine of " + record.ip.description();
            }
        }
        return std::nullopt;
    }

    const ServerConfig& config_;
    const Decider& decider_;
    Date now_;
    bool monotone_; ///< A clock that is set back may wake a lease whose address somebody else has by now.
    PresenceMap presence_;
    Table model_;
    LeaseTable table_;
};

Session without(const Session& session, std::size_t from, std::size_t count) {
    Session shorter = session;
    const auto first = shorter.steps.begin() + static_cast<std::ptrdiff_t>(from);
    shorter.steps.erase(first, first + static_cast<std::ptrdiff_t>(count));
    return shorter;
}

/// Leaves out stretches of steps of that length. @return whether any could be left out.
bool leaveOut(Session& session, std::size_t count, const Decider& decider) {
    bool changed = false;
    for (std::size_t from = 0; from + count <= session.steps.size();) {
        Session shorter = without(session, from, count);
        if (firstDifference(shorter, decider)) {
            session = std::move(shorter);
            changed = true;
        } else {
            from += count;
        }
    }
    return changed;
}

/// Leaves out options of the messages.
void simplify(Session& session, const Decider& decider) {
    for (std::size_t index = 0; index < session.steps.size(); ++index) {
        const auto* message = std::get_if<Step::Message>(&session.steps[index].value);
        std::size_t option = message == nullptr ? 0 : message->packet.options.size();
        while (option-- > 0) {
            Session simpler = session;
            auto& options = std::get<Step::Message>(simpler.steps[index].value).packet.options;
            options.erase(options.begin() + static_cast<std::ptrdiff_t>(option));
            if (firstDifference(simpler, decider)) {
                session = std::move(simpler);
            }
        }
    }
}

void describe(const Step& step, std::ostream& out) {
    std::visit(Overloaded{[&out](const Step::Message& message) {
                              out << "message: " << PrintToString(message.packet) << ", answers " << message.answers;
                          },
                          [&out](const Step::Wait& wait) { out << "wait " << wait.time.count() << " us"; },
                          [&out](const Step::Sight& sight) {
                              out << sight.ip.description() << " is "
                                  << (sight.presence ? rawValue(*sight.presence) : "no longer known");
                          },
                          [&out](const Step::Forget& forget) { out << "forget " << forget.mac.description(); },
                          [&out](const Step::ClearInactive&) { out << "clear inactive"; },
                          [&out](const Step::Restart&) { out << "restart"; }},
               step.value);
}

} // namespace

std::optional<Difference> firstDifference(const Session& session, const Decider& decider) {
    Play play{session, decider};
    for (std::size_t index = 0; index < session.steps.size(); ++index) {
        if (const auto text = play.take(session.steps[index])) {
            return Difference{.step = index, .text = *text};
        }
    }
    return std::nullopt;
}

Session shrink(Session session, const Decider& decider) {
    if (const auto difference = firstDifference(session, decider)) {
        session.steps.resize(difference->step + 1);
    }
    for (std::size_t count = session.steps.size() / 2; count > 0;) {
        const bool changed = leaveOut(session, count, decider);
        if (count > 1 || !changed) {
            count /= 2;
        }
    }
    simplify(session, decider);
    return session;
}

std::string describe(const Session& session) {
    const ServerConfig& config = session.config;
    std::ostringstream out;
    out << "server " << config.serverIP.description() << "/" << config.prefixLength << ", pool "
        << config.rangeStart.description() << " to " << config.rangeEnd.description() << ", lease "
        << config.leaseSeconds << " s, from " << instantText(session.start);
    for (const Step& step : session.steps) {
        out << "\n  ";
        describe(step, out);
    }
    return out.str();
}

} // namespace DHCPCore::Model
