// A press on a web page to the last byte of its IX command on the serial line:
// TXSignalById reads the registry and the signal file, converts the signal and
// writes it to a Tira played by a pseudo-terminal, which has no wire time of
// its own. Counters give the wire time the same bytes take at the nominal and
// at the real line speed.
#include "core/Settings.h"
#include "core/UserPrompt.h"
#include "infrared/FakeTira.h"
#include "infrared/SimDriver.h"
#include "infrared/Transceiver.h"
#include "remotes/Press.h"
#include "support/TempFolder.h"

#include <benchmark/benchmark.h>

#include <chrono>

namespace {

void BM_TXSignalByIdToWire(benchmark::State& state) {
    FakeTira tira;
    TempFolder t;
    t.folder.CreateDataFolders();
    t.settings.WriteIni(u"Tira", u"Device", tira.path());
    t.settings.WriteIni(u"Remote-1", u"Device", u"TV");
    t.settings.WriteIni(u"Remote-1", u"Button-0", u"Power");
    QByteArray img = SimDriver::SampleCapture();
    const auto length = img.size();
    img.append(SignalFileSize - img.size(), '\0');
    img[1998] = char(length / 255);
    img[1999] = char(length % 255);
    t.writeFile(u"IRSignals/TV-Power.bin", img);
    HeadlessPrompt prompt;
    Transceiver device(t.folder, t.settings, prompt);

    using Clock = std::chrono::steady_clock;
    Clock::time_point lastByte;
    tira.onTransmit = [&] {
        if (tira.transmissions.size() == 1)
            lastByte = Clock::now();
    };
    TXSignalById(device, u"1", u"0"); // opens the device once, as the first press does
    qsizetype bytes = 0;
    for (auto _ : state) {
        tira.transmissions.clear();
        auto start = Clock::now();
        if (TXSignalById(device, u"1", u"0") != SendResult::Sent)
            state.SkipWithError("send failed");
        state.SetIterationTime(std::chrono::duration<double>(lastByte - start).count());
        bytes = tira.transmissions.value(0).size();
    }
    state.counters["ix_bytes"] = double(bytes);
    state.counters["wire_ms_9600"] = bytes * 10 * 1000.0 / 9600;
    state.counters["wire_ms_100000"] = bytes * 10 * 1000.0 / 100000;
}
BENCHMARK(BM_TXSignalByIdToWire)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(40);

} // namespace
