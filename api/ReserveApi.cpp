#include "api/ReserveApi.h"

#include "api/ApiReply.h"
#include "core/Clock.h"
#include "core/SettingKeys.h"
#include "core/Settings.h"
#include "core/ShiftJis.h"
#include "remotes/Registry.h"
#include "reservations/ReserveStore.h"
#include "reservations/SceneReserve.h"
#include "reservations/Scheduler.h"

#include <QDir>
#include <QJsonArray>
#include <QRegularExpression>

using namespace Qt::StringLiterals;
using namespace Api;

ReserveApi::ReserveApi(const ProgramFolder& folder, SettingsStore& settings, const Clock& clock,
                       Scheduler& scheduler, const ReserveLinks& links)
    : folder_(folder), settings_(settings), clock_(clock), scheduler_(scheduler), links_(links) {}

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

void ReserveApi::List(const FrontReply& r) {
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
            const QString unit =
                links_.climateOf ? links_.climateOf(op.device, op.function) : QString();
            o[u"climate"_s] = unit.isEmpty() ? QJsonValue() : QJsonValue(unit);
            const int scene = links_.sceneOf ? links_.sceneOf(op.device, op.function) : 0;
            o[u"sceneId"_s] = scene ? QJsonValue(scene) : QJsonValue();
            list.append(o);
        }
    }
    json(r, 200, {{u"reservations"_s, list}});
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

void ReserveApi::Add(const Api::Call& c, const FrontReply& r) {
    const QJsonObject& b = c.body;
    // The remote and key by id or by name.
    QString device, function, note, unit;
    int slot = b.value(u"remoteId"_s).toInt(0);
    int scene = 0;
    if (b.contains(u"sceneId"_s)) {
        // A scene: its line is the scene's name under one device name.
        scene = b.value(u"sceneId"_s).toInt(0);
        function = links_.sceneName ? links_.sceneName(scene) : QString();
        if (function.isEmpty())
            return notFound(r, u"シーンが見つかりません。"_s);
        device = Reserve::SceneDevice;
    } else if (b.contains(u"climateId"_s)) {
        // An air conditioner's state: its line is the unit's name and the state.
        int status = 404;
        QString why = u"エアコンが見つかりません。"_s;
        unit = b.value(u"climateId"_s).toString();
        const auto line =
            links_.climateLine
                ? links_.climateLine(unit, b.value(u"state"_s).toObject(), &status, &why)
                : std::nullopt;
        if (!line)
            return error(r, status,
                         status == 404   ? "not_found"
                         : status == 400 ? "bad_request"
                                         : "refused",
                         why);
        device = line->device;
        function = line->function;
        note = line->note;
    } else if (b.contains(u"remoteId"_s)) {
        if (slot < 1 || slot > MaxRemoteId || settings_.Read(Key::RemoteName(slot)).isEmpty())
            return notFound(r, NoRemoteText);
    } else if (b.value(u"remote"_s).isString()) {
        slot = FindRemoteSlot(settings_, ShiftJis::RoundTrip(b.value(u"remote"_s).toString()))
                   .existingSlot;
        if (!slot)
            return notFound(r, NoRemoteText);
    } else {
        return bad(r, u"remote（名前）か remoteId を入れてください。"_s);
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
            return notFound(r, NoKeyText);
        function = buttons[size_t(k)];
        if (function.isEmpty())
            return error(r, 409, "not_learned", NotLearnedText);
    } else if (b.value(u"key"_s).isString()) {
        function = ShiftJis::RoundTrip(b.value(u"key"_s).toString());
        if (function.isEmpty() ||
            std::find(buttons.begin(), buttons.end(), function) == buttons.end())
            return notFound(r, NoKeyText);
    } else {
        return bad(r, u"key（名前）か keyId を入れてください。"_s);
    }
    if (!Reserve::IsWritableName(device) || !Reserve::IsWritableName(function))
        return bad(r, u"この名前は予約に使えません。"_s);
    QString why;
    const QString name = MomentName(b, {{}, u"once"_s, {}, {}}, clock_.now(), &why);
    if (name.isEmpty())
        return bad(r, why);
    const QString dir = Reserve::Folder(folder_, settings_);
    QDir().mkpath(dir);
    const QString path = dir + u'/' + name;
    const Reserve::AddResult added = Reserve::AddLine(path, device, function);
    if (added != Reserve::AddResult::Added)
        return error(r, added == Reserve::AddResult::BadName ? 400 : 409,
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
    json(r, 201, made);
}

void ReserveApi::Move(const Api::Call& c, const FrontReply& r) {
    QString name;
    int line = 0;
    if (!SplitReservationId(c.reservation, &name, &line))
        return notFound(r, u"予約が見つかりません。"_s);
    const QString dir = Reserve::Folder(folder_, settings_);
    const QStringList lines = Reserve::ReadLines(dir + u'/' + name);
    if (line > lines.size() || lines[line - 1].isEmpty())
        return notFound(r, u"予約が見つかりません。"_s);
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
        return bad(r, why);
    if (to != name) {
        // Added at the new moment first, so a failure loses nothing.
        const Reserve::AddResult added = Reserve::AddLine(dir + u'/' + to, op.device, op.function);
        if (added != Reserve::AddResult::Added)
            return error(r, 409, "conflict", Reserve::AddRefusalText(added));
        if (!Reserve::DeleteLineIf(dir + u'/' + name, line, lines[line - 1])) {
            Reserve::DeleteByContent(dir + u'/' + to, lines[line - 1]);
            return error(r, 409, "conflict", u"予約が変わりました。読み直してください。"_s);
        }
        if (Reserve::ReadLines(dir + u'/' + name).join(QString()).isEmpty())
            Reserve::RemoveFile(dir + u'/' + name);
        scheduler_.FillGrid();
    }
    const QStringList now = Reserve::ReadLines(dir + u'/' + to);
    json(r, 200,
         {{u"id"_s, ReservationId(to, int(to == name ? line : now.size()))},
          {u"time"_s, Reserve::TimeText(to)},
          {u"repeat"_s, RepeatOf(to)},
          {u"remote"_s, op.device},
          {u"key"_s, op.function}});
}

void ReserveApi::Delete(const Api::Call& c, const FrontReply& r) {
    QString name;
    int line = 0;
    if (!SplitReservationId(c.reservation, &name, &line))
        return notFound(r, u"予約が見つかりません。"_s);
    const QString path = Reserve::Folder(folder_, settings_) + u'/' + name;
    const QStringList lines = Reserve::ReadLines(path);
    if (line > lines.size() || lines[line - 1].isEmpty() ||
        !Reserve::DeleteLineIf(path, line, lines[line - 1]))
        return notFound(r, u"予約が見つかりません。"_s);
    if (Reserve::ReadLines(path).join(QString()).isEmpty())
        Reserve::RemoveFile(path);
    scheduler_.FillGrid();
    none(r);
}
