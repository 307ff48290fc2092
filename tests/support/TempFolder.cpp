#include "support/TempFolder.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

TempFolder::TempFolder()
    : folder(dir.path() + QStringLiteral("/home")), settings(folder.settingsPath()) {
    QDir().mkpath(folder.root());
}

QByteArray TempFolder::readFile(QStringView relative) const {
    QFile f(path(relative));
    return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray();
}

void TempFolder::writeFile(QStringView relative, const QByteArray& bytes) const {
    QString p = path(relative);
    QDir().mkpath(QFileInfo(p).path());
    QFile f(p);
    if (f.open(QIODevice::WriteOnly | QIODevice::Truncate))
        f.write(bytes);
}
