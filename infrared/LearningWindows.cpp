#include "infrared/LearningWindows.h"

#include "infrared/EditWindow.h"
#include "infrared/StudyWindow.h"

LearningWindows::LearningWindows(Application& app, TiraDevice& device, RemoteWindows& remotes,
                                 QObject* parent)
    : QObject(parent), app_(app), device_(device), remotes_(remotes) {}

LearningWindows::~LearningWindows() {
    delete current_.data();
}

LearningWindow* LearningWindows::OpenStudy() {
    if (isOpen())
        return open(nullptr);
    auto* study = new StudyWindow(app_, device_, remotes_);
    connect(study, &StudyWindow::setupWanted, this, &LearningWindows::setupWanted);
    return open(study);
}

LearningWindow* LearningWindows::OpenEdit() {
    if (isOpen())
        return open(nullptr);
    return open(new EditWindow(app_, device_, remotes_));
}

LearningWindow* LearningWindows::open(LearningWindow* created) {
    if (!created) {
        current_->show();
        current_->raise();
        current_->activateWindow();
        return current_.data();
    }
    current_ = created;
    created->setAttribute(Qt::WA_DeleteOnClose);
    connect(created, &LearningWindow::devicesChanged, this, &LearningWindows::devicesChanged);
    created->show();
    created->Load();
    return created;
}

bool LearningWindows::isOpen() const {
    // A closed window is only waiting to be deleted.
    return current_ && current_->isVisible();
}

LearningWindow* LearningWindows::current() const {
    return current_.data();
}
