#pragma once

#include <QObject>

// The program's close order and the setup hand-shake, for the objects that
// must follow them. The composition root owns the one instance and emits.
class ProgramEvents : public QObject {
    Q_OBJECT
public:
    using QObject::QObject;

    bool isClosing() const { return closing_; }
    // Once set, stays set: the close order has begun.
    void setClosing() { closing_ = true; }

signals:
    // The setup window should open; it emits setupClosed() when it closes.
    void setupRequested();
    void setupClosed();
    // Close order, in this sequence. The transceiver is released first.
    void releaseDevice();
    void unloadRemoteWindows();
    void unloadWindows(); // preview, setup, main window
    void closed();

private:
    bool closing_ = false;
};
