#include "api/HoldApi.h"
#include "api/ApiReply.h"

#include "core/ProgramFolder.h"
#include "core/SettingKeys.h"
#include "core/Settings.h"
#include "infrared/SignalStore.h"
#include "infrared/Transceiver.h"
#include "remotes/Registry.h"

#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonObject>
#include <QPointer>

using namespace Qt::StringLiterals;

namespace {

using Api::error;
using Api::json;
using Api::JsonType;

QString endName(Transceiver::HoldEnd end) {
    switch (end) {
    case Transceiver::HoldEnd::Released:
        return u"released"_s;
    case Transceiver::HoldEnd::Limit:
        return u"limit"_s;
    case Transceiver::HoldEnd::Lost:
        return u"lost"_s;
    case Transceiver::HoldEnd::Failed:
        break;
    }
    return u"failed"_s;
}

} // namespace

HoldApi::HoldApi(const ProgramFolder& folder, SettingsStore& settings, Transceiver& device,
                 QObject* parent)
    : QObject(parent), folder_(folder), settings_(settings), device_(device) {}

void HoldApi::Handle(const Api::Call& c, const FrontReply& r) {
    const QJsonValue action = c.body.value(u"action"_s);
    if (action == u"stop"_s) {
        const int id = holds_.value({c.remote, c.key});
        return json(r, 200, {{u"held"_s, id != 0 && device_.StopHold(id)}});
    }
    if (action != u"start"_s)
        return error(r, 400, "bad_request", u"action は start か stop にしてください。"_s);
    start(c, r);
}

void HoldApi::start(const Api::Call& c, const FrontReply& r) {
    const QString device = settings_.Read(Key::RemoteName(c.remote));
    const std::vector<QString> buttons = ReadRemoteButtons(settings_, c.remote);
    if (device.isEmpty() || buttons.empty())
        return error(r, 404, "not_found", u"リモコンが見つかりません。"_s);
    if (c.key >= int(buttons.size()))
        return error(r, 404, "not_found", u"キーが見つかりません。"_s);
    const QString function = buttons[size_t(c.key)];
    const QString path = function.isEmpty() ? QString() : SignalFilePath(folder_, device, function);
    if (path.isEmpty() || !QFileInfo::exists(path))
        return error(r, 409, "not_learned", u"このキーはまだ学習されていません。"_s);
    const QPair<int, int> at{c.remote, c.key};
    if (holds_.contains(at))
        return error(r, 409, "held", u"このキーはもう押されたままです。"_s);
    if (IsTestMode(settings_))
        return json(
            r, 200,
            {{u"frames"_s, 0}, {u"ms"_s, 0}, {u"ended"_s, u"released"_s}, {u"testMode"_s, true}});
    QPointer<HoldApi> self(this);
    const int id = device_.StartHold(
        path, {u"api"_s, device, function}, [self, r, at](const Transceiver::HoldOutcome& o) {
            if (self)
                self->holds_.remove(at);
            switch (o.result) {
            case SendResult::Sent:
                return json(
                    r, 200,
                    {{u"frames"_s, o.frames}, {u"ms"_s, o.ms}, {u"ended"_s, endName(o.ended)}});
            case SendResult::Busy:
                return r.Send(503, JsonType,
                              QJsonDocument(QJsonObject{{u"error"_s, u"busy"_s},
                                                        {u"message"_s, SendBusyText}})
                                  .toJson(QJsonDocument::Compact),
                              "Retry-After: 1\r\n");
            case SendResult::NotOpened:
            case SendResult::Failed:
                if (!self)
                    return;
                return error(r, 502, "transceiver_failed",
                             o.result == SendResult::NotOpened
                                 ? (self->device_.PortIsSet()
                                        ? self->device_.CannotActivateMessage()
                                        : Transceiver::PortUnsetText)
                                 : SendFailedText);
            }
        });
    if (id == 0)
        return; // answered already
    holds_.insert(at, id);
    r.WatchClose([self, id] {
        if (self)
            self->device_.StopHold(id, Transceiver::HoldEnd::Lost);
    });
}
