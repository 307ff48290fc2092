// Decoding one frame of about 70 durations: an NEC frame as a receiver gives
// it (jittered), and raw durations that no protocol takes. A remote's editor
// decodes every key's signal it shows.
#include "infrared/IrProtocol.h"
#include "infrared/SignalStore.h"

#include <QTemporaryDir>

#include <benchmark/benchmark.h>

#include <random>

namespace {

IrTiming jittered(IrTiming t) {
    std::mt19937 gen(1);
    std::uniform_real_distribution<double> f(0.85, 1.15);
    for (uint32_t& d : t.durations)
        d = uint32_t(d * f(gen));
    return t;
}

void BM_DecodeNecFrame(benchmark::State& state) {
    const IrTiming t = jittered(*EncodeSignal(*ParseCodeSpec(u"nec:0x0408")));
    for (auto _ : state)
        benchmark::DoNotOptimize(DecodeSignal(t));
    state.counters["durations"] = double(t.durations.size());
}
BENCHMARK(BM_DecodeNecFrame);

void BM_DecodeRawFrame(benchmark::State& state) {
    std::mt19937 gen(2);
    std::uniform_int_distribution<uint32_t> us(200, 3000);
    IrTiming t;
    for (int i = 0; i < 70; ++i)
        t.durations.push_back(us(gen));
    t.durations[0] = 9000; // an NEC-like start that fails later
    t.durations[1] = 4500;
    for (auto _ : state)
        benchmark::DoNotOptimize(DecodeSignal(t));
    state.counters["durations"] = double(t.durations.size());
}
BENCHMARK(BM_DecodeRawFrame);

void BM_DecodeAehaFrame(benchmark::State& state) {
    const IrTiming t = jittered(*EncodeSignal(*ParseCodeSpec(u"aeha:0x022080003dbc")));
    for (auto _ : state)
        benchmark::DoNotOptimize(DecodeSignal(t));
    state.counters["durations"] = double(t.durations.size());
}
BENCHMARK(BM_DecodeAehaFrame);

// The editor opening a remote of 100 keys: each key's signal file read and
// decoded (a fresh cache), and again with the cache warm (the files as they were).
struct HundredKeys {
    HundredKeys() {
        for (int k = 0; k < 100; ++k) {
            IrCode code = *ParseCodeSpec(QStringLiteral("nec:0x04") + QString::number(k + 16, 16));
            const QString path = dir.filePath(QString::number(k) + QStringLiteral(".bin"));
            WriteSignalFile(path, BlobFromTiming(jittered(*EncodeSignal(code)))->encode());
            paths.push_back(path);
        }
    }
    QTemporaryDir dir;
    std::vector<QString> paths;
};

void BM_EditorOpens100KeysCold(benchmark::State& state) {
    HundredKeys keys;
    for (auto _ : state) {
        SignalCodeCache cache;
        for (const QString& path : keys.paths)
            benchmark::DoNotOptimize(cache.codeOf(path));
    }
}
BENCHMARK(BM_EditorOpens100KeysCold)->Unit(benchmark::kMillisecond);

void BM_EditorOpens100KeysCached(benchmark::State& state) {
    HundredKeys keys;
    SignalCodeCache cache;
    for (const QString& path : keys.paths)
        cache.codeOf(path);
    for (auto _ : state)
        for (const QString& path : keys.paths)
            benchmark::DoNotOptimize(cache.codeOf(path));
}
BENCHMARK(BM_EditorOpens100KeysCached)->Unit(benchmark::kMillisecond);

} // namespace
