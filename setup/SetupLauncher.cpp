#include "setup/SetupLauncher.h"

#include "core/ProgramEvents.h"
#include "core/SettingKeys.h"
#include "core/Settings.h"
#include "setup/PortChoice.h"
#include "setup/SpecifyPortWindow.h"

SetupLauncher::SetupLauncher(SetupParts parts, SetupServices services, QObject* parent)
    : QObject(parent), parts_(parts), services_(std::move(services)) {
    connect(&parts_.events, &ProgramEvents::setupRequested, this, [this] { Open(); });
    connect(&parts_.events, &ProgramEvents::unloadWindows, this, [this] {
        if (current_)
            current_->reject();
    });
}

SetupLauncher::~SetupLauncher() {
    delete current_;
}

SetupWindow* SetupLauncher::Open(SetupWindow::Tab tab) {
    if (parts_.events.isClosing())
        return nullptr;
    // One that has just closed waits for its deletion: never show it again.
    if (current_ && current_->unloaded())
        current_.clear();
    if (!current_) {
        current_ = new SetupWindow(parts_, services_);
        current_->setAttribute(Qt::WA_DeleteOnClose);
        connect(current_, &SetupWindow::powerControlChanged, this,
                &SetupLauncher::powerControlChanged);
    }
    current_->showTab(tab);
    current_->show();
    current_->raise();
    current_->activateWindow();
    return current_;
}

std::optional<quint16> SetupLauncher::AskForPort() {
    if (SetupWindow* dialog = Open(SetupWindow::WebTab))
        dialog->exec();
    if (parts_.events.isClosing())
        return std::nullopt;
    const qint64 port = Val(parts_.settings.Read(Key::WebPort));
    if (port < 1 || port > 65535)
        return std::nullopt;
    return quint16(port);
}

std::optional<quint16> SetupLauncher::PortFallback(const QList<quint16>& tried) {
    return tried.isEmpty() ? FirstFreeWebPort(parts_.settings, tried) : AskForPort();
}

void SetupLauncher::SpecifyPort() {
    SpecifyPortWindow dialog(parts_.settings);
    dialog.exec();
}
