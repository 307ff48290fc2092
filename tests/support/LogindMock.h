#pragma once

#include "core/Wait.h"

#include <QDBusArgument>
#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDBusServiceWatcher>
#include <QProcess>
#include <QTemporaryDir>

// python3-dbusmock's logind on a bus of the test's own: a dbus-daemon on a
// socket in a temporary folder, and the mock on it as the system bus.
class LogindMock {
public:
    LogindMock() {
        address = QStringLiteral("unix:path=") + dir.path() + QStringLiteral("/bus");
        daemon.start(QStringLiteral("dbus-daemon"),
                     {QStringLiteral("--session"), QStringLiteral("--nofork"),
                      QStringLiteral("--print-address"), QStringLiteral("--address=") + address});
        // The address is printed once the bus listens.
        if (!daemon.waitForStarted(5000) ||
            !WaitForSignal(&daemon, &QProcess::readyReadStandardOutput, 5000))
            return;
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.insert(QStringLiteral("DBUS_SYSTEM_BUS_ADDRESS"), address);
        mock.setProcessEnvironment(env);
        mock.setProcessChannelMode(QProcess::ForwardedErrorChannel);
        mock.start(QStringLiteral("/usr/bin/python3"),
                   {QStringLiteral("-m"), QStringLiteral("dbusmock"), QStringLiteral("--system"),
                    QStringLiteral("--template"), QStringLiteral("logind")});
        bus = QDBusConnection::connectToBus(address, connectionName());
        QDBusServiceWatcher watcher(Service, bus, QDBusServiceWatcher::WatchForRegistration);
        if (!bus.interface()->isServiceRegistered(Service))
            WaitForSignal(&watcher, &QDBusServiceWatcher::serviceRegistered, 10000);
        ready = bus.interface()->isServiceRegistered(Service);
    }
    ~LogindMock() {
        for (QProcess* p : {&mock, &daemon}) {
            p->kill();
            p->waitForFinished(5000);
        }
        QDBusConnection::disconnectFromBus(connectionName());
    }

    // The names of the Manager's methods called so far, in order.
    QStringList calls() {
        QDBusMessage reply = bus.call(mockCall(QStringLiteral("GetCalls")));
        QStringList names;
        const QDBusArgument list = reply.arguments().value(0).value<QDBusArgument>();
        list.beginArray();
        while (!list.atEnd()) {
            quint64 stamp = 0;
            QString name;
            QVariantList args;
            list.beginStructure();
            list >> stamp >> name >> args;
            list.endStructure();
            names << name;
        }
        list.endArray();
        return names;
    }
    // Makes a Can... method answer text instead of "yes".
    void answer(const QString& method, const QString& text) {
        QDBusMessage m = mockCall(QStringLiteral("AddMethod"));
        m << QStringLiteral("org.freedesktop.login1.Manager") << method << QString()
          << QStringLiteral("s") << QStringLiteral("ret = '%1'").arg(text);
        bus.call(m);
    }

    QTemporaryDir dir;
    QString address;
    QProcess daemon, mock;
    QDBusConnection bus{QString()};
    bool ready = false;

private:
    static inline const QString Service = QStringLiteral("org.freedesktop.login1");
    QString connectionName() const { return QStringLiteral("logind-mock ") + address; }
    static QDBusMessage mockCall(const QString& method) {
        return QDBusMessage::createMethodCall(Service, QStringLiteral("/org/freedesktop/login1"),
                                              QStringLiteral("org.freedesktop.DBus.Mock"), method);
    }
};
