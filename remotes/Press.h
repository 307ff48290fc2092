#pragma once

#include "infrared/Transmission.h"

#include <QStringView>

class Transceiver;

// A press on a web page: button <button> of remote <remote>. Sent in test mode
// and for a button without a signal file; otherwise how the send ended. It
// returns once this press has gone out, after the presses queued before it.
SendResult TXSignalById(Transceiver& device, QStringView remote, QStringView button);
