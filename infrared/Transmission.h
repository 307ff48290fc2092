#pragma once

#include <QString>
#include <QStringView>

class TiraDevice;

// How a press ended. Busy: too many presses were already waiting.
enum class SendResult { Sent, Failed, NotOpened, Busy };

// A press on an on-screen remote: sends <device>-<function>.bin and tells the
// person when it did not go out.
void TXSignal(TiraDevice& device, QStringView deviceName, QStringView function);

// A press on a web page: button <button> of remote <remote>. Sent in test mode
// and for a button without a signal file; otherwise how the send ended. It
// returns once this press has gone out, after the presses queued before it.
SendResult TXSignalById(TiraDevice& device, QStringView remote, QStringView button);

extern const QString SendFailedText;
extern const QString SendBusyText;
