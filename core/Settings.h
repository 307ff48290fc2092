#pragma once

#include <QByteArray>
#include <QHash>
#include <QString>
#include <QStringView>

#include <vector>

// setting.ini: the one store of settings and the registry of remotes.
//
// Sections and keys match without regard to case; anything missing reads as "";
// a value reads as at most 1023 bytes (CP932). The file is parsed once and kept,
// and every read first checks the file's size, time and identity, so a change
// made by hand or by another instance is seen at the next read. Writes replace
// the file atomically with mode 0600; lines the program does not touch keep
// their bytes.
class SettingsStore {
public:
    explicit SettingsStore(QString path);

    QString ReadIni(QStringView section, QStringView key);
    // Creates file, section and key as needed. A failure is logged, not reported.
    void WriteIni(QStringView section, QStringView key, QStringView value);
    // Removes every section of that name with its keys; false when the file
    // could not be written.
    bool DeleteIniSection(QStringView section);

    const QString& path() const { return path_; }

    static constexpr int MaxValueBytes = 1023;

private:
    enum class Kind { Other, Section, Key };
    struct Line {
        QByteArray raw;
        QByteArray eol; // its own line end as read; "" for a new line
        Kind kind = Kind::Other;
        QString name;     // section or key name, folded to lower case
        QByteArray key;   // key name as written in the file
        QByteArray value; // raw value, trimmed
    };
    struct Signature {
        bool exists = false;
        qint64 size = 0, mtimeNs = 0;
        quint64 inode = 0, device = 0;
        bool operator==(const Signature&) const = default;
    };

    Signature stat() const;
    void refresh();
    void parse(const QByteArray& bytes);
    void index();
    bool save();
    qsizetype findSection(const QString& folded) const;

    QString path_;
    Signature signature_;
    bool loaded_ = false;
    QByteArray eol_ = "\r\n";
    std::vector<Line> lines_;
    QHash<QString, QString> values_; // "section\nkey" folded -> value
};

// The number at the start of a text, as the classic Val reads it: leading
// blanks skipped, an optional sign, then digits; anything else gives 0.
// Fractions are cut. Every reader of numbers from files and requests uses this.
qint64 Val(QStringView text);
