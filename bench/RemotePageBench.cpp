// remote6.asp as a browser asks for it: 66 buttons of one remote read from a
// setting.ini that holds 100 remotes of 66 buttons each.
#include "core/Settings.h"
#include "core/ShiftJis.h"
#include "webpages/RemotePages.h"
#include "webserver/Dispatcher.h"

#include <QFile>
#include <QTemporaryDir>
#include <benchmark/benchmark.h>

namespace {

QString makeSettings(const QTemporaryDir& dir) {
    QString path = dir.filePath(QStringLiteral("setting.ini"));
    QByteArray text = "[WebServer]\r\nPort=8080\r\n[Options]\r\nTakePic=0\r\n";
    for (int id = 1; id <= 100; ++id) {
        text += "[Remote-" + QByteArray::number(id) + "]\r\n";
        text += "Device=\x83\x65\x83\x8C\x83\x72" + QByteArray::number(id) + "\r\nDesign=6\r\n";
        for (int k = 0; k < 66; ++k)
            text += "Button-" + QByteArray::number(k) + "=\x93\x64\x8C\xB9" +
                    QByteArray::number(k) + "\r\n";
    }
    QFile f(path);
    if (f.open(QIODevice::WriteOnly))
        f.write(text);
    return path;
}

PageRequest remote57(const char* button) {
    PageRequest r;
    r.DevID = QStringLiteral("57");
    r.Button = QString::fromLatin1(button);
    r.Device = QStringLiteral("テレビ57");
    return r;
}

void runPage(benchmark::State& state, const char* button, bool encode) {
    QTemporaryDir dir;
    SettingsStore store(makeSettings(dir));
    RemotePageServices services;
    services.send = [](const QString&, const QString&) { return true; };
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
