#pragma once

#include "infrared/IrSignal.h"

#include <QByteArrayView>
#include <QString>
#include <QStringView>

#include <optional>

// What a message on one of our command topics asks for. Everything here is
// outside bytes: the parsers refuse with why rather than guess.
namespace MqttCommand {

// The longest payload taken; discovery-sized JSON is far below it.
constexpr qsizetype MaxPayload = 64 * 1024;

// <Topic>/press: {"remote": NAME, "key": NAME}.
struct Press {
    QString remote, key;
};
std::optional<Press> ParsePress(QByteArrayView payload, QString* why);

// A button's command topic <Topic>/key/<slot>/<button>/press ("PRESS"). A
// topic under key/ that names no possible key is refused with why; any other
// topic is not a key's (why stays empty).
struct KeyRef {
    int slot = 0;
    int button = -1;
};
std::optional<KeyRef> ParseKeyTopic(QStringView relative, QString* why);

// The emitter's command: {"timings": [signed µs], "modulation": HZ, "repeat_count": n}.
// Home Assistant's timings already hold the n repeats; without repeat_count
// (as ESPHome-style senders write it) it is 0.
struct Emit {
    IrTiming timing;
    int repeats = 0; // how many the timings hold, as the sender says
};
std::optional<Emit> ParseEmit(QByteArrayView payload, QString* why);

} // namespace MqttCommand
