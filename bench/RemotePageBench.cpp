// remote6.asp as a browser asks for it: 66 buttons of one remote read from a
// setting.ini that holds 100 remotes of 66 buttons each.
#include "bench/LargeSettings.h"
#include "core/Settings.h"
#include "core/ShiftJis.h"
#include "webpages/RemotePages.h"
#include "webserver/Dispatcher.h"

#include <QFile>
#include <QTemporaryDir>
#include <benchmark/benchmark.h>

namespace {

PageRequest remote57(const char* button) {
    PageRequest r;
    r.DevID = QStringLiteral("57");
    r.Button = QString::fromLatin1(button);
    r.Device = QStringLiteral("テレビ57");
    return r;
}

void runPage(benchmark::State& state, const char* button, bool encode) {
    QTemporaryDir dir;
    SettingsStore store(WriteLargeSettings(dir));
    RemotePageServices services;
    services.send = [](const QString&, const QString&) { return SendResult::Sent; };
    const PageRequest r = remote57(button);
    GraphicRemotePage(6, r, store, services); // parse once, as a running program has
    for (auto _ : state) {
        QString page = GraphicRemotePage(6, r, store, services);
        if (encode)
            benchmark::DoNotOptimize(ShiftJis::Encode(page));
        else
            benchmark::DoNotOptimize(page);
    }
    state.SetLabel("per page, 100 remotes x 66 buttons");
}

void BM_Remote6Page(benchmark::State& state) {
    runPage(state, "", false);
}
BENCHMARK(BM_Remote6Page)->Unit(benchmark::kMicrosecond);

// With a press (the send itself stubbed) and the CP932 text the server sends.
void BM_Remote6PagePressedAndEncoded(benchmark::State& state) {
    runPage(state, "12", true);
}
BENCHMARK(BM_Remote6PagePressedAndEncoded)->Unit(benchmark::kMicrosecond);

} // namespace
