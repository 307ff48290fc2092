#pragma once

#include <QString>
#include <QStringList>

class ProgramFolder;
class SettingsStore;

// Whole remotes in and out of the code files other IR programs keep (a
// Flipper library, a lircd.conf, a folder of single-signal files).

struct CodesImport {
    QString path;
    QString remote; // the remote to make or extend; empty: from the file
    int design = 0; // 1 to 6; 0: the smallest that holds every key
};

// One remote made or extended.
struct CodesImported {
    QString device;
    int slot = 0;
    int design = 0;
    int added = 0;    // keys new to the remote
    int replaced = 0; // keys it had, with the new signal
};

struct CodesImportResult {
    QString error;                      // nothing was imported, and why
    std::vector<CodesImported> remotes; // what was
    QStringList refused;                // "KEY: why", one per key left out
    QStringList renamed;                // "KEY: stored as NAME", mapped or made unique
    bool ok() const { return error.isEmpty() && refused.isEmpty(); }
};

// Reads the file and stores its keys as learned ones: signal files first,
// then the registry in one write, so that a running instance (which rereads
// setting.ini) shows the remote whole, and a remote that cannot be written
// whole (a full disk) is left as it was. A lircd.conf of several remotes makes one remote
// each unless a remote name is given. Names are mapped as FileNameOf maps them, a
// name that comes again is kept as "NAME-2", and keys past the design's last button
// go on into "REMOTE (2)"; each such change is listed in renamed. A key whose name
// breaks the other learning rules is refused on its own.
CodesImportResult ImportCodes(const ProgramFolder& folder, SettingsStore& settings,
                              const CodesImport& request);

// Writes the learned remotes named (all when none is) into dir in the format
// named (flipper, lircd, irdb, pronto, broadlink, json, irctl, globalcache,
// esphome, tasmota, bin): a file per remote,
// or a folder per remote with a file per key for single-signal formats.
// Decodable keys carry their protocol and scancode. One line per remote into
// lines; false if any failed.
bool ExportCodes(const ProgramFolder& folder, SettingsStore& settings, const QString& dir,
                 const QString& format, const QStringList& devices, QStringList* lines);

// A line per result, for the command line.
QStringList DescribeCodesImport(const QString& path, const CodesImportResult& result);
