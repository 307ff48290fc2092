#pragma once

#include "infrared/IrProtocol.h"
#include "infrared/IrSignal.h"
#include "infrared/Transmission.h"
#include "mqtt/Discovery.h"
#include "mqtt/MqttCommands.h"
#include "mqtt/MqttConfig.h"
#include "mqtt/MqttConnection.h"

#include <QFileSystemWatcher>
#include <QHash>
#include <QJsonObject>
#include <QObject>
#include <QSet>
#include <QTimer>

#include <functional>

class ClimateUnits;
class Scenes;
class ProgramFolder;
class SettingsStore;
class Transceiver;

// Kestrava on an MQTT broker, for Home Assistant and anything else there:
// discovery of the hub, the remotes and their keys; presses and raw timings
// asked for on our topics, sent through the same queue as every other
// press; every press, reservation, learned key and transceiver change told.
class Mqtt : public QObject {
    Q_OBJECT
public:
    Mqtt(const ProgramFolder& folder, SettingsStore& settings, Transceiver& device,
         QObject* parent = nullptr);
    ~Mqtt() override;

    // Reads [MQTT] and connects when a server is set.
    void Start();
    // Publishes offline and disconnects.
    void Close();
    // Rereads [MQTT] and connects afresh (the settings dialog's OK).
    void Reconfigure();

    bool isConnected() const { return connection_.isConnected(); }
    QString nodeId() const { return config_.nodeId; }
    QString baseTopic() const { return config_.topic; }
    QString server() const { return config_.server; }
    const MqttConfig& config() const { return config_; }

    // Whether the transceiver can receive between sends: a receiver entity then.
    std::function<bool()> canListen;
    // Whether it is being listened to now, for the hub's sensor.
    std::function<bool()> listening;
    // The web server's port, for the hub's link to our pages (0: none).
    std::function<quint16()> webPort;

    // What the listener heard: every frame on the receiver's state topic and
    // the hub's last-heard sensor, and a learned key's trigger and event.
    void PublishFrame(const IrTiming& timing, const IrCode& code);
    void PublishKeyHeard(int slot, int button, const QString& remote, const QString& key);
    // The hub's transceiver and listening states again, as when connecting
    // (for whoever turns listening on or off while connected).
    void PublishHubStates();

    // The air conditioners: a climate entity each, their states published as
    // they change (also when heard from their own remote), commands sent
    // through them.
    void SetClimates(ClimateUnits* units);

    // The scenes: a scene entity each, run by its command topic.
    void SetScenes(Scenes* scenes);

    MqttConnection& connection() { return connection_; }

signals:
    void connectionChanged(bool connected);

private:
    void connected(bool on);
    void message(const QString& topic, const QByteArray& payload, bool retained);
    void refused(const QString& relative, const QByteArray& code, const QString& why);
    void pressKey(int slot, int button, const QString& relative);
    void send(const QString& path, const QString& device, const QString& function);
    void climateCommand(const MqttCommand::ClimateRef& ref, const QByteArray& payload,
                        const QString& relative);
    void publishClimate(const QString& id);
    void runScene(int id, const QByteArray& payload, const QString& relative);
    void emitTimings(const QByteArray& payload, const QString& relative);
    void publishEvent(const QString& name, const QJsonObject& data, bool retain = false);
    // The hub's sensors: a state and its JSON attributes, retained.
    void publishSensor(const QString& topic, const QString& state, const QJsonObject& attributes);
    QString pageUrl() const;
    // Builds the configs and publishes what changed; cleared ones get an empty payload.
    void syncDiscovery(bool all);
    std::vector<Discovery::Remote> readRemotes();
    void watch();

    const ProgramFolder& folder_;
    SettingsStore& settings_;
    Transceiver& device_;
    MqttConfig config_;
    MqttConnection connection_;
    Discovery::Configs published_;
    QSet<QString> learned_;  // "slot/button" of every learned key: a rename is no new key
    bool keysKnown_ = false; // learned_ was read: keys new to it were learned since
    QByteArray stamp_;
    QFileSystemWatcher watcher_;
    QTimer settle_;      // changes to the registry come in bursts
    QTimer staleWindow_; // while it runs, retained configs not ours now are cleared
    // A frame heard waits for the keys it matches (told right after it) before
    // the last-heard sensor is published.
    QTimer heardLater_;
    QString heardState_;
    ClimateUnits* climates_ = nullptr;
    QStringList climateIds_; // whose states are published
    Scenes* scenes_ = nullptr;
    QJsonObject heardAttributes_;
};
