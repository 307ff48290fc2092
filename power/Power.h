#pragma once

#include <QDateTime>
#include <QObject>
#include <QString>
#include <QTimer>

#include <functional>

class Scheduler;
class SettingsStore;
class UserPrompt;

// Puts the machine to sleep: a wake-up for the next reservation first, the
// transceiver released, a 10-second countdown anyone may cancel, then logind's
// Hibernate or Suspend. The program runs on through the sleep.
class Power : public QObject {
    Q_OBJECT
public:
    Power(SettingsStore& settings, UserPrompt& prompt, Scheduler& scheduler,
          QObject* parent = nullptr);

    // The whole sequence. Returns after the sleep has been asked for, or after
    // a cancel; does nothing while one already runs.
    void HibernateNow();
    // The hibernate button: within 5 minutes of a reservation it only says the
    // scan will hibernate after it.
    void SuspendPressed();
    // hibern.asp: HibernateNow in 10 seconds, so that the page reaches the
    // browser first.
    void HibernateSoon();
    // Milliseconds until that delayed start; -1 when none is pending.
    int HibernateInMs() const { return timHibern_.isActive() ? timHibern_.remainingTime() : -1; }
    // The countdown's cancel button.
    void Cancel();
    // The close order: a countdown ends, none starts again.
    void Close();

    // One wake-up at "when" through the RTC alarm, replacing any earlier one.
    // False when it could not be set; the reason is logged once per process.
    bool SetResumeTask(const QDateTime& when);

    // Without a desktop the countdown is only logged.
    bool headless = false;
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

    SettingsStore& settings_;
    UserPrompt& prompt_;
    Scheduler& scheduler_;
    QTimer timHibern_; // 10 s, one shot: the delayed HibernateNow
    bool cancelled_ = false;
    bool closed_ = false;
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
