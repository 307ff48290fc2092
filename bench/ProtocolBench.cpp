// Decoding one frame of each protocol as a receiver gives it (jittered), and
// raw durations that no protocol takes. A remote's editor decodes every key's
// signal it shows, the listener every frame it hears; each should take at most
// 5 µs.
#include "infrared/IrProtocol.h"
#include "infrared/SignalCodeCache.h"
#include "infrared/SignalStore.h"

#include <QTemporaryDir>

#include <benchmark/benchmark.h>

#include <algorithm>
#include <random>

namespace {

// One code per protocol of the table: a new protocol adds its line.
// clang-format off
const char* const Codes[] = {
    "nec:0x0408",
    "necx:0x12a55e",
    "nec32:0x12345678",
    "samsung32:0x0707",
    "sony12:0x010015",
    "sony15:0xa50012",
    "sony20:0x1f5a7f",
    "rc5:0x1e3c",
    "rc5x_20:0x1e7c3f",
    "rc6_0:0x800c",
    "rc6_6a_20:0x012345",
    "rc6_6a_24:0xfedcba",
    "rc6_6a_32:0x12345678",
    "rc6_mce:0x800f0410",
    "jvc:0x1234",
    "sharp:0x1ea5",
    "sanyo:0x1fff12",
    "aeha:0x022080003dbc",
    "pioneer:0xa55a1c",
    "proton:0x12a5",
    "rca:0x0f5a",
    "rca38:0x0a12",
    "samsung36:0x07070a12",
    "gicable:0x05a3",
    "denon:0x0c4d",
    "denon1:0x1fff",
    "denon2:0x0200",
    "mitsubishi:0x4702",
    "recs80:0x073f",
    "dish:0x1f1f3f",
    "directv:0x0c10",
    "rc_mm_12:0x0abc",
    "rc_mm_24:0xfedcba",
    "rc_mm_32:0x2480260c",
};
// clang-format on

IrTiming jittered(IrTiming t) {
    std::mt19937 gen(1);
    std::uniform_real_distribution<double> f(0.85, 1.15);
    for (uint32_t& d : t.durations)
        d = uint32_t(d * f(gen));
    return t;
}

// As a demodulating receiver gives it: marks up to 12 % long, spaces as much
// short.
IrTiming received(IrTiming t) {
    std::mt19937 gen(3);
    std::uniform_real_distribution<double> f(0.0, 0.12);
    for (size_t i = 0; i < t.durations.size(); ++i)
        t.durations[i] = uint32_t(t.durations[i] * (i % 2 == 0 ? 1 + f(gen) : 1 - f(gen)));
    return t;
}

void BM_Decode(benchmark::State& state, IrProtocol protocol) {
    const char* const* spec = std::find_if(std::begin(Codes), std::end(Codes), [&](const char* c) {
        const auto code = ParseCodeSpec(QString::fromLatin1(c));
        return code && code->protocol == protocol;
    });
    if (spec == std::end(Codes)) {
        state.SkipWithError("no code for the protocol in Codes");
        return;
    }
    const IrCode code = *ParseCodeSpec(QString::fromLatin1(*spec));
    const IrTiming t = received(*EncodeSignal(code));
    if (DecodeSignal(t) != code) {
        state.SkipWithError("the jittered frame does not decode to its code");
        return;
    }
    for (auto _ : state)
        benchmark::DoNotOptimize(DecodeSignal(t));
    state.counters["durations"] = double(t.durations.size());
}

// Every protocol of the table, so that one missing from Codes shows.
[[maybe_unused]] const bool Registered = [] {
    for (IrProtocol p : KnownProtocols())
        benchmark::RegisterBenchmark(("BM_Decode/" + ProtocolName(p).toStdString()).c_str(),
                                     BM_Decode, p)
            ->Unit(benchmark::kMicrosecond);
    return true;
}();

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
