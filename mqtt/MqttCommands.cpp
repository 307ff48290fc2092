#include "mqtt/MqttCommands.h"

#include "core/NameText.h"
#include "infrared/formats/IrFormats.h"
#include "remotes/Registry.h"

#include <QJsonDocument>
#include <QJsonObject>

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

} // namespace MqttCommand
