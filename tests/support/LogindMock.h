#pragma once

#include "core/Wait.h"

#include <QDBusArgument>
#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDBusServiceWatcher>
#include <QProcess>
#include <QTemporaryDir>

namespace logindmock {
using namespace Qt::StringLiterals;

// python3-dbusmock's logind as the system bus of a dbus-daemon of the test's own.
class LogindMock {
public:
    LogindMock() {
        address = u"unix:path="_s + dir.path() + u"/bus"_s;
        // The address is printed once the bus listens.
        daemon.start(u"dbus-daemon"_s, {u"--session"_s, u"--nofork"_s, u"--print-address"_s,
                                        u"--address="_s + address});
        WaitForSignal(&daemon, &QProcess::readyReadStandardOutput, 5000);
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.insert(u"DBUS_SYSTEM_BUS_ADDRESS"_s, address);
        mock.setProcessEnvironment(env);
        mock.start(u"/usr/bin/python3"_s,
                   {u"-m"_s, u"dbusmock"_s, u"--system"_s, u"--template"_s, u"logind"_s});
        bus = QDBusConnection::connectToBus(address, address);
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
        QDBusConnection::disconnectFromBus(address);
    }

    // The names of the methods called so far, in order.
    QStringList calls() {
        const QDBusMessage reply = bus.call(mockCall(u"GetCalls"_s));
        const QDBusArgument list = reply.arguments().value(0).value<QDBusArgument>();
        QStringList names;
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
        bus.call(mockCall(u"AddMethod"_s) << u"org.freedesktop.login1.Manager"_s << method
                                          << QString() << u"s"_s << u"ret = '%1'"_s.arg(text));
    }

    QTemporaryDir dir;
    QString address;
    QProcess daemon, mock;
    QDBusConnection bus{QString()};
    bool ready = false;

private:
    static inline const QString Service = u"org.freedesktop.login1"_s;
    static QDBusMessage mockCall(const QString& method) {
        return QDBusMessage::createMethodCall(Service, u"/org/freedesktop/login1"_s,
                                              u"org.freedesktop.DBus.Mock"_s, method);
    }
};
} // namespace logindmock
using logindmock::LogindMock;
