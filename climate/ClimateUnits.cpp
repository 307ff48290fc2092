#include "climate/ClimateUnits.h"

#include "core/AtomicFile.h"
#include "core/BoundedRead.h"
#include "core/NameText.h"
#include "core/ProgramFolder.h"
#include "core/Settings.h"
#include "core/ShiftJis.h"
#include "infrared/Transceiver.h"
#include "infrared/formats/IrFormats.h"
#include "remotes/IrListener.h"

#include <QDir>
#include <QFile>
#include <QHash>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLoggingCategory>
#include <QPointer>

#include <algorithm>
#include <cmath>
#include <memory>

using namespace Qt::StringLiterals;

namespace {

Q_LOGGING_CATEGORY(lcClimate, "kestrava.climate")

constexpr qsizetype MaxStateBytes = 4096;
constexpr qsizetype MaxNameBytes = 64;

// A SmartIR climate file made a table: the codes by mode, fan, swing and
// temperature, as the file nests them.
struct Table {
    ClimateCaps caps;
    QString swingOff, swingOn; // the file's names of its swing layer, when it has one
    QHash<QString, IrTiming> codes;
    std::optional<IrTiming> off;

    static QString temperatureKey(double t) { return QString::number(t, 'g', 4); }
    QString keyOf(const ClimateState& s) const {
        return ClimateModeName(s.mode) + u'/' + s.fan + u'/' + (s.swing ? u'1' : u'0') + u'/' +
               (caps.usesTemperature(s.mode) ? temperatureKey(s.temperature) : u"-"_s);
    }
};

bool isNumber(const QString& text) {
    bool ok = false;
    text.toDouble(&ok);
    return ok;
}

// The table of a SmartIR climate file; its codes are read by the SmartIR
// reader, its nesting says what each one sets.
std::shared_ptr<Table> readTable(const QByteArray& bytes, QString* why) {
    const IrCodeRead read = ReadSmartIr(bytes, u"SmartIR"_s);
    if (!read.ok()) {
        *why = read.error;
        return nullptr;
    }
    QHash<QString, IrTiming> byName;
    for (const NamedSignal& code : read.codes)
        byName.insert(code.name, code.timing);
    const QJsonObject file = QJsonDocument::fromJson(bytes).object();
    const QJsonObject commands = file.value(u"commands"_s).toObject();

    auto table = std::make_shared<Table>();
    ClimateCaps& caps = table->caps;
    const QString maker = file.value(u"manufacturer"_s).toString();
    const QJsonArray models = file.value(u"supportedModels"_s).toArray();
    caps.title = (maker + u' ' + models.first().toString()).trimmed();
    if (caps.title.isEmpty())
        caps.title = u"SmartIR"_s;
    const QJsonArray swings = file.value(u"swingModes"_s).toArray();
    for (const QJsonValue& v : swings) {
        const QString name = v.toString();
        const bool still = name.compare(u"off"_s, Qt::CaseInsensitive) == 0 ||
                           name.compare(u"stop"_s, Qt::CaseInsensitive) == 0 ||
                           name.compare(u"fixed"_s, Qt::CaseInsensitive) == 0;
        if (still && table->swingOff.isEmpty())
            table->swingOff = name;
        else if (!still && table->swingOn.isEmpty())
            table->swingOn = name;
    }
    if (table->swingOff.isEmpty() && !swings.isEmpty())
        table->swingOff =
            swings.first().toString() == table->swingOn ? QString() : swings.first().toString();

    double lowest = 1e9, highest = -1e9;
    std::vector<ClimateMode> withTemperature, withoutTemperature;
    QStringList fans;
    // Each leaf: mode, fan, [swing], [temperature].
    for (auto m = commands.begin(); m != commands.end(); ++m) {
        if (m.key() == u"off") {
            table->off = byName.value(u"off"_s);
            if (!byName.contains(u"off"_s))
                table->off.reset();
            continue;
        }
        const auto mode = ClimateModeFromName(m.key());
        if (!mode || !m->isObject())
            continue;
        const QJsonObject byFan = m->toObject();
        for (auto f = byFan.begin(); f != byFan.end(); ++f) {
            const QString fan = f.key().toLower();
            const QString base = m.key() + u'_' + f.key();
            auto add = [&](const QString& name, bool swing, const QString& temperature) {
                const auto it = byName.constFind(name);
                if (it == byName.cend())
                    return;
                ClimateState s;
                s.mode = *mode;
                s.fan = fan;
                s.swing = swing;
                const QString t =
                    temperature.isEmpty() ? u"-"_s : Table::temperatureKey(temperature.toDouble());
                table->codes.insert(ClimateModeName(s.mode) + u'/' + fan + u'/' +
                                        (swing ? u'1' : u'0') + u'/' + t,
                                    *it);
                if (!fans.contains(fan))
                    fans << fan;
                auto& kind = temperature.isEmpty() ? withoutTemperature : withTemperature;
                if (std::find(kind.begin(), kind.end(), *mode) == kind.end())
                    kind.push_back(*mode);
                if (!temperature.isEmpty()) {
                    lowest = std::min(lowest, temperature.toDouble());
                    highest = std::max(highest, temperature.toDouble());
                }
            };
            if (!f->isObject()) {
                add(base, false, {});
                continue;
            }
            const QJsonObject inner = f->toObject();
            for (auto k = inner.begin(); k != inner.end(); ++k) {
                if (isNumber(k.key())) {
                    add(base + u'_' + k.key(), false, k.key());
                    continue;
                }
                const bool swing = k.key() == table->swingOn;
                if (!swing && k.key() != table->swingOff)
                    continue;
                if (!k->isObject()) {
                    add(base + u'_' + k.key(), swing, {});
                    continue;
                }
                const QJsonObject temps = k->toObject();
                for (auto t = temps.begin(); t != temps.end(); ++t)
                    if (isNumber(t.key()))
                        add(base + u'_' + k.key() + u'_' + t.key(), swing, t.key());
            }
        }
    }
    if (table->codes.isEmpty()) {
        *why = u"SmartIR の表に、モード・風量・温度で読める信号がありません。"_s;
        return nullptr;
    }
    // The modes in the file's order, each with or without a temperature.
    for (ClimateMode m : {ClimateMode::Cool, ClimateMode::Heat, ClimateMode::Dry, ClimateMode::Fan,
                          ClimateMode::Auto}) {
        const bool with =
            std::find(withTemperature.begin(), withTemperature.end(), m) != withTemperature.end();
        const bool without = std::find(withoutTemperature.begin(), withoutTemperature.end(), m) !=
                             withoutTemperature.end();
        if (with || without)
            caps.modes.push_back(m);
        if (without && !with)
            caps.noTemperature.push_back(m);
    }
    QStringList listed;
    for (const QJsonValue& v : file.value(u"fanModes"_s).toArray())
        if (fans.contains(v.toString().toLower()))
            listed << v.toString().toLower();
    caps.fans = listed.size() == fans.size() ? listed : fans;
    const double step = file.value(u"precision"_s).toDouble(1);
    caps.step = step >= 0.1 && step <= 5 ? step : 1;
    caps.minTemp = file.value(u"minTemperature"_s).toDouble(lowest);
    caps.maxTemp = file.value(u"maxTemperature"_s).toDouble(highest);
    if (lowest <= highest) {
        caps.minTemp = std::max(caps.minTemp, lowest);
        caps.maxTemp = std::min(caps.maxTemp, highest);
    }
    if (!(caps.minTemp <= caps.maxTemp))
        std::swap(caps.minTemp, caps.maxTemp);
    caps.swing = !table->swingOn.isEmpty() && !table->swingOff.isEmpty();
    for (const IrTiming& t : std::as_const(table->codes))
        if (t.carrierHz > 0) {
            caps.carrierHz = t.carrierHz;
            break;
        }
    return table;
}

// A state the caps hold, near the wanted one: for a new unit, or when the
// remembered one no longer fits.
ClimateState fitted(const ClimateCaps& caps, ClimateState s) {
    if (!caps.hasMode(s.mode) && !caps.modes.empty())
        s.mode = caps.modes.front();
    if (!caps.fans.contains(s.fan) && !caps.fans.isEmpty())
        s.fan = caps.fans.contains(u"auto"_s) ? u"auto"_s : caps.fans.front();
    s.swing = s.swing && caps.swing;
    s.temperature =
        std::clamp(std::isfinite(s.temperature) ? s.temperature : 26.0, caps.minTemp, caps.maxTemp);
    if (auto fit = FitClimateState(caps, s); fit.state)
        return *fit.state;
    return s;
}

} // namespace

std::optional<ClimateCaps> SmartIrClimateCaps(const QByteArray& json, QString* why) {
    QString error;
    const auto table = readTable(json, &error);
    if (why)
        *why = error;
    return table ? std::optional(table->caps) : std::nullopt;
}

struct ClimateUnits::Private {
    const ProgramFolder& folder;
    SettingsStore& settings;
    Transceiver& device;
    struct Entry {
        ClimateUnit unit;
        std::shared_ptr<const Table> table;
    };
    std::vector<Entry> entries;

    Entry* find(const QString& id) {
        for (Entry& e : entries)
            if (e.unit.id == id)
                return &e;
        return nullptr;
    }
    QString statePath(const QString& id) const {
        return folder.path(u"climate/"_s + id + u".json"_s);
    }
    QString tablePath(const QString& id) const {
        return folder.path(u"climate/"_s + id + u"-table.json"_s);
    }
    QString idList() const {
        QStringList ids;
        for (const Entry& e : entries)
            ids << e.unit.id;
        return ids.join(u',');
    }
    bool writeState(const ClimateUnit& u) {
        QDir().mkpath(folder.path(u"climate"_s));
        QString error;
        const QByteArray json = QJsonDocument(ClimateStateJson(u.state)).toJson();
        if (WriteFileAtomically(statePath(u.id), json, 0644, &error))
            return true;
        qCWarning(lcClimate).noquote() << "cannot keep the state of" << u.id << "-" << error;
        return false;
    }
    void load();
    std::optional<QString> add(const QString& name, const QString& family,
                               std::shared_ptr<const Table> table, const QByteArray& tableBytes,
                               const ClimateState& initial, QString* why);
    std::optional<IrTiming> signalFor(const Entry& e, const ClimateState& s, QString* why) const;
};

void ClimateUnits::Private::load() {
    const QStringList ids = settings.Read(Key::ClimateUnits).split(u',', Qt::SkipEmptyParts);
    for (const QString& raw : ids) {
        const QString id = raw.trimmed();
        if (id.isEmpty() || find(id) || int(entries.size()) >= MaxUnits)
            continue;
        Entry e;
        e.unit.id = id;
        e.unit.name = settings.Read(Key::ClimateName(id));
        e.unit.family = settings.Read(Key::ClimateFamily(id));
        if (settings.Read(Key::ClimateTable(id)) == u"1") {
            const BoundedRead read = ReadBounded(tablePath(id), MaxCodeFileBytes);
            QString why = read.error;
            std::shared_ptr<Table> table = read.ok() ? readTable(read.bytes, &why) : nullptr;
            if (!table) {
                qCWarning(lcClimate).noquote() << "the table of" << id << "cannot be read -" << why;
                continue;
            }
            e.unit.family.clear();
            e.unit.caps = table->caps;
            e.table = std::move(table);
        } else if (auto caps = ClimateFamily(e.unit.family)) {
            e.unit.caps = *caps;
        } else {
            qCWarning(lcClimate).noquote() << "no family" << e.unit.family << "for" << id;
            continue;
        }
        ClimateState state;
        const BoundedRead read = ReadBounded(statePath(id), MaxStateBytes);
        if (read.ok())
            if (auto s = ClimateStateFromJson(QJsonDocument::fromJson(read.bytes).object(), state))
                state = *s;
        e.unit.state = fitted(e.unit.caps, state);
        entries.push_back(std::move(e));
    }
}

std::optional<QString> ClimateUnits::Private::add(const QString& wantedName, const QString& family,
                                                  std::shared_ptr<const Table> table,
                                                  const QByteArray& tableBytes,
                                                  const ClimateState& initial, QString* why) {
    auto fail = [why](const QString& text) -> std::optional<QString> {
        if (why)
            *why = text;
        return std::nullopt;
    };
    const QString name = wantedName.trimmed();
    if (name.isEmpty())
        return fail(u"名前がありません。"_s);
    if (HasControlOrBrokenChar(name) || !ShiftJis::Unmappable(name).isEmpty())
        return fail(u"名前に使えない文字があります: %1"_s.arg(ShiftJis::Unmappable(name)));
    if (ShiftJis::ByteLength(name) > MaxNameBytes)
        return fail(u"名前が長すぎます（%1 バイトまで）。"_s.arg(MaxNameBytes));
    const QString stored = ShiftJis::RoundTrip(name);
    for (const Entry& e : entries)
        if (e.unit.name == stored)
            return fail(u"「%1」という名前のエアコンはもうあります。"_s.arg(stored));
    if (int(entries.size()) >= MaxUnits)
        return fail(u"エアコンは %1 台までです。"_s.arg(MaxUnits));
    int n = 1;
    while (find(u"ac"_s + QString::number(n)))
        ++n;
    Entry e;
    e.unit.id = u"ac"_s + QString::number(n);
    e.unit.name = stored;
    e.unit.family = table ? QString() : family;
    e.unit.caps = table ? table->caps : *ClimateFamily(family);
    e.unit.state = fitted(e.unit.caps, initial);
    e.table = std::move(table);
    const QString id = e.unit.id;
    // The files first: a unit in the settings always has them.
    QString error;
    QDir().mkpath(folder.path(u"climate"_s));
    if (e.table && !WriteFileAtomically(tablePath(id), tableBytes, 0644, &error))
        return fail(u"表を保存できませんでした: %1"_s.arg(error));
    if (!writeState(e.unit))
        return fail(u"状態を保存できませんでした。"_s);
    entries.push_back(e);
    if (!settings.WriteAll({{Key::ClimateUnits, idList()},
                            {Key::ClimateName(id), stored},
                            {Key::ClimateFamily(id), e.unit.family},
                            {Key::ClimateTable(id), e.table ? u"1"_s : QString()}},
                           Key::ClimateSection(id))) {
        entries.pop_back();
        QFile::remove(statePath(id));
        QFile::remove(tablePath(id));
        return fail(u"設定ファイルに書き込めませんでした。"_s);
    }
    return id;
}

std::optional<IrTiming> ClimateUnits::Private::signalFor(const Entry& e, const ClimateState& s,
                                                         QString* why) const {
    if (!e.table)
        return EncodeClimate(e.unit.family, s, why);
    const Table& t = *e.table;
    if (!s.power) {
        if (!t.off && why)
            *why = u"この表には「停止」の信号がありません。"_s;
        return t.off;
    }
    const auto it = t.codes.constFind(t.keyOf(s));
    if (it == t.codes.cend()) {
        if (why)
            *why = u"この表には「%1」の信号がありません。"_s.arg(ClimateStateText(s));
        return std::nullopt;
    }
    return *it;
}

ClimateUnits::ClimateUnits(const ProgramFolder& folder, SettingsStore& settings,
                           Transceiver& transceiver, QObject* parent)
    : QObject(parent), d_(new Private{folder, settings, transceiver, {}}) {
    d_->load();
}

ClimateUnits::~ClimateUnits() {
    delete d_;
}

std::vector<ClimateUnit> ClimateUnits::units() const {
    std::vector<ClimateUnit> all;
    all.reserve(d_->entries.size());
    for (const auto& e : d_->entries)
        all.push_back(e.unit);
    return all;
}

std::optional<ClimateUnit> ClimateUnits::unit(const QString& id) const {
    if (const auto* e = d_->find(id))
        return e->unit;
    return std::nullopt;
}

std::optional<QString> ClimateUnits::create(const QString& name, const QString& family,
                                            const ClimateState& initial, QString* why) {
    const auto caps = ClimateFamily(family);
    if (!caps) {
        if (why)
            *why = u"「%1」という機種の系統はありません。"_s.arg(family);
        return std::nullopt;
    }
    auto id = d_->add(name, caps->family, nullptr, {}, initial, why);
    if (id)
        emit unitsChanged();
    return id;
}

std::optional<QString> ClimateUnits::createFromSignal(const QString& name, const IrTiming& frame,
                                                      QString* why) {
    const auto heard = DecodeClimate(frame);
    if (!heard) {
        if (why)
            *why = u"この信号はどの機種の系統にも読めませんでした。"
                   u"そのエアコンの SmartIR のファイルがあれば、表として取り込めます。"_s;
        return std::nullopt;
    }
    const auto caps = ClimateFamily(heard->family);
    const ClimateState initial = heard->onto(fitted(*caps, ClimateState{}));
    auto id = d_->add(name, heard->family, nullptr, {}, initial, why);
    if (id)
        emit unitsChanged();
    return id;
}

std::optional<QString> ClimateUnits::importSmartIr(const QString& name, const QByteArray& json,
                                                   QString* why) {
    QString error;
    std::shared_ptr<Table> table = readTable(json, &error);
    if (!table) {
        if (why)
            *why = error;
        return std::nullopt;
    }
    auto id = d_->add(name, {}, table, json, ClimateState{}, why);
    if (id)
        emit unitsChanged();
    return id;
}

bool ClimateUnits::remove(const QString& id, QString* why) {
    auto it = std::find_if(d_->entries.begin(), d_->entries.end(),
                           [&](const Private::Entry& e) { return e.unit.id == id; });
    if (it == d_->entries.end()) {
        if (why)
            *why = u"「%1」というエアコンはありません。"_s.arg(id);
        return false;
    }
    Private::Entry kept = *it;
    d_->entries.erase(it);
    if (!d_->settings.WriteAll({{Key::ClimateUnits, d_->idList()}}, Key::ClimateSection(id))) {
        d_->entries.push_back(kept);
        if (why)
            *why = u"設定ファイルに書き込めませんでした。"_s;
        return false;
    }
    QFile::remove(d_->statePath(id));
    QFile::remove(d_->tablePath(id));
    emit unitsChanged();
    return true;
}

std::optional<IrTiming> ClimateUnits::signalFor(const QString& id, const ClimateState& state,
                                                QString* why) const {
    const auto* e = d_->find(id);
    if (!e) {
        if (why)
            *why = u"「%1」というエアコンはありません。"_s.arg(id);
        return std::nullopt;
    }
    const ClimateFit fit = FitClimateState(e->unit.caps, state);
    if (!fit.state) {
        if (why)
            *why = fit.why;
        return std::nullopt;
    }
    return d_->signalFor(*e, *fit.state, why);
}

void ClimateUnits::setState(const QString& id, const ClimateState& wanted,
                            std::function<void(const Outcome&)> done, SendLabel label) {
    Outcome outcome;
    const auto* e = d_->find(id);
    if (!e) {
        outcome.message = u"「%1」というエアコンはありません。"_s.arg(id);
        return done(outcome);
    }
    outcome.state = e->unit.state;
    const ClimateFit fit = FitClimateState(e->unit.caps, wanted);
    if (!fit.state) {
        outcome.message = fit.why;
        return done(outcome);
    }
    const auto signal = d_->signalFor(*e, *fit.state, &outcome.message);
    if (!signal)
        return done(outcome);
    if (label.source.isEmpty())
        label.source = u"climate"_s;
    label.remote = e->unit.name;
    label.key = ClimateStateText(*fit.state);
    const ClimateState next = *fit.state;
    const QString note = fit.note;
    QPointer<ClimateUnits> self(this);
    d_->device.EnqueueTiming(
        *signal, id + u' ' + label.key,
        [self, id, next, note, outcome, done = std::move(done)](SendResult result) mutable {
            outcome.result = result;
            auto* entry = self ? self->d_->find(id) : nullptr;
            if (result != SendResult::Sent || !entry) {
                outcome.message = result == SendResult::Busy ? SendBusyText
                                  : result == SendResult::NotOpened && self
                                      ? self->d_->device.CannotActivateMessage()
                                      : SendFailedText;
                return done(outcome);
            }
            outcome.sent = true;
            outcome.message = note;
            const bool changed = !(entry->unit.state == next);
            entry->unit.state = next;
            outcome.state = next;
            self->d_->writeState(entry->unit);
            done(outcome);
            if (changed && self)
                emit self->stateChanged(id, next);
        },
        label);
}

void ClimateUnits::heard(const IrTiming& frame) {
    std::vector<std::pair<QString, ClimateState>> changes;
    if (const auto decoded = DecodeClimate(frame)) {
        for (auto& e : d_->entries)
            if (!e.table && e.unit.family.compare(decoded->family, Qt::CaseInsensitive) == 0) {
                const ClimateState next = fitted(e.unit.caps, decoded->onto(e.unit.state));
                if (next == e.unit.state)
                    continue;
                e.unit.state = next;
                changes.push_back({e.unit.id, next});
            }
    } else {
        // A table's code as the real remote sent it: the state it is filed under.
        for (auto& e : d_->entries) {
            if (!e.table)
                continue;
            std::optional<ClimateState> match;
            if (e.table->off && SameTimings(e.table->off->frame(), frame.durations)) {
                match = e.unit.state;
                match->power = false;
            }
            for (auto it = e.table->codes.cbegin(); !match && it != e.table->codes.cend(); ++it) {
                if (!SameTimings(it->frame(), frame.durations))
                    continue;
                const QStringList parts = it.key().split(u'/');
                ClimateState s = e.unit.state;
                s.power = true;
                s.mode = ClimateModeFromName(parts[0]).value_or(s.mode);
                s.fan = parts[1];
                s.swing = parts[2] == u"1";
                if (parts[3] != u"-")
                    s.temperature = parts[3].toDouble();
                match = s;
            }
            if (match && !(*match == e.unit.state)) {
                e.unit.state = *match;
                changes.push_back({e.unit.id, *match});
            }
        }
    }
    for (const auto& [id, state] : changes) {
        if (auto* e = d_->find(id))
            d_->writeState(e->unit);
        emit stateChanged(id, state);
    }
}
