#pragma once

#include "core/Wait.h"
#include "support/Certificate.h"
#include "support/WaitUntil.h"

#include <QDir>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QStringList>
#include <QTcpServer>
#include <QTcpSocket>

#include <csignal>
#include <memory>
#include <unistd.h>

// Debian's mosquitto on a free port of 127.0.0.1, its config in the test's folder.
class MqttBroker {
public:
    // With a user, only that user and password are let in; with tls, only TLS.
    explicit MqttBroker(const QString& dir, const QString& user = {}, const QString& password = {},
                        const TlsFiles& tls = {})
        : dir_(dir), tls_(tls), user(user), password(password) {
        QTcpServer probe;
        probe.listen(QHostAddress::LocalHost, 0);
        port = probe.serverPort();
        probe.close();
        QByteArray conf = "listener " + QByteArray::number(port) + " 127.0.0.1\n";
        if (!tls.cert.isEmpty())
            conf += "cafile " + tls.ca.toUtf8() + "\ncertfile " + tls.cert.toUtf8() + "\nkeyfile " +
                    tls.key.toUtf8() + "\n";
        // Started as root it would become "mosquitto", who cannot read the test's folder.
        if (::geteuid() == 0)
            conf += "user root\n";
        if (user.isEmpty()) {
            conf += "allow_anonymous true\n";
        } else {
            const QString file = dir + QStringLiteral("/passwd");
            QProcess::execute(QStringLiteral("mosquitto_passwd"),
                              {QStringLiteral("-c"), QStringLiteral("-b"), file, user, password});
            conf += "allow_anonymous false\npassword_file " + file.toUtf8() + "\n";
        }
        QFile f(dir + QStringLiteral("/mosquitto.conf"));
        if (f.open(QIODevice::WriteOnly))
            f.write(conf);
    }
    ~MqttBroker() { stop(); }

    static bool available() { return QFile::exists(QStringLiteral("/usr/sbin/mosquitto")); }

    // Starts and waits until it takes connections.
    bool start() {
        process = std::make_unique<QProcess>();
        process->setProcessChannelMode(QProcess::MergedChannels);
        process->setStandardOutputFile(dir_ + QStringLiteral("/mosquitto.log"), QIODevice::Append);
        process->start(QStringLiteral("/usr/sbin/mosquitto"),
                       {QStringLiteral("-c"), dir_ + QStringLiteral("/mosquitto.conf")});
        return process->waitForStarted(5000) && WaitUntil([this] {
                   QTcpSocket s;
                   s.connectToHost(QHostAddress::LocalHost, port);
                   return s.waitForConnected(200);
               });
    }
    void stop(int signal = SIGKILL) {
        if (process && process->state() != QProcess::NotRunning) {
            ::kill(pid_t(process->processId()), signal);
            process->waitForFinished(5000);
        }
    }

    // Arguments that reach this broker for mosquitto_pub and mosquitto_sub.
    QStringList args() const {
        QStringList a{QStringLiteral("-h"), QStringLiteral("127.0.0.1"), QStringLiteral("-p"),
                      QString::number(port)};
        if (!user.isEmpty())
            a << QStringLiteral("-u") << user << QStringLiteral("-P") << password;
        if (!tls_.cert.isEmpty())
            a << QStringLiteral("--cafile") << tls_.ca;
        return a;
    }
    bool publish(const QString& topic, const QByteArray& payload, bool retain = false) const {
        QStringList a = args();
        a << QStringLiteral("-t") << topic << QStringLiteral("-m") << QString::fromUtf8(payload);
        if (retain)
            a << QStringLiteral("-r");
        return QProcess::execute(QStringLiteral("mosquitto_pub"), a) == 0;
    }

    quint16 port = 0;
    std::unique_ptr<QProcess> process;
    QString dir_;
    TlsFiles tls_;
    QString user, password;
};

// What a subscriber as Home Assistant would be sees: every message, in order.
class MqttWatcher {
public:
    struct Message {
        bool retained;
        QString topic;
        QByteArray payload;
    };
    MqttWatcher(const MqttBroker& broker, const QStringList& topics) {
        QStringList a = broker.args();
        for (const QString& t : topics)
            a << QStringLiteral("-t") << t;
        a << QStringLiteral("-F") << QStringLiteral("%r\t%t\t%p");
        QObject::connect(&process, &QProcess::readyReadStandardOutput, [this] {
            buffer_ += process.readAllStandardOutput();
            qsizetype nl;
            while ((nl = buffer_.indexOf('\n')) >= 0) {
                const QList<QByteArray> parts = buffer_.left(nl).split('\t');
                buffer_.remove(0, nl + 1);
                if (parts.size() >= 3)
                    messages.push_back(
                        {parts[0] == "1", QString::fromUtf8(parts[1]), parts.mid(2).join('\t')});
            }
        });
        process.start(QStringLiteral("mosquitto_sub"), a);
        process.waitForStarted(5000);
        WaitMs(300); // subscribed
    }
    ~MqttWatcher() {
        process.kill();
        process.waitForFinished(3000);
    }
    // Messages on topic so far; the last one first.
    std::vector<Message> on(const QString& topic) const {
        std::vector<Message> out;
        for (auto it = messages.rbegin(); it != messages.rend(); ++it)
            if (it->topic == topic)
                out.push_back(*it);
        return out;
    }
    // The last message on topic as JSON; empty when there is none.
    QJsonObject json(const QString& topic) const {
        const auto last = on(topic);
        return last.empty() ? QJsonObject() : QJsonDocument::fromJson(last[0].payload).object();
    }
    bool waitFor(const QString& topic, const QByteArray& payload, int ms = 10000) {
        return WaitUntil(
            [&] {
                for (const Message& m : messages)
                    if (m.topic == topic && (payload.isNull() || m.payload == payload))
                        return true;
                return false;
            },
            ms);
    }

    std::vector<Message> messages;
    QProcess process;

private:
    QByteArray buffer_;
};
