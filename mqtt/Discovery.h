#pragma once

#include <QByteArray>
#include <QString>

#include <map>
#include <vector>

// Home Assistant's MQTT discovery for one Kestrava: the hub (the transceiver
// with its infrared emitter and, where it can listen, receiver), a device
// per learned remote through the hub, a button per learned key and a trigger
// per key that decodes. Ids come from the node id, the remote's slot and the
// key's index, so renaming one key leaves the others' entities as they are.
namespace Discovery {

struct Key {
    int button = 0;
    QString name;
    bool decodes = false; // a protocol was recognised: the listener can tell it
};
struct Remote {
    int slot = 0;
    QString name;
    int design = 0;
    std::vector<Key> keys; // learned ones only
};
struct Hub {
    QString nodeId;
    QString topic;  // our base topic
    QString prefix; // discovery prefix
    bool canListen = false;
};

// Retained config payloads by topic.
using Configs = std::map<QString, QByteArray>;
Configs Build(const Hub& hub, const std::vector<Remote>& remotes);

// Where our commands and states live under the base topic.
QString ButtonCommandTopic(const QString& topic, int slot, int button);
QString TriggerTopic(const QString& topic, int slot, int button);
QString EmitterTopic(const QString& topic);
QString ReceiverTopic(const QString& topic);

} // namespace Discovery
