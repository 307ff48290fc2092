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

namespace {
QByteArray Json(const QJsonObject& o) {
    return QJsonDocument(o).toJson(QJsonDocument::Compact);
}
} // namespace

Configs Build(const Hub& hub, const std::vector<Remote>& remotes) {
    Configs out;
    const QString node = u"kestrava_"_s + hub.nodeId;
    const QString availability = hub.topic + u"/status"_s;
    const QJsonObject origin{{u"name"_s, u"Kestrava"_s},
                             {u"sw_version"_s, QString::fromLatin1(KESTRAVA_VERSION)}};
    const QJsonObject hubDevice{{u"identifiers"_s, QJsonArray{node}},
                                {u"name"_s, u"Kestrava "_s + hub.nodeId},
                                {u"manufacturer"_s, u"Kestrava"_s},
                                {u"model"_s, u"IR transceiver"_s},
                                {u"sw_version"_s, QString::fromLatin1(KESTRAVA_VERSION)}};
    const auto topicOf = [&](const char* component, const QString& object) {
        return hub.prefix + u'/' + QLatin1StringView(component) + u'/' + node + u'/' + object +
               u"/config"_s;
    };
    out[topicOf("infrared", u"emitter"_s)] = Json({{u"schema"_s, u"emitter"_s},
                                                   {u"name"_s, u"IR emitter"_s},
                                                   {u"unique_id"_s, node + u"_emitter"_s},
                                                   {u"command_topic"_s, EmitterTopic(hub.topic)},
                                                   {u"availability_topic"_s, availability},
                                                   {u"device"_s, hubDevice},
                                                   {u"origin"_s, origin}});
    if (hub.canListen)
        out[topicOf("infrared", u"receiver"_s)] =
            Json({{u"schema"_s, u"receiver"_s},
                  {u"name"_s, u"IR receiver"_s},
                  {u"unique_id"_s, node + u"_receiver"_s},
                  {u"state_topic"_s, ReceiverTopic(hub.topic)},
                  {u"availability_topic"_s, availability},
                  {u"device"_s, hubDevice},
                  {u"origin"_s, origin}});
    for (const Remote& r : remotes) {
        const QString id = node + u"_r"_s + QString::number(r.slot);
        const QJsonObject device{{u"identifiers"_s, QJsonArray{id}},
                                 {u"name"_s, r.name},
                                 {u"manufacturer"_s, u"Kestrava"_s},
                                 {u"model"_s, u"Design "_s + QString::number(r.design)},
                                 {u"via_device"_s, node}};
        for (const Key& k : r.keys) {
            const QString object = u"r%1_k%2"_s.arg(r.slot).arg(k.button);
            out[topicOf("button", object)] =
                Json({{u"name"_s, k.name},
                      {u"unique_id"_s, node + u'_' + object},
                      {u"command_topic"_s, ButtonCommandTopic(hub.topic, r.slot, k.button)},
                      {u"payload_press"_s, u"PRESS"_s},
                      {u"availability_topic"_s, availability},
                      {u"device"_s, device}});
            if (k.decodes)
                out[topicOf("device_automation", object)] =
                    Json({{u"automation_type"_s, u"trigger"_s},
                          {u"topic"_s, TriggerTopic(hub.topic, r.slot, k.button)},
                          {u"type"_s, u"button_short_press"_s},
                          {u"subtype"_s, k.name},
                          {u"payload"_s, u"press"_s},
                          {u"device"_s, device}});
        }
    }
    return out;
}

} // namespace Discovery
