// ReadIni as the pages use it: a graphic remote page reads every button of one
// remote from a setting.ini that holds 100 remotes of 66 buttons each.
#include "bench/LargeSettings.h"
#include "core/Settings.h"

#include <QCoreApplication>
#include <QTemporaryDir>
#include <benchmark/benchmark.h>

namespace {

void BM_ReadIni_66Buttons(benchmark::State& state) {
    QTemporaryDir dir;
    SettingsStore store(WriteLargeSettings(dir));
    const QString section = QStringLiteral("Remote-57");
    QStringList keys;
    for (int k = 0; k < 66; ++k)
        keys << QStringLiteral("Button-%1").arg(k);
    store.ReadIni(section, keys[0]); // parse once, as a running program has
    for (auto _ : state)
        for (const QString& key : keys)
            benchmark::DoNotOptimize(store.ReadIni(section, key));
    state.SetLabel("66 reads per iteration");
}
BENCHMARK(BM_ReadIni_66Buttons)->Unit(benchmark::kMicrosecond);

void BM_ParseAfterChange(benchmark::State& state) {
    QTemporaryDir dir;
    QString path = WriteLargeSettings(dir);
    for (auto _ : state) {
        SettingsStore store(path); // a new store parses the whole file
        benchmark::DoNotOptimize(
            store.ReadIni(QStringLiteral("Remote-1"), QStringLiteral("Device")));
    }
    state.SetLabel("100 remotes x 66 buttons");
}
BENCHMARK(BM_ParseAfterChange)->Unit(benchmark::kMillisecond);

} // namespace

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
