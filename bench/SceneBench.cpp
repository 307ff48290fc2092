// A scene's steps on the wire against their planned time: three keys with
// waits between them, sent through the simulator, whose log stamps each send
// as it starts. A step is planned for the end of the send before it (its
// start and its frame's air time) plus the wait; the counters are how late
// (or early) the steps after the first went out, in ms.
#include "climate/ClimateUnits.h"
#include "core/UserPrompt.h"
#include "infrared/IrSignal.h"
#include "infrared/SignalStore.h"
#include "infrared/SimDriver.h"
#include "infrared/Transceiver.h"
#include "scenes/Scenes.h"
#include "support/TempFolder.h"

#include <QDateTime>
#include <QEventLoop>
#include <QFile>

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cmath>

using namespace Qt::StringLiterals;

namespace {

void BM_SceneStepsOnTheWire(benchmark::State& state) {
    TempFolder t;
    t.folder.CreateDataFolders();
    t.settings.WriteIni(u"Tira", u"Device", u"sim");
    t.writeRemote(1, u"AV"_s, 1, {u"TV"_s, u"Amp"_s, u"HDMI2"_s});
    for (int k = 0; k < 3; ++k)
        WriteSignalFile(SignalFilePath(t.folder, u"AV",
                                       k == 0   ? u"TV"
                                       : k == 1 ? u"Amp"
                                                : u"HDMI2"),
                        SimDriver::NecSignal(0x20, uint8_t(k)));
    HeadlessPrompt prompt;
    Transceiver device(t.folder, t.settings, prompt);
    const QString log = t.path(u"sim-transmit.log");
    device.factory = [&](const QString&) { return std::make_unique<SimDriver>(log); };
    ClimateUnits climates(t.folder, t.settings, device);
    Scenes scenes(t.folder, t.settings, device, climates);
    Scene film;
    film.name = u"film"_s;
    const int waits[] = {0, 1500, 300};
    for (int k = 0; k < 3; ++k) {
        if (waits[k]) {
            SceneStep wait;
            wait.kind = SceneStep::Kind::Wait;
            wait.waitMs = waits[k];
            film.steps.push_back(wait);
        }
        SceneStep key;
        key.remote = 1;
        key.key = k;
        film.steps.push_back(key);
    }
    const int id = scenes.create(film).value_or(0);
    const auto runOnce = [&] {
        QEventLoop loop;
        bool done = false;
        scenes.run(id, [&](const SceneOutcome& o) {
            done = o.done;
            loop.quit();
        });
        loop.exec();
        return done;
    };
    runOnce(); // opens the device, as the first send does

    double worst = 0, sum = 0;
    int steps = 0;
    for (auto _ : state) {
        QFile::remove(log);
        const QDateTime start = QDateTime::currentDateTime();
        if (!runOnce())
            state.SkipWithError("the scene failed");
        state.SetIterationTime(start.msecsTo(QDateTime::currentDateTime()) / 1000.0);
        QFile f(log);
        f.open(QIODevice::ReadOnly);
        const QList<QByteArray> lines = f.readAll().split('\n');
        qint64 endOfLast = -1;
        for (int k = 0; k < 3 && k < lines.size(); ++k) {
            const QDateTime at = QDateTime::fromString(
                QString::fromLatin1(lines[k].split(' ').value(0)), Qt::ISODateWithMs);
            const qint64 ms = at.toMSecsSinceEpoch();
            if (endOfLast >= 0) {
                const double late = double(ms - (endOfLast + waits[k]));
                worst = std::max(worst, std::abs(late));
                sum += std::abs(late);
                ++steps;
            }
            // The simulator's send ends its frame's air time after it starts.
            const QByteArray& line = lines[k];
            const auto blob = IrBlob::decode(
                QByteArray::fromHex(line.mid(line.indexOf(' ', line.indexOf(' ') + 1))));
            quint64 us = 0;
            for (uint32_t d : blob ? TimingFromBlob(*blob).frame() : std::vector<uint32_t>{})
                us += d;
            endOfLast = ms + qint64(std::min<quint64>(us / 1000, 200));
        }
    }
    state.counters["worst_off_ms"] = worst;
    state.counters["mean_off_ms"] = steps ? sum / steps : 0;
}
BENCHMARK(BM_SceneStepsOnTheWire)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(10);

} // namespace
