// Encoding an air conditioner's whole state and decoding the frame a remote
// sent, per family: a tap on a unit's card encodes one, the listener decodes
// every frame it hears (trying each family in turn). Each should take at
// most 10 µs.
#include "infrared/Climate.h"

#include <benchmark/benchmark.h>

#include <algorithm>

namespace {

ClimateState stateFor(const ClimateCaps& caps) {
    ClimateState s;
    s.power = true;
    s.mode = caps.hasMode(ClimateMode::Cool) ? ClimateMode::Cool : caps.modes.front();
    s.temperature = std::clamp(26.0, caps.minTemp, caps.maxTemp);
    s.fan = caps.fans.front();
    s.swing = caps.swing;
    return s;
}

void BM_ClimateEncode(benchmark::State& state, const ClimateCaps& caps) {
    const ClimateState s = stateFor(caps);
    if (!EncodeClimate(caps.family, s)) {
        state.SkipWithError("the family does not encode its own state");
        return;
    }
    for (auto _ : state)
        benchmark::DoNotOptimize(EncodeClimate(caps.family, s));
}

void BM_ClimateDecode(benchmark::State& state, const ClimateCaps& caps) {
    const std::optional<IrTiming> frame = EncodeClimate(caps.family, stateFor(caps));
    const std::optional<ClimateHeard> heard = frame ? DecodeClimate(*frame) : std::nullopt;
    if (!heard || heard->family != caps.family) {
        state.SkipWithError("the family's frame does not decode as its own");
        return;
    }
    for (auto _ : state)
        benchmark::DoNotOptimize(DecodeClimate(*frame));
    state.counters["durations"] = double(frame->durations.size());
}

[[maybe_unused]] const bool Registered = [] {
    for (const ClimateCaps& caps : ClimateFamilies()) {
        const std::string name = caps.family.toStdString();
        benchmark::RegisterBenchmark(("BM_ClimateEncode/" + name).c_str(), BM_ClimateEncode, caps)
            ->Unit(benchmark::kMicrosecond);
        benchmark::RegisterBenchmark(("BM_ClimateDecode/" + name).c_str(), BM_ClimateDecode, caps)
            ->Unit(benchmark::kMicrosecond);
    }
    return true;
}();

} // namespace
