#include "remotes/RemoteLauncher.h"

#include "core/ProgramEvents.h"
#include "core/SettingKeys.h"
#include "core/Settings.h"
#include "remotes/Registry.h"
#include "remotes/RemoteWindow.h"

RemoteLauncher::RemoteLauncher(SettingsStore& settings, ProgramEvents& events, Transceiver& device,
                               QObject* parent)
    : QObject(parent), settings_(settings), device_(device) {
    connect(&events, &ProgramEvents::unloadRemoteWindows, this, &RemoteLauncher::UnloadAll);
}

RemoteLauncher::~RemoteLauncher() {
    for (auto& w : windows_)
        delete w.data();
}

RemoteWindow* RemoteLauncher::window(int design) const {
    if (design < 1 || design > int(windows_.size()))
        return nullptr;
    RemoteWindow* w = windows_[size_t(design - 1)].data();
    return w && w->isVisible() ? w : nullptr;
}

RemoteWindow* RemoteLauncher::Open(int design) {
    if (design < 1 || design > int(windows_.size()))
        return nullptr;
    QPointer<RemoteWindow>& slot = windows_[size_t(design - 1)];
    // A closed window is on its way out; the next opening starts afresh.
    if (slot && !slot->isVisible())
        slot = nullptr;
    if (!slot) {
        slot = new RemoteWindow(design, RemoteLive, settings_, device_);
        slot->setAttribute(Qt::WA_DeleteOnClose);
    }
    slot->show();
    slot->raise();
    return slot.data();
}

void RemoteLauncher::UnloadAll() {
    for (auto& w : windows_) {
        if (w)
            w->close();
        w = nullptr;
    }
}

void RemoteLauncher::ShowRemoteWindow(const QString& deviceName, int id) {
    UnloadAll();
    if (IsTestMode(settings_)) {
        for (const TestModeDevice& d : TestModeDevices()) {
            if (d.name != deviceName)
                continue;
            RemoteLive = false;
            RemoteWindow* w = Open(d.design);
            w->setDeviceName(deviceName);
            for (int k = 0; k < w->buttonCount(); ++k)
                w->setFunction(k, d.function(k));
            return;
        }
        return;
    }
    const Design* design = DesignByText(settings_.Read(Key::RemoteDesign(id)));
    if (!design)
        return;
    RemoteLive = true;
    RemoteWindow* w = Open(design->id);
    w->setDeviceName(deviceName);
    const std::vector<QString> functions = ReadRemoteButtons(settings_, id);
    for (int k = 0; k < w->buttonCount(); ++k)
        w->setFunction(k, k < int(functions.size()) ? functions[size_t(k)] : QString());
}
