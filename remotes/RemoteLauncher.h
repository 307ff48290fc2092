#pragma once

#include <QObject>
#include <QPointer>
#include <QString>

#include <array>

class ProgramEvents;
class RemoteWindow;
class SettingsStore;
class Transceiver;

// Opens the on-screen remotes: at most one per design, created when opened
// and gone when closed. Closes them all when the program closes.
class RemoteLauncher : public QObject {
    Q_OBJECT
public:
    RemoteLauncher(SettingsStore& settings, ProgramEvents& events, Transceiver& device,
                   QObject* parent = nullptr);
    ~RemoteLauncher() override;

    // The window of design 1 to 6, shown; the open one when there is one.
    // Captions and RemoteLive are the caller's (learning and editing open it
    // with RemoteLive false). nullptr for another number.
    RemoteWindow* Open(int design);
    // The open window of a design, or nullptr.
    RemoteWindow* window(int design) const;
    // Closes every open remote, design 1 to 6 in turn; each keeps its place.
    void UnloadAll();

    // Whether a click on an open remote transmits; off while learning or
    // editing uses the windows.
    bool RemoteLive = false;

public slots:
    // A device was chosen in the main window's list: closes any open remote,
    // then opens the chosen one. Outside test mode id names the registry's
    // Remote-<id> and a click transmits; in test mode the name picks one of
    // the fixed devices and a click sends nothing. A remote whose design is
    // not one of the six opens nothing.
    void ShowRemoteWindow(const QString& deviceName, int id);

private:
    SettingsStore& settings_;
    Transceiver& device_;
    std::array<QPointer<RemoteWindow>, 6> windows_;
};
