#include "remotes/Press.h"

#include "core/SettingKeys.h"
#include "core/Settings.h"
#include "infrared/SignalStore.h"
#include "infrared/Transceiver.h"
#include "remotes/Registry.h"

#include <QFileInfo>

using namespace Qt::StringLiterals;

SendResult TXSignalById(Transceiver& device, QStringView remote, QStringView button) {
    if (IsTestMode(device.settings))
        return SendResult::Sent;
    QString name = device.settings.Read(Key::RemoteName(remote));
    QString function = GetButtonFunc(device.settings, remote, button);
    QString path = SignalFilePath(device.folder, name, function);
    if (!QFileInfo::exists(path))
        return SendResult::Sent;
    return device.TransmitAndWait(path, Transceiver::Origin::Background,
                                  {u"page"_s, name, function});
}
