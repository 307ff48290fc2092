#include "remotes/Press.h"

#include "core/SettingKeys.h"
#include "core/Settings.h"
#include "infrared/SignalStore.h"
#include "infrared/TiraDevice.h"
#include "remotes/Registry.h"

#include <QFileInfo>

SendResult TXSignalById(TiraDevice& device, QStringView remote, QStringView button) {
    if (IsTestMode(device.settings))
        return SendResult::Sent;
    QString name = device.settings.Read(Key::RemoteName(remote));
    QString function = GetButtonFunc(device.settings, remote, button);
    QString path = SignalFilePath(device.folder, name, function);
    if (!QFileInfo::exists(path))
        return SendResult::Sent;
    return device.TransmitAndWait(path, TiraDevice::Origin::Background);
}
