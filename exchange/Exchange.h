#pragma once

#include "learning/LearningStore.h"

#include <QByteArrayView>
#include <QString>

#include <utility>
#include <vector>

class ProgramFolder;
class SettingsStore;

// A learned remote travels as one ZIP archive, <device>.kxp: exp.txt (CP932,
// CR LF: Device=, Design=, then Button-<k>=<function> for k 0 to 65) and the
// remote's signal files, flat, with names in CP932 and no UTF-8 flag, as a
// Windows installation writes them.

// The remotes an export offers are those the editor lists: slots 1 to 100
// with a device name.
using ExportableRemote = EditableRemote;
inline std::vector<ExportableRemote> ExportableRemotes(SettingsStore& settings) {
    return EditableRemotes(settings);
}

// <folder>/<device>.kxp; the caller creates the folder.
QString ArchivePath(const QString& folder, const QString& device);

// Writes the archive of the remote in Remote-<slot>, replacing one that
// exists. False, with the reason in error, when it cannot be written.
bool ExportDevice(const ProgramFolder& folder, SettingsStore& settings, const QString& device,
                  int slot, const QString& archivePath, QString* error = nullptr);

// Archives come from anywhere, so they are checked whole before anything of
// them is used. Past these limits an archive is refused.
constexpr int MaxArchiveEntries = 1000;
constexpr qint64 MaxEntryBytes = 1 << 20;
constexpr qint64 MaxArchiveBytes = 64 << 20;

struct ImportResult {
    enum Outcome { Imported, Skipped, Refused };
    Outcome outcome = Refused;
    QString device;
    int slot = 0;   // where an imported remote went
    QString reason; // why it was refused
};

// What exp.txt says, checked: a usable device name, a design of 1 to 6, and
// button functions that setting.ini can hold.
struct ArchiveDescription {
    QString device;
    QString design;
    std::vector<std::pair<int, QString>> buttons; // button number, function
};

// The checks of an import on an archive held in memory, writing nothing: why
// it would be refused, or nothing.
QString CheckArchive(QByteArrayView bytes, ArchiveDescription* description = nullptr);

// Imports one archive through the work folder unzip/, which is emptied before
// and after; the checks are those of CheckArchive. A remote of the same name is left alone unless
// overwrite is set, in which case it is replaced with its own signal files. The remote takes the
// lowest free slot of 1 to 100. Only the archive's <device>-*.bin files land in
// IRSignals/; a refused archive changes nothing and leaves no folder behind.
ImportResult ImportArchive(const ProgramFolder& folder, SettingsStore& settings,
                           const QString& archivePath, bool overwrite);

// One line about the result, for the command line and the log.
QString DescribeImport(const QString& archivePath, const ImportResult& result);
