#include "DHCPCore/LeaseFile.hpp"
#include "Support/TemporaryDirectory.hpp"
#include "Workload.hpp"

#include <benchmark/benchmark.h>

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
