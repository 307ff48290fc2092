#pragma once

#include <QByteArray>
#include <QByteArrayView>
#include <QElapsedTimer>
#include <QHash>
#include <QString>
#include <QStringView>

#include "core/SettingKeys.h"

#include <vector>

// The text of an INI file, read from bytes as Windows reads it: sections and
// keys match without regard to case, anything missing reads as "", a value
// reads as at most 1023 bytes (CP932), the first of a repeated section or key
// counts. Changes keep every line they do not touch byte for byte, its line
// ending included.
class IniText {
public:
    IniText() = default;
    explicit IniText(QByteArrayView bytes);

    QString value(QStringView section, QStringView key) const;
    void setValue(QStringView section, QStringView key, QStringView value);
    // Removes every section of that name with its keys; true when one was there.
    bool removeSection(QStringView section);
    QByteArray bytes() const;
    bool hasKeys() const { return !values_.isEmpty(); }

    static constexpr int MaxValueBytes = 1023;

private:
    enum class Kind { Other, Section, Key };
    struct Line {
        QByteArray raw; // without its line ending
        QByteArray end; // "\r\n", "\n", or "" for an unterminated last line
        Kind kind = Kind::Other;
        QString name;   // section or key name, folded to lower case
        QByteArray key; // key name as written in the file
    };

    void index();
    qsizetype findSection(const QString& folded) const;

    QByteArray eol_ = "\r\n"; // for lines the program adds
    std::vector<Line> lines_;
    QHash<QString, QString> values_; // "section\nkey" folded -> value
};

// setting.ini: the one store of settings and the registry of remotes.
//
// The file is parsed once and kept, and every read first checks the file's
// size, times, mode and identity, so a change made by hand or by another
// instance is seen at the next read. Within a Batch (one web request reading
// many keys) the check is made once per turn of the event loop; a write
// always checks. Writes replace the file atomically with
// mode 0600. A new file starts with Options/Internet=0.
//
// A read that fails never counts as contents: while the file cannot be read,
// or is briefly missing or empty after it held keys (an editor that truncates,
// then writes), reads answer from the last good contents and writes are
// refused, so nothing is written from a failed read and no setting opens up.
class SettingsStore {
public:
    explicit SettingsStore(QString path);

    // While one is alive, reads check the file once per event-loop turn.
    class Batch {
    public:
        explicit Batch(SettingsStore& store);
        ~Batch();
        Batch(const Batch&) = delete;
        Batch& operator=(const Batch&) = delete;

    private:
        SettingsStore& store_;
    };

    QString ReadIni(QStringView section, QStringView key);
    QString Read(const SettingKey& k) { return ReadIni(k.section, k.key); }
    // A flag is on only when its value is exactly "1".
    bool IsOn(const SettingKey& k) { return Read(k) == u"1"; }
    // Creates file, section and key as needed. A failure is logged, and false.
    bool WriteIni(QStringView section, QStringView key, QStringView value);
    bool Write(const SettingKey& k, QStringView value) { return WriteIni(k.section, k.key, value); }
    // Several values in one replacement of the file, after removing the section
    // clearSection when one is named: all of it is written, or (false) none.
    bool WriteAll(const std::vector<std::pair<SettingKey, QString>>& values,
                  QStringView clearSection = {});
    // Removes every section of that name with its keys; false when the file
    // could not be written.
    bool DeleteIniSection(QStringView section);

    // True while the file is there but cannot be read. Security decisions
    // treat it as the strictest setting.
    bool Unreadable();

    const QString& path() const { return path_; }

    static constexpr int MaxValueBytes = IniText::MaxValueBytes;
    // How long a missing or emptied file is taken for a rewrite in progress.
    static constexpr int SettleMs = 2000;

private:
    enum class State { Good, Unreadable, Unsettled };
    struct Signature {
        bool exists = false;
        qint64 size = 0, mtimeNs = 0, ctimeNs = 0;
        quint64 inode = 0, device = 0;
        bool operator==(const Signature&) const = default;
    };

    Signature stat() const;
    void refresh(bool always = false);
    bool writable();
    bool save(const IniText& next);

    QString path_;
    Signature signature_;
    bool loaded_ = false;
    State state_ = State::Good;
    bool refusalLogged_ = false;
    int batches_ = 0;
    quint64 checkedTurn_ = 0; // the event-loop turn of the last check in a batch
    QElapsedTimer unsettledSince_;
    IniText text_; // the last good contents
};

// The number at the start of a text, as the classic Val reads it: leading
// blanks skipped, an optional sign, then digits; anything else gives 0.
// Fractions are cut. Every reader of numbers from files and requests uses this.
qint64 Val(QStringView text);
