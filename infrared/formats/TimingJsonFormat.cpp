// Home Assistant's infrared timings: {"timings": [9000, -4500, ...],
// "modulation": 38000, "repeat_count": 0}, signed µs, positive with the
// carrier on.
#include "infrared/formats/FormatText.h"
#include "infrared/formats/IrFormats.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <cmath>

using namespace Qt::StringLiterals;
using namespace IrFormatText;

std::optional<NamedSignal> ReadTimingJson(QByteArrayView bytes, const QString& fileName,
                                          QString* error, QString* field) {
    if (field)
        field->clear();
    QJsonParseError parseError;
    const QJsonDocument doc = QJsonDocument::fromJson(bytes.toByteArray(), &parseError);
    if (parseError.error != QJsonParseError::NoError) {
        const int line = int(bytes.first(std::clamp<qsizetype>(parseError.offset, 0, bytes.size()))
                                 .count('\n')) +
                         1;
        *error = At(fileName, line, parseError.errorString());
        return std::nullopt;
    }
    auto fail = [&](const QString& what, const QString& named = u"timings"_s) {
        *error = At(fileName, 0, what);
        if (field)
            *field = named;
        return std::nullopt;
    };
    if (!doc.isObject() || !doc.object().value(u"timings"_s).isArray())
        return fail(
            u"no \"timings\" array (nor SmartIR's \"commands\" or Tasmota's \"Protocol\")"_s);
    const QJsonObject o = doc.object();
    const QJsonArray timings = o.value(u"timings"_s).toArray();
    if (timings.size() > MaxDurations)
        return fail(u"%1 durations, more than the %2 a signal may have"_s.arg(timings.size())
                        .arg(MaxDurations));
    NamedSignal code;
    auto& d = code.timing.durations;
    for (qsizetype i = 0; i < timings.size(); ++i) {
        const double v = timings[i].toDouble(0);
        if (!timings[i].isDouble() || v == 0 || std::abs(v) > MaxSignalUs)
            return fail(u"timing %1 is not a duration in µs"_s.arg(i + 1));
        const bool pulse = v > 0;
        const auto us = uint32_t(std::lround(std::abs(v)));
        // A signal starts with the carrier on; one that starts with a space
        // is cut or has its signs turned.
        if (d.empty() && !pulse)
            return fail(u"timing 1 is a space (negative); a signal starts with a pulse"_s);
        if (!d.empty() && (d.size() % 2 == 1) == pulse)
            d.back() += us;
        else
            d.push_back(us);
    }
    const QJsonValue modulation = o.value(u"modulation"_s);
    if (!modulation.isUndefined() && !modulation.isNull()) {
        const double hz = modulation.toDouble(-1);
        if (!modulation.isDouble() || hz < MinCarrierHz || hz > MaxCarrierHz)
            return fail(u"\"modulation\" is not a carrier of %1 to %2 Hz"_s.arg(MinCarrierHz)
                            .arg(MaxCarrierHz),
                        u"modulation"_s);
        code.timing.carrierHz = int(std::lround(hz));
    }
    if (o.value(u"repeat_count"_s).toDouble(0) > 0)
        code.timing.repeatBegin = 0;
    const QString why = TimingProblem(code.timing);
    if (!why.isEmpty())
        return fail(why);
    return code;
}

QByteArray WriteTimingJson(const NamedSignal& code) {
    QJsonArray timings;
    for (size_t i = 0; i < code.timing.durations.size(); ++i)
        timings.append(i % 2 == 0 ? qint64(code.timing.durations[i])
                                  : -qint64(code.timing.durations[i]));
    QJsonObject o{{u"timings"_s, timings},
                  {u"modulation"_s, code.timing.carrierHz > 0 ? QJsonValue(code.timing.carrierHz)
                                                              : QJsonValue(DefaultCarrierHz)},
                  {u"repeat_count"_s, 0}};
    return QJsonDocument(o).toJson(QJsonDocument::Compact) + '\n';
}
