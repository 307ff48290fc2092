#pragma once

#include "api/ApiRequest.h"
#include "webserver/WebServer.h"

#include <QByteArray>
#include <QJsonObject>

#include <functional>
#include <utility>

class ProgramFolder;
class RemotesApi;
class Transceiver;

// A key's signal: learned from the hand-held remote (the capture waits,
// nested, and can be cancelled from another request) or given as a code.
class LearnApi {
public:
    LearnApi(const ProgramFolder& folder, RemotesApi& remotes, Transceiver& device,
             std::function<void(const QByteArray&, const QJsonObject&)> publish);

    void Learn(const Api::Call& c, const FrontReply& r);
    void Cancel(const Api::Call& c, const FrontReply& r);
    void Import(const Api::Call& c, const FrontReply& r);

    bool Capturing() const { return capturing_; }

private:
    const ProgramFolder& folder_;
    RemotesApi& remotes_;
    Transceiver& device_;
    std::function<void(const QByteArray&, const QJsonObject&)> publish_;
    bool capturing_ = false;
    std::pair<int, int> learning_; // remote and key whose capture runs
    bool cancelled_ = false;
};
