#pragma once

#include "infrared/SignalStore.h"
#include "infrared/Transmission.h"

#include <optional>

#include <QStringView>

class Transceiver;

// A press on a web page: button <button> of remote <remote>. Sent in test mode
// and for a button without a signal file; otherwise how the send ended. It
// returns once this press has gone out, after the presses queued before it.
SendResult TXSignalById(Transceiver& device, QStringView remote, QStringView button);

class ProgramFolder;
class SettingsStore;
struct IrTiming;

// A learned key named by its remote's name and its own, as the API and MQTT
// name them (Shift-JIS round trip applied).
struct NamedKey {
    int slot = 0;
    int key = -1;
    QString device, function;
    QString path; // its signal file
};
enum class NamedKeyProblem { None, NoRemote, NoKey, NotLearned };
NamedKeyProblem FindNamedKey(const ProgramFolder& folder, SettingsStore& settings,
                             QStringView remote, QStringView key, NamedKey* out);

// The signal a timing stands for as a signal file holds it, or why it cannot be one.
std::optional<SignalImage> SignalImageOf(const IrTiming& timing, QString* why);
