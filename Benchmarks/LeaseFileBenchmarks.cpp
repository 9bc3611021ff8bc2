#include "DHCPCore/LeaseFile.hpp"
#include "Support/TemporaryDirectory.hpp"
#include "Workload.hpp"

#include <benchmark/benchmark.h>

#include <chrono>

namespace DHCPCore {
namespace {

void saveLeases(benchmark::State& state) {
    const TestSupport::TemporaryDirectory folder;
    const LeaseFile file{.url = folder / "leases.json"};
    const LeaseTable table = Workload::table(static_cast<std::uint32_t>(state.range(0)));
    for (auto _ : state) {
        file.save(table);
    }
}
BENCHMARK(saveLeases)->Arg(100)->Arg(1'000)->Arg(10'000)->Unit(benchmark::kMicrosecond);

/// As the server does it: one client is bound anew, all else stays as it was.
void saveOneChange(benchmark::State& state) {
    const TestSupport::TemporaryDirectory folder;
    const LeaseFile file{.url = folder / "leases.json"};
    LeaseTable table = Workload::table(static_cast<std::uint32_t>(state.range(0)));
    LeaseDocument document;
    file.save(table, document);
    Lease lease = table.leases()[table.leases().size() / 2];
    for (auto _ : state) {
        lease.lastSeen += std::chrono::seconds{1};
        table.upsert(lease);
        file.save(table, document);
    }
}
BENCHMARK(saveOneChange)->Arg(100)->Arg(1'000)->Arg(10'000)->Arg(60'000)->Unit(benchmark::kMicrosecond);

void loadLeases(benchmark::State& state) {
    const TestSupport::TemporaryDirectory folder;
    const LeaseFile file{.url = folder / "leases.json"};
    file.save(Workload::table(static_cast<std::uint32_t>(state.range(0))));
    for (auto _ : state) {
        benchmark::DoNotOptimize(file.load(Workload::now));
    }
}
BENCHMARK(loadLeases)->Arg(100)->Arg(1'000)->Arg(10'000)->Unit(benchmark::kMicrosecond);

} // namespace
} // namespace DHCPCore
