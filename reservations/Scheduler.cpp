#include "reservations/Scheduler.h"

#include "core/Clock.h"
#include "core/SettingKeys.h"
#include "core/Settings.h"
#include "infrared/SignalStore.h"
#include "remotes/Registry.h"
#include "reservations/ReserveStore.h"
#include "reservations/SceneReserve.h"

#include <QEventLoop>
#include <QFileInfo>
#include <QLoggingCategory>

#include <algorithm>

using namespace Qt::StringLiterals;

namespace {
Q_LOGGING_CATEGORY(lcScheduler, "kestrava.scheduler")

QString dateText(const QDate& d) {
    return d.toString(u"yyyy/MM/dd");
}

QChar dayLetter(const QDate& d) {
    return Reserve::DayLetters[d.dayOfWeek() % 7]; // Qt counts Monday 1 .. Sunday 7
}
} // namespace

Scheduler::Scheduler(const ProgramFolder& folder, SettingsStore& settings, const Clock& clock,
                     QObject* parent)
    : QObject(parent), folder_(folder), settings_(settings), clock_(clock) {
    timReserve.setInterval(1000);
    timTimePast.setSingleShot(true);
    connect(&timReserve, &QTimer::timeout, this, &Scheduler::Tick);
}

void Scheduler::FillGrid() {
    grid.FillGrid(Reserve::Folder(folder_, settings_));
}

void Scheduler::Start() {
    stopped_ = false;
    timReserve.start();
}

void Scheduler::Stop() {
    stopped_ = true;
    timReserve.stop();
    timTimePast.stop();
    emit stopped();
}

void Scheduler::Tick() {
    const QDateTime now = clock_.now();
    emit timeShown(now.toString(u"yyyy/MM/dd HH:mm:ss"));
    // Off for the whole scan: the pauses let events run, ticks included.
    timReserve.stop();
    bool anyFired = false;
    const QString minute = now.toString(u"HH:mm");
    if (minute != LastScanMinute) {
        LastScanMinute = minute;
        scan(now, &anyFired);
    }
    if (stopped_)
        return;
    timReserve.start();
    if (anyFired && settings_.IsOn(Key::PowerControl) && !ReserveSoon() && hibernate)
        hibernate();
}

void Scheduler::scan(const QDateTime& now, bool* anyFired) {
    // Every row is matched against the minute the scan began in, so a batch
    // fires whole however long its pauses take. The rows are copied: a web
    // page may refill the grid during a pause.
    const QString today = dateText(now.date());
    const QString minute = now.toString(u"HH:mm");
    const QChar letter = dayLetter(now.date());
    const std::vector<ReserveRow> rows = grid.rows();
    QStringList gone;
    for (const ReserveRow& row : rows) {
        if (stopped_)
            return;
        bool due = false;
        if (row.day.size() == 10) {
            if (row.day == today) {
                due = row.time == minute;
                if (due)
                    gone << row.file;
            } else if (today > row.day) {
                gone << row.file; // its day is over: dropped unfired
            }
        } else if (row.day == u"毎日") {
            due = row.time == minute;
        } else {
            due = row.day.contains(letter) && row.time == minute;
        }
        if (due) {
            *anyFired = true;
            FireReservation(row.device, row.function);
        }
    }
    if (gone.isEmpty())
        return;
    gone.removeDuplicates();
    const QString dir = Reserve::Folder(folder_, settings_);
    for (const QString& name : gone)
        Reserve::RemoveFile(dir + u'/' + name); // a failure is met again at a later minute
    FillGrid();
}

void Scheduler::FireReservation(const QString& device, const QString& function) {
    emit fired(device, function);
    if (IsTestMode(settings_))
        return;
    const QString path = SignalFilePath(folder_, device, function);
    if (!QFileInfo::exists(path)) {
        const bool scene = device == Reserve::SceneDevice && sendScene && sendScene(function);
        if (scene || (sendClimate && sendClimate(device, function)))
            pause();
        else
            qCWarning(lcScheduler).noquote()
                << "reservation" << device + u'|' + function << "names nothing to send";
        return;
    }
    if (!send || !send(path))
        qCWarning(lcScheduler).noquote() << "reservation" << device + u'|' + function << "not sent";
    pause();
}

void Scheduler::pause() {
    // Empty means the default; 0 or a text that is no number means no pause.
    const QString text = settings_.Read(Key::Interval);
    const qint64 ms = text.isEmpty() ? 2000 : Val(text);
    if (ms <= 0 || stopped_)
        return;
    QEventLoop loop;
    connect(&timTimePast, &QTimer::timeout, &loop, &QEventLoop::quit);
    connect(this, &Scheduler::stopped, &loop, &QEventLoop::quit);
    timTimePast.start(int(std::min<qint64>(ms, 24 * 3600 * 1000)));
    loop.exec();
}

QString Scheduler::GetNextReserve() const {
    const QDateTime now = clock_.now();
    const QDate today = now.date();
    const QString minute = now.toString(u"HH:mm");
    QString best;
    for (const ReserveRow& row : grid.rows()) {
        if (row.day.isEmpty() || row.time.isEmpty())
            continue;
        QString date;
        if (row.day.size() == 10) {
            date = row.day;
        } else {
            // The present minute counts as over.
            const int first = minute < row.time ? 0 : 1;
            for (int offset = first; offset <= first + 6 && date.isEmpty(); ++offset) {
                const QDate d = today.addDays(offset);
                if (row.day == u"毎日" || row.day.contains(dayLetter(d)))
                    date = dateText(d);
            }
            if (date.isEmpty())
                continue; // a mask without days
        }
        const QString at = date + u' ' + row.time;
        if (best.isEmpty() || at < best)
            best = at;
    }
    return best;
}

bool Scheduler::ReserveSoon() const {
    const QString next = GetNextReserve();
    const QString soon = clock_.now().addSecs(5 * 60).toString(u"yyyy/MM/dd HH:mm");
    return !next.isEmpty() && soon >= next;
}
