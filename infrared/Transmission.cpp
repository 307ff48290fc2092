#include "infrared/Transmission.h"

#include "core/SettingKeys.h"
#include "core/Settings.h"
#include "core/UserPrompt.h"
#include "infrared/SignalStore.h"
#include "infrared/TiraDevice.h"
#include "remotes/Registry.h"

#include <QFileInfo>

using namespace Qt::StringLiterals;

const QString SendFailedText = u"送信できませんでした。"_s;
const QString SendBusyText =
    u"送信を待っているボタンが多すぎます。少し待ってからもう一度押してください。"_s;

void TXSignal(TiraDevice& device, QStringView deviceName, QStringView function) {
    if (function.isEmpty())
        return;
    // One box per kind, updated by later presses: a dead device does not pile
    // up boxes under a person who keeps pressing.
    switch (device.TransmitAndWait(SignalFilePath(device.folder, deviceName, function))) {
    case SendResult::Sent:
    case SendResult::NotOpened: // the device has told why already
        break;
    case SendResult::Failed:
        device.prompt.Notice(u"send"_s, SendFailedText);
        break;
    case SendResult::Busy:
        device.prompt.Notice(u"send"_s, SendBusyText);
        break;
    }
}

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
