// Home Assistant's side of the MQTT benchmark (bench/mqtt/run.sh starts the
// broker and the program): how long after "online" the last discovery config
// arrives, then presses from the MQTT message to the press event, against the
// signal's air time.
#include "core/Wait.h"
#include "mqtt/MqttConnection.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QTextStream>

#include <algorithm>
#include <cstdio>
#include <vector>

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    const QStringList a = app.arguments();
    if (a.size() < 5) {
        std::fprintf(stderr, "usage: %s PORT TOPIC CONFIGS AIR_MS\n", argv[0]);
        return 2;
    }
    MqttConfig config;
    config.host = u"127.0.0.1"_qs;
    config.port = quint16(a[1].toUInt());
    config.nodeId = u"bench-client"_qs;
    const QString topic = a[2];
    const int expected = a[3].toInt();
    const double airMs = a[4].toDouble();

    MqttConnection c;
    QElapsedTimer clock;
    clock.start();
    qint64 online = -1, last = -1, eventAt = -1;
    int configs = 0;
    QObject::connect(
        &c, &MqttConnection::message, [&](const QString& t, const QByteArray& payload, bool) {
            if (t == topic + u"/status"_qs && payload == "online" && online < 0)
                online = clock.nsecsElapsed();
            else if (t.endsWith(u"/config"_qs) && !payload.isEmpty() && ++configs == expected)
                last = clock.nsecsElapsed();
            else if (t == topic + u"/event"_qs)
                eventAt = clock.nsecsElapsed();
        });
    QObject::connect(&c, &MqttConnection::connectionChanged, [&](bool on) {
        if (!on)
            return;
        c.Subscribe(u"homeassistant/#"_qs);
        c.Subscribe(topic + u"/status"_qs);
        c.Subscribe(topic + u"/event"_qs);
        std::printf("ready\n");
        std::fflush(stdout);
    });
    c.Open(config, u"bench-client/status"_qs);
    for (int i = 0; i < 600 && last < 0; ++i)
        WaitMs(100);
    if (last < 0 || online < 0) {
        std::printf("discovery: only %d of %d configs\n", configs, expected);
        return 1;
    }
    std::printf("discovery: %d configs, the last %.0f ms after online\n", configs,
                (last - online) / 1e6);

    std::vector<double> ms;
    for (int i = 0; i < 201; ++i) {
        eventAt = -1;
        const qint64 sent = clock.nsecsElapsed();
        c.Publish(topic + u"/key/1/0/press"_qs, "PRESS", false);
        for (int w = 0; w < 5000 && eventAt < 0; ++w)
            WaitForSignal(&c, &MqttConnection::message, 1000);
        if (eventAt < 0) {
            std::printf("press %d: no event\n", i);
            return 1;
        }
        if (i > 0) // the first opens the device
            ms.push_back((eventAt - sent) / 1e6);
    }
    std::sort(ms.begin(), ms.end());
    const auto p = [&](double q) { return ms[std::min(ms.size() - 1, size_t(q * ms.size()))]; };
    std::printf("MQTT press to its event, 200 in a row: air time %.0f ms; whole p50 %.2f ms, "
                "p99 %.2f ms; beyond the air time p50 %.2f ms, p99 %.2f ms\n",
                airMs, p(.5), p(.99), p(.5) - airMs, p(.99) - airMs);
    return 0;
}
