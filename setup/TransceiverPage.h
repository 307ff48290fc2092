#pragma once

#include <QList>
#include <QPair>
#include <QString>
#include <QWidget>

#include <functional>

class ProgramFolder;
class Scheduler;
class SettingsStore;
class UserPrompt;
class QCheckBox;
class QComboBox;
class QLabel;
class QPushButton;

// The settings dialog's first page: which transceiver, a test of it, and the
// test mode.
class TransceiverPage : public QWidget {
    Q_OBJECT
public:
    struct Parts {
        const ProgramFolder& folder;
        SettingsStore& settings;
        UserPrompt& prompt;
        Scheduler& scheduler;
        // Opens and closes the device named (a path, "sim"), n being /dev/ttyUSBn.
        std::function<bool(const QString& target, qint16 port)> test;
        // Devices to offer besides COM1..COM16: path and description.
        std::function<QList<QPair<QString, QString>>()> devices;
    };
    explicit TransceiverPage(Parts parts, QWidget* parent = nullptr);

    void load();
    // OK: the device chosen and the test mode.
    void save();

    static const QString SimulatorCaption;

private:
    void testModeSwitched(bool on);
    void testTransceiver();

    Parts parts_;
    QComboBox* combo1_;
    QPushButton* cmdTest_;
    QLabel* lblStatus_;
    QCheckBox* chkTest_;
};
