#pragma once

#include <QObject>
#include <QPointer>

class Application;
class EditWindow;
class LearningWindow;
class RemoteWindows;
class StudyWindow;
class TiraDevice;

// Opens the learning wizard and the remote editor. Only one of them is open at
// a time: both keep their signals in the same numbered files and use the same
// on-screen remotes, so asking for either while one is open brings that one
// forward.
class LearningWindows : public QObject {
    Q_OBJECT
public:
    LearningWindows(Application& app, TiraDevice& device, RemoteWindows& remotes,
                    QObject* parent = nullptr);
    ~LearningWindows() override;

    LearningWindow* OpenStudy();
    LearningWindow* OpenEdit();
    LearningWindow* current() const;

signals:
    void devicesChanged();
    void setupWanted();

private:
    LearningWindow* open(LearningWindow* created);
    bool isOpen() const;

    Application& app_;
    TiraDevice& device_;
    RemoteWindows& remotes_;
    QPointer<LearningWindow> current_;
};
