#pragma once

#include "core/ProgramFolder.h"
#include "core/Settings.h"

#include <QByteArray>
#include <QTemporaryDir>

// A fresh program folder for one test, removed afterwards.
class TempFolder {
public:
    TempFolder();

    const QString& root() const { return folder.root(); }
    QString path(QStringView relative) const { return folder.path(relative); }

    QByteArray readFile(QStringView relative) const;
    void writeFile(QStringView relative, const QByteArray& bytes) const;

    QTemporaryDir dir;
    ProgramFolder folder;
    SettingsStore settings;
};
