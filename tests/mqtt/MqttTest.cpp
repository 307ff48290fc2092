#include "mqtt/Mqtt.h"
#include "climate/ClimateUnits.h"
#include "core/Password.h"
#include "core/Settings.h"
#include "infrared/IrProtocol.h"
#include "infrared/IrSignal.h"
#include "infrared/SignalStore.h"
#include "infrared/SimDriver.h"
#include "infrared/Transceiver.h"
#include "mqtt/MqttConfig.h"
#include "mqtt/MqttConnection.h"
#include "scenes/Scenes.h"
#include "support/HttpClient.h"
#include "support/LogLines.h"
#include "support/MqttBroker.h"
#include "support/ProgramProcess.h"
#include "support/ScriptedPrompt.h"
#include "support/SimHome.h"
#include "support/TempFolder.h"

#include <QDir>
#include <QElapsedTimer>
#include <QHostInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QUrl>
#include <gtest/gtest.h>

#include <map>
#include <set>

using namespace Qt::StringLiterals;

namespace {

// The program's folder with the simulator, on the broker as node nodeId.
QString MakeHome(const QString& root, const QString& name, const MqttBroker& broker,
                 const QString& nodeId = {}) {
    const QString dir = MakeSimHome(root + u'/' + name);
    SettingsStore s(dir + u"/setting.ini"_s);
    s.Write(Key::MqttServer, u"127.0.0.1:"_s + QString::number(broker.port));
    if (!nodeId.isEmpty())
        s.Write(Key::MqttNodeId, nodeId);
    s.Write(Key::MqttUser, broker.user);
    s.Write(Key::MqttPass, ScramblePassword(u"SET", broker.password));
    return dir;
}

// Transcribed from home-assistant/core mqtt/climate.py (5974c77, PLATFORM_SCHEMA_MODERN).
QString HaClimateProblem(const QJsonObject& o) {
    static const QStringList modes{u"auto"_s, u"off"_s,      u"cool"_s,     u"heat"_s,
                                   u"dry"_s,  u"fan_only"_s, u"heat_cool"_s};
    for (const QJsonValue& m : o.value(u"modes"_s).toArray())
        if (!modes.contains(m.toString()))
            return u"mode "_s + m.toString();
    for (const char* field : {"mode", "temperature", "fan_mode", "swing_mode", "power"}) {
        const QString f = QLatin1StringView(field);
        const QString command = o.value(f + u"_command_topic"_s).toString();
        if (command.contains(u'+') || command.contains(u'#'))
            return f + u"_command_topic"_s;
        if (o.contains(f + u"_state_topic"_s) &&
            !o.value(f + u"_state_template"_s).toString().startsWith(u"{{"_s))
            return f + u"_state_template"_s;
    }
    if (!QList<double>{0.1, 0.5, 1.0}.contains(o.value(u"precision"_s).toDouble(1.0)) ||
        o.value(u"min_temp"_s).toDouble() >= o.value(u"max_temp"_s).toDouble())
        return u"precision or range"_s;
    return {};
}

// Empty when Home Assistant takes the config. Transcribed from home-assistant/core mqtt/
// discovery.py (bdc5ec6), schemas.py (c6ca7f5), button, binary_sensor, sensor, event.py and
// device_trigger.py (5974c77), infrared.py (PR #172796, deda1f6, 05dfe26).
QString HaConfigProblem(const QString& topic, const QJsonObject& o) {
    static const QRegularExpression topicForm(
        u"^homeassistant/(\\w+)/(?:[a-zA-Z0-9_-]+/)?[a-zA-Z0-9_-]+/config$"_s);
    const auto match = topicForm.match(topic);
    if (!match.hasMatch())
        return u"not a discovery topic"_s;
    const QString component = match.captured(1);
    const auto isString = [&](const QJsonObject& in, const char* key) {
        return !in.value(QLatin1StringView(key)).toString().isEmpty();
    };
    const auto isUrl = [](const QJsonValue& v) {
        const QUrl url(v.toString(), QUrl::StrictMode);
        return v.isString() && url.isValid() && !url.host().isEmpty() &&
               (url.scheme() == u"http" || url.scheme() == u"https");
    };
    const auto isTopic = [](const QJsonValue& v, bool wildcards) {
        const QString t = v.toString();
        if (!v.isString() || t.isEmpty() || t.contains(QChar(0)))
            return false;
        for (const QString& level : t.split(u'/'))
            if ((level.contains(u'+') || level.contains(u'#')) && (!wildcards || level.size() != 1))
                return false;
        return true;
    };
    const QJsonObject origin = o.value(u"origin"_s).toObject();
    if (!isString(origin, "name"))
        return u"no origin name"_s;
    for (auto it = origin.begin(); it != origin.end(); ++it)
        if (!QStringList{u"name"_s, u"sw_version"_s, u"support_url"_s}.contains(it.key()) ||
            (it.key() == u"support_url" && !isUrl(*it)))
            return u"origin."_s + it.key();
    const QJsonObject device = o.value(u"device"_s).toObject();
    const QJsonArray ids = device.value(u"identifiers"_s).toArray();
    if (ids.isEmpty() || !ids[0].isString())
        return u"a device without identifiers"_s;
    static const QStringList deviceKeys{
        u"identifiers"_s, u"connections"_s, u"manufacturer"_s,   u"model"_s,
        u"model_id"_s,    u"name"_s,        u"hw_version"_s,     u"serial_number"_s,
        u"sw_version"_s,  u"via_device"_s,  u"suggested_area"_s, u"configuration_url"_s};
    for (auto it = device.begin(); it != device.end(); ++it)
        if (!deviceKeys.contains(it.key()) || (it.key() == u"configuration_url" && !isUrl(*it)) ||
            (it.key() != u"identifiers" && !it->isString()))
            return u"device."_s + it.key();
    if (o.contains(u"entity_category"_s) && !QStringList{u"config"_s, u"diagnostic"_s}.contains(
                                                o.value(u"entity_category"_s).toString()))
        return u"entity_category"_s;
    if (o.contains(u"json_attributes_topic"_s) &&
        !isTopic(o.value(u"json_attributes_topic"_s), true))
        return u"json_attributes_topic"_s;
    if (component == u"device_automation") {
        for (const char* f : {"automation_type", "topic", "type", "subtype", "payload"})
            if (!isString(o, f))
                return QString::fromLatin1(f);
        return {};
    }
    if (!isString(o, "unique_id") || !isTopic(o.value(u"availability_topic"_s), true))
        return u"unique_id or availability_topic"_s;
    const QString schema = o.value(u"schema"_s).toString();
    const std::map<QString, std::pair<const char*, bool>> topics{
        {u"button"_s, {"command_topic", false}},
        {u"binary_sensor"_s, {"state_topic", true}},
        {u"sensor"_s, {"state_topic", true}},
        {u"event"_s, {"state_topic", true}},
        {u"infrared/emitter"_s, {"command_topic", false}},
        {u"infrared/receiver"_s, {"state_topic", true}},
        {u"climate"_s, {"mode_command_topic", false}},
        {u"scene"_s, {"command_topic", false}}};
    const auto need = topics.find(component == u"infrared" ? component + u'/' + schema : component);
    if (need == topics.end())
        return u"not a component we mean to use"_s;
    if (!isTopic(o.value(QLatin1StringView(need->second.first)), need->second.second))
        return QString::fromLatin1(need->second.first);
    const QString deviceClass = o.value(u"device_class"_s).toString();
    if (component == u"event") {
        const QJsonArray types = o.value(u"event_types"_s).toArray();
        if (types.isEmpty() || std::any_of(types.begin(), types.end(),
                                           [](const QJsonValue& v) { return !v.isString(); }))
            return u"event_types"_s;
        if (o.contains(u"device_class"_s) &&
            !QStringList{u"button"_s, u"doorbell"_s, u"motion"_s}.contains(deviceClass))
            return u"device_class"_s;
    }
    if (component == u"climate")
        return HaClimateProblem(o);
    if (component == u"binary_sensor" && o.contains(u"device_class"_s) &&
        deviceClass != u"connectivity")
        return u"device_class"_s;
    return {};
}

// A receiver state payload as both versions of infrared.py's SIGNAL_SCHEMA take it.
QString HaSignalProblem(const QByteArray& payload) {
    const QJsonObject o = QJsonDocument::fromJson(payload).object();
    if (o.keys() != QStringList{u"modulation"_s, u"timings"_s})
        return u"keys: "_s + o.keys().join(u',');
    const QJsonArray t = o.value(u"timings"_s).toArray();
    if (t.isEmpty() || payload.contains('.') || payload.contains('e') ||
        !o.value(u"modulation"_s).isDouble())
        return u"not whole numbers"_s;
    return {};
}

// A broker, and a folder of the test's own for the MQTT client in this process.
class MqttHome : public ::testing::Test {
protected:
    void SetUp() override {
        if (!MqttBroker::available())
            GTEST_SKIP() << "no mosquitto here";
        ASSERT_TRUE(broker.start());
    }
    // Settings for the broker, as node id.
    void node(const QString& id, const QString& scheme = {}, quint16 port = 0) {
        t.settings.Write(Key::MqttServer,
                         scheme + u"127.0.0.1:"_s + QString::number(port ? port : broker.port));
        t.settings.Write(Key::MqttNodeId, id);
        t.settings.Write(Key::MqttUser, broker.user);
        t.settings.Write(Key::MqttPass, ScramblePassword(u"SET", broker.password));
    }

    QTemporaryDir tmp;
    MqttBroker broker{tmp.path(), u"ha"_s, u"s3cret"_s};
    TempFolder t;
    ScriptedPrompt prompt;
    Transceiver device{t.folder, t.settings, prompt};
};

} // namespace

TEST(MqttConfig, ServerAddressesAndTheNodeIdKeptOnce) {
    QString host;
    quint16 port = 0;
    bool tls = false;
    EXPECT_TRUE(ParseMqttServer(u"broker.lan", &host, &port, &tls));
    EXPECT_EQ(port, 1883);
    EXPECT_TRUE(ParseMqttServer(u"mqtts://broker.lan", &host, &port, &tls));
    EXPECT_TRUE(tls);
    EXPECT_EQ(port, 8883);
    EXPECT_TRUE(ParseMqttServer(u"[::1]:1884", &host, &port, &tls));
    EXPECT_EQ(host, u"::1"_s);
    EXPECT_EQ(port, 1884);
    for (const char* bad : {"", "host:0", "host:70000", "mqtt://", "a b", "host:x"})
        EXPECT_FALSE(ParseMqttServer(QString::fromLatin1(bad), &host, &port, &tls)) << bad;

    EXPECT_EQ(DeriveNodeId(u"Living.Room"_s, u"/a"_s), DeriveNodeId(u"Living.Room"_s, u"/a"_s));
    EXPECT_TRUE(DeriveNodeId(u"Living.Room"_s, u"/a"_s).startsWith(u"living-room-"_s));

    TempFolder t;
    SettingsStore& s = t.settings;
    MqttConfig c = ReadMqttConfig(s, t.folder);
    EXPECT_FALSE(c.enabled());
    EXPECT_TRUE(s.Read(Key::MqttNodeId).isEmpty()) << "written with MQTT off";
    s.Write(Key::MqttServer, u"127.0.0.1"_s);
    s.Write(Key::MqttTopic, u"house/#"_s);
    c = ReadMqttConfig(s, t.folder);
    EXPECT_TRUE(c.enabled() && c.discovery);
    EXPECT_EQ(c.topic, u"kestrava/"_s + c.nodeId) << "a wildcard topic is not ours";
}

TEST_F(MqttHome, HomeAssistantSeesTheRemotesAndDrivesTheTransceiver) {
    const QString dir = MakeHome(tmp.path(), u"home"_s, broker, u"den"_s);
    broker.publish(u"kestrava/den/key/1/1/press"_s, "PRESS", true); // must not go out
    // A key deleted while the program was not running left its config behind.
    const QString stale = u"homeassistant/button/kestrava_den/r9_k0/config"_s;
    broker.publish(stale, R"({"name":"Gone"})", true);
    MqttWatcher ha(broker, {u"homeassistant/#"_s, u"kestrava/den/#"_s});
    SettingsStore(dir + u"/setting.ini"_s).Write(Key::MqttListen, u"1");
    ProgramProcess p({u"--headless"_s, u"--home"_s, dir});
    ASSERT_TRUE(ha.waitFor(u"kestrava/den/status"_s, "online")) << p.log().toStdString();
    ASSERT_TRUE(ha.waitFor(u"homeassistant/infrared/kestrava_den/emitter/config"_s, {}));

    // Without MQTT infrared the hub is still made by its sensors, for the remotes' via_device.
    std::set<QString> ids, triggerIds;
    std::map<QString, int> components;
    ASSERT_TRUE(WaitUntil(
        [&] { return ha.on(u"homeassistant/event/kestrava_den/r1/config"_s).size() == 1; }));
    for (const auto& m : ha.messages) {
        if (!m.topic.startsWith(u"homeassistant/"_s) || m.topic == stale)
            continue;
        const QJsonObject o = QJsonDocument::fromJson(m.payload).object();
        const QString component = m.topic.section(u'/', 1, 1);
        ++components[component];
        EXPECT_EQ(HaConfigProblem(m.topic, o).toStdString(), "") << m.payload.toStdString();
        const QJsonObject device = o.value(u"device"_s).toObject();
        if (component == u"device_automation")
            EXPECT_TRUE(triggerIds
                            .insert(device.value(u"identifiers"_s)[0].toString() +
                                    o.value(u"type"_s).toString() +
                                    o.value(u"subtype"_s).toString())
                            .second);
        else
            EXPECT_TRUE(ids.insert(o.value(u"unique_id"_s).toString()).second);
        if (device.value(u"identifiers"_s)[0] == u"kestrava_den"_s)
            EXPECT_EQ(device.value(u"configuration_url"_s).toString(),
                      u"http://"_s + QHostInfo::localHostName() + u':' +
                          QString::number(p.webPort()) + u"/m/"_s);
        else
            EXPECT_EQ(device.value(u"via_device"_s).toString(), u"kestrava_den"_s);
    }
    ASSERT_TRUE(WaitUntil([&] { return ha.on(stale)[0].payload.isEmpty(); }));
    const std::map<QString, int> expected{{u"button"_s, 2},        {u"device_automation"_s, 2},
                                          {u"event"_s, 1},         {u"infrared"_s, 2},
                                          {u"binary_sensor"_s, 2}, {u"sensor"_s, 2}};
    EXPECT_EQ(components, expected);
    EXPECT_TRUE(ha.waitFor(u"kestrava/den/hub/transceiver"_s, "ON"));
    EXPECT_TRUE(ha.waitFor(u"kestrava/den/hub/listening"_s, "ON"));
    EXPECT_TRUE(SimLog(dir).isEmpty()) << "a retained press went out";

    // The button's PRESS goes out once and is told as an event.
    const QString command = ha.json(u"homeassistant/button/kestrava_den/r1_k0/config"_s)
                                .value(u"command_topic"_s)
                                .toString();
    ASSERT_TRUE(broker.publish(command, "PRESS"));
    ASSERT_TRUE(ha.waitFor(u"kestrava/den/event"_s, {}));
    const QJsonObject event = ha.json(u"kestrava/den/event"_s);
    EXPECT_EQ(event.value(u"source"_s).toString(), u"mqtt"_s);
    EXPECT_EQ(event.value(u"key"_s).toString(), u"Power"_s);
    EXPECT_TRUE(event.value(u"ok"_s).toBool());
    WaitMs(300);
    ASSERT_EQ(SimLog(dir).size(), 1);
    EXPECT_TRUE(SimLog(dir)[0].endsWith(
        QString::fromLatin1(SimDriver::NecSignal(0x40, 0).toHex(' ')).toUpper(),
        Qt::CaseInsensitive));

    ASSERT_TRUE(SimHear(dir, "nec:0x4001\n"));
    ASSERT_TRUE(ha.waitFor(u"kestrava/den/trigger/1/1"_s, "press")) << p.log().toStdString();
    ASSERT_TRUE(ha.waitFor(u"kestrava/den/ir/received"_s, {}));
    EXPECT_EQ(HaSignalProblem(ha.on(u"kestrava/den/ir/received"_s)[0].payload).toStdString(), "");
    ASSERT_TRUE(ha.waitFor(u"kestrava/den/hub/last_heard"_s, "nec:0x4001"));
    const QJsonObject heardAttributes = ha.json(u"kestrava/den/hub/last_heard/attributes"_s);
    EXPECT_EQ(heardAttributes.value(u"scancode"_s), u"0x4001"_s);
    EXPECT_EQ(heardAttributes.value(u"key"_s), u"Vol Up"_s);

    // NEC with repeat_count 2 (infrared-protocols' NECCommand.get_raw_timings) goes out whole.
    QStringList nec{u"9000,-4500"_s};
    for (int bit = 0; bit < 32; ++bit)
        nec << ((0xF708FB04u >> bit) & 1 ? u"562,-1687"_s : u"562,-562"_s);
    nec << u"562,-41000,9000,-2250,562,-96000,9000,-2250,562"_s;
    const QString events = u"kestrava/den/event"_s;
    ASSERT_TRUE(broker.publish(
        u"kestrava/den/ir/transmit"_s,
        (u"{\"timings\":["_s + nec.join(u',') + u"],\"modulation\":38000,\"repeat_count\":2}"_s)
            .toUtf8()));
    ASSERT_TRUE(
        broker.publish(u"kestrava/den/ir/transmit"_s,
                       R"({"timings":[9000,-4500,560,-1690,560,-560,560],"modulation":38000})"));
    ASSERT_TRUE(WaitUntil([&] { return SimLog(dir).size() >= 3 && ha.on(events).size() >= 3; }));
    WaitMs(500);
    ASSERT_EQ(SimLog(dir).size(), 3);
    EXPECT_EQ(ha.on(events).size(), 3u);
    const auto sent = [&](int i) {
        const QString line = SimLog(dir)[i];
        const auto blob =
            IrBlob::decode(QByteArray::fromHex(line.section(u' ', 2).toLatin1().replace(' ', "")));
        return blob ? TimingFromBlob(*blob) : IrTiming{};
    };
    EXPECT_GE(sent(1).durations.size(), 75u);
    EXPECT_EQ(CodeSpec(DecodeSignal(sent(1))), u"nec:0x0408"_s);
    const std::vector<uint32_t> d = sent(2).durations;
    const std::vector<uint32_t> want{9000, 4500, 560, 1690, 560, 560, 560};
    ASSERT_GE(d.size(), want.size());
    for (size_t i = 0; i < want.size(); ++i)
        EXPECT_NEAR(double(d[i]), double(want[i]), want[i] * 0.05) << i;

    // Unknown keys and bad payloads: the error topic and the hub's last-press sensor, not sent.
    ASSERT_TRUE(broker.publish(u"kestrava/den/ir/transmit"_s, R"({"timings":"x"})"));
    ASSERT_TRUE(broker.publish(u"kestrava/den/press"_s, R"({"remote":"TV","key":"Mute"})"));
    ASSERT_TRUE(WaitUntil([&] { return ha.on(u"kestrava/den/error"_s).size() == 2; }));
    EXPECT_EQ(ha.json(u"kestrava/den/error"_s).value(u"error"_s).toString(), u"not_found"_s);
    ASSERT_TRUE(ha.waitFor(u"kestrava/den/hub/last_press"_s, "not_found"));
    EXPECT_EQ(ha.json(u"kestrava/den/hub/last_press/attributes"_s).value(u"message"_s).toString(),
              u"no key \"Mute\" on \"TV\""_s);
    EXPECT_EQ(SimLog(dir).size(), 3);

    // A renamed key keeps the trigger automations name; a deleted remote's configs are cleared.
    const QString trigger = u"homeassistant/device_automation/kestrava_den/r1_k1/config"_s;
    const QByteArray triggerBefore = ha.on(trigger)[0].payload;
    {
        SettingsStore s(dir + u"/setting.ini"_s);
        s.WriteIni(u"Remote-1", u"Button-1", u"Volume");
        QFile::rename(dir + u"/IRSignals/TV-Vol Up.bin"_s, dir + u"/IRSignals/TV-Volume.bin"_s);
    }
    ASSERT_TRUE(WaitUntil([&] {
        return ha.json(u"homeassistant/button/kestrava_den/r1_k1/config"_s).value(u"name"_s) ==
               u"Volume"_s;
    }));
    EXPECT_EQ(ha.on(trigger)[0].payload.toStdString(), triggerBefore.toStdString());
    EXPECT_EQ(ha.json(u"homeassistant/event/kestrava_den/r1/config"_s).value(u"event_types"_s),
              QJsonArray({u"Power"_s, u"Volume"_s}));
    WriteSignalFile(dir + u"/IRSignals/TV-Mute.bin"_s, SimDriver::NecSignal(0x40, 7));
    SettingsStore(dir + u"/setting.ini"_s).WriteIni(u"Remote-1", u"Button-5", u"Mute");
    ASSERT_TRUE(ha.waitFor(u"homeassistant/button/kestrava_den/r1_k5/config"_s, {}));
    ASSERT_TRUE(ha.waitFor(u"kestrava/den/learned"_s, R"({"key":"Mute","remote":"TV"})"));
    EXPECT_EQ(ha.on(u"kestrava/den/learned"_s).size(), 1u) << "a rename is no new key";
    SettingsStore(dir + u"/setting.ini"_s).DeleteIniSection(u"Remote-1");
    ASSERT_TRUE(WaitUntil([&] {
        return ha.on(u"homeassistant/button/kestrava_den/r1_k0/config"_s)[0].payload.isEmpty() &&
               ha.on(u"homeassistant/device_automation/kestrava_den/r1_k1/config"_s)[0]
                   .payload.isEmpty();
    }));
    EXPECT_FALSE(
        ha.on(u"homeassistant/infrared/kestrava_den/emitter/config"_s)[0].payload.isEmpty());

    EXPECT_FALSE(p.log().contains(u"s3cret"_s));

    // Two rooms more, ids derived: a press for one goes there only; one killed is offline by will.
    {
        MqttWatcher rooms(broker,
                          {u"homeassistant/infrared/+/emitter/config"_s, u"kestrava/+/status"_s});
        const QStringList dirs{MakeHome(tmp.path(), u"kitchen"_s, broker),
                               MakeHome(tmp.path(), u"study"_s, broker)};
        ProgramProcess kitchen({u"--headless"_s, u"--home"_s, dirs[0]});
        ProgramProcess study({u"--headless"_s, u"--home"_s, dirs[1]});
        ASSERT_TRUE(WaitUntil([&] {
            int online = 0;
            for (const auto& m : rooms.messages)
                online += m.payload == "online";
            return online == 3 && rooms.messages.size() >= 6;
        })) << kitchen.log().toStdString();
        std::set<QString> hubs, topics;
        for (const auto& m : rooms.messages)
            (m.topic.startsWith(u"homeassistant/"_s) ? hubs : topics).insert(m.topic);
        EXPECT_EQ(hubs.size(), 3u);
        EXPECT_EQ(topics.size(), 3u);

        const QString node = SettingsStore(dirs[1] + u"/setting.ini"_s).Read(Key::MqttNodeId);
        ASSERT_FALSE(node.isEmpty());
        ASSERT_TRUE(broker.publish(u"kestrava/"_s + node + u"/press"_s,
                                   R"({"remote":"TV","key":"Vol Up"})"));
        ASSERT_TRUE(WaitUntil([&] { return SimLog(dirs[1]).size() == 1; }));
        WaitMs(300);
        EXPECT_TRUE(SimLog(dirs[0]).isEmpty());
        EXPECT_EQ(SimLog(dir).size(), 3);
        const QString killed = SettingsStore(dirs[0] + u"/setting.ini"_s).Read(Key::MqttNodeId);
        ASSERT_TRUE(kitchen.stop(SIGKILL));
        EXPECT_TRUE(rooms.waitFor(u"kestrava/"_s + killed + u"/status"_s, "offline", 10000));
    }

    // The broker goes and comes back: the pages go on meanwhile, the configs are back soon after.
    const QString emitter = u"homeassistant/infrared/kestrava_den/emitter/config"_s;
    broker.stop();
    ASSERT_TRUE(p.waitForLog(u"trying again"_s));
    const QByteArray page = Fetch(
        p.webPort(), "GET /api/v1/status HTTP/1.1\r\nHost: localhost\r\nConnection: close\r\n\r\n");
    EXPECT_TRUE(page.startsWith("HTTP/1.1 200")) << page.left(100).toStdString();
    WaitMs(1500);
    ASSERT_TRUE(broker.start());
    QElapsedTimer back;
    back.start();
    MqttWatcher again(broker, {emitter, u"kestrava/den/status"_s});
    ASSERT_TRUE(again.waitFor(emitter, {}, 5000)) << p.log().toStdString();
    EXPECT_LT(back.elapsed(), 5000);
    EXPECT_EQ(p.log().count(u"trying again"_s), 1) << "one line per change of state";

    p.stop();
    EXPECT_TRUE(again.waitFor(u"kestrava/den/status"_s, "offline"));
}

TEST_F(MqttHome, HeardFramesReachHomeAssistantAndRefusedPressesAreAnswered) {
    node(u"away"_s);
    t.settings.WriteIni(u"Tira", u"Device", t.path(u"lirc-gone"));
    t.writeRemote(1, u"TV"_s, 4, {u"Power"_s});
    WriteSignalFile(t.path(u"IRSignals/TV-Power.bin"), SimDriver::NecSignal(0x40, 0));
    t.writeRemote(2, u"Amp"_s, 4, {u"On"_s, u"Odd"_s}); // Odd: a raw key
    const IrTiming odd{{3000, 3000, 1000, 2000, 1000, 2000, 1000}, 38000, -1};
    WriteSignalFile(t.path(u"IRSignals/Amp-Odd.bin"), BlobFromTiming(odd)->encode());
    MqttWatcher ha(broker, {u"homeassistant/#"_s, u"kestrava/away/#"_s});
    Mqtt mqtt(t.folder, t.settings, device);
    mqtt.canListen = [] { return true; };
    mqtt.Start();
    const QString receiver = u"homeassistant/infrared/kestrava_away/receiver/config"_s;
    const QString trigger = u"homeassistant/device_automation/kestrava_away/r2_k1/config"_s;
    const QString event = u"homeassistant/event/kestrava_away/r2/config"_s;
    ASSERT_TRUE(ha.waitFor(receiver, {}));
    ASSERT_TRUE(ha.waitFor(trigger, {})) << "a raw key has a trigger";
    ASSERT_TRUE(ha.waitFor(event, {}));

    mqtt.PublishFrame(odd, DecodeSignal(odd));
    mqtt.PublishKeyHeard(2, 1, u"Amp"_s, u"Odd"_s);
    const QString state = ha.json(receiver).value(u"state_topic"_s).toString();
    ASSERT_TRUE(ha.waitFor(state, {}));
    EXPECT_EQ(HaSignalProblem(ha.on(state)[0].payload).toStdString(), "");
    EXPECT_EQ(ha.json(state).value(u"timings"_s).toArray(),
              QJsonArray({3000, -3000, 1000, -2000, 1000, -2000, 1000}));
    const QJsonObject config = ha.json(trigger);
    EXPECT_TRUE(ha.waitFor(config.value(u"topic"_s).toString(),
                           config.value(u"payload"_s).toString().toUtf8()));
    const QJsonObject events = ha.json(event);
    ASSERT_TRUE(ha.waitFor(events.value(u"state_topic"_s).toString(), {}));
    const QJsonObject fired = ha.json(events.value(u"state_topic"_s).toString());
    EXPECT_EQ(fired, QJsonObject({{u"event_type"_s, u"Odd"_s}}));
    EXPECT_TRUE(events.value(u"event_types"_s).toArray().contains(fired.value(u"event_type"_s)));
    ASSERT_TRUE(ha.waitFor(u"kestrava/away/hub/last_heard"_s, "raw"));
    ASSERT_TRUE(
        WaitUntil([&] { return ha.on(u"kestrava/away/hub/last_heard/attributes"_s).size() == 1; }));
    const QJsonObject heard = ha.json(u"kestrava/away/hub/last_heard/attributes"_s);
    EXPECT_EQ(heard.value(u"key"_s), u"Odd"_s);
    EXPECT_EQ(heard.value(u"remote"_s), u"Amp"_s);
    EXPECT_EQ(heard.value(u"protocol"_s), u"raw"_s);

    const QString remote = u"the remote number must be 1 to 1000"_s;
    const QString key = u"the key number must be 0 to 999"_s;
    const std::map<QString, QString> cases{
        {u"key/x/0/press"_s, remote},       {u"key/0/0/press"_s, remote},
        {u"key/1001/0/press"_s, remote},    {u"key/-1/0/press"_s, remote},
        {u"key/01/0/press"_s, remote},      {u"key//0/press"_s, remote},
        {u"key/1/1000/press"_s, key},       {u"key/1/-1/press"_s, key},
        {u"key/1/ 2/press"_s, key},         {u"key/1//press"_s, key},
        {u"key/1/99999999999/press"_s, key}};
    for (const auto& [topic, why] : cases)
        ASSERT_TRUE(broker.publish(u"kestrava/away/"_s + topic, "PRESS"));
    ASSERT_TRUE(WaitUntil([&] { return ha.on(u"kestrava/away/error"_s).size() == cases.size(); }));
    for (const auto& m : ha.on(u"kestrava/away/error"_s)) {
        const QJsonObject o = QJsonDocument::fromJson(m.payload).object();
        const QString topic = o.value(u"topic"_s).toString();
        ASSERT_TRUE(cases.contains(topic)) << m.payload.toStdString();
        EXPECT_EQ(o.value(u"error"_s).toString(), u"bad_request"_s) << topic.toStdString();
        EXPECT_EQ(o.value(u"message"_s).toString(), cases.at(topic)) << topic.toStdString();
    }

    ASSERT_TRUE(broker.publish(u"kestrava/away/key/1/0/press"_s, "PRESS"));
    ASSERT_TRUE(ha.waitFor(u"kestrava/away/hub/last_press"_s, "not_opened"));
    const QJsonObject why = ha.json(u"kestrava/away/hub/last_press/attributes"_s);
    EXPECT_EQ(why.value(u"key"_s), u"Power"_s);
    EXPECT_TRUE(ha.waitFor(u"kestrava/away/hub/transceiver"_s, "OFF"));
}

// Only a broker the CA vouches for and the right login; the log says why; each refusal backs off.
TEST_F(MqttHome, AirConditionerAndSceneAreEntitiesOverTls) {
    const QString d = tmp.path();
    const TlsFiles ca = MakeCertificate(d, u"ca"_s, u"DNS:ca"_s);
    const TlsFiles other = MakeCertificate(d, u"other-ca"_s, u"DNS:other"_s);
    const TlsFiles good = MakeCertificate(d, u"broker"_s, u"IP:127.0.0.1"_s, ca);
    const TlsFiles elsewhere = MakeCertificate(d, u"elsewhere"_s, u"DNS:elsewhere.example"_s, ca);
    ASSERT_FALSE(ca.cert.isEmpty() || other.cert.isEmpty() || good.cert.isEmpty() ||
                 elsewhere.cert.isEmpty());
    QDir(d).mkdir(u"tls"_s);
    MqttBroker secure(d + u"/tls"_s, {}, {}, good);
    ASSERT_TRUE(secure.start());
    QDir(d).mkdir(u"elsewhere"_s);
    MqttBroker misnamed(d + u"/elsewhere"_s, {}, {}, elsewhere);
    ASSERT_TRUE(misnamed.start());
    LogLines log;
    const QString refused = u"certificate is refused: "_s;
    const struct {
        quint16 port;
        QString caFile, password, reason;
    } cases[] = {
        {secure.port, other.ca, {}, refused + u"self-signed certificate in certificate chain"_s},
        {misnamed.port, ca.ca, {}, refused + u"IP address mismatch"_s},
        {broker.port, {}, u"wrong"_s, u"(The connection was refused.)"_s}};
    for (const auto& c : cases) {
        log.take();
        MqttConfig config;
        config.host = u"127.0.0.1"_s;
        config.port = c.port;
        config.tls = !c.caFile.isEmpty();
        config.caFile = c.caFile;
        config.nodeId = u"wary"_s;
        config.user = broker.user;
        config.password = c.password;
        MqttConnection connection;
        bool connected = false;
        QObject::connect(&connection, &MqttConnection::connectionChanged,
                         [&](bool on) { connected = connected || on; });
        connection.Open(config, u"kestrava/wary/status"_s);
        EXPECT_TRUE(WaitUntil([&] { return log.text().contains(u"cannot reach"_s); }, 5000));
        EXPECT_TRUE(log.text().contains(c.reason)) << log.text().toStdString();
        // Refused at once and after 1 s; the next try waits 2 s.
        EXPECT_TRUE(WaitUntil(
            [&] { return connection.retryMs() == 4 * MqttConnection::FirstRetryMs; }, 3000));
        EXPECT_FALSE(connected);
    }

    const auto families = ClimateFamilies();
    if (families.empty())
        GTEST_SKIP() << "no climate family built in";
    const ClimateCaps caps = families.front();
    t.settings.WriteIni(u"Tira", u"Device", u"sim");
    node(u"cool"_s, u"mqtts://"_s, secure.port);
    t.settings.Write(Key::MqttCAFile, ca.ca);
    ClimateUnits units{t.folder, t.settings, device};
    ClimateState initial;
    initial.mode = caps.modes.front();
    initial.temperature = caps.minTemp;
    initial.fan = caps.fans.value(0);
    const auto id = units.create(u"寝室"_s, caps.family, initial);
    ASSERT_TRUE(id);
    t.writeRemote(1, u"TV"_s, 1, {u"Power"_s});
    WriteSignalFile(SignalFilePath(t.folder, u"TV", u"Power"), SimDriver::NecSignal(1, 0));
    Scenes scenes{t.folder, t.settings, device, units};
    const auto scene = scenes.create(*SceneFromJson(QJsonDocument::fromJson(R"({"name":"映画",
        "steps":[{"type":"key","remote":1,"key":0},{"type":"wait","ms":100}]})")
                                                        .object()));
    ASSERT_TRUE(scene);
    MqttWatcher ha(secure, {u"homeassistant/#"_s, u"kestrava/cool/#"_s});
    Mqtt mqtt(t.folder, t.settings, device);
    mqtt.SetClimates(&units);
    mqtt.SetScenes(&scenes);
    mqtt.Start();
    const QString topic = u"homeassistant/climate/kestrava_cool/"_s + *id + u"/config"_s;
    ASSERT_TRUE(ha.waitFor(topic, {}));
    const QJsonObject config = ha.json(topic);
    EXPECT_EQ(HaConfigProblem(topic, config).toStdString(), "");
    EXPECT_EQ(config.value(u"modes"_s).toArray().size(), qsizetype(caps.modes.size()) + 1);
    EXPECT_EQ(config.value(u"max_temp"_s).toDouble(), caps.maxTemp);
    EXPECT_EQ(config.value(u"temp_step"_s).toDouble(), caps.step);
    EXPECT_EQ(config.contains(u"swing_mode_command_topic"_s), caps.swing);
    const QString state = config.value(u"mode_state_topic"_s).toString();
    ASSERT_TRUE(ha.waitFor(state, {}));
    EXPECT_EQ(ha.json(state).value(u"mode"_s), u"off"_s);

    // Each command one whole frame; the last one refused.
    const QString hot =
        caps.hasMode(ClimateMode::Heat) ? u"heat"_s : ClimateModeName(caps.modes.back());
    const QString top = QString::number(caps.maxTemp, 'f', 1); // as Home Assistant writes it
    const struct {
        const char* field;
        QString payload;
        const char* key;
        QJsonValue shown;
    } commands[] = {{"mode", hot, "mode", hot == u"fan" ? u"fan_only"_s : hot},
                    {"temperature", top, "temperature", caps.maxTemp},
                    {"power", u"OFF"_s, "mode", u"off"_s},
                    {"mode", u"warm"_s, "mode", u"off"_s}};
    int sends = 0;
    for (const auto& c : commands) {
        const QString command =
            config.value(QLatin1StringView(c.field) + u"_command_topic"_s).toString();
        ASSERT_TRUE(secure.publish(command, c.payload.toUtf8()));
        EXPECT_TRUE(WaitUntil([&] {
            return ha.json(state).value(QLatin1StringView(c.key)) == c.shown;
        })) << c.field
            << " " << c.payload.toStdString();
        sends += c.payload != u"warm";
    }
    ASSERT_TRUE(ha.waitFor(u"kestrava/cool/error"_s, {}));
    EXPECT_EQ(ha.json(u"kestrava/cool/error"_s).value(u"error"_s), u"bad_request"_s);
    EXPECT_EQ(SimLog(t.root()).size(), sends);
    MqttWatcher later(secure, {state, topic}); // Home Assistant started after us
    ASSERT_TRUE(WaitUntil([&] { return later.messages.size() == 2; }));
    EXPECT_TRUE(later.messages[0].retained && later.messages[1].retained);

    ClimateState used = initial;
    used.power = true;
    used.temperature = caps.minTemp + caps.step;
    units.heard(*EncodeClimate(caps.family, used));
    ASSERT_TRUE(WaitUntil(
        [&] { return ha.json(state).value(u"temperature"_s).toDouble() == used.temperature; }));
    EXPECT_EQ(SimLog(t.root()).size(), sends);

    ASSERT_TRUE(units.remove(*id));
    ASSERT_TRUE(WaitUntil(
        [&] { return ha.on(topic)[0].payload.isEmpty() && ha.on(state)[0].payload.isEmpty(); }));

    const QString film = u"homeassistant/scene/kestrava_cool/s1/config"_s;
    ASSERT_TRUE(ha.waitFor(film, {}));
    EXPECT_EQ(HaConfigProblem(film, ha.json(film)).toStdString(), "");
    EXPECT_EQ(ha.json(film).value(u"name"_s), u"映画"_s);
    ASSERT_TRUE(secure.publish(ha.json(film).value(u"command_topic"_s).toString(), "ON"));
    EXPECT_TRUE(WaitUntil([&] { return SimLog(t.root()).size() == sends + 1; }));
    ASSERT_TRUE(scenes.remove(*scene));
    EXPECT_TRUE(WaitUntil([&] { return ha.on(film)[0].payload.isEmpty(); }));
}
