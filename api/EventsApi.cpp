#include "api/EventsApi.h"

#include <QJsonDocument>

EventsApi::EventsApi(QObject* parent) : QObject(parent) {
    ping_.setInterval(15000);
    connect(&ping_, &QTimer::timeout, this, [this] {
        for (auto it = listeners_.begin(); it != listeners_.end();)
            it = it->Write(": ping\n\n") ? it + 1 : listeners_.erase(it);
        if (listeners_.empty())
            ping_.stop();
    });
}

void EventsApi::Open(const FrontReply& reply) {
    if (!reply.StartStream("text/event-stream; charset=utf-8"))
        return;
    reply.Write(": kestrava\n\n");
    listeners_.push_back(reply);
    if (!ping_.isActive())
        ping_.start();
}

void EventsApi::Publish(const QByteArray& name, const QJsonObject& data) {
    if (listeners_.empty())
        return;
    const QByteArray message =
        "event: " + name + "\ndata: " + QJsonDocument(data).toJson(QJsonDocument::Compact) + "\n\n";
    for (auto it = listeners_.begin(); it != listeners_.end();)
        it = it->Write(message) ? it + 1 : listeners_.erase(it);
}
