#pragma once

#include "infrared/IrSignal.h"

#include <QByteArray>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <cstdlib>

namespace {

using namespace Qt::StringLiterals;

// A raw code told apart from the others by its count of bits.
inline QJsonArray RawCode(int bits) {
    QJsonArray a{9000, -4500};
    for (int i = 0; i < bits; ++i)
        a << 560 << (i % 2 ? -1690 : -560);
    a << 560;
    return a;
}

// A SmartIR climate file: mode > fan > temperature, a fan-only mode, and "off".
inline QByteArray SmartIrFile() {
    QJsonObject cool{{u"low"_s, QJsonObject{{u"24"_s, RawCode(10)}, {u"25"_s, RawCode(12)}}},
                     {u"high"_s, QJsonObject{{u"24"_s, RawCode(14)}}}};
    QJsonObject fan{{u"low"_s, RawCode(16)}};
    QJsonObject file{
        {u"manufacturer"_s, u"Maker"_s},
        {u"supportedModels"_s, QJsonArray{u"M-1"_s}},
        {u"supportedController"_s, u"ESPHome"_s},
        {u"commandsEncoding"_s, u"Raw"_s},
        {u"minTemperature"_s, 24},
        {u"maxTemperature"_s, 25},
        {u"precision"_s, 1},
        {u"operationModes"_s, QJsonArray{u"cool"_s, u"fan_only"_s}},
        {u"fanModes"_s, QJsonArray{u"low"_s, u"high"_s}},
        {u"commands"_s,
         QJsonObject{{u"off"_s, RawCode(8)}, {u"cool"_s, cool}, {u"fan_only"_s, fan}}}};
    return QJsonDocument(file).toJson();
}

inline IrTiming TimingOf(const QJsonArray& code) {
    IrTiming t;
    for (const QJsonValue& v : code)
        t.durations.push_back(uint32_t(std::abs(v.toInt())));
    t.carrierHz = 38000;
    return t;
}

} // namespace
