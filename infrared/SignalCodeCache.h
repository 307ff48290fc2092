#pragma once

#include "infrared/IrProtocol.h"

#include <QByteArray>
#include <QByteArrayView>
#include <QHash>
#include <QString>
#include <QTimer>

#include <cstdint>
#include <optional>
#include <vector>

// What each signal file decodes as, worked out once per file: lists show a
// protocol per key for hundreds of keys at once. An entry holds while the
// file's identity (inode, size and modification time to the nanosecond)
// stays, so a renamed file is known under its new name. A file that is not a
// usable signal decodes as raw.
//
// With a file of its own the cache outlives the program: read at the start
// (anything in it that is not wholly well-formed is ignored), written a
// while after it learned something and when it goes. A signal file that
// could not be read is never written down.
class SignalCodeCache {
public:
    SignalCodeCache();
    explicit SignalCodeCache(QString file);
    ~SignalCodeCache();
    SignalCodeCache(const SignalCodeCache&) = delete;
    SignalCodeCache& operator=(const SignalCodeCache&) = delete;

    IrCode codeOf(const QString& path);
    // codeOf, and whether the file is there at all, from one look at it.
    IrCode codeOf(const QString& path, bool* exists);
    void clear();
    // Writes the file now when something is new.
    void save();
    int size() const { return int(byPath_.size()); }

    static constexpr int SaveDelayMs = 3000;

    struct Identity {
        uint64_t inode = 0;
        int64_t size = -1;
        int64_t mtimeNs = 0;
        bool operator==(const Identity&) const = default;
    };
    struct Record {
        Identity id;
        IrCode code;
        QString path;
    };
    // The file's bytes as records; nothing unless every line is well-formed.
    static std::optional<std::vector<Record>> Parse(QByteArrayView bytes);
    static QByteArray Format(const std::vector<Record>& records);

private:
    struct Entry {
        Identity id;
        IrCode code;
        bool keep = false; // read well: goes into the file
    };
    void load();

    QString file_;
    QHash<QString, Entry> byPath_;
    QHash<QByteArray, IrCode> byIdentity_; // files read well, whatever their name now
    bool dirty_ = false;
    QTimer saveTimer_;
};
