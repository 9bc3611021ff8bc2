#include "Workload.hpp"

#include <benchmark/benchmark.h>

namespace DHCPCore {
namespace {

void parsePacket(benchmark::State& state) {
    const Bytes bytes = Workload::message(DHCPMessageType::request, 1).serialize(DHCPPacket::minimumReplyLength);
    for (auto _ : state) {
        benchmark::DoNotOptimize(DHCPPacket::parse(bytes));
    }
}
BENCHMARK(parsePacket);

void serializePacket(benchmark::State& state) {
    const DHCPPacket packet = Workload::message(DHCPMessageType::request, 1);
    for (auto _ : state) {
        benchmark::DoNotOptimize(packet.serialize(DHCPPacket::minimumReplyLength));
    }
}
BENCHMARK(serializePacket);

} // namespace
} // namespace DHCPCore
