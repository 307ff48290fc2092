// A held key's frames against its protocol's period: NEC (its repeat code
// every 108 ms) and Sony (the whole frame every 45 ms), held 3 s on the
// simulator (when each frame is handed to the driver) and on a Tira played by
// a pseudo-terminal (when each IX command has come in whole). Counters give
// the mean and largest deviation of the spacing from the period, in ms.
// MachineWake is the floor: how late this machine wakes a bare timerfd at
// the same pace, with no program around it.
#include "core/Settings.h"
#include "core/UserPrompt.h"
#include "core/Wait.h"
#include "infrared/FakeTira.h"
#include "infrared/HeldSignal.h"
#include "infrared/SimDriver.h"
#include "infrared/Transceiver.h"
#include "support/TempFolder.h"

#include <benchmark/benchmark.h>

#include <QElapsedTimer>

#include <cmath>

#include <poll.h>
#include <sys/timerfd.h>
#include <unistd.h>

namespace {

// The simulator, noting when each frame is handed over.
class TimedSim final : public IrDriver {
public:
    TimedSim(const QString& log, std::vector<qint64>* at) : sim_(log), at_(at) { clock_.start(); }
    int tira_init() override { return sim_.tira_init(); }
    int tira_cleanup() override { return sim_.tira_cleanup(); }
    int tira_start(int port) override { return sim_.tira_start(port); }
    int tira_stop() override { return sim_.tira_stop(); }
    int tira_start_capture() override { return sim_.tira_start_capture(); }
    int tira_cancel_capture() override { return sim_.tira_cancel_capture(); }
    int tira_get_captured_data(QByteArray* d, int max) override {
        return sim_.tira_get_captured_data(d, max);
    }
    int tira_get_ir_data(QString* text) override { return sim_.tira_get_ir_data(text); }
    int tira_transmit(int repeat, int frequency, QByteArrayView data) override {
        return sim_.tira_transmit(repeat, frequency, data);
    }
    QString target() const override { return sim_.target(); }
    void transmitAsync(int repeat, int frequency, QByteArray data, Done done) override {
        at_->push_back(clock_.nsecsElapsed());
        sim_.transmitAsync(repeat, frequency, std::move(data), std::move(done));
    }

private:
    SimDriver sim_;
    std::vector<qint64>* at_;
    QElapsedTimer clock_;
};

void Hold(benchmark::State& state, const char* spec, bool tira) {
    TempFolder t;
    t.folder.CreateDataFolders();
    const IrCode code = *ParseCodeSpec(QString::fromLatin1(spec));
    const IrTiming timing = *EncodeSignal(code);
    WriteSignalFile(t.path(u"IRSignals/TV-Key.bin"), BlobFromTiming(timing)->encode());
    const HeldSignal held = *HeldSignalOf(timing, code);
    std::vector<qint64> at;
    FakeTira fake;
    QElapsedTimer wire;
    wire.start();
    fake.onTransmit = [&] { at.push_back(wire.nsecsElapsed()); };
    t.settings.WriteIni(u"Tira", u"Device", tira ? fake.path() : QStringLiteral("sim"));
    HeadlessPrompt prompt;
    Transceiver device(t.folder, t.settings, prompt);
    if (!tira)
        device.factory = [&](const QString&) {
            return std::make_unique<TimedSim>(t.path(u"sim-transmit.log"), &at);
        };
    device.holdLimitMs = 3000;
    std::vector<double> deviations;
    for (auto _ : state) {
        at.clear();
        bool ended = false;
        device.StartHold(t.path(u"IRSignals/TV-Key.bin"), {},
                         [&](const Transceiver::HoldOutcome&) { ended = true; });
        while (!ended)
            WaitMs(10);
        for (size_t i = 1; i < at.size(); ++i) {
            const double period = (i == 1 ? held.firstPeriodUs : held.repeatPeriodUs) / 1000.0;
            deviations.push_back(std::abs((at[i] - at[i - 1]) / 1e6 - period));
        }
    }
    double sum = 0, most = 0;
    for (double d : deviations) {
        sum += d;
        most = std::max(most, d);
    }
    state.counters["frames"] = double(at.size());
    state.counters["mean_dev_ms"] = deviations.empty() ? 0 : sum / double(deviations.size());
    state.counters["max_dev_ms"] = most;
    state.counters["period_ms"] = held.repeatPeriodUs / 1000.0;
}

void MachineWake(benchmark::State& state) {
    const int fd = timerfd_create(CLOCK_MONOTONIC, 0);
    std::vector<double> late;
    for (auto _ : state) {
        timespec start{};
        clock_gettime(CLOCK_MONOTONIC, &start);
        const qint64 t0 = qint64(start.tv_sec) * 1000000000 + start.tv_nsec;
        for (int i = 1; i <= 66; ++i) {
            const qint64 at = t0 + i * qint64(45000000);
            const itimerspec when{{0, 0}, {time_t(at / 1000000000), long(at % 1000000000)}};
            timerfd_settime(fd, TFD_TIMER_ABSTIME, &when, nullptr);
            pollfd p{fd, POLLIN, 0};
            poll(&p, 1, -1);
            uint64_t n = 0;
            [[maybe_unused]] const auto got = read(fd, &n, sizeof n);
            timespec now{};
            clock_gettime(CLOCK_MONOTONIC, &now);
            late.push_back((qint64(now.tv_sec) * 1000000000 + now.tv_nsec - at) / 1e6);
        }
    }
    close(fd);
    double sum = 0, most = 0;
    for (double d : late) {
        sum += d;
        most = std::max(most, d);
    }
    state.counters["mean_late_ms"] = sum / double(late.size());
    state.counters["max_late_ms"] = most;
    state.counters["over_2ms"] =
        double(std::count_if(late.begin(), late.end(), [](double d) { return d > 2; }));
}

BENCHMARK(MachineWake)->Unit(benchmark::kSecond)->Iterations(2);
BENCHMARK_CAPTURE(Hold, NecSim, "nec:0x0408", false)->Unit(benchmark::kSecond)->Iterations(2);
BENCHMARK_CAPTURE(Hold, SonySim, "sony12:0x010015", false)->Unit(benchmark::kSecond)->Iterations(2);
BENCHMARK_CAPTURE(Hold, NecTira, "nec:0x0408", true)->Unit(benchmark::kSecond)->Iterations(2);
BENCHMARK_CAPTURE(Hold, SonyTira, "sony12:0x010015", true)->Unit(benchmark::kSecond)->Iterations(2);

} // namespace
