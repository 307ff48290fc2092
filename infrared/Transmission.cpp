#include "infrared/Transmission.h"

#include "core/Settings.h"
#include "core/UserPrompt.h"
#include "infrared/SignalStore.h"
#include "infrared/TiraDevice.h"
#include "remotes/Registry.h"

#include <QFileInfo>

using namespace Qt::StringLiterals;

const QString SendFailedText = u"送信できませんでした。"_s;

void TXSignal(TiraDevice& device, QStringView deviceName, QStringView function) {
    if (function.isEmpty())
        return;
    if (!device.TransmitTira(SignalFilePath(device.folder, deviceName, function)))
        device.prompt.Warning(SendFailedText);
}

bool TXSignalById(TiraDevice& device, QStringView remote, QStringView button) {
    if (IsTestMode(device.settings))
        return true;
    QString name = device.settings.ReadIni(u"Remote-"_s + remote.toString(), u"Device");
    QString function = GetButtonFunc(device.settings, remote, button);
    QString path = SignalFilePath(device.folder, name, function);
    if (!QFileInfo::exists(path))
        return true;
    return device.TransmitTira(path, TiraDevice::Origin::Background);
}
