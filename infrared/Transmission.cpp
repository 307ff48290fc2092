#include "infrared/Transmission.h"

#include "core/UserPrompt.h"
#include "infrared/SignalStore.h"
#include "infrared/Transceiver.h"

using namespace Qt::StringLiterals;

const QString SendFailedText = u"送信できませんでした。"_s;
const QString SendBusyText =
    u"送信を待っているボタンが多すぎます。少し待ってからもう一度押してください。"_s;

void TXSignal(Transceiver& device, QStringView deviceName, QStringView function) {
    if (function.isEmpty())
        return;
    // One box per kind, updated by later presses: a dead device does not pile
    // up boxes under a person who keeps pressing.
    switch (device.TransmitAndWait(SignalFilePath(device.folder, deviceName, function),
                                   Transceiver::Origin::Desktop,
                                   {u"window"_s, deviceName.toString(), function.toString()})) {
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
