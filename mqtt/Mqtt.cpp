#include "mqtt/Mqtt.h"

#include "climate/ClimateUnits.h"
#include "core/AtomicFile.h"
#include "core/ProgramFolder.h"
#include "core/SettingKeys.h"
#include "core/Settings.h"
#include "infrared/SignalStore.h"
#include "infrared/Transceiver.h"
#include "mqtt/MqttCommands.h"
#include "remotes/Press.h"
#include "remotes/Registry.h"
#include "scenes/Scenes.h"

#include <QDateTime>
#include <QDir>
#include <QFileInfo>
#include <QHostInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLoggingCategory>
#include <QPointer>
#include <QUrl>

using namespace Qt::StringLiterals;

namespace {
Q_LOGGING_CATEGORY(lcMqtt, "kestrava.mqtt")

QString ReasonOf(SendResult result) {
    switch (result) {
    case SendResult::Sent:
        return {};
    case SendResult::Busy:
        return u"busy"_s;
    case SendResult::NotOpened:
        return u"not_opened"_s;
    case SendResult::Failed:
        break;
    }
    return u"failed"_s;
}
} // namespace

Mqtt::Mqtt(const ProgramFolder& folder, SettingsStore& settings, Transceiver& device,
           QObject* parent)
    : QObject(parent), folder_(folder), settings_(settings), device_(device) {
    connect(&connection_, &MqttConnection::connectionChanged, this, &Mqtt::connected);
    connect(&connection_, &MqttConnection::message, this, &Mqtt::message);
    // Every press from any front, as it ends.
    connect(
        &device_, &Transceiver::pressEnded, this,
        [this](const SendLabel& label, SendResult result) {
            if (label.source == u"learning")
                return;
            const bool ok = result == SendResult::Sent;
            const QJsonObject o{{u"remote"_s, label.remote},
                                {u"key"_s, label.key},
                                {u"source"_s, label.source},
                                {u"ok"_s, ok},
                                {u"reason"_s, ok ? QJsonValue() : QJsonValue(ReasonOf(result))}};
            publishEvent(u"event"_s, o);
            publishEvent(u"last"_s, o, true);
            QJsonObject attributes = o;
            attributes[u"at"_s] = QDateTime::currentDateTimeUtc().toString(Qt::ISODateWithMs);
            publishSensor(Discovery::LastPressTopic(config_.topic),
                          ok ? u"sent"_s : ReasonOf(result), attributes);
            if (label.source == u"reservation")
                publishEvent(u"reservation"_s,
                             {{u"remote"_s, label.remote}, {u"key"_s, label.key}, {u"ok"_s, ok}});
        });
    connect(&device_, &Transceiver::presenceChanged, this, [this](bool present) {
        publishEvent(u"device"_s, {{u"state"_s, present ? u"back"_s : u"lost"_s}}, true);
        connection_.Publish(Discovery::TransceiverTopic(config_.topic), present ? "ON" : "OFF",
                            true);
    });
    heardLater_.setSingleShot(true);
    heardLater_.setInterval(0);
    connect(&heardLater_, &QTimer::timeout, this, [this] {
        publishSensor(Discovery::LastHeardTopic(config_.topic), heardState_, heardAttributes_);
    });
    settle_.setSingleShot(true);
    settle_.setInterval(150);
    connect(&settle_, &QTimer::timeout, this, [this] {
        watch();
        if (RegistryStamp(settings_, folder_) != stamp_)
            syncDiscovery(false);
    });
    connect(&watcher_, &QFileSystemWatcher::directoryChanged, &settle_,
            qOverload<>(&QTimer::start));
    connect(&watcher_, &QFileSystemWatcher::fileChanged, &settle_, qOverload<>(&QTimer::start));
    staleWindow_.setSingleShot(true);
    staleWindow_.setInterval(3000);
    connect(&staleWindow_, &QTimer::timeout, this, [this] {
        connection_.Unsubscribe(config_.discoveryPrefix + u"/+/kestrava_"_s + config_.nodeId +
                                u"/+/config"_s);
    });
}

Mqtt::~Mqtt() {
    // The connection goes after the timers and may still say it disconnected.
    disconnect(&connection_, nullptr, this, nullptr);
}

void Mqtt::Start() {
    config_ = ReadMqttConfig(settings_, folder_);
    if (!config_.enabled()) {
        if (!config_.server.isEmpty())
            qCWarning(lcMqtt).noquote()
                << "not a broker address, MQTT stays off:" << config_.server;
        return;
    }
    qCInfo(lcMqtt).noquote() << "node" << config_.nodeId << "on" << config_.server << "topic"
                             << config_.topic;
    watch();
    connection_.Open(config_, config_.topic + u"/status"_s);
}

void Mqtt::Close() {
    connection_.Close();
    watcher_.removePaths(watcher_.files() + watcher_.directories());
    settle_.stop();
    heardLater_.stop();
}

void Mqtt::Reconfigure() {
    // Configs under a name or prefix no longer ours would stay in Home Assistant.
    const MqttConfig next = ReadMqttConfig(settings_, folder_);
    if (next.nodeId != config_.nodeId || next.discoveryPrefix != config_.discoveryPrefix ||
        next.topic != config_.topic || !next.discovery || !next.enabled()) {
        for (const auto& [topic, payload] : published_)
            connection_.Publish(topic, {}, true, 1);
        for (const QString& id : std::as_const(climateIds_))
            connection_.Publish(Discovery::ClimateStateTopic(config_.topic, id), {}, true, 1);
    }
    Close();
    published_.clear();
    climateIds_.clear();
    keysKnown_ = false;
    Start();
}

void Mqtt::watch() {
    // setting.ini is replaced whole, so its folder is watched; IRSignals for the files.
    const QStringList wanted{QFileInfo(settings_.path()).absolutePath(),
                             folder_.path(u"IRSignals"_s)};
    for (const QString& dir : wanted)
        if (!watcher_.directories().contains(dir) && QFileInfo(dir).isDir())
            watcher_.addPath(dir);
}

void Mqtt::connected(bool on) {
    emit connectionChanged(on);
    if (!on) {
        staleWindow_.stop();
        return;
    }
    const QString t = config_.topic;
    connection_.Publish(t + u"/status"_s, "online", true, 1);
    connection_.Subscribe(t + u"/press"_s);
    connection_.Subscribe(t + u"/key/+/+/press"_s);
    connection_.Subscribe(Discovery::EmitterTopic(t));
    connection_.Subscribe(t + u"/climate/+/+/set"_s);
    connection_.Subscribe(t + u"/scene/+/run"_s);
    PublishHubStates();
    if (config_.discovery) {
        // Configs left from keys deleted while we were away come back retained.
        connection_.Subscribe(config_.discoveryPrefix + u"/+/kestrava_"_s + config_.nodeId +
                              u"/+/config"_s);
        staleWindow_.start();
    }
    syncDiscovery(true);
}

std::vector<Discovery::Remote> Mqtt::readRemotes() {
    std::vector<Discovery::Remote> out;
    SettingsStore::Batch batch(settings_);
    for (int slot = 1; slot <= MaxListedRemoteId; ++slot) {
        const QString name = settings_.Read(Key::RemoteName(slot));
        const Design* design = DesignByText(settings_.Read(Key::RemoteDesign(slot)));
        if (name.isEmpty() || !design)
            continue;
        Discovery::Remote r{slot, name, design->id, {}};
        const std::vector<QString> buttons = ReadRemoteButtons(settings_, slot);
        for (int k = 0; k < int(buttons.size()); ++k) {
            const QString& function = buttons[size_t(k)];
            if (function.isEmpty())
                continue;
            const QString path = SignalFilePath(folder_, name, function);
            const QFileInfo fi(path);
            if (!fi.exists())
                continue;
            r.keys.push_back({k, function});
        }
        out.push_back(std::move(r));
    }
    return out;
}

void Mqtt::syncDiscovery(bool all) {
    stamp_ = RegistryStamp(settings_, folder_);
    if (!connection_.isConnected())
        return;
    const std::vector<Discovery::Remote> remotes = readRemotes();
    // A key that was not there before has just been learned, whichever front
    // taught it; one renamed is the same key.
    QSet<QString> learned;
    for (const Discovery::Remote& r : remotes)
        for (const Discovery::Key& k : r.keys) {
            const QString id = QString::number(r.slot) + u'/' + QString::number(k.button);
            learned.insert(id);
            if (keysKnown_ && !learned_.contains(id))
                publishEvent(u"learned"_s, {{u"remote"_s, r.name}, {u"key"_s, k.name}});
        }
    learned_ = std::move(learned);
    keysKnown_ = true;
    std::vector<Discovery::Climate> climates;
    if (climates_)
        for (const ClimateUnit& u : climates_->units())
            climates.push_back({u.id, u.name, u.caps});
    std::vector<Discovery::SceneEntry> scenes;
    if (scenes_)
        for (const Scene& s : scenes_->scenes())
            scenes.push_back({s.id, s.name});
    Discovery::Configs next;
    if (config_.discovery)
        next = Discovery::Build({config_.nodeId, config_.topic, config_.discoveryPrefix,
                                 canListen && canListen(), pageUrl()},
                                remotes, climates, scenes);
    int sent = 0, cleared = 0;
    for (const auto& [topic, payload] : published_)
        if (!next.contains(topic)) {
            connection_.Publish(topic, {}, true, 1);
            ++cleared;
        }
    for (const auto& [topic, payload] : next) {
        const auto old = published_.find(topic);
        if (!all && old != published_.end() && old->second == payload)
            continue;
        connection_.Publish(topic, payload, true, 1);
        ++sent;
    }
    if (sent || cleared)
        qCDebug(lcMqtt) << "discovery:" << sent << "published," << cleared << "cleared";
    published_ = std::move(next);
    // Each unit's state, and nothing left retained of a unit deleted.
    QStringList ids;
    for (const Discovery::Climate& c : climates)
        ids.append(c.id);
    for (const QString& gone : std::as_const(climateIds_))
        if (!ids.contains(gone))
            connection_.Publish(Discovery::ClimateStateTopic(config_.topic, gone), {}, true, 1);
    for (const QString& id : ids)
        if (all || !climateIds_.contains(id))
            publishClimate(id);
    climateIds_ = ids;
}

void Mqtt::SetClimates(ClimateUnits* units) {
    climates_ = units;
    connect(units, &ClimateUnits::unitsChanged, this, [this] { syncDiscovery(false); });
    connect(units, &ClimateUnits::stateChanged, this,
            [this](const QString& id) { publishClimate(id); });
}

void Mqtt::SetScenes(Scenes* scenes) {
    scenes_ = scenes;
    connect(scenes, &Scenes::scenesChanged, this, [this] { syncDiscovery(false); });
}

void Mqtt::runScene(int id, const QByteArray& payload, const QString& relative) {
    if (!scenes_ || !scenes_->scene(id))
        return refused(relative, "not_found", u"no scene %1"_s.arg(id));
    if (payload != "ON" && payload != "PRESS")
        return refused(relative, "bad_request", u"the payload must be ON"_s);
    scenes_->run(
        id,
        [this, self = QPointer<Mqtt>(this), relative](const SceneOutcome& outcome) {
            if (self && !outcome.done)
                refused(relative, "not_sent", outcome.why);
        },
        u"mqtt"_s);
}

void Mqtt::publishClimate(const QString& id) {
    const auto unit = climates_ ? climates_->unit(id) : std::nullopt;
    if (unit && connection_.isConnected())
        connection_.Publish(Discovery::ClimateStateTopic(config_.topic, id),
                            Discovery::ClimateStatePayload(unit->state), true);
}

void Mqtt::climateCommand(const MqttCommand::ClimateRef& ref, const QByteArray& payload,
                          const QString& relative) {
    const auto unit = climates_ ? climates_->unit(ref.unit) : std::nullopt;
    if (!unit)
        return refused(relative, "not_found", u"no air conditioner \"%1\""_s.arg(ref.unit));
    QString why;
    const auto wanted = MqttCommand::ApplyClimateCommand(ref.field, payload, unit->state, &why);
    if (!wanted) {
        publishClimate(ref.unit); // Home Assistant showed it already: put it back
        return refused(relative, "bad_request", why);
    }
    // Home Assistant shows what it asked for at once; what was rounded, or a
    // send that failed, is put right by the state published after.
    climates_->setState(ref.unit, *wanted,
                        [this, self = QPointer<Mqtt>(this), id = ref.unit,
                         relative](const ClimateUnits::Outcome& outcome) {
                            if (!self)
                                return;
                            publishClimate(id);
                            if (!outcome.sent)
                                refused(relative, "not_sent", outcome.message);
                        },
                        {u"mqtt"_s, unit->name, ClimateStateText(*wanted)});
}

void Mqtt::message(const QString& topic, const QByteArray& payload, bool retained) {
    if (!connection_.isConnected())
        return;
    // A retained discovery config of ours that we no longer have: left from
    // before a restart, cleared now.
    if (topic.startsWith(config_.discoveryPrefix + u'/') && topic.endsWith(u"/config")) {
        if (retained && !payload.isEmpty() && !published_.contains(topic))
            connection_.Publish(topic, {}, true, 1);
        return;
    }
    if (!topic.startsWith(config_.topic + u'/'))
        return;
    const QString relative = topic.mid(config_.topic.size() + 1);
    // A retained command is an old one: acted on when it was sent, or never.
    if (retained) {
        qCInfo(lcMqtt).noquote() << "ignored a retained command on" << relative;
        return;
    }
    QString why;
    if (relative == u"press") {
        const auto press = MqttCommand::ParsePress(payload, &why);
        if (!press)
            return refused(relative, "bad_request", why);
        NamedKey k;
        switch (FindNamedKey(folder_, settings_, press->remote, press->key, &k)) {
        case NamedKeyProblem::NoRemote:
            return refused(relative, "not_found", u"no remote named \"%1\""_s.arg(press->remote));
        case NamedKeyProblem::NoKey:
            return refused(relative, "not_found",
                           u"no key \"%1\" on \"%2\""_s.arg(press->key, press->remote));
        case NamedKeyProblem::NotLearned:
            return refused(relative, "not_learned", u"the key has no signal yet"_s);
        case NamedKeyProblem::None:
            return send(k.path, k.device, k.function);
        }
        return;
    }
    if (relative == u"ir/transmit")
        return emitTimings(payload, relative);
    if (const auto climate = MqttCommand::ParseClimateTopic(relative, &why))
        return climateCommand(*climate, payload, relative);
    if (const auto scene = MqttCommand::ParseSceneTopic(relative, &why))
        return runScene(*scene, payload, relative);
    if (!why.isEmpty())
        return refused(relative, "bad_request", why);
    const auto key = MqttCommand::ParseKeyTopic(relative, &why);
    if (!key && !why.isEmpty())
        return refused(relative, "bad_request", why);
    if (key) {
        if (payload != "PRESS")
            return refused(relative, "bad_request", u"the payload must be PRESS"_s);
        return pressKey(key->slot, key->button, relative);
    }
}

void Mqtt::refused(const QString& relative, const QByteArray& code, const QString& why) {
    qCWarning(lcMqtt).noquote() << "refused a message on" << relative.left(200) << "-"
                                << why.left(300);
    connection_.Publish(config_.topic + u"/error"_s,
                        QJsonDocument(QJsonObject{{u"topic"_s, relative},
                                                  {u"error"_s, QString::fromLatin1(code)},
                                                  {u"message"_s, why}})
                            .toJson(QJsonDocument::Compact),
                        false);
    // Home Assistant never reads the error topic; its sensor shows the refusal.
    publishSensor(Discovery::LastPressTopic(config_.topic), QString::fromLatin1(code),
                  {{u"source"_s, u"mqtt"_s},
                   {u"ok"_s, false},
                   {u"reason"_s, QString::fromLatin1(code)},
                   {u"message"_s, why.left(300)},
                   {u"topic"_s, relative.left(200)},
                   {u"at"_s, QDateTime::currentDateTimeUtc().toString(Qt::ISODateWithMs)}});
}

void Mqtt::pressKey(int slot, int button, const QString& relative) {
    const QString device = settings_.Read(Key::RemoteName(slot));
    const std::vector<QString> buttons = ReadRemoteButtons(settings_, slot);
    if (device.isEmpty() || button >= int(buttons.size()) || buttons[size_t(button)].isEmpty())
        return refused(relative, "not_found", u"no such key"_s);
    const QString function = buttons[size_t(button)];
    const QString path = SignalFilePath(folder_, device, function);
    if (!QFileInfo::exists(path))
        return refused(relative, "not_learned", u"the key has no signal yet"_s);
    send(path, device, function);
}

void Mqtt::send(const QString& path, const QString& device, const QString& function) {
    // As on the pages: test mode sends nothing.
    if (IsTestMode(settings_))
        return;
    device_.Enqueue(path, [](SendResult) {}, {u"mqtt"_s, device, function});
}

void Mqtt::emitTimings(const QByteArray& payload, const QString& relative) {
    QString why;
    const auto emit_ = MqttCommand::ParseEmit(payload, &why);
    if (!emit_)
        return refused(relative, "bad_request", why);
    const auto image = SignalImageOf(emit_->timing, &why);
    if (!image)
        return refused(relative, "bad_request", why);
    if (IsTestMode(settings_))
        return;
    // Home Assistant's commands carry their repeats inside the timings (its
    // protocol library appends repeat_count repeat codes or sequences), so the
    // timings go out once, as they are; repeat_count only says how many are in.
    // The queue takes signal files; this one is read back before Enqueue returns.
    const QString path = folder_.path(u"mqtt-transmit.tmp"_s);
    if (!WriteFileAtomically(
            path, QByteArrayView(reinterpret_cast<const char*>(image->data()), SignalFileSize),
            0644, &why))
        return refused(relative, "not_written", why);
    device_.Enqueue(path, [](SendResult) {}, {u"mqtt"_s, {}, {}});
    QFile::remove(path);
}

void Mqtt::publishEvent(const QString& name, const QJsonObject& data, bool retain) {
    connection_.Publish(config_.topic + u'/' + name,
                        QJsonDocument(data).toJson(QJsonDocument::Compact), retain);
}

void Mqtt::publishSensor(const QString& topic, const QString& state,
                         const QJsonObject& attributes) {
    connection_.Publish(topic + u"/attributes"_s,
                        QJsonDocument(attributes).toJson(QJsonDocument::Compact), true);
    connection_.Publish(topic, state.toUtf8(), true);
}

void Mqtt::PublishHubStates() {
    const QString t = config_.topic;
    connection_.Publish(Discovery::TransceiverTopic(t), device_.Lost() ? "OFF" : "ON", true);
    connection_.Publish(Discovery::ListeningTopic(t), listening && listening() ? "ON" : "OFF",
                        true);
}

QString Mqtt::pageUrl() const {
    // Home Assistant is on the home network with us: our host name as the
    // network knows it, else the dynamic DNS name we were given.
    const quint16 port = webPort ? webPort() : 0;
    if (port == 0)
        return {};
    QString host = QHostInfo::localHostName();
    if (host.isEmpty() || host == u"localhost")
        host = settings_.Read(Key::DnsHost).trimmed();
    const QUrl url(u"http://"_s + host + u':' + QString::number(port), QUrl::StrictMode);
    if (host.isEmpty() || !url.isValid() || url.host().isEmpty())
        return {};
    return url.toString();
}

void Mqtt::PublishFrame(const IrTiming& timing, const IrCode& code) {
    if (timing.durations.empty())
        return;
    // Exactly what Home Assistant's receiver schema takes; what we decoded
    // goes to the last-heard sensor.
    QJsonArray timings;
    for (size_t i = 0; i < timing.durations.size(); ++i)
        timings.append(i % 2 == 0 ? qint64(timing.durations[i]) : -qint64(timing.durations[i]));
    connection_.Publish(Discovery::ReceiverTopic(config_.topic),
                        QJsonDocument(QJsonObject{{u"timings"_s, timings},
                                                  {u"modulation"_s, qint64(timing.carrierHz)}})
                            .toJson(QJsonDocument::Compact),
                        false);
    const QString spec = code.decoded() ? CodeSpec(code) : QString();
    heardState_ = code.decoded() ? spec : u"raw"_s;
    heardAttributes_ = {
        {u"protocol"_s, code.decoded() ? spec.section(u':', 0, 0) : u"raw"_s},
        {u"scancode"_s, code.decoded() ? QJsonValue(spec.section(u':', 1)) : QJsonValue()},
        {u"modulation"_s, qint64(timing.carrierHz)},
        {u"timings"_s, qint64(timing.durations.size())},
        {u"remote"_s, QJsonValue()},
        {u"key"_s, QJsonValue()},
        {u"at"_s, QDateTime::currentDateTimeUtc().toString(Qt::ISODateWithMs)}};
    heardLater_.start();
}

void Mqtt::PublishKeyHeard(int slot, int button, const QString& remote, const QString& key) {
    connection_.Publish(Discovery::TriggerTopic(config_.topic, slot, button), "press", false);
    connection_.Publish(
        Discovery::HeardTopic(config_.topic, slot),
        QJsonDocument(QJsonObject{{u"event_type"_s, key}}).toJson(QJsonDocument::Compact), false);
    publishEvent(u"heard"_s, {{u"remote"_s, remote}, {u"key"_s, key}});
    if (heardLater_.isActive()) {
        heardAttributes_[u"remote"_s] = remote;
        heardAttributes_[u"key"_s] = key;
    }
}
