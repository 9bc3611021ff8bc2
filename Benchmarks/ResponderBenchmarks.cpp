#include "DHCPCore/Responder.hpp"
#include "Workload.hpp"

#include <benchmark/benchmark.h>

#include <utility>

namespace DHCPCore {
namespace {

/// Decides the same packet again and again, the table moving in and out as in the server.
class Decider {
  public:
    explicit Decider(std::uint32_t leases) : table_(Workload::table(leases)) {}

    void decide(const DHCPPacket& packet) {
        Decision decision = responder_.decide(
            packet, {.table = std::move(table_), .presence = presence_, .probes = {}, .now = Workload::now});
        benchmark::DoNotOptimize(decision.action);
        table_ = std::move(decision.table);
    }

    void forget(const MACAddress& mac) { table_.remove(mac); }
    void remember(const Lease& lease) { table_.upsert(lease); }
    [[nodiscard]] Lease leaseOf(const MACAddress& mac) const { return table_.lease(mac).value(); }

  private:
    Responder responder_{.config = Workload::config()};
    LeaseTable table_;
    PresenceMap presence_;
};

std::uint32_t leaseCount(const benchmark::State& state) { return static_cast<std::uint32_t>(state.range(0)); }

/// A client that was never seen: the lowest free address lies behind all that are taken.
void decideDiscoverOfNewClient(benchmark::State& state) {
    const std::uint32_t client = leaseCount(state);
    Decider decider(leaseCount(state));
    const DHCPPacket packet = Workload::message(DHCPMessageType::discover, client);
    for (auto _ : state) {
        decider.decide(packet);
        state.PauseTiming();
        decider.forget(Workload::mac(client));
        state.ResumeTiming();
    }
}
BENCHMARK(decideDiscoverOfNewClient)->Arg(0)->Arg(100)->Arg(1'000)->Arg(10'000)->Arg(60'000);

/// A client in the middle of the table that asks again for what it has.
void decideDiscoverOfKnownClient(benchmark::State& state) {
    Decider decider(leaseCount(state));
    const DHCPPacket packet = Workload::message(DHCPMessageType::discover, leaseCount(state) / 2);
    for (auto _ : state) {
        decider.decide(packet);
    }
}
BENCHMARK(decideDiscoverOfKnownClient)->Arg(0)->Arg(100)->Arg(1'000)->Arg(10'000)->Arg(60'000);

/// A client in the middle of the table that renews.
void decideRequest(benchmark::State& state) {
    Decider decider(leaseCount(state));
    const std::uint32_t client = leaseCount(state) / 2;
    DHCPPacket packet = Workload::message(DHCPMessageType::request, client);
    packet.ciaddr = Workload::address(client);
    for (auto _ : state) {
        decider.decide(packet);
    }
}
BENCHMARK(decideRequest)->Arg(0)->Arg(100)->Arg(1'000)->Arg(10'000)->Arg(60'000);

/// A client in the middle of the table declines its address, once more.
void decideDecline(benchmark::State& state) {
    Decider decider(leaseCount(state));
    const std::uint32_t client = leaseCount(state) / 2;
    const Lease lease = decider.leaseOf(Workload::mac(client));
    DHCPPacket packet = Workload::message(DHCPMessageType::decline, client);
    packet.setOption(OptionCode::requestedIP, lease.ip.bytes());
    for (auto _ : state) {
        decider.decide(packet);
        state.PauseTiming();
        decider.remember(lease);
        state.ResumeTiming();
    }
}
BENCHMARK(decideDecline)->Arg(100)->Arg(1'000)->Arg(10'000)->Arg(60'000);

} // namespace
} // namespace DHCPCore
