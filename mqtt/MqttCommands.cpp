#include "mqtt/MqttCommands.h"

#include "core/NameText.h"
#include "infrared/formats/IrFormats.h"
#include "remotes/Registry.h"

#include <QJsonDocument>
#include <QJsonObject>

#include <algorithm>
#include <cmath>

using namespace Qt::StringLiterals;

namespace MqttCommand {

namespace {
std::optional<QJsonObject> ObjectOf(QByteArrayView payload, QString* why) {
    if (payload.size() > MaxPayload) {
        *why = u"payload too large"_s;
        return {};
    }
    QJsonParseError error{};
    const QJsonDocument doc = QJsonDocument::fromJson(payload.toByteArray(), &error);
    if (error.error != QJsonParseError::NoError || !doc.isObject()) {
        *why = u"not a JSON object"_s;
        return {};
    }
    return doc.object();
}
} // namespace

std::optional<Press> ParsePress(QByteArrayView payload, QString* why) {
    const auto o = ObjectOf(payload, why);
    if (!o)
        return {};
    const QJsonValue remote = o->value(u"remote"_s), key = o->value(u"key"_s);
    if (!remote.isString() || !key.isString() || remote.toString().isEmpty() ||
        key.toString().isEmpty() || HasControlOrBrokenChar(remote.toString()) ||
        HasControlOrBrokenChar(key.toString())) {
        *why = u"\"remote\" and \"key\" must name a remote and its key"_s;
        return {};
    }
    return Press{remote.toString(), key.toString()};
}

std::optional<KeyRef> ParseKeyTopic(QStringView relative, QString* why) {
    if (!relative.startsWith(u"key/"))
        return {};
    const auto parts = relative.split(u'/');
    if (parts.size() != 4 || parts[3] != u"press") {
        *why = u"a key's command topic is key/<remote>/<key>/press"_s;
        return {};
    }
    // Only plain decimal numbers, as we publish them.
    auto number = [](QStringView text, int low, int high) -> std::optional<int> {
        bool ok = false;
        const int n = text.toInt(&ok);
        if (!ok || n < low || n > high || QString::number(n) != text)
            return {};
        return n;
    };
    const auto slot = number(parts[1], 1, MaxRemoteId);
    if (!slot) {
        *why = u"the remote number must be 1 to %1"_s.arg(MaxRemoteId);
        return {};
    }
    const auto button = number(parts[2], 0, 999);
    if (!button) {
        *why = u"the key number must be 0 to 999"_s;
        return {};
    }
    return KeyRef{*slot, *button};
}

std::optional<Emit> ParseEmit(QByteArrayView payload, QString* why) {
    const auto o = ObjectOf(payload, why);
    if (!o)
        return {};
    const auto code = ReadTimingJson(payload, u"payload"_s, why);
    if (!code)
        return {};
    // Not applied again, but still a count: anything else is not Home Assistant's.
    const QJsonValue n = o->value(u"repeat_count"_s);
    const double repeats = n.isUndefined() || n.isNull() ? 0 : n.toDouble(-1);
    if ((!n.isUndefined() && !n.isNull() && !n.isDouble()) || repeats < 0 || repeats > 1e6 ||
        repeats != int(repeats)) {
        *why = u"\"repeat_count\" must be a whole number, 0 or more"_s;
        return {};
    }
    return Emit{code->timing, int(repeats)};
}

std::optional<ClimateRef> ParseClimateTopic(QStringView relative, QString* why) {
    if (!relative.startsWith(u"climate/"))
        return {};
    static const QStringList fields{u"mode"_s, u"temperature"_s, u"fan"_s, u"swing"_s, u"power"_s};
    const auto parts = relative.split(u'/');
    const auto plainId = [](QStringView id) {
        return !id.isEmpty() && id.size() <= 32 && std::all_of(id.begin(), id.end(), [](QChar c) {
            return c.isDigit() || (c >= u'a' && c <= u'z');
        });
    };
    if (parts.size() != 4 || parts[3] != u"set" || !plainId(parts[1]) ||
        !fields.contains(parts[2].toString())) {
        *why = u"a unit's command topic is climate/<unit>/<%1>/set"_s.arg(fields.join(u'|'));
        return {};
    }
    return ClimateRef{parts[1].toString(), parts[2].toString()};
}

std::optional<int> ParseSceneTopic(QStringView relative, QString* why) {
    if (!relative.startsWith(u"scene/"))
        return {};
    const auto parts = relative.split(u'/');
    const QStringView id = parts.size() == 3 ? parts[1] : QStringView();
    const bool digits = !id.isEmpty() && id.size() <= 3 && id[0] != u'0' &&
                        std::all_of(id.begin(), id.end(), [](QChar c) { return c.isDigit(); });
    if (!digits || parts[2] != u"run" || id.toInt() > 100) {
        *why = u"a scene's command topic is scene/<1-100>/run"_s;
        return {};
    }
    return id.toInt();
}

std::optional<ClimateState> ApplyClimateCommand(const QString& field, QByteArrayView payload,
                                                ClimateState base, QString* why) {
    const QString text =
        QString::fromUtf8(payload.first(std::min<qsizetype>(payload.size(), 64))).trimmed();
    if (payload.size() > 64 || text.isEmpty() || HasControlOrBrokenChar(text)) {
        *why = u"the payload must be a short word"_s;
        return {};
    }
    if (field == u"mode") {
        if (text == u"off") {
            base.power = false;
            return base;
        }
        const auto mode = ClimateModeFromName(text);
        if (!mode) {
            *why = u"no mode \"%1\""_s.arg(text);
            return {};
        }
        base.power = true;
        base.mode = *mode;
        return base;
    }
    if (field == u"temperature") {
        bool ok = false;
        const double t = text.toDouble(&ok);
        if (!ok || !std::isfinite(t)) {
            *why = u"the temperature must be a number"_s;
            return {};
        }
        base.temperature = t;
        return base;
    }
    if (field == u"fan") {
        base.fan = text;
        return base;
    }
    const bool on = text.compare(u"on", Qt::CaseInsensitive) == 0;
    if (!on && text.compare(u"off", Qt::CaseInsensitive) != 0) {
        *why = u"the payload must be on or off"_s;
        return {};
    }
    if (field == u"swing")
        base.swing = on;
    else if (field == u"power")
        base.power = on;
    else {
        *why = u"no field \"%1\""_s.arg(field);
        return {};
    }
    return base;
}

} // namespace MqttCommand
