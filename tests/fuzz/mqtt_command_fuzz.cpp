// A message on one of our MQTT command topics: the topic after the base and
// the payload, as the press, button, emitter, climate and scene commands read them.
#include "mqtt/MqttCommands.h"
#include "mqtt/MqttConfig.h"
#include "remotes/Registry.h"

#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    // Up to the first newline: a topic (and a server address); the rest: the payload.
    const QByteArrayView all(reinterpret_cast<const char*>(data), qsizetype(size));
    const qsizetype nl = all.indexOf('\n');
    const QString topic = QString::fromUtf8(nl < 0 ? all : all.first(nl));
    const QByteArrayView payload = nl < 0 ? QByteArrayView() : all.sliced(nl + 1);
    QString why;
    if (const auto key = MqttCommand::ParseKeyTopic(topic, &why)) {
        if (key->slot < 1 || key->slot > MaxRemoteId || key->button < 0 || !why.isEmpty())
            abort();
    } else if (why.isEmpty() == topic.startsWith(u"key/")) {
        abort(); // a key topic refused says why; no other topic is answered
    }
    why.clear();
    if (const auto c = MqttCommand::ParseClimateTopic(topic, &why)) {
        if (c->unit.isEmpty() || !why.isEmpty())
            abort();
        MqttCommand::ApplyClimateCommand(c->field, payload, ClimateState{}, &why);
    } else if (why.isEmpty() == topic.startsWith(u"climate/")) {
        abort();
    }
    why.clear();
    if (const auto scene = MqttCommand::ParseSceneTopic(topic, &why)) {
        if (*scene < 1 || *scene > 100 || !why.isEmpty())
            abort();
    } else if (why.isEmpty() == topic.startsWith(u"scene/")) {
        abort();
    }
    why.clear();
    if (const auto press = MqttCommand::ParsePress(payload, &why)) {
        if (press->remote.isEmpty() || press->key.isEmpty())
            abort();
    } else if (why.isEmpty()) {
        abort();
    }
    why.clear();
    if (const auto e = MqttCommand::ParseEmit(payload, &why)) {
        if (e->repeats < 0 || e->timing.durations.empty())
            abort();
    } else if (why.isEmpty()) {
        abort();
    }
    QString host;
    quint16 port = 0;
    bool tls = false;
    if (ParseMqttServer(topic, &host, &port, &tls) && (host.isEmpty() || port == 0))
        abort();
    return 0;
}
