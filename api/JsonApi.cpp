#include "api/JsonApi.h"

#include "api/ApiReply.h"
#include "core/Settings.h"
#include "infrared/IrDriver.h"
#include "infrared/Transceiver.h"
#include "remotes/Registry.h"
#include "reservations/Scheduler.h"

#include <QFile>
#include <QLoggingCategory>
#include <QTimer>

using namespace Qt::StringLiterals;
using namespace Api;

namespace {
Q_LOGGING_CATEGORY(lcApi, "kestrava.api")
const QString NoSuchApiText = u"そのような API はありません。"_s;
} // namespace

JsonApi::JsonApi(Parts parts, QObject* parent)
    : QObject(parent), settings_(parts.settings), device_(parts.device),
      scheduler_(parts.scheduler), server_(parts.server),
      globalAddress_(std::move(parts.globalAddress)), events_(this),
      remotes_(parts.folder, parts.settings), presses_(parts.folder, parts.settings, parts.device),
      learning_(parts.folder, remotes_, parts.device,
                [this](const QByteArray& name, const QJsonObject& data) { Publish(name, data); }),
      reservations_(parts.folder, parts.settings, parts.clock, parts.scheduler, *this) {
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
    // A phone opened right after a start finds its list made.
    QTimer::singleShot(0, this, [this] { remotes_.Prepare(); });
}

FrontRoute JsonApi::Route(const QString& prefix, qsizetype maxBody) {
    FrontRoute route;
    route.prefix = prefix;
    route.maxBody = maxBody;
    route.deniedType = route.tooLargeType = JsonType;
    route.deniedBody = errorBody("unauthorized", u"ログインが必要です。"_s);
    route.tooLargeBody =
        errorBody("too_large", u"リクエストが大きすぎます（%1 KiB まで）。"_s.arg(maxBody / 1024));
    route.misdirectedBody =
        errorBody("misdirected", u"このサーバーの名前ではないホスト名で届きました。"_s);
    route.tooManyBody =
        errorBody("too_many", u"ログインの失敗が続いたため、しばらく待ってください。"_s);
    route.handler = [this](const FrontRequest& request, const FrontReply& reply) {
        Handle(request, reply);
    };
    return route;
}

void JsonApi::Handle(const FrontRequest& request, const FrontReply& reply) {
    // A page of another site must not act here, nor read through the owner's browser.
    if (FrontCrossSite(request)) {
        qCWarning(lcApi).noquote() << "refused" << request.method << request.path.left(200)
                                   << "from" << request.peer << "- another site's page asked";
        return error(reply, 403, "forbidden", u"ほかのサイトからの操作は受け付けません。"_s);
    }
    Api::Call call;
    Api::Refusal refusal =
        Api::CheckBodyType(request.method, request.header("content-type"), request.body);
    if (!refusal.status)
        refusal = Api::ParseCall(request.method, request.path, request.body, &call);
    if (refusal.status) {
        const QByteArray allow =
            refusal.allow.isEmpty() ? QByteArray() : "Allow: " + refusal.allow + "\r\n";
        return error(reply, refusal.status, refusal.code.constData(), refusal.message, allow);
    }
    call.query = request.query;
    SettingsStore::Batch batch(settings_);
    dispatch(call, reply);
}

void JsonApi::dispatch(const Api::Call& c, const FrontReply& r) {
    using E = Api::Endpoint;
    const QByteArray& m = c.method;
    const auto to = [&](const std::function<void(const Api::Call&, const FrontReply&)>& part) {
        part ? part(c, r) : notFound(r, NoSuchApiText);
    };
    switch (c.endpoint) {
    case E::Status:
        return status(r);
    case E::OpenApi: {
        QFile file(u":/api/openapi.json"_s);
        if (!file.open(QIODevice::ReadOnly))
            return error(r, 500, "internal", u"API の説明を読めません。"_s);
        return raw(r, 200, file.readAll());
    }
    case E::Events:
        return events_.Open(r);
    case E::Remotes:
        return m == "GET" ? remotes_.List(r, c.query) : remotes_.Create(c, r);
    case E::Remote:
        return m == "GET"     ? remotes_.Get(c, r)
               : m == "PATCH" ? remotes_.Rename(c, r)
                              : remotes_.Delete(c, r);
    case E::Key:
        return m == "GET"     ? remotes_.GetKey(c, r)
               : m == "PATCH" ? remotes_.RenameKey(c, r)
                              : remotes_.DeleteKey(c, r);
    case E::KeyPress:
        return presses_.Press(c, r);
    case E::KeyHold:
        return to(holds);
    case E::PressByName:
        return presses_.PressByName(c, r);
    case E::Transmit:
        return presses_.Transmit(c, r);
    case E::KeyLearn:
        return m == "DELETE" ? learning_.Cancel(c, r) : learning_.Learn(c, r);
    case E::KeyCode:
        return learning_.Import(c, r);
    case E::Reservations:
        return m == "GET" ? reservations_.List(r) : reservations_.Add(c, r);
    case E::Reservation:
        return m == "PATCH" ? reservations_.Move(c, r) : reservations_.Delete(c, r);
    case E::Climates:
    case E::Climate:
    case E::ClimateState:
    case E::ClimateLearn:
    case E::ClimateImport:
        return to(climates);
    case E::Scenes:
    case E::Scene:
    case E::SceneRun:
        return to(scenes);
    }
}

void JsonApi::status(const FrontReply& r) {
    const QString path = device_.Target(device_.ConfiguredPort());
    const QString state = learning_.Capturing() || device_.CaptureWaiting == 1 ? u"capturing"_s
                          : device_.Lost()                                     ? u"lost"_s
                          : device_.TiraActive                                 ? u"open"_s
                          : device_.PortIsSet()                                ? u"closed"_s
                                                                               : u"unset"_s;
    QJsonObject transceiver{{u"kind"_s, QString::fromLatin1(IrDriverKind(path))},
                            {u"path"_s, path},
                            {u"state"_s, state}};
    if (!device_.Problem().isEmpty())
        transceiver[u"problem"_s] = device_.Problem();
    transceiver[u"captureMs"_s] = device_.captureTimeoutMs;
    const QString global = globalAddress_ ? globalAddress_() : QString();
    const QString next = scheduler_.GetNextReserve();
    json(r, 200,
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
