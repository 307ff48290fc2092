#pragma once

#include <QByteArrayView>
#include <QString>

// Replaces the file at path by data: a temporary file beside it is written,
// flushed to disk and renamed over the old one, so a crash or a full disk never
// leaves half a file. The temporary's name ends in ".tmp". On failure the old
// file is untouched, no temporary is left, and error (when given) says why.
// flush false leaves the flushing to the caller, who writes many files and
// then calls SyncFileSystem once before anything names them.
bool WriteFileAtomically(const QString& path, QByteArrayView data, unsigned mode = 0644,
                         QString* error = nullptr, bool flush = true);

// Flushes everything written to the file system that holds path (a file or
// folder) to disk.
bool SyncFileSystem(const QString& path, QString* error = nullptr);
