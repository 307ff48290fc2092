#include "core/Settings.h"

#include "core/AtomicFile.h"
#include "core/ShiftJis.h"

#include <QFile>
#include <QLoggingCategory>

#include <sys/stat.h>

using namespace Qt::StringLiterals;

namespace {

Q_LOGGING_CATEGORY(lcSettings, "kestrava.settings")

bool isBlank(char c) {
    return c == ' ' || c == '\t';
}

QByteArray trimmed(QByteArrayView v) {
    qsizetype b = 0, e = v.size();
    while (b < e && isBlank(v[b]))
        ++b;
    while (e > b && isBlank(v[e - 1]))
        --e;
    return v.sliced(b, e - b).toByteArray();
}

QString fold(QStringView s) {
    return s.toString().toLower();
}

QString indexKey(const QString& foldedSection, const QString& foldedKey) {
    return foldedSection + u'\n' + foldedKey;
}

// Reads as at most 1023 bytes up to the first NUL, never splitting a
// double-byte character.
QByteArray cutValue(const QByteArray& raw) {
    qsizetype end = raw.indexOf('\0');
    if (end < 0)
        end = raw.size();
    if (end <= SettingsStore::MaxValueBytes)
        return raw.left(end);
    qsizetype i = 0;
    while (i < SettingsStore::MaxValueBytes) {
        auto c = static_cast<unsigned char>(raw[i]);
        bool lead = (c >= 0x81 && c <= 0x9F) || (c >= 0xE0 && c <= 0xFC);
        int step = lead ? 2 : 1;
        if (i + step > SettingsStore::MaxValueBytes)
            break;
        i += step;
    }
    return raw.left(i);
}

// Names and values written by the program stay on their own line.
QByteArray oneLine(QStringView text, QStringView forbidden = {}) {
    QString s = text.toString();
    for (QChar& c : s)
        if (c == u'\r' || c == u'\n' || forbidden.contains(c))
            c = u' ';
    return ShiftJis::Encode(s);
}

} // namespace

SettingsStore::SettingsStore(QString path) : path_(std::move(path)) {}

SettingsStore::Signature SettingsStore::stat() const {
    struct stat st {};
    Signature s;
    if (::stat(QFile::encodeName(path_).constData(), &st) != 0)
        return s;
    s.exists = true;
    s.size = st.st_size;
    s.mtimeNs = qint64(st.st_mtim.tv_sec) * 1000000000 + st.st_mtim.tv_nsec;
    s.inode = st.st_ino;
    s.device = st.st_dev;
    return s;
}

void SettingsStore::refresh() {
    Signature now = stat();
    if (loaded_ && now == signature_)
        return;
    QByteArray bytes;
    if (now.exists) {
        QFile f(path_);
        if (f.open(QIODevice::ReadOnly))
            bytes = f.readAll();
        else
            qCWarning(lcSettings).noquote() << "cannot read" << path_ << ":" << f.errorString();
    }
    signature_ = now;
    loaded_ = true;
    parse(bytes);
}

void SettingsStore::parse(const QByteArray& bytes) {
    lines_.clear();
    values_.clear();
    qsizetype firstLf = bytes.indexOf('\n');
    eol_ = (firstLf > 0 && bytes[firstLf - 1] == '\r') || firstLf < 0 ? "\r\n" : "\n";

    qsizetype pos = 0;
    while (pos < bytes.size()) {
        qsizetype lf = bytes.indexOf('\n', pos);
        qsizetype end = lf < 0 ? bytes.size() : lf;
        qsizetype next = lf < 0 ? bytes.size() : lf + 1;
        if (end > pos && bytes[end - 1] == '\r')
            --end;
        Line line;
        line.raw = bytes.sliced(pos, end - pos);
        line.eol = bytes.sliced(end, next - end);
        pos = next;

        QByteArray text = trimmed(line.raw);
        if (text.startsWith('[')) {
            qsizetype close = text.lastIndexOf(']');
            if (close > 0) {
                line.kind = Kind::Section;
                line.name = fold(ShiftJis::Decode(trimmed(text.sliced(1, close - 1))));
                lines_.push_back(std::move(line));
                continue;
            }
            // A header without "]" is read as a key line, as Windows does.
        }
        if (text.isEmpty() || text.startsWith(';')) {
            lines_.push_back(std::move(line));
            continue;
        }
        qsizetype eq = text.indexOf('=');
        line.kind = Kind::Key;
        line.key = trimmed(eq < 0 ? text : text.left(eq));
        line.value = eq < 0 ? QByteArray() : trimmed(text.sliced(eq + 1));
        line.name = fold(ShiftJis::Decode(line.key));
        lines_.push_back(std::move(line));
    }
    index();
}

void SettingsStore::index() {
    values_.clear();
    QHash<QString, bool> seenSections;
    QString current;
    bool active = false; // inside the first section of its name
    for (const Line& line : lines_) {
        if (line.kind == Kind::Section) {
            current = line.name;
            active = !seenSections.contains(current);
            seenSections.insert(current, true);
        } else if (line.kind == Kind::Key && active) {
            QString k = indexKey(current, line.name);
            if (!values_.contains(k))
                values_.insert(k, ShiftJis::Decode(cutValue(line.value)));
        }
    }
}

qsizetype SettingsStore::findSection(const QString& folded) const {
    for (size_t i = 0; i < lines_.size(); ++i)
        if (lines_[i].kind == Kind::Section && lines_[i].name == folded)
            return qsizetype(i);
    return -1;
}

QString SettingsStore::ReadIni(QStringView section, QStringView key) {
    refresh();
    return values_.value(indexKey(fold(section), fold(key)));
}

void SettingsStore::WriteIni(QStringView section, QStringView key, QStringView value) {
    refresh();
    const QString fs = fold(section), fk = fold(key);
    const QByteArray keyBytes = trimmed(oneLine(key, u"="));
    const QByteArray valueBytes = oneLine(value);

    qsizetype s = findSection(fs);
    if (s < 0) {
        Line header;
        header.kind = Kind::Section;
        header.name = fs;
        header.raw = '[' + trimmed(oneLine(section, u"]")) + ']';
        lines_.push_back(std::move(header));
        s = qsizetype(lines_.size()) - 1;
    }
    // Replace the key within the section, or add it after the section's last key.
    qsizetype insertAt = s + 1;
    qsizetype i = s + 1;
    for (; i < qsizetype(lines_.size()) && lines_[i].kind != Kind::Section; ++i) {
        Line& line = lines_[i];
        if (line.kind != Kind::Key)
            continue;
        if (line.name == fk) {
            line.value = trimmed(valueBytes);
            line.raw = line.key + '=' + valueBytes;
            break;
        }
        insertAt = i + 1;
    }
    if (i >= qsizetype(lines_.size()) || lines_[i].kind == Kind::Section) {
        Line line;
        line.kind = Kind::Key;
        line.key = keyBytes;
        line.name = fk;
        line.value = trimmed(valueBytes);
        line.raw = keyBytes + '=' + valueBytes;
        lines_.insert(lines_.begin() + insertAt, std::move(line));
    }
    index();
    save();
}

bool SettingsStore::DeleteIniSection(QStringView section) {
    refresh();
    const QString fs = fold(section);
    bool removing = false, changed = false;
    std::vector<Line> kept;
    kept.reserve(lines_.size());
    for (Line& line : lines_) {
        if (line.kind == Kind::Section)
            removing = line.name == fs;
        if (removing)
            changed = true;
        else
            kept.push_back(std::move(line));
    }
    lines_ = std::move(kept);
    index();
    return !changed || save();
}

bool SettingsStore::save() {
    QByteArray out;
    for (const Line& line : lines_) {
        // The file's last line may end in a lone CR, and another line may
        // follow it now: that CR stays the one a line end strips when read.
        const QByteArray eol = line.eol.endsWith('\n') ? line.eol
                               : line.eol.isEmpty()    ? eol_
                                                       : QByteArray("\r\n");
        out += line.raw + eol;
    }
    QString error;
    if (!WriteFileAtomically(path_, out, 0600, &error)) {
        qCWarning(lcSettings).noquote() << "cannot write" << error;
        // Forget the failed change: the next read goes to the file again.
        loaded_ = false;
        return false;
    }
    signature_ = stat();
    return true;
}

qint64 Val(QStringView text) {
    qsizetype i = 0;
    while (i < text.size() && (text[i] == u' ' || text[i] == u'\t'))
        ++i;
    bool negative = false;
    if (i < text.size() && (text[i] == u'-' || text[i] == u'+'))
        negative = text[i++] == u'-';
    qint64 n = 0;
    for (; i < text.size() && text[i] >= u'0' && text[i] <= u'9'; ++i) {
        if (n > (std::numeric_limits<qint64>::max() - 9) / 10)
            break; // saturate rather than overflow
        n = n * 10 + (text[i].unicode() - u'0');
    }
    return negative ? -n : n;
}
