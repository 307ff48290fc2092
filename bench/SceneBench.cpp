// A scene's steps on the wire against their planned time: three keys with
// waits between them, sent through the simulator, whose log stamps each send
// as it starts. A step is planned for the moment the send before it was
// reported ended, plus the wait; worst_off_ms and mean_off_ms are how far the
// steps after the first went out from it. The simulator reports a send ended
// when its frame's air time has passed, by a timer of its own;
// sim_end_late_ms is how late that report came, which on a loaded machine is
// most of the error of planning from the air time alone. wake_to_wire_ms is
// the runner's own part: from the timer that ends a wait to the send.
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
#include <map>

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
    std::vector<qint64> ends;
    std::map<int, qint64> started; // by step number
    QObject::connect(&scenes, &Scenes::stepStarted,
                     [&](int, int step) { started[step] = QDateTime::currentMSecsSinceEpoch(); });
    QObject::connect(&device, &Transceiver::sendEnded,
                     [&] { ends.push_back(QDateTime::currentMSecsSinceEpoch()); });

    double worst = 0, sum = 0, simLate = 0, path = 0;
    int steps = 0;
    for (auto _ : state) {
        QFile::remove(log);
        ends.clear();
        started.clear();
        const QDateTime start = QDateTime::currentDateTime();
        if (!runOnce())
            state.SkipWithError("the scene failed");
        state.SetIterationTime(start.msecsTo(QDateTime::currentDateTime()) / 1000.0);
        QFile f(log);
        f.open(QIODevice::ReadOnly);
        const QList<QByteArray> lines = f.readAll().split('\n');
        for (int k = 0; k < 3 && k < lines.size() && k < int(ends.size()); ++k) {
            const QByteArray& line = lines[k];
            const qint64 at = QDateTime::fromString(QString::fromLatin1(line.split(' ').value(0)),
                                                    Qt::ISODateWithMs)
                                  .toMSecsSinceEpoch();
            // From the wake-up that starts the key's step to its send on the wire.
            path = std::max(path, double(at - started[k == 0 ? 1 : 2 * k + 1]));
            if (k > 0) {
                const double off = double(at - (ends[size_t(k - 1)] + waits[k]));
                worst = std::max(worst, std::abs(off));
                sum += std::abs(off);
                ++steps;
                if (qEnvironmentVariableIsSet("SCENE_BENCH_STEPS"))
                    fprintf(stderr, "step %d off %+.0f ms\n", k + 1, off);
            }
            // When the simulator's air time ended, against when it said so.
            const auto blob = IrBlob::decode(
                QByteArray::fromHex(line.mid(line.indexOf(' ', line.indexOf(' ') + 1))));
            quint64 us = 0;
            for (uint32_t d : blob ? TimingFromBlob(*blob).frame() : std::vector<uint32_t>{})
                us += d;
            const qint64 air = at + qint64(std::min<quint64>(us / 1000, 200));
            simLate = std::max(simLate, double(ends[size_t(k)] - air));
        }
    }
    state.counters["worst_off_ms"] = worst;
    state.counters["mean_off_ms"] = steps ? sum / steps : 0;
    state.counters["sim_end_late_ms"] = simLate;
    state.counters["wake_to_wire_ms"] = path;
}
BENCHMARK(BM_SceneStepsOnTheWire)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(10);

} // namespace
