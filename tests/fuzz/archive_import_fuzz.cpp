// Feeds any bytes to the import as an archive file: the import must refuse or
// import, never crash, and never leave anything in unzip/.
#include "core/ProgramFolder.h"
#include "core/Settings.h"
#include "exchange/Exchange.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include <cstdint>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static QTemporaryDir dir;
    static const ProgramFolder folder(dir.path() + QStringLiteral("/home"));
    static const QString archive = dir.path() + QStringLiteral("/input.kxp");

    // A fresh folder per input, with one remote that an archive may replace.
    QDir(folder.root()).removeRecursively();
    folder.CreateDataFolders();
    SettingsStore settings(folder.settingsPath());
    settings.WriteIni(u"Remote-1", u"Device", u"TV");
    settings.WriteIni(u"Remote-1", u"Design", u"1");

    QFile file(archive);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate))
        std::abort();
    file.write(reinterpret_cast<const char*>(data), qint64(size));
    file.close();

    ImportArchive(folder, settings, archive, size % 2 == 1);
    if (!QDir(folder.path(u"unzip")).isEmpty())
        std::abort();
    return 0;
}
