// Air conditioners: the memory 50 units take once loaded, and an API PUT of a
// state to the answer after its frame went out on the simulator, less the
// time the simulator holds a send for its air. Units are of the first built-in family, else tables.
#include "api/ClimateApi.h"
#include "api/JsonApi.h"
#include "climate/ClimateUnits.h"
#include "core/UserPrompt.h"
#include "core/Wait.h"
#include "infrared/SimDriver.h"
#include "infrared/Transceiver.h"
#include "reservations/Scheduler.h"
#include "support/ClimateTable.h"
#include "support/FixedClock.h"
#include "support/TempFolder.h"
#include "webserver/Dispatcher.h"
#include "webserver/WebServer.h"

#include <QHostAddress>
#include <QTcpSocket>
#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <fstream>
#include <malloc.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {

double RssKb() {
    std::ifstream statm("/proc/self/statm");
    long pages = 0, resident = 0;
    statm >> pages >> resident;
    return double(resident) * double(sysconf(_SC_PAGESIZE)) / 1024;
}

std::optional<QString> Add(ClimateUnits& units, int n) {
    const QString name = u"エアコン"_s + QString::number(n);
    const auto families = ClimateFamilies();
    return families.empty() ? units.importSmartIr(name, SmartIrFile())
                            : units.create(name, families.front().family, {});
}

void BM_ClimateUnitsMemory(benchmark::State& state) {
    TempFolder t;
    HeadlessPrompt prompt;
    Transceiver device(t.folder, t.settings, prompt);
    {
        ClimateUnits made(t.folder, t.settings, device);
        for (int n = 1; n <= 50; ++n)
            if (!Add(made, n))
                return state.SkipWithError("a unit could not be made");
    }
    double heapKb = 0, rssKb = 0;
    for (auto _ : state) {
        const double rss = RssKb();
        const size_t heap = mallinfo2().uordblks;
        ClimateUnits loaded(t.folder, t.settings, device);
        benchmark::DoNotOptimize(loaded.units().size());
        heapKb = double(mallinfo2().uordblks - heap) / 1024;
        rssKb = RssKb() - rss;
    }
    state.counters["units"] = 50;
    state.counters["heap_kb"] = heapKb;
    state.counters["rss_kb"] = rssKb;
}
BENCHMARK(BM_ClimateUnitsMemory)->Iterations(1)->Unit(benchmark::kMillisecond);

using Clock = std::chrono::steady_clock;

void BM_ClimatePutToAir(benchmark::State& state) {
    TempFolder t;
    t.settings.WriteIni(u"WebServer", u"Port", u"0");
    t.settings.WriteIni(u"WebServer", u"Hosts", u"h");
    t.settings.WriteIni(u"Tira", u"Device", u"sim");
    FixedClock clock;
    HeadlessPrompt prompt;
    Dispatcher dispatcher;
    Transceiver device(t.folder, t.settings, prompt);
    device.factory = [&](const QString&) {
        return std::make_unique<SimDriver>(t.path(u"sim-transmit.log"));
    };
    Scheduler scheduler(t.folder, t.settings, clock);
    WebServer server(t.folder, t.settings, clock, prompt, dispatcher);
    JsonApi api({t.folder, t.settings, clock, device, scheduler, server, {}});
    ClimateUnits units(t.folder, t.settings, device);
    ClimateApi climateApi(t.folder, units, device, {});
    api.climates = [&](const Api::Call& c, const FrontReply& r) { climateApi.Handle(c, r); };
    server.portFallback = [](const QList<quint16>&) { return quint16(0); };
    server.AddFront(api.Route());
    server.InitWebServer();
    const auto id = Add(units, 1);
    if (!id)
        return state.SkipWithError("no unit");
    const ClimateUnit unit = *units.unit(*id);
    bool on = false;
    double airMs = 0, answerMs = 0;
    for (auto _ : state) {
        on = !on;
        ClimateState next = unit.state;
        next.power = on;
        next.mode = unit.caps.modes.front();
        const auto frame = units.signalFor(*id, next);
        if (!frame)
            return state.SkipWithError("no frame");
        airMs = 0;
        for (uint32_t d : frame->frame())
            airMs += d / 1000.0;
        const QByteArray body =
            QJsonDocument(ClimateStateJson(next)).toJson(QJsonDocument::Compact);
        const auto start = Clock::now();
        // Timed to the answer's first bytes, not to the connection's end.
        QTcpSocket socket;
        socket.connectToHost(QHostAddress::LocalHost, server.WebPort());
        socket.write("PUT /api/v1/climates/" + id->toLatin1() +
                     "/state HTTP/1.1\r\nHost: 127.0.0.1\r\nContent-Type: "
                     "application/json\r\nContent-Length: " +
                     QByteArray::number(body.size()) + "\r\nConnection: close\r\n\r\n" + body);
        QByteArray answer;
        while (!answer.contains("\r\n\r\n") && WaitForSignal(&socket, &QTcpSocket::readyRead, 2000))
            answer += socket.readAll();
        answerMs = std::chrono::duration<double, std::milli>(Clock::now() - start).count();
        if (!answer.startsWith("HTTP/1.1 200"))
            return state.SkipWithError("the PUT was not sent");
        // The simulator holds a send for its air time, at most 200 ms.
        state.SetIterationTime((answerMs - std::min(airMs, 200.0)) / 1000);
    }
    state.counters["air_ms"] = airMs;
    state.counters["answer_ms"] = answerMs;
}
BENCHMARK(BM_ClimatePutToAir)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(20);

} // namespace
