#include "setup/AutoStart.h"

#include "core/AtomicFile.h"
#include "core/SettingKeys.h"
#include "core/Settings.h"
#include "core/UserPrompt.h"

#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>
#include <QLoggingCategory>

using namespace Qt::StringLiterals;

namespace AutoStart {

namespace {
Q_LOGGING_CATEGORY(lcAutoStart, "kestrava.autostart")

// One argument of an Exec line: quoted when it holds anything but plain
// characters, with the escapes the desktop entry format asks for.
QString execArgument(const QString& arg) {
    static const QString plain =
        u"abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789/._-+,:@="_s;
    bool quote = arg.isEmpty();
    QString out;
    for (QChar c : arg) {
        if (!plain.contains(c))
            quote = true;
        if (c == u'"' || c == u'`' || c == u'$' || c == u'\\')
            out += u'\\';
        out += c == u'%' ? u"%%"_s : QString(c);
    }
    if (quote)
        out = u'"' + out + u'"';
    // The value itself is a string value: a backslash is written twice.
    return out.replace(u"\\"_s, u"\\\\"_s);
}
} // namespace

QString EntryPath(Scope scope) {
    QString folder;
    if (scope == Scope::User) {
        folder = qEnvironmentVariable("XDG_CONFIG_HOME");
        if (folder.isEmpty() || QDir::isRelativePath(folder))
            folder = QDir::homePath() + u"/.config"_s;
        folder += u"/autostart"_s;
    } else {
        // Tests point the all-users folder elsewhere; nobody else sets this.
        folder = qEnvironmentVariable("KESTRAVA_TEST_SYSTEM_AUTOSTART", u"/etc/xdg/autostart"_s);
    }
    return folder + u"/kestrava.desktop"_s;
}

QByteArray EntryText(const QString& programFolder, bool hidden) {
    const QString exec = execArgument(QCoreApplication::applicationFilePath()) + u" --home "_s +
                         execArgument(QDir(programFolder).absolutePath());
    QString text = u"[Desktop Entry]\n"
                   u"Type=Application\n"
                   u"Name=Kestrava\n"
                   u"Comment=Learning infrared remote control with its own web server\n"
                   u"Exec="_s +
                   exec + u"\nIcon=kestrava\nTerminal=false\n"_s;
    if (hidden)
        text += u"Hidden=true\n"_s;
    return text.toUtf8();
}

bool Write(Scope scope, const QString& programFolder, bool hidden, QString* error) {
    const QString path = EntryPath(scope);
    // A folder that cannot be made shows in the write's own error.
    QDir().mkpath(QFileInfo(path).absolutePath());
    QString why;
    if (!WriteFileAtomically(path, EntryText(programFolder, hidden), 0644, &why)) {
        *error = why;
        return false;
    }
    qCInfo(lcAutoStart).noquote() << (hidden ? "disabled" : "enabled") << path;
    return true;
}

void Choose(int option, const QString& programFolder, SettingsStore& settings, UserPrompt& prompt) {
    auto write = [&](Scope scope, bool hidden) {
        // Everyone's folder needs privileges: an entry that is not there has
        // nothing to neutralise, so removing it asks for no write access.
        if (hidden && scope == Scope::Everyone && !QFileInfo::exists(EntryPath(scope)))
            return;
        QString error;
        if (!Write(scope, programFolder, hidden, &error)) {
            qCWarning(lcAutoStart).noquote() << error;
            prompt.Warning(error);
        }
    };
    switch (option) {
    case 0:
        write(Scope::Everyone, true);
        write(Scope::User, true);
        break;
    case 1:
        write(Scope::Everyone, true);
        write(Scope::User, false);
        break;
    case 2:
        write(Scope::User, true);
        write(Scope::Everyone, false);
        break;
    default:
        return;
    }
    settings.Write(Key::WithWindows, QString::number(option));
}

} // namespace AutoStart
