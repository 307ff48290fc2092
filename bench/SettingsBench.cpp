// ReadIni as the pages use it: a graphic remote page reads every button of one
// remote from a setting.ini that holds 100 remotes of 66 buttons each.
#include "core/Settings.h"

#include <QCoreApplication>
#include <QTemporaryDir>
#include <benchmark/benchmark.h>

namespace {

QString makeSettings(const QTemporaryDir& dir) {
    QString path = dir.filePath(QStringLiteral("setting.ini"));
    QByteArray text = "[WebServer]\r\nPort=8080\r\n[Options]\r\nInternet=0\r\n";
    for (int id = 1; id <= 100; ++id) {
        text += "[Remote-" + QByteArray::number(id) + "]\r\n";
        text += "Device=\x83\x65\x83\x8C\x83\x72" + QByteArray::number(id) + "\r\nDesign=6\r\n";
        for (int k = 0; k < 66; ++k)
            text += "Button-" + QByteArray::number(k) + "=\x93\x64\x8C\xB9" +
                    QByteArray::number(k) + "\r\n";
    }
    QFile f(path);
    f.open(QIODevice::WriteOnly);
    f.write(text);
    return path;
}

void BM_ReadIni_66Buttons(benchmark::State& state) {
    QTemporaryDir dir;
    SettingsStore store(makeSettings(dir));
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
    QString path = makeSettings(dir);
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
