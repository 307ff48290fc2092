#include "learning/LearningLauncher.h"

#include "learning/LearningWizard.h"
#include "learning/RemoteEditor.h"

LearningLauncher::LearningLauncher(LearningParts parts, Transceiver& device,
                                   RemoteLauncher& remotes, QObject* parent)
    : QObject(parent), app_(parts), device_(device), remotes_(remotes) {}

LearningLauncher::~LearningLauncher() {
    delete current_.data();
}

LearningWindow* LearningLauncher::OpenStudy() {
    if (isOpen())
        return open(nullptr);
    auto* study = new LearningWizard(app_, device_, remotes_);
    connect(study, &LearningWizard::setupWanted, this, &LearningLauncher::setupWanted);
    return open(study);
}

LearningWindow* LearningLauncher::OpenEdit() {
    if (isOpen())
        return open(nullptr);
    return open(new RemoteEditor(app_, device_, remotes_));
}

LearningWindow* LearningLauncher::open(LearningWindow* created) {
    if (!created) {
        current_->show();
        current_->raise();
        current_->activateWindow();
        return current_.data();
    }
    current_ = created;
    created->setAttribute(Qt::WA_DeleteOnClose);
    connect(created, &LearningWindow::devicesChanged, this, &LearningLauncher::devicesChanged);
    created->show();
    created->Load();
    return created;
}

bool LearningLauncher::isOpen() const {
    // A closed window is only waiting to be deleted.
    return current_ && current_->isVisible();
}

LearningWindow* LearningLauncher::current() const {
    return current_.data();
}
