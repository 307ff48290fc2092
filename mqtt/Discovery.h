#pragma once

#include "infrared/Climate.h"

#include <QByteArray>
#include <QString>

#include <map>
#include <vector>

// Home Assistant's MQTT discovery for one Kestrava: the hub (the transceiver
// with its infrared emitter and, where it can listen, receiver, and its
// diagnostic sensors), a device per learned remote through the hub, a button
// and a device trigger per learned key and, where it can listen, an event
// entity per remote. The hub is made by its sensors too, so a Home Assistant
// without MQTT infrared still has it. Ids, topics and each trigger's type and
// subtype come from the node id, the remote's slot and the key's index, never
// from a name: a key renamed keeps its entities and the automations on them.
namespace Discovery {

struct Key {
    int button = 0;
    QString name;
};
struct Remote {
    int slot = 0;
    QString name;
    int design = 0;
    std::vector<Key> keys; // learned ones only
};
// An air conditioner: a climate entity of its own device through the hub.
struct Climate {
    QString id; // "ac1": ids and topics
    QString name;
    ClimateCaps caps;
};
// A scene: a scene entity of the hub, run by its command topic.
struct SceneEntry {
    int id = 0;
    QString name;
};
struct Hub {
    QString nodeId;
    QString topic;  // our base topic
    QString prefix; // discovery prefix
    bool canListen = false;
    QString pageUrl; // "http://host:port" of our web pages; empty: not known
};

// Retained config payloads by topic.
using Configs = std::map<QString, QByteArray>;
Configs Build(const Hub& hub, const std::vector<Remote>& remotes,
              const std::vector<Climate>& climates = {},
              const std::vector<SceneEntry>& scenes = {});

// Where our commands and states live under the base topic.
QString ButtonCommandTopic(const QString& topic, int slot, int button);
QString TriggerTopic(const QString& topic, int slot, int button);
QString EmitterTopic(const QString& topic);
QString ReceiverTopic(const QString& topic);
// The event entity of a remote: {"event_type": key name}.
QString HeardTopic(const QString& topic, int slot);
// A trigger's subtype: the key's index, which a rename keeps.
QString TriggerSubtype(int button);

// An air conditioner's state, retained: {"mode" ("off" when off), "temperature",
// "fan", "swing" (on/off), "power" (ON/OFF), "text"}; and its command topic of
// one field (mode, temperature, fan, swing, power).
QString ClimateStateTopic(const QString& topic, const QString& unit);
QString ClimateCommandTopic(const QString& topic, const QString& unit, const QString& field);
QByteArray ClimateStatePayload(const ClimateState& state);

// A scene's command topic <Topic>/scene/<id>/run ("ON").
QString SceneCommandTopic(const QString& topic, int scene);

// The hub's diagnostic states, retained: ON/OFF, and a sensor's text state with
// its JSON attributes on <state topic>/attributes.
QString TransceiverTopic(const QString& topic);
QString ListeningTopic(const QString& topic);
QString LastPressTopic(const QString& topic);
QString LastHeardTopic(const QString& topic);

} // namespace Discovery
