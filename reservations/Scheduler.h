#pragma once

#include "reservations/ReserveGrid.h"

#include <QDateTime>
#include <QObject>
#include <QTimer>

#include <functional>

class Clock;
class ProgramFolder;
class SettingsStore;

// Fires due reservations. Once a second it shows the time; once a minute it
// walks the grid and fires the rows of that minute, one after the other with
// the Interval pause behind each, then deletes the one-shot files that fired
// or whose day is over. Missed minutes are not caught up.
class Scheduler : public QObject {
    Q_OBJECT
public:
    Scheduler(const ProgramFolder& folder, SettingsStore& settings, const Clock& clock,
              QObject* parent = nullptr);

    // Rebuilds the grid from the folder of the present mode.
    void FillGrid();
    void Start();
    // Ends the ticks and any pause in progress; a scan stops before its next row.
    void Stop();

    // One tick of timReserve: the clock, and the scan at a new minute.
    void Tick();
    // The next moment a row is due, "yyyy/mm/dd hh:mm", or "" without rows.
    QString GetNextReserve() const;
    // Whether a row is due within five minutes; its whole minute counts.
    bool ReserveSoon() const;

    ReserveGrid grid;
    QTimer timReserve;  // 1 s
    QTimer timTimePast; // the pause after a fired signal
    QString LastScanMinute;

    // Sends a signal file; false when it did not go out. Without it nothing is sent.
    std::function<bool(const QString& signalPath)> send;
    // Sends a line that names no signal file when it is an air conditioner's
    // state; false when it is none.
    std::function<bool(const QString& device, const QString& function)> sendClimate;
    // Runs the scene a line names ("シーン|<name>"); false when there is none.
    std::function<bool(const QString& name)> sendScene;
    // Called after a scan that fired when PowerControl is on and nothing is due
    // within 5 minutes.
    std::function<void()> hibernate;

signals:
    void timeShown(const QString& text); // each tick: the present "yyyy/mm/dd hh:mm:ss"
    void fired(const QString& device, const QString& function);
    void stopped();

private:
    void scan(const QDateTime& now, bool* anyFired);
    void FireReservation(const QString& device, const QString& function);
    void pause();

    const ProgramFolder& folder_;
    SettingsStore& settings_;
    const Clock& clock_;
    bool stopped_ = false;
};
