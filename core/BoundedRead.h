#pragma once

#include <QByteArray>
#include <QString>

// Reads a file of outside bytes no further than a limit, whatever its size
// claims: /dev/zero, a pipe or a /proc file stop at the limit like a plain
// file, in bounded memory.
struct BoundedRead {
    enum Result { Ok, Missing, Failed, TooLarge, NotPlain };
    Result result = Failed;
    QByteArray bytes;
    int errnum = 0; // the system's reason, when Missing or Failed
    QString error;  // the same in words
    bool ok() const { return result == Ok; }
};

struct BoundedReadOptions {
    // Only a plain file: a pipe or device is refused without waiting for it.
    bool plainOnly = false;
    // A link is refused rather than followed.
    bool noFollow = false;
    // The first limit bytes are what is wanted: more is not an error.
    bool prefix = false;
};

BoundedRead ReadBounded(const QString& path, qsizetype limit, BoundedReadOptions options = {});
