#pragma once

#include "api/ApiRequest.h"
#include "webserver/WebServer.h"

#include <QObject>

class ProgramFolder;
class SettingsStore;
class Transceiver;

// Presses: a key by id or by name, and a signal given as timings. Each goes
// into the same queue as every other front's, and is answered once it has
// gone out.
class PressApi : public QObject {
    Q_OBJECT
public:
    PressApi(const ProgramFolder& folder, SettingsStore& settings, Transceiver& device,
             QObject* parent = nullptr);

    void Press(const Api::Call& c, const FrontReply& r);
    void PressByName(const Api::Call& c, const FrontReply& r);
    void Transmit(const Api::Call& c, const FrontReply& r);

    // Longest repeat of one press.
    static constexpr int MaxRepeat = 20;

private:
    void press(int remote, int key, int repeat, const FrontReply& r);

    const ProgramFolder& folder_;
    SettingsStore& settings_;
    Transceiver& device_;
};
