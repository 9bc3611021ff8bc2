#include "DHCPCore/EventLog.hpp"
#include "DHCPCore/Events.hpp"
#include "DHCPCore/Packet.hpp"
#include "DHCPCore/Responder.hpp"
#include "Fuzzing/Files.hpp"
#include "Fuzzing/Fuzzing.hpp"
#include "Fuzzing/Script.hpp"
#include "Model/DecisionModel.hpp"
#include "Model/LeaseModel.hpp"
#include "Support/LeaseBuilders.hpp"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <chrono>
#include <set>
#include <utility>
#include <variant>

using namespace DHCPCore; // NOLINT(google-build-using-namespace): a program of one class

namespace {

using Fuzzing::Input;
using Fuzzing::require;
namespace StepCode = Fuzzing::StepCode;

/// A server without sockets: what arrives is decided, written out, saved and loaded, and held to the plain rules.
class Road {
  public:
    Road(Input& input, const LeaseFile& file) : input_(input), file_(file), config_(Fuzzing::configFrom(input)) {
        report({ServerEvent::Started{.interface = "en7", .config = config_}});
    }

    void run() {
        constexpr int mostSteps = 40;
        for (int step = 0; step < mostSteps && !input_.isEmpty(); ++step) {
            take();
            checkTable();
        }
        restart();
    }

  private:
    void take() {
        switch (input_.byte()) {
        case StepCode::wait:
            now_ += std::chrono::milliseconds{input_.number(4)};
            break;
        case StepCode::sight:
            see(IPv4Address{10, 0, 0, input_.byte()}, input_.byte());
            break;
        case StepCode::forget:
            if (const auto mac = MACAddress::fromBytes(input_.bytes(6))) {
                require(model_.remove(*mac) == table_.remove(*mac), "forgetting removes the client's record");
            }
            break;
        case StepCode::clearInactive:
            require(model_.clearInactive(now_) == table_.clearInactive(now_), "what holds nothing is cleared");
            break;
        case StepCode::restart:
            restart();
            break;
        default:
            receive();
        }
    }

    void see(IPv4Address ip, unsigned state) {
        if (state > static_cast<unsigned>(PresenceState::conflict)) {
            presence_.erase(ip);
            return;
        }
        presence_[ip] = static_cast<PresenceState>(state);
        report({ServerEvent::Presence{
            .ip = ip, .mac = {}, .state = static_cast<PresenceState>(state), .detail = "icmp 0.4 ms"}});
    }

    void receive() {
        const unsigned answers = input_.byte();
        const auto datagram = input_.bytes(input_.number(2));
        try {
            const DHCPPacket packet = DHCPPacket::parse(datagram);
            require(DHCPPacket::parse(packet.serialize(0)) == packet, "a packet written and read again is the same");
            report({ServerEvent::Received{PacketSummary{packet, "en7"}}});
            answer(packet, answers);
        } catch (const PacketError& error) {
            report({ServerEvent::Dropped{.reason = error.description(), .mac = std::nullopt}});
        }
    }

    void answer(const DHCPPacket& packet, unsigned answers) {
        ProbeAnswers probes;
        for (;;) {
            const Model::Outcome expected =
                Model::decide(config_, packet, {.table = model_, .presence = presence_, .probes = probes, .now = now_});
            Decision decision = Responder{config_}.decide(
                packet, {.table = std::move(table_), .presence = presence_, .probes = probes, .now = now_});
            require(Model::agree(expected, decision), "a decision is the one of the plain rules");
            model_ = expected.table;
            table_ = std::move(decision.table);
            std::ranges::for_each(decision.notes, report);
            if (const auto* reply = std::get_if<DecisionAction::Reply>(&decision.action.value)) {
                send(reply->reply);
            }
            const auto* probe = std::get_if<DecisionAction::Probe>(&decision.action.value);
            if (probe == nullptr) {
                return;
            }
            const bool answered = (answers >> probes.size() & 1U) != 0;
            require(probes.emplace(probe->ip, answered).second, "an address is probed once for a packet");
            require(probes.size() <= Timing::maxProbesPerPacket, "only so many addresses are probed for a packet");
        }
    }

    static void send(const Reply& reply) {
        const Bytes bytes = reply.packet.serialize(DHCPPacket::minimumReplyLength);
        require(bytes.size() >= DHCPPacket::minimumReplyLength, "a reply has its least length");
        require(DHCPPacket::parse(bytes) == reply.packet, "a reply arrives as it was meant");
        report({ServerEvent::Sent{SentSummary{.type = reply.type,
                                              .ip = reply.ip,
                                              .mac = reply.mac,
                                              .destination = reply.destination,
                                              .interface = "en7",
                                              .note = reply.note}}});
    }

    static void report(const ServerEvent& event) {
        const Date date = TestSupport::now;
        if (const auto line = EventLog::line(event, date, TimeZone::utc())) {
            require(Fuzzing::isOneCleanLine(*line), "an event's line is one line");
        }
        if (const auto json = EventLog::json(event, date)) {
            require(Fuzzing::isOneCleanLine(*json), "an event's JSON is one line");
            const auto document = nlohmann::json::parse(*json, nullptr, false);
            require(document.is_object(), "an event's JSON is an object");
            require(std::ranges::all_of(document, [](const auto& value) { return value.is_string(); }),
                    "an event's values are texts");
        }
    }

    void restart() {
        file_.save(table_);
        auto loaded = file_.load(now_);
        require(!loaded.setAsideURL, "a saved file can be read");
        require(loaded.table == Fuzzing::inWholeSeconds(table_), "a saved table loads to an equal one");
        table_ = std::move(loaded.table);
        model_ = {.leases = table_.leases().all(), .quarantine = table_.quarantine().all()};
        require(model_.dropOutside(config_.range()) == table_.dropOutside(config_.range()),
                "what lies outside the pool is dropped");
    }

    void checkTable() const {
        require(Model::agree(model_, table_), "the table is the one of the plain rules");
        std::set<IPv4Address> held;
        for (const Lease& lease : model_.leases) {
            require(model_.lease(lease.mac) == lease, "a client has one record");
            require(table_.lease(lease.mac) == lease, "a client's record is found");
            require(table_.holder(lease.ip, now_) == Model::holder(model_.leases, lease.ip, now_),
                    "an address's holder is found");
            require(!Model::holdsAddress(lease, now_) || held.insert(lease.ip).second,
                    "no address is held by two clients");
        }
    }

    Input& input_;
    const LeaseFile& file_;
    ServerConfig config_;
    Date now_ = TestSupport::now;
    PresenceMap presence_;
    Model::Table model_;
    LeaseTable table_;
};

} // namespace

/// A session as `Script.hpp` describes it.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const Fuzzing::ScratchLeaseFile scratch;
    Input input{data, size};
    Road{input, scratch.file()}.run();
    return 0;
}
