#pragma once

#include <QString>
#include <QStringView>

class TiraDevice;

// A press on an on-screen remote: sends <device>-<function>.bin and tells the
// person when it did not go out.
void TXSignal(TiraDevice& device, QStringView deviceName, QStringView function);

// A press on a web page: button <button> of remote <remote>. True in test mode
// and for a button without a signal file; otherwise whether the device took it.
bool TXSignalById(TiraDevice& device, QStringView remote, QStringView button);

extern const QString SendFailedText;
