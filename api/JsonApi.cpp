#include "api/JsonApi.h"

#include "core/AtomicFile.h"
#include "core/Clock.h"
#include "core/NameText.h"
#include "core/ProgramFolder.h"
#include "core/SettingKeys.h"
#include "core/Settings.h"
#include "core/ShiftJis.h"
#include "infrared/IrDriver.h"
#include "infrared/SignalStore.h"
#include "infrared/Transceiver.h"
#include "infrared/formats/IrFormats.h"
#include "learning/LearningStore.h"
#include "remotes/Press.h"
#include "remotes/Registry.h"
#include "reservations/ReserveStore.h"
#include "reservations/SceneReserve.h"
#include "reservations/Scheduler.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QLoggingCategory>
#include <QPointer>

#include <QRegularExpression>

#include <cmath>
#include <memory>

using namespace Qt::StringLiterals;

namespace {
Q_LOGGING_CATEGORY(lcApi, "kestrava.api")

const QByteArray JsonType = "application/json; charset=utf-8";

QByteArray ErrorBody(const QByteArray& code, const QString& message) {
    return QJsonDocument(
               QJsonObject{{u"error"_s, QString::fromLatin1(code)}, {u"message"_s, message}})
        .toJson(QJsonDocument::Compact);
}

const QString NoRemoteText = u"リモコンが見つかりません。"_s;
const QString NoKeyText = u"キーが見つかりません。"_s;
const QString NotLearnedText = u"このキーはまだ学習されていません。"_s;

} // namespace

// One answer of the API: JSON in, JSON out.
struct JsonApi::Reply {
    FrontReply front;
    void json(int status, const QJsonObject& body, const QByteArray& headers = {}) const {
        front.Send(status, JsonType, QJsonDocument(body).toJson(QJsonDocument::Compact), headers);
    }
    void raw(int status, const QByteArray& body) const { front.Send(status, JsonType, body); }
    void none() const { front.Send(204, {}, {}); }
    void error(int status, const QByteArray& code, const QString& message,
               const QByteArray& headers = {}) const {
        front.Send(status, JsonType, ErrorBody(code, message), headers);
    }
    void bad(const QString& message) const { error(400, "bad_request", message); }
    void notFound(const QString& message) const { error(404, "not_found", message); }
};

JsonApi::JsonApi(Parts parts, QObject* parent)
    : QObject(parent), folder_(parts.folder), settings_(parts.settings), clock_(parts.clock),
      device_(parts.device), scheduler_(parts.scheduler), server_(parts.server),
      globalAddress_(std::move(parts.globalAddress)) {
    // Every press, whichever front asked for it, goes through the transceiver.
    connect(&device_, &Transceiver::pressEnded, this,
            [this](const SendLabel& label, SendResult result) {
                if (label.source == u"learning")
                    return;
                const bool ok = result == SendResult::Sent;
                QJsonObject o{{u"remote"_s, label.remote},
                              {u"key"_s, label.key},
                              {u"source"_s, label.source},
                              {u"ok"_s, ok}};
                if (!ok)
                    o[u"reason"_s] = result == SendResult::Busy        ? u"busy"_s
                                     : result == SendResult::NotOpened ? u"not_opened"_s
                                                                       : u"failed"_s;
                Publish("press", o);
                if (label.source == u"reservation")
                    Publish("reservation",
                            {{u"remote"_s, label.remote}, {u"key"_s, label.key}, {u"ok"_s, ok}});
            });
    connect(&device_, &Transceiver::presenceChanged, this, [this](bool present) {
        Publish("device", {{u"state"_s, present ? u"back"_s : u"lost"_s}});
    });
    ping_.setInterval(15000);
    connect(&ping_, &QTimer::timeout, this, [this] {
        for (auto it = listeners_.begin(); it != listeners_.end();)
            it = it->Write(": ping\n\n") ? it + 1 : listeners_.erase(it);
        if (listeners_.empty())
            ping_.stop();
    });
}

FrontRoute JsonApi::Route(const QString& prefix, qsizetype maxBody) {
    FrontRoute route;
    route.prefix = prefix;
    route.maxBody = maxBody;
    route.deniedType = route.tooLargeType = JsonType;
    route.deniedBody = ErrorBody("unauthorized", u"ログインが必要です。"_s);
    route.tooLargeBody =
        ErrorBody("too_large", u"リクエストが大きすぎます（%1 KiB まで）。"_s.arg(maxBody / 1024));
    route.misdirectedBody =
        ErrorBody("misdirected", u"このサーバーの名前ではないホスト名で届きました。"_s);
    route.tooManyBody =
        ErrorBody("too_many", u"ログインの失敗が続いたため、しばらく待ってください。"_s);
    route.handler = [this](const FrontRequest& request, const FrontReply& reply) {
        Handle(request, reply);
    };
    return route;
}

void JsonApi::Handle(const FrontRequest& request, const FrontReply& front) {
    const Reply reply{front};
    // A page of another site must not act here, nor read through the owner's browser.
    if (FrontCrossSite(request)) {
        qCWarning(lcApi).noquote() << "refused" << request.method << request.path.left(200)
                                   << "from" << request.peer << "- another site's page asked";
        return reply.error(403, "forbidden", u"ほかのサイトからの操作は受け付けません。"_s);
    }
    Api::Call call;
    Api::Refusal refusal =
        Api::CheckBodyType(request.method, request.header("content-type"), request.body);
    if (!refusal.status)
        refusal = Api::ParseCall(request.method, request.path, request.body, &call);
    if (refusal.status) {
        const QByteArray allow =
            refusal.allow.isEmpty() ? QByteArray() : "Allow: " + refusal.allow + "\r\n";
        return reply.error(refusal.status, refusal.code, refusal.message, allow);
    }
    SettingsStore::Batch batch(settings_);
    dispatch(call, request, reply);
}

void JsonApi::dispatch(const Api::Call& c, const FrontRequest& request, const Reply& r) {
    using E = Api::Endpoint;
    const QByteArray& m = c.method;
    switch (c.endpoint) {
    case E::Status:
        return status(r);
    case E::OpenApi: {
        QFile file(u":/api/openapi.json"_s);
        if (!file.open(QIODevice::ReadOnly))
            return r.error(500, "internal", u"API の説明を読めません。"_s);
        return r.raw(200, file.readAll());
    }
    case E::Events:
        return events(r.front);
    case E::Remotes:
        return m == "GET" ? remotes(r, request.query) : createRemote(c, r);
    case E::Remote:
        return m == "GET" ? remote(c, r) : m == "PATCH" ? renameRemote(c, r) : deleteRemote(c, r);
    case E::Key:
        return m == "GET" ? key(c, r) : m == "PATCH" ? renameKey(c, r) : deleteKey(c, r);
    case E::KeyPress: {
        const QJsonValue n = c.body.value(u"repeat"_s);
        const int repeat = n.isUndefined() ? 1 : n.toInt(0);
        if (repeat < 1 || repeat > MaxRepeat)
            return r.bad(u"repeat は 1～%1 の整数にしてください。"_s.arg(MaxRepeat));
        return press(c.remote, c.key, repeat, r);
    }
    case E::KeyHold:
        return holds ? holds(c, r.front) : r.notFound(u"そのような API はありません。"_s);
    case E::PressByName:
        return pressByName(c, r);
    case E::Transmit:
        return transmit(c, r);
    case E::KeyLearn:
        return m == "DELETE" ? cancelLearn(c, r) : learn(c, r);
    case E::KeyCode:
        return importCode(c, r);
    case E::Reservations:
        return m == "GET" ? reservations(r) : addReservation(c, r);
    case E::Reservation:
        return m == "PATCH" ? moveReservation(c, r) : deleteReservation(c, r);
    case E::Climates:
    case E::Climate:
    case E::ClimateState:
    case E::ClimateLearn:
    case E::ClimateImport:
        return climates ? climates(c, r.front) : r.notFound(u"そのような API はありません。"_s);
    case E::Scenes:
    case E::Scene:
    case E::SceneRun:
        return scenes ? scenes(c, r.front) : r.notFound(u"そのような API はありません。"_s);
    }
    Q_UNUSED(request);
}

void JsonApi::status(const Reply& r) {
    const QString path = device_.Target(device_.ConfiguredPort());
    const QString state = capturing_ || device_.CaptureWaiting == 1 ? u"capturing"_s
                          : device_.Lost()                          ? u"lost"_s
                          : device_.TiraActive                      ? u"open"_s
                          : device_.PortIsSet()                     ? u"closed"_s
                                                                    : u"unset"_s;
    QJsonObject transceiver{{u"kind"_s, QString::fromLatin1(IrDriverKind(path))},
                            {u"path"_s, path},
                            {u"state"_s, state}};
    if (!device_.Problem().isEmpty())
        transceiver[u"problem"_s] = device_.Problem();
    transceiver[u"captureMs"_s] = device_.captureTimeoutMs;
    const QString global = globalAddress_ ? globalAddress_() : QString();
    const QString next = scheduler_.GetNextReserve();
    r.json(200,
           {{u"version"_s, QString::fromLatin1(KESTRAVA_VERSION)},
            {u"transceiver"_s, transceiver},
            {u"testMode"_s, IsTestMode(settings_)},
            {u"port"_s, int(server_.WebPort())},
            {u"globalAddress"_s, global.isEmpty() ? QJsonValue() : QJsonValue(global)},
            {u"nextReservation"_s,
             next.isEmpty() ? QJsonValue()
                            : QJsonValue(QJsonObject{{u"date"_s, next.left(10).replace(u'/', u'-')},
                                                     {u"time"_s, next.mid(11)}})},
            {u"pressesWaiting"_s, device_.Waiting()},
            {u"mqtt"_s, mqttStatus ? QJsonValue(mqttStatus()) : QJsonValue()},
            {u"https"_s, httpsStatus ? QJsonValue(httpsStatus()) : QJsonValue()}});
}

QJsonObject JsonApi::keyJson(const QString& device, int key, const QString& function) {
    QJsonObject o{{u"id"_s, key}, {u"name"_s, function}};
    const QString path = function.isEmpty() ? QString() : SignalFilePath(folder_, device, function);
    bool learned = false;
    const IrCode ir = path.isEmpty() ? IrCode{} : codes_->codeOf(path, &learned);
    o[u"learned"_s] = learned;
    QJsonValue protocol, scancode, code, irp;
    if (learned) {
        if (ir.decoded()) {
            const QString spec = CodeSpec(ir);
            protocol = spec.section(u':', 0, 0);
            scancode = spec.section(u':', 1);
            code = CodeDisplay(ir);
            irp = IrpJson(ir);
        }
    }
    o[u"protocol"_s] = protocol;
    o[u"scancode"_s] = scancode;
    o[u"code"_s] = code;
    o[u"irp"_s] = irp;
    return o;
}

QJsonObject JsonApi::remoteJson(int id) {
    const QString name = settings_.Read(Key::RemoteName(id));
    const Design* design = DesignByText(settings_.Read(Key::RemoteDesign(id)));
    if (name.isEmpty() || !design)
        return {};
    const std::vector<QString> buttons = ReadRemoteButtons(settings_, id);
    QJsonArray keys;
    for (int k = 0; k < int(buttons.size()); ++k)
        keys.append(keyJson(name, k, buttons[size_t(k)]));
    return {{u"id"_s, id},
            {u"name"_s, name},
            {u"design"_s, design->id},
            {u"buttonCount"_s, design->buttonCount},
            {u"keys"_s, keys}};
}

// A remote without its keys: what a list of names needs.
QJsonObject JsonApi::remoteSummary(int id) {
    const QString name = settings_.Read(Key::RemoteName(id));
    const Design* design = DesignByText(settings_.Read(Key::RemoteDesign(id)));
    if (name.isEmpty() || !design)
        return {};
    int learned = 0;
    for (const QString& function : ReadRemoteButtons(settings_, id))
        learned +=
            !function.isEmpty() && QFileInfo::exists(SignalFilePath(folder_, name, function));
    return {{u"id"_s, id},
            {u"name"_s, name},
            {u"design"_s, design->id},
            {u"buttonCount"_s, design->buttonCount},
            {u"learned"_s, learned}};
}

void JsonApi::remotes(const Reply& r, const QString& query) {
    const bool light = query.split(u'&').contains(u"keys=none"_s);
    // The list of remotes is made again only when the registry or a signal file moved.
    const QByteArray stamp =
        RegistryStamp(settings_, folder_) + '|' + QByteArray::number(generation_);
    if (stamp != remotesStamp_) {
        remotesBody_.clear();
        summaryBody_.clear();
        remotesStamp_ = stamp;
    }
    QByteArray& body = light ? summaryBody_ : remotesBody_;
    if (body.isEmpty()) {
        QJsonArray list;
        for (int id = 1; id <= MaxListedRemoteId; ++id)
            if (const QJsonObject o = light ? remoteSummary(id) : remoteJson(id); !o.isEmpty())
                list.append(o);
        body = QJsonDocument(QJsonObject{{u"remotes"_s, list}}).toJson(QJsonDocument::Compact);
    }
    r.raw(200, body);
}

void JsonApi::remote(const Api::Call& c, const Reply& r) {
    const QJsonObject o = remoteJson(c.remote);
    if (o.isEmpty())
        return r.notFound(NoRemoteText);
    r.json(200, o);
}

void JsonApi::key(const Api::Call& c, const Reply& r) {
    const QString name = settings_.Read(Key::RemoteName(c.remote));
    const std::vector<QString> buttons = ReadRemoteButtons(settings_, c.remote);
    if (name.isEmpty() || buttons.empty())
        return r.notFound(NoRemoteText);
    if (c.key >= int(buttons.size()))
        return r.notFound(NoKeyText);
    r.json(200, keyJson(name, c.key, buttons[size_t(c.key)]));
}

// A name from the body: text, learnable, not empty. "" with the reply sent otherwise.
static QString NameFrom(const QJsonObject& body, const QString& field, bool required,
                        const std::function<void(const QString&)>& bad) {
    const QJsonValue v = body.value(field);
    if (v.isUndefined() && !required)
        return {};
    const QString name = v.toString().trimmed();
    if (!v.isString() || name.isEmpty()) {
        bad(u"%1 に名前を入れてください。"_s.arg(field));
        return {};
    }
    if (name.size() > Reserve::MaxNameLength) {
        bad(u"名前が長すぎます。"_s);
        return {};
    }
    // As sent: a TAB or line end at either end is no blank to trim.
    if (const QString problem = LearnedNameProblem(v.toString()); !problem.isEmpty()) {
        bad(problem);
        return {};
    }
    return name;
}

void JsonApi::createRemote(const Api::Call& c, const Reply& r) {
    bool refused = false;
    const auto bad = [&](const QString& m) {
        refused = true;
        r.bad(m);
    };
    const QString name = NameFrom(c.body, u"name"_s, true, bad);
    if (refused)
        return;
    const Design* design = DesignByText(QString::number(c.body.value(u"design"_s).toInt(0)));
    if (!design)
        return r.bad(u"design は 1～6 にしてください。"_s);
    const QString device = ShiftJis::RoundTrip(name);
    const RemoteSlot slot = FindRemoteSlot(settings_, device);
    if (slot.existingSlot)
        return r.error(409, "conflict", u"「%1」という名前のリモコンはもうあります。"_s.arg(name));
    if (slot.freeSlot == 0 || slot.freeSlot > MaxListedRemoteId)
        return r.error(409, "conflict",
                       u"リモコンはこれ以上登録できません（%1 台まで）。"_s.arg(MaxListedRemoteId));
    // The wizard's store with no keys: the old files of that name go first.
    const bool stored =
        StoreRemote(folder_, settings_, {slot.freeSlot, device, design->id, true, {}, {}});
    changed();
    const QJsonObject o = remoteJson(slot.freeSlot);
    if (!stored || o.isEmpty())
        return r.error(500, "not_written", u"設定ファイルに書き込めませんでした。"_s);
    r.json(201, o);
}

void JsonApi::renameRemote(const Api::Call& c, const Reply& r) {
    const QString old = settings_.Read(Key::RemoteName(c.remote));
    if (old.isEmpty())
        return r.notFound(NoRemoteText);
    bool refused = false;
    const QString name = NameFrom(c.body, u"name"_s, true, [&](const QString& m) {
        refused = true;
        r.bad(m);
    });
    if (refused)
        return;
    const QString device = ShiftJis::RoundTrip(name);
    if (device != old) {
        const RemoteSlot slot = FindRemoteSlot(settings_, device);
        if (slot.existingSlot && slot.existingSlot != c.remote)
            return r.error(409, "conflict",
                           u"「%1」という名前のリモコンはもうあります。"_s.arg(name));
        // Every key's file under the new name first; the old ones go once the
        // registry names the new.
        const std::vector<QString> buttons = ReadRemoteButtons(settings_, c.remote);
        QStringList written;
        for (const QString& function : buttons) {
            if (function.isEmpty())
                continue;
            const QString from = SignalFilePath(folder_, old, function);
            const QString to = SignalFilePath(folder_, device, function);
            if (!QFileInfo::exists(from))
                continue;
            QFile::remove(to);
            if (!QFile::copy(from, to)) {
                for (const QString& path : written)
                    QFile::remove(path);
                return r.error(500, "not_written", u"信号ファイルを書き込めませんでした。"_s);
            }
            written << to;
        }
        settings_.Write(Key::RemoteName(c.remote), device);
        if (settings_.Read(Key::RemoteName(c.remote)) != device) {
            for (const QString& path : written)
                QFile::remove(path);
            return r.error(500, "not_written", u"設定ファイルに書き込めませんでした。"_s);
        }
        for (const QString& function : buttons)
            if (!function.isEmpty())
                QFile::remove(SignalFilePath(folder_, old, function));
        changed();
    }
    r.json(200, remoteJson(c.remote));
}

void JsonApi::deleteRemote(const Api::Call& c, const Reply& r) {
    const QString name = settings_.Read(Key::RemoteName(c.remote));
    if (name.isEmpty())
        return r.notFound(NoRemoteText);
    DeleteRemote(folder_, settings_, c.remote, name);
    changed();
    r.none();
}

bool JsonApi::storeKey(int remote, int key, const QString& function, const SignalImage& image,
                       QString* why) {
    RemoteChange change{remote, settings_.Read(Key::RemoteName(remote)), 0, false, {}, {}};
    // The key's old name loses its file when the key gets another.
    const QString old = GetButtonFunc(settings_, QString::number(remote), QString::number(key));
    if (!old.isEmpty() && old != function)
        change.deleted.push_back({old, key});
    change.keys.push_back(
        {key, function,
         QByteArray(reinterpret_cast<const char*>(image.data()), qsizetype(image.size()))});
    QString error;
    const bool stored = StoreRemote(folder_, settings_, change, &error);
    changed();
    if (!stored)
        *why = u"学習した信号を保存できませんでした。"_s + u'\n' + error;
    return stored;
}

// The remote and key of a call that changes a key, with the key's new name;
// false with the reply sent when one of them is not there.
namespace {
struct KeyTarget {
    QString device;
    std::vector<QString> buttons;
    QString name; // the name asked for, else the key's own
};
} // namespace

std::function<void(int, const QString&)> JsonApi::keyFailure(const Reply& r) {
    return [r](int status, const QString& m) {
        r.error(status,
                status == 404   ? "not_found"
                : status == 409 ? "conflict"
                                : "bad_request",
                m);
    };
}

static bool FindKey(SettingsStore& settings, const Api::Call& c, bool nameRequired, KeyTarget* t,
                    const std::function<void(int, const QString&)>& fail) {
    t->device = settings.Read(Key::RemoteName(c.remote));
    t->buttons = ReadRemoteButtons(settings, c.remote);
    if (t->device.isEmpty() || t->buttons.empty()) {
        fail(404, NoRemoteText);
        return false;
    }
    if (c.key >= int(t->buttons.size())) {
        fail(404, NoKeyText);
        return false;
    }
    bool refused = false;
    QString name = NameFrom(c.body, u"name"_s, nameRequired, [&](const QString& m) {
        refused = true;
        fail(400, m);
    });
    if (refused)
        return false;
    if (name.isEmpty())
        name = t->buttons[size_t(c.key)];
    if (name.isEmpty()) {
        fail(400, u"name にキーの名前を入れてください。"_s);
        return false;
    }
    name = ShiftJis::RoundTrip(name);
    for (int k = 0; k < int(t->buttons.size()); ++k)
        if (k != c.key && t->buttons[size_t(k)] == name) {
            fail(409,
                 u"「%1」はこのリモコンのボタン %2 がもう使っています。"_s.arg(name).arg(k + 1));
            return false;
        }
    t->name = name;
    return true;
}

void JsonApi::renameKey(const Api::Call& c, const Reply& r) {
    KeyTarget t;
    if (!FindKey(settings_, c, true, &t, keyFailure(r)))
        return;
    const QString old = t.buttons[size_t(c.key)];
    if (old != t.name) {
        const QString from = SignalFilePath(folder_, t.device, old);
        const QString to = SignalFilePath(folder_, t.device, t.name);
        const bool hasFile = !old.isEmpty() && QFileInfo::exists(from);
        if (hasFile) {
            QFile::remove(to);
            if (!QFile::copy(from, to))
                return r.error(500, "not_written", u"信号ファイルを書き込めませんでした。"_s);
        }
        settings_.Write(Key::RemoteButton(c.remote, c.key), t.name);
        if (GetButtonFunc(settings_, QString::number(c.remote), QString::number(c.key)) != t.name) {
            if (hasFile)
                QFile::remove(to);
            return r.error(500, "not_written", u"設定ファイルに書き込めませんでした。"_s);
        }
        if (hasFile)
            QFile::remove(from);
        changed();
    }
    r.json(200, keyJson(t.device, c.key, t.name));
}

void JsonApi::deleteKey(const Api::Call& c, const Reply& r) {
    const QString device = settings_.Read(Key::RemoteName(c.remote));
    const std::vector<QString> buttons = ReadRemoteButtons(settings_, c.remote);
    if (device.isEmpty() || buttons.empty())
        return r.notFound(NoRemoteText);
    if (c.key >= int(buttons.size()))
        return r.notFound(NoKeyText);
    const QString function = buttons[size_t(c.key)];
    const bool stored =
        function.isEmpty() ||
        StoreRemote(folder_, settings_, {c.remote, device, 0, false, {{function, c.key}}, {}});
    changed();
    if (!stored)
        return r.error(500, "not_written", u"設定ファイルに書き込めませんでした。"_s);
    r.none();
}

void JsonApi::press(int remote, int key, int repeat, const Reply& r) {
    if (IsTestMode(settings_))
        return r.json(200, {{u"ok"_s, true}, {u"testMode"_s, true}});
    const QString device = settings_.Read(Key::RemoteName(remote));
    const std::vector<QString> buttons = ReadRemoteButtons(settings_, remote);
    if (device.isEmpty() || buttons.empty())
        return r.notFound(NoRemoteText);
    if (key >= int(buttons.size()))
        return r.notFound(NoKeyText);
    const QString function = buttons[size_t(key)];
    const QString path = function.isEmpty() ? QString() : SignalFilePath(folder_, device, function);
    if (path.isEmpty() || !QFileInfo::exists(path))
        return r.error(409, "not_learned", NotLearnedText);
    // The same queue as every other press; the answer goes once the last
    // repeat has gone out. A repeat finds its file again, so a key deleted
    // meanwhile ends the presses with a clear answer.
    auto left = std::make_shared<int>(repeat);
    auto step = std::make_shared<std::function<void()>>();
    QPointer<JsonApi> self(this);
    *step = [this, self, r, path, device, function, left, step, repeat] {
        if (!self)
            return;
        device_.Enqueue(path,
                        [this, self, r, path, left, step](SendResult result) {
                            if (!self) {
                                *step = nullptr;
                                return;
                            }
                            switch (result) {
                            case SendResult::Sent:
                                if (--*left > 0 && QFileInfo::exists(path))
                                    return (*step)();
                                *step = nullptr; // ends the cycle of references
                                if (*left > 0)
                                    return r.error(409, "not_learned",
                                                   u"送信中にキーが削除されました。"_s);
                                return r.json(200, {{u"ok"_s, true}});
                            case SendResult::Busy:
                                *step = nullptr;
                                return r.error(503, "busy", SendBusyText, "Retry-After: 1\r\n");
                            case SendResult::NotOpened:
                                *step = nullptr;
                                return r.error(502, "transceiver_failed",
                                               device_.PortIsSet() ? device_.CannotActivateMessage()
                                                                   : Transceiver::PortUnsetText);
                            case SendResult::Failed:
                                *step = nullptr;
                                return r.error(502, "transceiver_failed",
                                               QFileInfo::exists(path)
                                                   ? SendFailedText + u'\n' + device_.Problem()
                                                   : u"送信する前にキーが削除されました。"_s);
                            }
                        },
                        {u"api"_s, device, function, *left < repeat});
    };
    (*step)();
}

void JsonApi::pressByName(const Api::Call& c, const Reply& r) {
    const QJsonValue remote = c.body.value(u"remote"_s), key = c.body.value(u"key"_s);
    if (!remote.isString() || !key.isString())
        return r.bad(u"remote と key に名前を入れてください。"_s);
    if (HasControlOrBrokenChar(remote.toString()) || HasControlOrBrokenChar(key.toString()))
        return r.bad(u"remote と key の名前に制御文字や壊れた文字は使えません。"_s);
    const int repeat = c.body.value(u"repeat"_s).toInt(1);
    if (repeat < 1 || repeat > MaxRepeat)
        return r.bad(u"repeat は 1～%1 の整数にしてください。"_s.arg(MaxRepeat));
    NamedKey k;
    switch (FindNamedKey(folder_, settings_, remote.toString(), key.toString(), &k)) {
    case NamedKeyProblem::NoRemote:
        return r.notFound(u"「%1」というリモコンはありません。"_s.arg(remote.toString()));
    case NamedKeyProblem::NoKey:
        return r.notFound(
            u"「%1」に「%2」というキーはありません。"_s.arg(remote.toString(), key.toString()));
    case NamedKeyProblem::NotLearned:
    case NamedKeyProblem::None:
        return press(k.slot, k.key, repeat, r);
    }
}

// Why a body's timings are no signal, in the API's words; "" when they are one.
static QString TimingsProblem(const QJsonValue& value) {
    if (!value.isArray() || value.toArray().isEmpty())
        return u"timings に µs の数の列を入れてください（パルスは正、間は負の数）。"_s;
    const QJsonArray timings = value.toArray();
    if (timings.size() > MaxDurations)
        return u"timings が %1 個あります（%2 個まで）。"_s.arg(timings.size()).arg(MaxDurations);
    double total = 0;
    for (qsizetype i = 0; i < timings.size(); ++i) {
        const double v = timings[i].toDouble(0);
        if (!timings[i].isDouble() || v == 0 || std::abs(v) > MaxSignalUs)
            return u"timings の %1 番目が µs の長さ（0 でない %2 までの数）ではありません。"_s
                .arg(i + 1)
                .arg(MaxSignalUs);
        if (i == 0 && v < 0)
            return u"timings はパルス（正の数）から始めてください（間は負の数）。"_s;
        total += std::abs(v);
    }
    if (total > MaxSignalUs)
        return u"timings の合計が %1 ms で、キーの信号の長さ（%2 ms）を超えます。"_s
            .arg(qint64(total / 1000))
            .arg(MaxSignalUs / 1000);
    return {};
}

void JsonApi::transmit(const Api::Call& c, const Reply& r) {
    if (const QString problem = TimingsProblem(c.body.value(u"timings"_s)); !problem.isEmpty())
        return r.bad(problem);
    QString why, field;
    const QByteArray bytes = QJsonDocument(c.body).toJson(QJsonDocument::Compact);
    const auto code = ReadTimingJson(bytes, u"request"_s, &why, &field);
    if (field == u"modulation")
        return r.bad(u"modulation（搬送波）は %1～%2 Hz にしてください。"_s.arg(MinCarrierHz)
                         .arg(MaxCarrierHz));
    if (!code)
        return r.bad(u"timings を信号にできません（%1）。"_s.arg(why));
    const auto image = SignalImageOf(code->timing, &why);
    if (!image)
        return r.bad(u"timings を信号にできません（%1）。"_s.arg(why));
    const int repeat = c.body.value(u"repeat_count"_s).toInt(0);
    if (repeat < 0 || repeat > MaxRepeat)
        return r.bad(u"repeat_count は 0～%1 にしてください。"_s.arg(MaxRepeat));
    // The queue takes signal files; this one is read back before Enqueue returns.
    const QString path = folder_.path(u"api-transmit.tmp"_s);
    if (!WriteFileAtomically(
            path, QByteArrayView(reinterpret_cast<const char*>(image->data()), SignalFileSize),
            0644, &why))
        return r.error(500, "not_written", u"送る信号を書き込めませんでした（%1）。"_s.arg(why));
    auto left = std::make_shared<int>(repeat + 1);
    auto results = std::make_shared<SendResult>(SendResult::Sent);
    for (int i = 0; i <= repeat; ++i)
        device_.Enqueue(path,
                        [this, r, left, results](SendResult result) {
                            if (result != SendResult::Sent && *results == SendResult::Sent)
                                *results = result;
                            if (--*left > 0)
                                return;
                            switch (*results) {
                            case SendResult::Sent:
                                return r.json(200, {{u"ok"_s, true}});
                            case SendResult::Busy:
                                return r.error(503, "busy", SendBusyText, "Retry-After: 1\r\n");
                            default:
                                return r.error(502, "transceiver_failed",
                                               device_.PortIsSet() ? device_.CannotActivateMessage()
                                                                   : Transceiver::PortUnsetText);
                            }
                        },
                        {u"api"_s, {}, {}});
    QFile::remove(path);
}

void JsonApi::learn(const Api::Call& c, const Reply& r) {
    KeyTarget t;
    if (!FindKey(settings_, c, false, &t, keyFailure(r)))
        return;
    if (capturing_ || device_.CaptureWaiting == 1)
        return r.error(409, "busy",
                       u"ほかの学習が信号を待っています。終わってからもう一度どうぞ。"_s);
    // The desktop's learning window keeps its signals in 1.tmp, 2.tmp, ...
    if (QFileInfo::exists(LearningSession(folder_).TempPath(1)))
        return r.error(409, "busy", u"学習ウィンドウが開いています。閉じてからもう一度どうぞ。"_s);
    if (!device_.TiraActive) {
        if (!device_.PortIsSet())
            return r.error(502, "transceiver_failed", Transceiver::PortUnsetText);
        capturing_ = true;
        const bool opened = device_.ActivateTira(device_.ConfiguredPort());
        capturing_ = false;
        if (!opened)
            return r.error(502, "transceiver_failed", device_.CannotActivateMessage());
    }
    // The capture waits as the wizard's does, nested, at most its time-out.
    capturing_ = true;
    learning_ = {c.remote, c.key};
    learnCancelled_ = false;
    device_.timDeactivate.stop();
    const bool got = device_.CaptureTira();
    capturing_ = false;
    learning_ = {};
    if (!got) {
        device_.CancelCaptureTira();
        device_.ClearAll();
        if (learnCancelled_)
            return r.error(409, "cancelled", u"学習を取り消しました。"_s);
        return r.error(408, "capture_timeout", u"信号を受信できませんでした。"_s);
    }
    SignalImage image = device_.SignalBuf;
    int length = device_.SignalLen;
    const IrCode code = TidyCapture(image, length, true);
    StampSignalLength(image, length);
    device_.CancelCaptureTira();
    device_.ClearAll();
    device_.timDeactivate.start();
    // The remote may have gone while the capture waited.
    KeyTarget now;
    if (!FindKey(settings_, c, false, &now, keyFailure(r)))
        return;
    QString why;
    if (!storeKey(c.remote, c.key, t.name, image, &why))
        return r.error(500, "not_written", why);
    Publish("learned", {{u"remote"_s, now.device}, {u"key"_s, t.name}});
    Q_UNUSED(code);
    r.json(200, keyJson(now.device, c.key, t.name));
}

// Ends the capture a learn of this key waits on; that learn then answers 409.
void JsonApi::cancelLearn(const Api::Call& c, const Reply& r) {
    if (learning_ != std::pair{c.remote, c.key} || device_.CaptureWaiting != 1)
        return r.error(409, "not_learning", u"このキーは信号を待っていません。"_s);
    learnCancelled_ = true;
    device_.CancelCaptureTira();
    r.json(200, {{u"cancelled"_s, true}});
}

void JsonApi::importCode(const Api::Call& c, const Reply& r) {
    KeyTarget t;
    if (!FindKey(settings_, c, false, &t, keyFailure(r)))
        return;
    const QJsonValue v = c.body.value(u"code"_s);
    if (!v.isString() || v.toString().trimmed().isEmpty())
        return r.bad(
            u"code に信号（kestrava-ir convert が読める形式か nec:0x0408）を入れてください。"_s);
    const QString text = v.toString().trimmed();
    QString why;
    std::optional<IrTiming> timing;
    if (const auto spec = ParseCodeSpec(text, &why)) {
        timing = EncodeSignal(*spec);
        if (!timing)
            return r.bad(u"この符号からは信号を作れません。"_s);
    } else {
        // The text came whole in the JSON; only trimming took its last line break.
        const IrCodeRead read = ReadIrCodes(text.toUtf8() + '\n', u"code"_s);
        if (!read.ok())
            return r.bad(u"code の信号を読めません（%1）。"_s.arg(read.error));
        if (read.codes.size() != 1)
            return r.bad(
                read.codes.empty()
                    ? (read.refused.isEmpty()
                           ? u"code に信号が見つかりません。"_s
                           : u"code の信号を使えません（%1）。"_s.arg(read.refused.join(u'\n')))
                    : u"信号が %1 個あります。一つだけにしてください。"_s.arg(read.codes.size()));
        timing = read.codes.front().timing;
    }
    const auto image = SignalImageOf(*timing, &why);
    if (!image)
        return r.bad(u"code を信号にできません（%1）。"_s.arg(why));
    if (!storeKey(c.remote, c.key, t.name, *image, &why))
        return r.error(500, "not_written", why);
    Publish("learned", {{u"remote"_s, t.device}, {u"key"_s, t.name}});
    r.json(200, keyJson(t.device, c.key, t.name));
}

namespace {

// "2026_11_23T07_05.1": the file's name and the line in it.
QString ReservationId(const QString& name, int line) {
    return QString(name).replace(u' ', u'T') + u'.' + QString::number(line);
}
bool SplitReservationId(const QString& id, QString* name, int* line) {
    const qsizetype dot = id.lastIndexOf(u'.');
    if (dot < 0)
        return false;
    bool ok = false;
    *line = id.mid(dot + 1).toInt(&ok);
    *name = id.left(dot).replace(u'T', u' ');
    return ok && *line >= 1 && Reserve::IsValidName(*name);
}

QString RepeatOf(const QString& name) {
    if (!Reserve::IsRepeating(name))
        return u"once"_s;
    const QString mask = name.left(7);
    return mask == u"1111111" ? u"daily"_s : mask == u"0111110" ? u"weekdays"_s : u"days"_s;
}

} // namespace

void JsonApi::reservations(const Reply& r) {
    const QString dir = Reserve::Folder(folder_, settings_);
    QJsonArray list;
    for (const QString& name : Reserve::ListNames(dir)) {
        const QStringList lines = Reserve::ReadLines(dir + u'/' + name);
        for (int i = 0; i < lines.size(); ++i) {
            if (lines[i].isEmpty())
                continue;
            const Reserve::Operation op = Reserve::SplitLine(lines[i]);
            const bool repeating = Reserve::IsRepeating(name);
            QJsonObject o{{u"id"_s, ReservationId(name, i + 1)},
                          {u"time"_s, Reserve::TimeText(name)},
                          {u"repeat"_s, RepeatOf(name)},
                          {u"date"_s, repeating ? QJsonValue()
                                                : QJsonValue(name.left(10).replace(u'_', u'-'))},
                          {u"remote"_s, op.device},
                          {u"key"_s, op.function}};
            if (repeating)
                o[u"days"_s] = name.left(7);
            const int slot = FindRemoteSlot(settings_, op.device).existingSlot;
            o[u"remoteId"_s] = slot ? QJsonValue(slot) : QJsonValue();
            QJsonValue keyId;
            if (slot) {
                const std::vector<QString> b = ReadRemoteButtons(settings_, slot);
                for (int k = 0; k < int(b.size()); ++k)
                    if (b[size_t(k)] == op.function)
                        keyId = k;
            }
            o[u"keyId"_s] = keyId;
            const QString unit = climateOf ? climateOf(op.device, op.function) : QString();
            o[u"climate"_s] = unit.isEmpty() ? QJsonValue() : QJsonValue(unit);
            const int scene = sceneOf ? sceneOf(op.device, op.function) : 0;
            o[u"sceneId"_s] = scene ? QJsonValue(scene) : QJsonValue();
            list.append(o);
        }
    }
    r.json(200, {{u"reservations"_s, list}});
}

// A reservation's moment: the fields of a body over what was there before.
namespace {
struct Moment {
    QString time, repeat, date, days;
};
} // namespace

// The file name of the moment a body asks for, "" with why (naming the field
// at fault). A moment gone by is refused: nothing would ever fire it.
static QString MomentName(const QJsonObject& b, Moment m, const QDateTime& now, QString* why) {
    for (const auto field : {u"time", u"repeat", u"date", u"days"}) {
        const QJsonValue v = b.value(QStringView(field));
        if (!v.isUndefined() && !v.isString()) {
            *why = u"%1 は文字列で入れてください。"_s.arg(QStringView(field));
            return {};
        }
    }
    m.time = b.value(u"time"_s).toString(m.time);
    // days alone means on those days, date alone means once.
    if (b.contains(u"repeat"_s))
        m.repeat = b.value(u"repeat"_s).toString();
    else if (b.contains(u"days"_s))
        m.repeat = u"days"_s;
    else if (b.contains(u"date"_s))
        m.repeat = u"once"_s;
    m.date = b.value(u"date"_s).toString(m.date);
    m.days = b.value(u"days"_s).toString(m.days);
    static const QStringList Repeats{u"once"_s, u"daily"_s, u"weekdays"_s, u"days"_s};
    if (!Repeats.contains(m.repeat)) {
        *why = u"repeat は once、daily、weekdays、days のどれかにしてください。"_s;
        return {};
    }
    if (b.contains(u"date"_s) && m.repeat != u"once") {
        *why = u"date は repeat が once のときだけ使えます。"_s;
        return {};
    }
    if (b.contains(u"days"_s) && m.repeat != u"days") {
        *why = u"days は repeat が days のときだけ使えます。"_s;
        return {};
    }
    const QTime t = QTime::fromString(m.time, u"HH:mm"_s);
    if (!t.isValid() || m.time.size() != 5) {
        *why = u"time は HH:MM（24 時間）で入れてください。"_s;
        return {};
    }
    QString dayPart;
    if (m.repeat == u"once") {
        const QDate d = QDate::fromString(m.date, u"yyyy-MM-dd"_s);
        if (!d.isValid()) {
            *why = u"date は YYYY-MM-DD で入れてください。"_s;
            return {};
        }
        if (m.date + u' ' + m.time + u":00"_s <= now.toString(u"yyyy-MM-dd HH:mm:ss"_s)) {
            *why = u"date と time の日時はもう過ぎています（今は %1）。"_s.arg(
                now.toString(u"yyyy-MM-dd HH:mm"_s));
            return {};
        }
        dayPart = d.toString(u"yyyy/MM/dd"_s);
    } else if (m.repeat == u"daily") {
        dayPart = u"1111111"_s;
    } else if (m.repeat == u"weekdays") {
        dayPart = u"0111110"_s;
    } else if (m.days.size() == 7 && !m.days.contains(QRegularExpression(u"[^01]"_s)) &&
               m.days.contains(u'1')) {
        dayPart = m.days;
    } else {
        *why = u"days は日曜始まりの 7 桁の 0 と 1 にしてください（1 が一つ以上、例 0111110）。"_s;
        return {};
    }
    const QString name = Reserve::NameFor(dayPart, m.time);
    if (!Reserve::IsValidName(name)) {
        *why = u"日時が正しくありません。"_s;
        return {};
    }
    return name;
}

void JsonApi::addReservation(const Api::Call& c, const Reply& r) {
    const QJsonObject& b = c.body;
    // The remote and key by id or by name.
    QString device, function, note, unit;
    int slot = b.value(u"remoteId"_s).toInt(0);
    int scene = 0;
    if (b.contains(u"sceneId"_s)) {
        // A scene: its line is the scene's name under one device name.
        scene = b.value(u"sceneId"_s).toInt(0);
        function = sceneName ? sceneName(scene) : QString();
        if (function.isEmpty())
            return r.notFound(u"シーンが見つかりません。"_s);
        device = Reserve::SceneDevice;
    } else if (b.contains(u"climateId"_s)) {
        // An air conditioner's state: its line is the unit's name and the state.
        int status = 404;
        QString why = u"エアコンが見つかりません。"_s;
        unit = b.value(u"climateId"_s).toString();
        const auto line = climateLine
                              ? climateLine(unit, b.value(u"state"_s).toObject(), &status, &why)
                              : std::nullopt;
        if (!line)
            return r.error(status,
                           status == 404   ? "not_found"
                           : status == 400 ? "bad_request"
                                           : "refused",
                           why);
        device = line->device;
        function = line->function;
        note = line->note;
    } else if (b.contains(u"remoteId"_s)) {
        if (slot < 1 || slot > MaxRemoteId || settings_.Read(Key::RemoteName(slot)).isEmpty())
            return r.notFound(NoRemoteText);
    } else if (b.value(u"remote"_s).isString()) {
        slot = FindRemoteSlot(settings_, ShiftJis::RoundTrip(b.value(u"remote"_s).toString()))
                   .existingSlot;
        if (!slot)
            return r.notFound(NoRemoteText);
    } else {
        return r.bad(u"remote（名前）か remoteId を入れてください。"_s);
    }
    const bool lineMade = !unit.isEmpty() || scene;
    if (!lineMade)
        device = settings_.Read(Key::RemoteName(slot));
    const std::vector<QString> buttons =
        lineMade ? std::vector<QString>{} : ReadRemoteButtons(settings_, slot);
    if (lineMade) {
        // The line is made already.
    } else if (b.contains(u"keyId"_s)) {
        const int k = b.value(u"keyId"_s).toInt(-1);
        if (k < 0 || k >= int(buttons.size()))
            return r.notFound(NoKeyText);
        function = buttons[size_t(k)];
        if (function.isEmpty())
            return r.error(409, "not_learned", NotLearnedText);
    } else if (b.value(u"key"_s).isString()) {
        function = ShiftJis::RoundTrip(b.value(u"key"_s).toString());
        if (function.isEmpty() ||
            std::find(buttons.begin(), buttons.end(), function) == buttons.end())
            return r.notFound(NoKeyText);
    } else {
        return r.bad(u"key（名前）か keyId を入れてください。"_s);
    }
    if (!Reserve::IsWritableName(device) || !Reserve::IsWritableName(function))
        return r.bad(u"この名前は予約に使えません。"_s);
    QString why;
    const QString name = MomentName(b, {{}, u"once"_s, {}, {}}, clock_.now(), &why);
    if (name.isEmpty())
        return r.bad(why);
    const QString dir = Reserve::Folder(folder_, settings_);
    QDir().mkpath(dir);
    const QString path = dir + u'/' + name;
    const Reserve::AddResult added = Reserve::AddLine(path, device, function);
    if (added != Reserve::AddResult::Added)
        return r.error(added == Reserve::AddResult::BadName ? 400 : 409,
                       added == Reserve::AddResult::BadName ? "bad_request" : "conflict",
                       Reserve::AddRefusalText(added));
    scheduler_.FillGrid();
    const QStringList lines = Reserve::ReadLines(path);
    QJsonObject made{{u"id"_s, ReservationId(name, int(lines.size()))},
                     {u"time"_s, Reserve::TimeText(name)},
                     {u"repeat"_s, RepeatOf(name)},
                     {u"remote"_s, device},
                     {u"remoteId"_s, lineMade ? QJsonValue() : QJsonValue(slot)},
                     {u"key"_s, function}};
    if (scene)
        made[u"sceneId"_s] = scene;
    if (!unit.isEmpty()) {
        made[u"climate"_s] = unit;
        made[u"message"_s] = note;
    }
    r.json(201, made);
}

void JsonApi::moveReservation(const Api::Call& c, const Reply& r) {
    QString name;
    int line = 0;
    if (!SplitReservationId(c.reservation, &name, &line))
        return r.notFound(u"予約が見つかりません。"_s);
    const QString dir = Reserve::Folder(folder_, settings_);
    const QStringList lines = Reserve::ReadLines(dir + u'/' + name);
    if (line > lines.size() || lines[line - 1].isEmpty())
        return r.notFound(u"予約が見つかりません。"_s);
    const Reserve::Operation op = Reserve::SplitLine(lines[line - 1]);
    const QJsonObject& b = c.body;
    const bool repeating = Reserve::IsRepeating(name);
    QString why;
    const QString to = MomentName(b,
                                  {Reserve::TimeText(name), RepeatOf(name),
                                   repeating ? QString() : name.left(10).replace(u'_', u'-'),
                                   repeating ? name.left(7) : QString()},
                                  clock_.now(), &why);
    if (to.isEmpty())
        return r.bad(why);
    if (to != name) {
        // Added at the new moment first, so a failure loses nothing.
        const Reserve::AddResult added = Reserve::AddLine(dir + u'/' + to, op.device, op.function);
        if (added != Reserve::AddResult::Added)
            return r.error(409, "conflict", Reserve::AddRefusalText(added));
        if (!Reserve::DeleteLineIf(dir + u'/' + name, line, lines[line - 1])) {
            Reserve::DeleteByContent(dir + u'/' + to, lines[line - 1]);
            return r.error(409, "conflict", u"予約が変わりました。読み直してください。"_s);
        }
        if (Reserve::ReadLines(dir + u'/' + name).join(QString()).isEmpty())
            Reserve::RemoveFile(dir + u'/' + name);
        scheduler_.FillGrid();
    }
    const QStringList now = Reserve::ReadLines(dir + u'/' + to);
    r.json(200, {{u"id"_s, ReservationId(to, int(to == name ? line : now.size()))},
                 {u"time"_s, Reserve::TimeText(to)},
                 {u"repeat"_s, RepeatOf(to)},
                 {u"remote"_s, op.device},
                 {u"key"_s, op.function}});
}

void JsonApi::deleteReservation(const Api::Call& c, const Reply& r) {
    QString name;
    int line = 0;
    if (!SplitReservationId(c.reservation, &name, &line))
        return r.notFound(u"予約が見つかりません。"_s);
    const QString path = Reserve::Folder(folder_, settings_) + u'/' + name;
    const QStringList lines = Reserve::ReadLines(path);
    if (line > lines.size() || lines[line - 1].isEmpty() ||
        !Reserve::DeleteLineIf(path, line, lines[line - 1]))
        return r.notFound(u"予約が見つかりません。"_s);
    if (Reserve::ReadLines(path).join(QString()).isEmpty())
        Reserve::RemoveFile(path);
    scheduler_.FillGrid();
    r.none();
}

void JsonApi::events(const FrontReply& reply) {
    if (!reply.StartStream("text/event-stream; charset=utf-8"))
        return;
    reply.Write(": kestrava\n\n");
    listeners_.push_back(reply);
    if (!ping_.isActive())
        ping_.start();
}

void JsonApi::Publish(const QByteArray& name, const QJsonObject& data) {
    if (listeners_.empty())
        return;
    const QByteArray message =
        "event: " + name + "\ndata: " + QJsonDocument(data).toJson(QJsonDocument::Compact) + "\n\n";
    for (auto it = listeners_.begin(); it != listeners_.end();)
        it = it->Write(message) ? it + 1 : listeners_.erase(it);
}
