#pragma once

#include <QObject>
#include <QString>

#include <functional>

class SettingsStore;

// The mail that tells the owner the machine's new address.
class AddressMail : public QObject {
    Q_OBJECT
public:
    AddressMail(SettingsStore& settings, QObject* parent = nullptr);
    // Sends the address-change mail for `address`; `done(true)` when it was sent. Never blocks;
    // calls `done` exactly once, later, on the event-loop thread.
    void Send(const QString& address, std::function<void(bool sent)> done);

private:
    [[maybe_unused]] SettingsStore& settings_;
};
