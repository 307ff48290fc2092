#pragma once

#include "core/ProgramFolder.h"
#include "core/Settings.h"
#include "core/ShiftJis.h"
#include "remotes/Registry.h"

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

    // A learned remote with a file per function holding the name and function in Shift-JIS.
    void writeRemote(int slot, const QString& name, int design, const QStringList& functions) {
        settings.WriteIni(RemoteSection(slot), u"Device", name);
        settings.WriteIni(RemoteSection(slot), u"Design", QString::number(design));
        for (int k = 0; k < functions.size(); ++k) {
            settings.WriteIni(RemoteSection(slot), ButtonKey(k), functions[k]);
            writeFile(QStringLiteral("IRSignals/") + name + u'-' + functions[k] +
                          QStringLiteral(".bin"),
                      ShiftJis::Encode(name + functions[k]));
        }
    }

    QTemporaryDir dir;
    ProgramFolder folder;
    SettingsStore settings;
};
