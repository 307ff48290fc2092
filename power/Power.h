#pragma once

#include <QDateTime>
#include <QObject>
#include <QString>
#include <QTimer>

#include <functional>

class Application;

// Puts the machine to sleep: a wake-up for the next reservation first, the
// transceiver released, a 10-second countdown anyone may cancel, then logind's
// Hibernate or Suspend. The program runs on through the sleep.
class Power : public QObject {
    Q_OBJECT
public:
    explicit Power(Application& app, QObject* parent = nullptr);

    // The whole sequence. Returns after the sleep has been asked for, or after
    // a cancel; does nothing while one already runs.
    void HibernateNow();
    // The hibernate button: within 5 minutes of a reservation it only says the
    // scan will hibernate after it.
    void SuspendPressed();
    // The countdown's cancel button (and the close order).
    void Cancel();

    // One wake-up at "when" through the RTC alarm, replacing any earlier one.
    // False when it could not be set; the reason is logged once per process.
    bool SetResumeTask(const QDateTime& when);

    // 10 s, one shot: hibern.asp's delayed HibernateNow.
    QTimer timHibern;

    // Closes the port to the transceiver before the power goes.
    std::function<void()> deActivateTira;
    // Where the RTC alarm is written (seconds since the epoch).
    QString wakeAlarmPath = QStringLiteral("/sys/class/rtc/rtc0/wakealarm");
    // Says whether the RTC keeps local time (third line "LOCAL").
    QString adjtimePath = QStringLiteral("/etc/adjtime");
    // The bus logind is asked on; empty is the system bus.
    QString busAddress;
    // One countdown step; 100 steps make the countdown.
    int stepMs = 100;

    static const QString SoonText;

signals:
    void countdownStarted();
    void countdownStep(int value); // 1 .. 100
    void countdownEnded();

private:
    void sleepNow();

    Application& app_;
    bool countingDown_ = false;
    bool noRtcTold_ = false;
    bool notWritableTold_ = false;
};

// The hardware address for waking the machine, upper case: that of the
// interface carrying the default route in routeFile (/proc/net/route), else of
// the first network card under netDir (/sys/class/net) by index, one with an
// IPv4 route before one without; "" when there is none.
QString MacAddress(const QString& netDir,
                   const QString& routeFile = QStringLiteral("/proc/net/route"));
