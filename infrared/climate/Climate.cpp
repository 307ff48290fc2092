#include "infrared/Climate.h"
#include "infrared/climate/ClimateCodec.h"

#include <QJsonValue>

#include <algorithm>
#include <cmath>

using namespace Qt::StringLiterals;

namespace {

struct ModeName {
    ClimateMode mode;
    const char16_t* name;
    const char16_t* text;
};
constexpr ModeName Modes[] = {
    {ClimateMode::Auto, u"auto", u"自動"}, {ClimateMode::Cool, u"cool", u"冷房"},
    {ClimateMode::Heat, u"heat", u"暖房"}, {ClimateMode::Dry, u"dry", u"除湿"},
    {ClimateMode::Fan, u"fan", u"送風"},
};

QString modeText(ClimateMode mode) {
    for (const ModeName& m : Modes)
        if (m.mode == mode)
            return QString::fromUtf16(m.text);
    return {};
}

QString fanText(const QString& fan) {
    if (fan == u"auto")
        return u"自動"_s;
    if (fan == u"quiet")
        return u"静音"_s;
    bool number = false;
    fan.toInt(&number);
    return number ? u"風量"_s + fan : fan;
}

QString degrees(double t) {
    return QString::number(t) + u"℃"_s;
}

const climate::Codec* codecNamed(QStringView family) {
    for (const climate::Codec* c : climate::codecs())
        if (family.compare(c->caps().family, Qt::CaseInsensitive) == 0)
            return c;
    return nullptr;
}

std::optional<bool> onOff(const QString& v) {
    if (v == u"on" || v == u"true" || v == u"1")
        return true;
    if (v == u"off" || v == u"false" || v == u"0")
        return false;
    return std::nullopt;
}

} // namespace

QString ClimateModeName(ClimateMode mode) {
    for (const ModeName& m : Modes)
        if (m.mode == mode)
            return QString::fromUtf16(m.name);
    return {};
}

std::optional<ClimateMode> ClimateModeFromName(QStringView name) {
    if (name.compare(u"fan_only", Qt::CaseInsensitive) == 0)
        return ClimateMode::Fan;
    if (name.compare(u"heat_cool", Qt::CaseInsensitive) == 0)
        return ClimateMode::Auto;
    for (const ModeName& m : Modes)
        if (name.compare(QStringView(m.name), Qt::CaseInsensitive) == 0 ||
            name == QStringView(m.text))
            return m.mode;
    return std::nullopt;
}

bool ClimateCaps::hasMode(ClimateMode m) const {
    return std::find(modes.begin(), modes.end(), m) != modes.end();
}

bool ClimateCaps::usesTemperature(ClimateMode m) const {
    return std::find(noTemperature.begin(), noTemperature.end(), m) == noTemperature.end();
}

ClimateFit FitClimateState(const ClimateCaps& caps, const ClimateState& wanted) {
    ClimateFit fit;
    if (!caps.hasMode(wanted.mode)) {
        fit.why = u"この機種には「%1」がありません。"_s.arg(modeText(wanted.mode));
        return fit;
    }
    if (!caps.fans.contains(wanted.fan)) {
        fit.why = u"この機種の風量は %1 のどれかです。"_s.arg(caps.fans.join(u", "_s));
        return fit;
    }
    if (wanted.swing && !caps.swing) {
        fit.why = u"この機種にはスイングがありません。"_s;
        return fit;
    }
    ClimateState s = wanted;
    if (caps.usesTemperature(s.mode)) {
        const double t = s.temperature;
        if (!std::isfinite(t) || t < caps.minTemp - caps.step / 2 ||
            t > caps.maxTemp + caps.step / 2) {
            fit.why = u"温度は %1〜%2 です。"_s.arg(degrees(caps.minTemp), degrees(caps.maxTemp));
            return fit;
        }
        const double steps = std::round((t - caps.minTemp) / caps.step);
        s.temperature = std::clamp(caps.minTemp + steps * caps.step, caps.minTemp, caps.maxTemp);
        if (std::abs(s.temperature - t) > 1e-6)
            fit.note = u"%1 は設定できないため %2 にしました（%3刻み）。"_s.arg(
                degrees(t), degrees(s.temperature), degrees(caps.step));
    } else if (std::isfinite(s.temperature)) {
        fit.note = u"「%1」では温度は使われません。"_s.arg(modeText(s.mode));
    }
    fit.state = s;
    return fit;
}

ClimateState ClimateHeard::onto(ClimateState before) const {
    if (known & Power)
        before.power = state.power;
    if (known & Mode)
        before.mode = state.mode;
    if (known & Temperature)
        before.temperature = state.temperature;
    if (known & Fan)
        before.fan = state.fan;
    if (known & Swing)
        before.swing = state.swing;
    return before;
}

std::vector<ClimateCaps> ClimateFamilies() {
    std::vector<ClimateCaps> all;
    for (const climate::Codec* c : climate::codecs())
        all.push_back(c->caps());
    return all;
}

std::optional<ClimateCaps> ClimateFamily(QStringView family) {
    if (const climate::Codec* c = codecNamed(family))
        return c->caps();
    return std::nullopt;
}

std::optional<IrTiming> EncodeClimate(QStringView family, const ClimateState& state, QString* why) {
    const climate::Codec* c = codecNamed(family);
    if (!c) {
        if (why)
            *why = u"「%1」という機種の系統はありません。"_s.arg(family);
        return std::nullopt;
    }
    const ClimateFit fit = FitClimateState(c->caps(), state);
    if (!fit.state) {
        if (why)
            *why = fit.why;
        return std::nullopt;
    }
    return c->encode(*fit.state);
}

std::optional<ClimateHeard> DecodeClimate(const IrTiming& timing) {
    for (const climate::Codec* c : climate::codecs())
        if (auto heard = c->decode(timing)) {
            heard->family = c->caps().family;
            return heard;
        }
    return std::nullopt;
}

QJsonObject ClimateStateJson(const ClimateState& s) {
    return {{u"power"_s, s.power},
            {u"mode"_s, ClimateModeName(s.mode)},
            {u"temperature"_s, s.temperature},
            {u"fan"_s, s.fan},
            {u"swing"_s, s.swing}};
}

QJsonObject ClimateJson(const ClimateHeard& heard) {
    QJsonObject all = ClimateStateJson(heard.state);
    QJsonObject o{{u"family"_s, heard.family}};
    const std::pair<uint8_t, QString> fields[] = {{ClimateHeard::Power, u"power"_s},
                                                  {ClimateHeard::Mode, u"mode"_s},
                                                  {ClimateHeard::Temperature, u"temperature"_s},
                                                  {ClimateHeard::Fan, u"fan"_s},
                                                  {ClimateHeard::Swing, u"swing"_s}};
    for (const auto& [bit, name] : fields)
        o.insert(name, heard.known & bit ? all.value(name) : QJsonValue());
    return o;
}

namespace {

// One field by name; false, with why, when name or value is not known.
bool setField(ClimateState& s, const QString& name, const QJsonValue& value, QString* why) {
    const QString text = value.isString() ? value.toString().trimmed().toLower() : QString();
    auto fail = [&](const QString& what) {
        if (why)
            *why = what;
        return false;
    };
    if (name == u"power" || name == u"swing") {
        const std::optional<bool> on = value.isBool() ? value.toBool() : onOff(text);
        if (!on)
            return fail(u"%1 は on か off です。"_s.arg(name));
        (name == u"power" ? s.power : s.swing) = *on;
    } else if (name == u"mode") {
        const auto m = ClimateModeFromName(value.toString().trimmed());
        if (!m)
            return fail(u"mode は auto, cool, heat, dry, fan のどれかです。"_s);
        s.mode = *m;
    } else if (name == u"temp" || name == u"temperature") {
        bool ok = value.isDouble();
        const double t = ok ? value.toDouble() : text.toDouble(&ok);
        if (!ok || !std::isfinite(t))
            return fail(u"temperature は数です（例: 26, 24.5）。"_s);
        s.temperature = t;
    } else if (name == u"fan") {
        if (text.isEmpty())
            return fail(u"fan が空です。"_s);
        s.fan = text;
    } else {
        return fail(u"「%1」は分かりません（power, mode, temp, fan, swing）。"_s.arg(name));
    }
    return true;
}

} // namespace

std::optional<ClimateState> ClimateStateFromWords(const QStringList& words, ClimateState base,
                                                  QString* why) {
    for (const QString& word : words) {
        const qsizetype eq = word.indexOf(u'=');
        if (eq <= 0) {
            if (why)
                *why = u"「%1」は 名前=値 の形ではありません。"_s.arg(word);
            return std::nullopt;
        }
        if (!setField(base, word.left(eq).trimmed().toLower(), word.mid(eq + 1), why))
            return std::nullopt;
    }
    return base;
}

std::optional<ClimateState> ClimateStateFromJson(const QJsonObject& json, ClimateState base,
                                                 QString* why) {
    for (auto it = json.begin(); it != json.end(); ++it)
        if (!setField(base, it.key(), it.value(), why))
            return std::nullopt;
    return base;
}

QString ClimateStateText(const ClimateState& s) {
    if (!s.power)
        return u"停止"_s;
    QString text = modeText(s.mode) + u' ' + degrees(s.temperature) + u' ' + fanText(s.fan);
    if (s.swing)
        text += u" スイング"_s;
    return text;
}
