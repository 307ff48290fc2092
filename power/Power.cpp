#include "power/Power.h"

#include "core/BoundedRead.h"
#include "core/SettingKeys.h"
#include "core/Settings.h"
#include "core/UserPrompt.h"
#include "core/Wait.h"
#include "reservations/Scheduler.h"

#include <QCoreApplication>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QLoggingCategory>
#include <QSet>

#include <map>

using namespace Qt::StringLiterals;

namespace {
Q_LOGGING_CATEGORY(lcPower, "kestrava.power")

// Waits with events running, so the web server is not held up by logind.
QDBusMessage callLogind(const QDBusConnection& bus, const QString& method,
                        const QVariantList& args = {}) {
    QDBusMessage m =
        QDBusMessage::createMethodCall(u"org.freedesktop.login1"_s, u"/org/freedesktop/login1"_s,
                                       u"org.freedesktop.login1.Manager"_s, method);
    m.setArguments(args);
    QDBusPendingCallWatcher watcher(bus.asyncCall(m, 25000));
    if (!watcher.isFinished())
        WaitForSignal(&watcher, &QDBusPendingCallWatcher::finished, -1);
    return watcher.reply();
}
} // namespace

const QString Power::SoonText = u"次の操作予約が5分以内にスケジュールされています。\r\n"
                                u"タスクが終了次第休止状態にします。"_s;

Power::Power(SettingsStore& settings, UserPrompt& prompt, Scheduler& scheduler, QObject* parent)
    : QObject(parent), settings_(settings), prompt_(prompt), scheduler_(scheduler) {
    timHibern_.setInterval(10000);
    timHibern_.setSingleShot(true);
    connect(&timHibern_, &QTimer::timeout, this, &Power::HibernateNow);
}

void Power::HibernateNow() {
    if (countingDown_) {
        qCInfo(lcPower) << "a countdown to sleep already runs";
        return;
    }
    const QString next = scheduler_.GetNextReserve();
    if (!next.isEmpty()) {
        // A failed wake-up does not keep the machine on.
        const QDateTime due = QDateTime::fromString(next, u"yyyy/MM/dd HH:mm"_s);
        if (due.isValid())
            SetResumeTask(due.addSecs(-2 * 60));
    }
    cancelled_ = false;
    if (deActivateTira)
        deActivateTira();

    countingDown_ = true;
    emit countdownStarted();
    if (headless)
        qCInfo(lcPower) << "the machine goes to sleep in 10 seconds";
    auto cancelled = [this] { return cancelled_ || closed_; };
    for (int value = 1; value <= 100 && !cancelled(); ++value) {
        emit countdownStep(value);
        QCoreApplication::processEvents();
        if (!cancelled())
            WaitMs(stepMs);
    }
    emit countdownEnded();
    if (cancelled()) {
        qCInfo(lcPower) << "going to sleep cancelled";
    } else {
        QCoreApplication::processEvents();
        sleepNow(); // events run while logind answers: still no second start
    }
    countingDown_ = false;
}

void Power::sleepNow() {
    const QString mode = settings_.Read(Key::HibernOrSuspend);
    const QString what = mode.isEmpty() || mode == u"Hibern" ? u"Hibernate"_s : u"Suspend"_s;
    const QDBusConnection bus =
        busAddress.isEmpty()
            ? QDBusConnection::systemBus()
            : QDBusConnection::connectToBus(busAddress, u"kestrava-power "_s + busAddress);
    if (!bus.isConnected()) {
        qCWarning(lcPower).noquote() << "the machine stays on: the system bus cannot be reached";
        return;
    }
    const QDBusMessage can = callLogind(bus, u"Can"_s + what);
    const QString answer = can.type() == QDBusMessage::ReplyMessage && !can.arguments().isEmpty()
                               ? can.arguments().first().toString()
                               : can.errorMessage();
    // "challenge" asks the person at the desktop for a password.
    if (answer != u"yes" && answer != u"challenge") {
        qCWarning(lcPower).noquote()
            << "the machine stays on: logind answers" << answer << "to" << u"Can"_s + what;
        return;
    }
    const QDBusMessage done = callLogind(bus, what, {answer == u"challenge"});
    if (done.type() == QDBusMessage::ErrorMessage)
        qCWarning(lcPower).noquote()
            << "the machine stays on: logind refused" << what << "-" << done.errorMessage();
    else
        qCInfo(lcPower).noquote() << "asked logind to" << what.toLower();
}

void Power::SuspendPressed() {
    if (scheduler_.ReserveSoon()) {
        prompt_.Information(SoonText);
        return;
    }
    HibernateNow();
}

void Power::HibernateSoon() {
    timHibern_.start();
}

void Power::Cancel() {
    cancelled_ = true;
}

void Power::Close() {
    closed_ = true;
    Cancel();
    timHibern_.stop();
}

bool Power::SetResumeTask(const QDateTime& when) {
    if (!QFileInfo::exists(wakeAlarmPath)) {
        if (!std::exchange(noRtcTold_, true))
            qCInfo(lcPower).noquote() << "no wake-up was set:" << wakeAlarmPath
                                      << "is missing (no real-time clock alarm on this machine)";
        return false;
    }
    // The kernel refuses to move an alarm that is set: 0 clears it first.
    QString error;
    auto write = [&](const QByteArray& text) {
        QFile f(wakeAlarmPath);
        if (!f.open(QIODevice::WriteOnly | QIODevice::Truncate | QIODevice::Unbuffered) ||
            f.write(text) != text.size()) {
            error = f.errorString();
            return false;
        }
        return true;
    };
    // An RTC kept in local time (beside Windows) counts its alarm in local time too.
    qint64 seconds = when.toSecsSinceEpoch();
    const BoundedRead adjtime = ReadBounded(adjtimePath, 4096);
    if (adjtime.ok() && adjtime.bytes.split('\n').value(2).trimmed() == "LOCAL")
        seconds += when.offsetFromUtc();
    bool ok = write("0\n") && write(QByteArray::number(seconds) + '\n');
    // Many clocks (rtc_cmos without a day alarm) refuse anything beyond the
    // next 24 hours: wake within that instead, early rather than too late.
    constexpr qint64 DayLimitSecs = 86400 - 300;
    if (!ok && when > QDateTime::currentDateTime().addSecs(DayLimitSecs) &&
        write("+" + QByteArray::number(DayLimitSecs) + '\n')) {
        qCInfo(lcPower).noquote()
            << "the real-time clock takes wake-ups only within a day: wake-up set for"
            << QDateTime::currentDateTime().addSecs(DayLimitSecs).toString(u"yyyy/MM/dd HH:mm")
            << "instead of" << when.toString(u"yyyy/MM/dd HH:mm");
        return true;
    }
    if (!ok) {
        if (!std::exchange(notWritableTold_, true))
            qCWarning(lcPower).noquote()
                << "no wake-up was set: cannot write" << wakeAlarmPath << u"("_s + error + u")"_s
                << "- to allow it, install the udev rule 70-kestrava.rules, which gives the group"
                   " kestrava write access to the wake alarm, and add this user to that group"
                   " (sudo usermod -aG kestrava $USER, then log in again)";
        return false;
    }
    qCInfo(lcPower).noquote() << "wake-up set for" << when.toString(u"yyyy/MM/dd HH:mm");
    return true;
}

QString MacAddress(const QString& netDir, const QString& routeFile) {
    auto read = [&](const QString& nic, const char16_t* file) {
        const BoundedRead f =
            ReadBounded(netDir + u'/' + nic + u'/' + QString::fromUtf16(file), 4096);
        return f.ok() ? QString::fromLatin1(f.bytes.trimmed()) : QString();
    };
    // The IPv4 routes: which interfaces have an address, and which carry the
    // default route at what metric.
    QSet<QString> routed;
    std::multimap<qint64, QString> defaults;
    QFile routes(routeFile);
    if (routes.open(QIODevice::ReadOnly)) {
        routes.readLine(); // the column names
        while (!routes.atEnd()) {
            const QList<QByteArray> f = routes.readLine(4096).simplified().split(' ');
            if (f.size() < 8)
                continue;
            const QString nic = QString::fromLatin1(f[0]);
            constexpr uint RouteUp = 0x1;
            bool ok = false;
            const uint flags = f[3].toUInt(&ok, 16);
            if (!ok || !(flags & RouteUp))
                continue;
            routed.insert(nic);
            if (f[1].toUInt(&ok, 16) == 0 && ok && f[7].toUInt(&ok, 16) == 0 && ok)
                defaults.emplace(f[6].toLongLong(), nic);
        }
    }
    auto usable = [&](const QString& nic) {
        constexpr int LoopbackType = 772;
        const QString mac = read(nic, u"address");
        if (read(nic, u"type").toInt() == LoopbackType || mac.isEmpty() ||
            mac.count(u'0') + mac.count(u':') == mac.size())
            return QString();
        return mac.toUpper();
    };
    for (const auto& [metric, nic] : defaults)
        if (const QString mac = usable(nic); !mac.isEmpty())
            return mac;
    // No default route with a hardware address (offline, or a tunnel): a
    // network card, one with an address before one without.
    std::map<std::pair<bool, int>, QString> cards;
    for (const QString& nic : QDir(netDir).entryList(QDir::Dirs | QDir::NoDotAndDotDot)) {
        if (!QFileInfo::exists(netDir + u'/' + nic + u"/device"_s))
            continue;
        if (const QString mac = usable(nic); !mac.isEmpty())
            cards.emplace(std::pair(!routed.contains(nic), read(nic, u"ifindex").toInt()), mac);
    }
    return cards.empty() ? QString() : cards.begin()->second;
}
