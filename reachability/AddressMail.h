#pragma once

#include <QByteArray>
#include <QDateTime>
#include <QObject>
#include <QString>

#include <functional>
#include <map>
#include <memory>
#include <thread>

class Clock;
class SettingsStore;
class UserPrompt;

// The mail that tells the owner the machine's new global address. The SMTP
// (and POP3) conversation runs on a worker thread with a time-out; its result
// comes back to the event loop, which never waits for the network.
class AddressMail : public QObject {
    Q_OBJECT
public:
    AddressMail(SettingsStore& settings, QObject* parent = nullptr);
    ~AddressMail() override;

    // Sends the address-change mail for `address`; `done(true)` when it was sent. Never blocks;
    // calls `done` exactly once, later, on the event-loop thread.
    // Destroying the object cuts a conversation off without calling `done`.
    void Send(const QString& address, std::function<void(bool sent)> done);

    // Where a failure is shown (non-blocking); it is logged either way.
    void setPrompt(UserPrompt* prompt) { prompt_ = prompt; }
    // The time stamped into the mail; the system clock when unset.
    void setClock(const Clock* clock) { clock_ = clock; }
    // For the whole conversation, POP3 included.
    void setTimeoutMs(int ms) { timeoutMs_ = ms; }

    static constexpr int DefaultTimeoutMs = 30000;
    static const QString Subject;
    static const QString ErrorText; // shown before the failure's own text

    static QString Body(const QString& address, const QDateTime& now);
    // The whole message as sent: headers, encoded subject, base64 UTF-8 body.
    static QByteArray Message(const QString& from, const QString& to, const QString& subject,
                              const QString& body, const QDateTime& now);

private:
    struct Job;
    struct Cancel;
    void finish(quint64 id, const QString& error);

    SettingsStore& settings_;
    UserPrompt* prompt_ = nullptr;
    const Clock* clock_ = nullptr;
    int timeoutMs_ = DefaultTimeoutMs;
    quint64 nextId_ = 0;
    struct Running {
        std::thread thread;
        std::function<void(bool)> done;
    };
    std::map<quint64, Running> running_;
    std::shared_ptr<Cancel> cancel_;
};
