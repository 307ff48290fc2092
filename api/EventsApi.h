#pragma once

#include "webserver/WebServer.h"

#include <QByteArray>
#include <QJsonObject>
#include <QObject>
#include <QTimer>

#include <vector>

// /api/v1/events: server-sent events to every stream open now.
class EventsApi : public QObject {
    Q_OBJECT
public:
    explicit EventsApi(QObject* parent = nullptr);

    void Open(const FrontReply& reply);
    void Publish(const QByteArray& name, const QJsonObject& data);
    int Listeners() const { return int(listeners_.size()); }

private:
    std::vector<FrontReply> listeners_;
    QTimer ping_; // keeps streams alive through proxies, and finds closed ones
};
