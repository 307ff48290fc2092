#pragma once

#include <QObject>
#include <QPointer>

#include "learning/LearningWindow.h"

class RemoteEditor;
class LearningWindow;
class RemoteLauncher;
class LearningWizard;
class Transceiver;

// Opens the learning wizard and the remote editor. Only one of them is open at
// a time: both keep their signals in the same numbered files and use the same
// on-screen remotes, so asking for either while one is open brings that one
// forward.
class LearningLauncher : public QObject {
    Q_OBJECT
public:
    LearningLauncher(LearningParts parts, Transceiver& device, RemoteLauncher& remotes,
                     QObject* parent = nullptr);
    ~LearningLauncher() override;

    LearningWindow* OpenStudy();
    LearningWindow* OpenEdit();
    LearningWindow* current() const;

signals:
    void devicesChanged();
    void setupWanted();

private:
    LearningWindow* open(LearningWindow* created);
    bool isOpen() const;

    LearningParts app_;
    Transceiver& device_;
    RemoteLauncher& remotes_;
    QPointer<LearningWindow> current_;
};
