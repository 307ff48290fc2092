#pragma once

#include "learning/LearningWindow.h"

// The learning wizard: names a new device, picks one of the six designs and
// teaches it function by function. Nothing is stored before 完了.
class LearningWizard final : public LearningWindow {
    Q_OBJECT
public:
    LearningWizard(LearningParts parts, Transceiver& device, RemoteLauncher& remotes,
                   QWidget* parent = nullptr);

    void Load() override;

    QLineEdit* txtDeviceName = nullptr;

    static const QString TestModeText;
    static const QString AirconText;
    static const QString OverwriteText;
    static const QString NoFreeSlotText;

signals:
    // The port is not set: the setup window should open.
    void setupWanted();

protected:
    QString deviceName() const override;
    void openPortSetup() override { emit setupWanted(); }
    void signalLearned() override;
    void deleteLine(QListWidgetItem* item) override;
    void finish() override;

private:
    void optionClicked(int optionIndex);

    QString deviceWarned_;
};
