#include "setup/SetupWindows.h"

#include "core/Application.h"
#include "core/Settings.h"
#include "setup/SpecifyPortWindow.h"

SetupWindows::SetupWindows(Application& app, SetupServices services, QObject* parent)
    : QObject(parent), app_(app), services_(std::move(services)) {
    connect(&app_, &Application::setupRequested, this, [this] { Open(); });
    connect(&app_, &Application::unloadWindows, this, [this] {
        if (current_)
            current_->reject();
    });
}

SetupWindows::~SetupWindows() {
    delete current_;
}

SetupWindow* SetupWindows::Open(SetupWindow::Tab tab) {
    if (app_.isClosing())
        return nullptr;
    if (!current_) {
        current_ = new SetupWindow(app_, services_);
        current_->setAttribute(Qt::WA_DeleteOnClose);
        connect(current_, &SetupWindow::powerControlChanged, this,
                &SetupWindows::powerControlChanged);
    }
    current_->showTab(tab);
    current_->show();
    current_->raise();
    current_->activateWindow();
    return current_;
}

std::optional<quint16> SetupWindows::AskForPort() {
    if (SetupWindow* dialog = Open(SetupWindow::WebTab))
        dialog->exec();
    if (app_.isClosing())
        return std::nullopt;
    const qint64 port = Val(app_.settings.ReadIni(u"WebServer", u"Port"));
    if (port < 1 || port > 65535)
        return std::nullopt;
    return quint16(port);
}

void SetupWindows::SpecifyPort() {
    SpecifyPortWindow dialog(app_.settings);
    dialog.exec();
}
