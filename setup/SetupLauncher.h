#pragma once

#include "setup/SetupWindow.h"

#include <QObject>
#include <QPointer>

#include <optional>

// Opens the settings dialog (one at a time) for the menu, the first run and
// the learning wizard, and asks again for a port while the web server's is
// taken.
class SetupLauncher : public QObject {
    Q_OBJECT
public:
    SetupLauncher(SetupParts parts, SetupServices services, QObject* parent = nullptr);
    ~SetupLauncher() override;

    // Shows the dialog modally without waiting for it.
    SetupWindow* Open(SetupWindow::Tab tab = SetupWindow::TiraTab);
    // The web server's port was refused: the dialog on its web page until it
    // closes; the port then stored, to be tried again.
    std::optional<quint16> AskForPort();
    // For the web server: a port that was refused is asked for; a stored text
    // that is no port number (nothing tried yet) gets a free port.
    std::optional<quint16> PortFallback(const QList<quint16>& tried);
    // The port question of a transmission without a transceiver.
    void SpecifyPort();
    SetupWindow* current() const { return current_; }
    // The dialog is open: the first start waits for it.
    bool SetupOpen() const { return current_ && !current_->unloaded(); }

signals:
    void powerControlChanged();

private:
    SetupParts parts_;
    SetupServices services_;
    QPointer<SetupWindow> current_;
};
