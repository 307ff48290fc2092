#pragma once

#include <QString>
#include <QStringView>

class Transceiver;

// Who a send was for: the front it came from ("window", "page", "api",
// "reservation", "learning") and the remote and key, when it is a key's.
// again: the send repeats the one before it (a held key, a repeat count), so
// a toggle bit stays as it was rather than flipping as for a new press.
struct SendLabel {
    QString source;
    QString remote;
    QString key;
    bool again = false;
};

// How a press ended. Busy: too many presses were already waiting.
enum class SendResult { Sent, Failed, NotOpened, Busy };

// A press on an on-screen remote: sends <device>-<function>.bin and tells the
// person when it did not go out.
void TXSignal(Transceiver& device, QStringView deviceName, QStringView function);

extern const QString SendFailedText;
extern const QString SendBusyText;
