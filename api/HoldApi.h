#pragma once

#include "api/ApiRequest.h"
#include "webserver/WebServer.h"

#include <QHash>
#include <QObject>
#include <QPair>

class ProgramFolder;
class SettingsStore;
class Transceiver;

// POST /api/v1/remotes/{id}/keys/{key}/hold: a key held down. "start" answers
// when the hold ends (a stop, the time limit, or this request's connection
// closing); "stop" ends it at once.
class HoldApi : public QObject {
    Q_OBJECT
public:
    HoldApi(const ProgramFolder& folder, SettingsStore& settings, Transceiver& device,
            QObject* parent = nullptr);

    void Handle(const Api::Call& call, const FrontReply& reply);
    int Holding() const { return int(holds_.size()); }

private:
    void start(const Api::Call& c, const FrontReply& r);

    const ProgramFolder& folder_;
    SettingsStore& settings_;
    Transceiver& device_;
    QHash<QPair<int, int>, int> holds_; // the transceiver's hold id, by remote and key
};
