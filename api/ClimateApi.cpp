#include "api/ClimateApi.h"
#include "api/ApiReply.h"
#include "api/CaptureStart.h"

#include "climate/ClimateUnits.h"
#include "infrared/Transceiver.h"
#include "learning/LearningStore.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QPointer>
#include <QRegularExpression>

using namespace Qt::StringLiterals;

namespace {

using Api::error;
using Api::json;

const QString NoClimateText = u"エアコンが見つかりません。"_s;

QJsonArray modeNames(const std::vector<ClimateMode>& modes) {
    QJsonArray a;
    for (ClimateMode m : modes)
        a.append(ClimateModeName(m));
    return a;
}

// The name of a body, or why there is none.
std::optional<QString> nameOf(const QJsonObject& body, const FrontReply& r) {
    const QJsonValue v = body.value(u"name"_s);
    if (!v.isString() || v.toString().trimmed().isEmpty()) {
        error(r, 400, "bad_request", u"name にエアコンの名前を入れてください。"_s);
        return std::nullopt;
    }
    return v.toString();
}

} // namespace

ClimateApi::ClimateApi(const ProgramFolder& folder, ClimateUnits& units, Transceiver& device,
                       std::function<void(const QByteArray&, const QJsonObject&)> publish,
                       QObject* parent)
    : QObject(parent), folder_(folder), units_(units), device_(device),
      publish_(std::move(publish)) {
    connect(&units_, &ClimateUnits::stateChanged, this,
            [this](const QString& id, const ClimateState& state) {
                if (publish_)
                    publish_("climate", {{u"type"_s, u"climate"_s},
                                         {u"id"_s, id},
                                         {u"state"_s, ClimateStateJson(state)},
                                         {u"text"_s, ClimateStateText(state)}});
            });
}

QJsonObject ClimateApi::UnitJson(const ClimateUnit& u) {
    const ClimateCaps& c = u.caps;
    return {{u"id"_s, u.id},
            {u"name"_s, u.name},
            {u"family"_s, u.family.isEmpty() ? QJsonValue() : QJsonValue(u.family)},
            {u"title"_s, c.title},
            {u"state"_s, ClimateStateJson(u.state)},
            {u"text"_s, ClimateStateText(u.state)},
            {u"caps"_s, QJsonObject{{u"modes"_s, modeNames(c.modes)},
                                    {u"min"_s, c.minTemp},
                                    {u"max"_s, c.maxTemp},
                                    {u"step"_s, c.step},
                                    {u"fans"_s, QJsonArray::fromStringList(c.fans)},
                                    {u"swing"_s, c.swing},
                                    {u"noTemperature"_s, modeNames(c.noTemperature)}}}};
}

void ClimateApi::Handle(const Api::Call& c, const FrontReply& r) {
    using E = Api::Endpoint;
    const QByteArray& m = c.method;
    switch (c.endpoint) {
    case E::Climates:
        return m == "GET" ? list(r) : create(c, r);
    case E::ClimateLearn:
        return learn(c, r);
    case E::ClimateImport:
        return import(c, r);
    case E::Climate:
    case E::ClimateState: {
        const auto unit = units_.unit(c.climate);
        if (!unit)
            return error(r, 404, "not_found", NoClimateText);
        if (m == "PUT")
            return putState(c, r);
        if (m == "GET")
            return json(r, 200,
                        c.endpoint == E::Climate ? UnitJson(*unit) : ClimateStateJson(unit->state));
        QString why;
        if (!units_.remove(c.climate, &why))
            return error(r, 500, "not_written", why);
        return r.Send(204, {}, {});
    }
    default:
        return error(r, 404, "not_found", u"そのような API はありません。"_s);
    }
}

void ClimateApi::list(const FrontReply& r) {
    QJsonArray all;
    for (const ClimateUnit& u : units_.units())
        all.append(UnitJson(u));
    json(r, 200, {{u"climates"_s, all}});
}

void ClimateApi::create(const Api::Call& c, const FrontReply& r) {
    const auto name = nameOf(c.body, r);
    if (!name)
        return;
    const QString family = c.body.value(u"family"_s).toString();
    if (family.isEmpty())
        return error(r, 400, "bad_request", u"family に機種の系統を入れてください。"_s);
    QString why;
    ClimateState initial;
    if (const QJsonValue s = c.body.value(u"state"_s); s.isObject()) {
        const auto wanted = ClimateStateFromJson(s.toObject(), initial, &why);
        if (!wanted)
            return error(r, 400, "bad_request", why);
        initial = *wanted;
    }
    const auto id = units_.create(*name, family, initial, &why);
    if (!id)
        return error(r, 422, "refused", why);
    json(r, 201, UnitJson(*units_.unit(*id)));
}

void ClimateApi::import(const Api::Call& c, const FrontReply& r) {
    const auto name = nameOf(c.body, r);
    if (!name)
        return;
    const QJsonValue file = c.body.value(u"smartir"_s);
    if (!file.isObject())
        return error(r, 400, "bad_request",
                     u"smartir に SmartIR のエアコンのファイル（JSON）を入れてください。"_s);
    QString why;
    const auto id = units_.importSmartIr(*name, QJsonDocument(file.toObject()).toJson(), &why);
    // The table's reader words its refusals in English, the store its own in Japanese.
    if (!id)
        return error(r, 422, "refused",
                     why.contains(QRegularExpression(u"[\\x{3000}-\\x{9fff}]"_s))
                         ? why
                         : u"smartir のファイルを使えません（%1）。"_s.arg(why));
    json(r, 201, UnitJson(*units_.unit(*id)));
}

void ClimateApi::learn(const Api::Call& c, const FrontReply& r) {
    const auto name = nameOf(c.body, r);
    if (!name)
        return;
    if (!Api::ReadyToCapture(folder_, device_, capturing_, r))
        return;
    // One press of any button of the hand-held remote, waited for nested.
    capturing_ = true;
    device_.timDeactivate.stop();
    const bool got = device_.CaptureTira();
    capturing_ = false;
    std::optional<IrBlob> blob;
    if (got)
        blob = IrBlob::decode(QByteArrayView(
            reinterpret_cast<const char*>(device_.SignalBuf.data()), device_.SignalLen));
    device_.CancelCaptureTira();
    device_.ClearAll();
    device_.timDeactivate.start();
    if (!got || !blob)
        return error(r, 408, "capture_timeout", u"信号を受信できませんでした。"_s);
    QString why;
    const auto id = units_.createFromSignal(*name, TimingFromBlob(*blob), &why);
    if (!id) {
        // A frame no family reads: the SmartIR table is the way left.
        const bool unknown = !DecodeClimate(TimingFromBlob(*blob));
        return error(r, 422, unknown ? "unknown_family" : "refused",
                     unknown ? why + u" (POST /api/v1/climates/import)"_s : why);
    }
    json(r, 201, UnitJson(*units_.unit(*id)));
}

void ClimateApi::putState(const Api::Call& c, const FrontReply& r) {
    const auto unit = units_.unit(c.climate);
    QString why;
    const auto wanted = ClimateStateFromJson(c.body, unit->state, &why);
    if (!wanted)
        return error(r, 400, "bad_request", why);
    units_.setState(c.climate, *wanted,
                    [r](const ClimateUnits::Outcome& o) {
                        if (o.sent)
                            return json(r, 200,
                                        {{u"state"_s, ClimateStateJson(o.state)},
                                         {u"text"_s, ClimateStateText(o.state)},
                                         {u"message"_s, o.message}});
                        if (!o.result)
                            return error(r, 422, "refused", o.message);
                        if (*o.result == SendResult::Busy)
                            return error(r, 503, "busy", o.message, "Retry-After: 1\r\n");
                        error(r, 502, "transceiver_failed", o.message);
                    },
                    {u"api"_s, {}, {}});
}
