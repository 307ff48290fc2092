#include "mqtt/Discovery.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

using namespace Qt::StringLiterals;

namespace Discovery {

QString ButtonCommandTopic(const QString& topic, int slot, int button) {
    return u"%1/key/%2/%3/press"_s.arg(topic).arg(slot).arg(button);
}
QString TriggerTopic(const QString& topic, int slot, int button) {
    return u"%1/trigger/%2/%3"_s.arg(topic).arg(slot).arg(button);
}
QString EmitterTopic(const QString& topic) {
    return topic + u"/ir/transmit"_s;
}
QString ReceiverTopic(const QString& topic) {
    return topic + u"/ir/received"_s;
}
QString HeardTopic(const QString& topic, int slot) {
    return u"%1/heard/%2"_s.arg(topic).arg(slot);
}
QString TriggerSubtype(int button) {
    return u"key "_s + QString::number(button);
}
QString TransceiverTopic(const QString& topic) {
    return topic + u"/hub/transceiver"_s;
}
QString ListeningTopic(const QString& topic) {
    return topic + u"/hub/listening"_s;
}
QString LastPressTopic(const QString& topic) {
    return topic + u"/hub/last_press"_s;
}
QString LastHeardTopic(const QString& topic) {
    return topic + u"/hub/last_heard"_s;
}

QString ClimateStateTopic(const QString& topic, const QString& unit) {
    return u"%1/climate/%2/state"_s.arg(topic, unit);
}
QString ClimateCommandTopic(const QString& topic, const QString& unit, const QString& field) {
    return u"%1/climate/%2/%3/set"_s.arg(topic, unit, field);
}

namespace {
// Home Assistant's names of our modes.
QString HaMode(ClimateMode mode) {
    return mode == ClimateMode::Fan ? u"fan_only"_s : ClimateModeName(mode);
}
} // namespace

QByteArray ClimateStatePayload(const ClimateState& state) {
    return QJsonDocument(QJsonObject{{u"mode"_s, state.power ? HaMode(state.mode) : u"off"_s},
                                     {u"temperature"_s, state.temperature},
                                     {u"fan"_s, state.fan},
                                     {u"swing"_s, state.swing ? u"on"_s : u"off"_s},
                                     {u"power"_s, state.power ? u"ON"_s : u"OFF"_s},
                                     {u"text"_s, ClimateStateText(state)}})
        .toJson(QJsonDocument::Compact);
}

namespace {
QByteArray Json(const QJsonObject& o) {
    return QJsonDocument(o).toJson(QJsonDocument::Compact);
}
} // namespace

QString SceneCommandTopic(const QString& topic, int scene) {
    return u"%1/scene/%2/run"_s.arg(topic).arg(scene);
}

Configs Build(const Hub& hub, const std::vector<Remote>& remotes,
              const std::vector<Climate>& climates, const std::vector<SceneEntry>& scenes) {
    Configs out;
    const QString node = u"kestrava_"_s + hub.nodeId;
    const QString availability = hub.topic + u"/status"_s;
    const QString version = QString::fromLatin1(KESTRAVA_VERSION);
    QJsonObject origin{{u"name"_s, u"Kestrava"_s}, {u"sw_version"_s, version}};
    QJsonObject hubDevice{{u"identifiers"_s, QJsonArray{node}},
                          {u"name"_s, u"Kestrava "_s + hub.nodeId},
                          {u"manufacturer"_s, u"Kestrava"_s},
                          {u"model"_s, u"IR transceiver"_s},
                          {u"sw_version"_s, version}};
    if (!hub.pageUrl.isEmpty()) {
        origin[u"support_url"_s] = hub.pageUrl + u"/help/index.html"_s;
        hubDevice[u"configuration_url"_s] = hub.pageUrl + u"/m/"_s;
    }
    const auto add = [&](const char* component, const QString& object, QJsonObject config) {
        config[u"origin"_s] = origin;
        out[hub.prefix + u'/' + QLatin1StringView(component) + u'/' + node + u'/' + object +
            u"/config"_s] = Json(config);
    };
    // The hub's own entities; they alone make its device where Home Assistant
    // knows no MQTT infrared.
    const auto hubEntity = [&](const QString& object, const QString& name) {
        return QJsonObject{{u"name"_s, name},
                           {u"unique_id"_s, node + u'_' + object},
                           {u"availability_topic"_s, availability},
                           {u"device"_s, hubDevice}};
    };
    QJsonObject emitter = hubEntity(u"emitter"_s, u"IR emitter"_s);
    emitter[u"schema"_s] = u"emitter"_s;
    emitter[u"command_topic"_s] = EmitterTopic(hub.topic);
    add("infrared", u"emitter"_s, emitter);
    const auto diagnostic = [&](const char* component, const QString& object, const QString& name,
                                const QString& state) {
        QJsonObject o = hubEntity(object, name);
        o[u"entity_category"_s] = u"diagnostic"_s;
        o[u"state_topic"_s] = state;
        if (QLatin1StringView(component) == u"sensor")
            o[u"json_attributes_topic"_s] = state + u"/attributes"_s;
        return o;
    };
    QJsonObject transceiver = diagnostic("binary_sensor", u"transceiver"_s, u"Transceiver"_s,
                                         TransceiverTopic(hub.topic));
    transceiver[u"device_class"_s] = u"connectivity"_s;
    add("binary_sensor", u"transceiver"_s, transceiver);
    add("binary_sensor", u"listening"_s,
        diagnostic("binary_sensor", u"listening"_s, u"Listening"_s, ListeningTopic(hub.topic)));
    add("sensor", u"last_press"_s,
        diagnostic("sensor", u"last_press"_s, u"Last press"_s, LastPressTopic(hub.topic)));
    if (hub.canListen) {
        QJsonObject receiver = hubEntity(u"receiver"_s, u"IR receiver"_s);
        receiver[u"schema"_s] = u"receiver"_s;
        receiver[u"state_topic"_s] = ReceiverTopic(hub.topic);
        add("infrared", u"receiver"_s, receiver);
        add("sensor", u"last_heard"_s,
            diagnostic("sensor", u"last_heard"_s, u"Last heard code"_s, LastHeardTopic(hub.topic)));
    }
    for (const Remote& r : remotes) {
        const QString id = node + u"_r"_s + QString::number(r.slot);
        const QJsonObject device{{u"identifiers"_s, QJsonArray{id}},
                                 {u"name"_s, r.name},
                                 {u"manufacturer"_s, u"Kestrava"_s},
                                 {u"model"_s, u"Design "_s + QString::number(r.design)},
                                 {u"via_device"_s, node}};
        QJsonArray names;
        for (const Key& k : r.keys) {
            names.append(k.name);
            const QString object = u"r%1_k%2"_s.arg(r.slot).arg(k.button);
            add("button", object,
                {{u"name"_s, k.name},
                 {u"unique_id"_s, node + u'_' + object},
                 {u"command_topic"_s, ButtonCommandTopic(hub.topic, r.slot, k.button)},
                 {u"payload_press"_s, u"PRESS"_s},
                 {u"availability_topic"_s, availability},
                 {u"device"_s, device}});
            // Raw keys too: the listener matches them by their timings.
            add("device_automation", object,
                {{u"automation_type"_s, u"trigger"_s},
                 {u"topic"_s, TriggerTopic(hub.topic, r.slot, k.button)},
                 {u"type"_s, u"button_short_press"_s},
                 {u"subtype"_s, TriggerSubtype(k.button)},
                 {u"payload"_s, u"press"_s},
                 {u"device"_s, device}});
        }
        if (hub.canListen && !names.isEmpty())
            add("event", u"r%1"_s.arg(r.slot),
                {{u"name"_s, u"Key heard"_s},
                 {u"unique_id"_s, id + u"_heard"_s},
                 {u"state_topic"_s, HeardTopic(hub.topic, r.slot)},
                 {u"event_types"_s, names},
                 {u"device_class"_s, u"button"_s},
                 {u"availability_topic"_s, availability},
                 {u"device"_s, device}});
    }
    for (const Climate& c : climates) {
        const QString id = node + u'_' + c.id;
        const QString state = ClimateStateTopic(hub.topic, c.id);
        QJsonObject o{
            {u"name"_s, QJsonValue::Null}, // the device's own entity
            {u"unique_id"_s, id},
            {u"availability_topic"_s, availability},
            {u"optimistic"_s, true}, // infrared: the unit never answers
            {u"temperature_unit"_s, u"C"_s},
            {u"min_temp"_s, c.caps.minTemp},
            {u"max_temp"_s, c.caps.maxTemp},
            {u"temp_step"_s, c.caps.step},
            {u"precision"_s, c.caps.step < 1 ? 0.5 : 1.0},
            {u"power_command_topic"_s, ClimateCommandTopic(hub.topic, c.id, u"power"_s)},
            {u"payload_on"_s, u"ON"_s},
            {u"payload_off"_s, u"OFF"_s},
            {u"device"_s,
             QJsonObject{{u"identifiers"_s, QJsonArray{id}},
                         {u"name"_s, c.name},
                         {u"manufacturer"_s, u"Kestrava"_s},
                         {u"model"_s, c.caps.title.isEmpty() ? u"SmartIR table"_s : c.caps.title},
                         {u"via_device"_s, node}}}};
        QJsonArray modes{u"off"_s};
        for (ClimateMode m : c.caps.modes)
            modes.append(HaMode(m));
        o[u"modes"_s] = modes;
        const auto field = [&](const QString& ha, const QString& ours) {
            o[ha + u"_command_topic"_s] = ClimateCommandTopic(hub.topic, c.id, ours);
            o[ha + u"_state_topic"_s] = state;
            o[ha + u"_state_template"_s] = u"{{ value_json.%1 }}"_s.arg(ours);
        };
        field(u"mode"_s, u"mode"_s);
        field(u"temperature"_s, u"temperature"_s);
        if (!c.caps.fans.isEmpty()) {
            field(u"fan_mode"_s, u"fan"_s);
            o[u"fan_modes"_s] = QJsonArray::fromStringList(c.caps.fans);
        }
        if (c.caps.swing) {
            field(u"swing_mode"_s, u"swing"_s);
            o[u"swing_modes"_s] = QJsonArray{u"on"_s, u"off"_s};
        }
        add("climate", c.id, o);
    }
    // The id, not the name, makes the entity: a scene renamed keeps it.
    for (const SceneEntry& sc : scenes) {
        const QString object = u"s"_s + QString::number(sc.id);
        QJsonObject o = hubEntity(object, sc.name);
        o[u"command_topic"_s] = SceneCommandTopic(hub.topic, sc.id);
        o[u"payload_on"_s] = u"ON"_s;
        add("scene", object, o);
    }
    return out;
}

} // namespace Discovery
