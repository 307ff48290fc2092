#include "core/Settings.h"

#include "core/AtomicFile.h"
#include "core/BoundedRead.h"
#include "core/ShiftJis.h"

#include <QAbstractEventDispatcher>
#include <QFile>
#include <QLoggingCategory>
#include <QPointer>

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

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
    if (end <= IniText::MaxValueBytes)
        return raw.left(end);
    qsizetype i = 0;
    while (i < IniText::MaxValueBytes) {
        auto c = static_cast<unsigned char>(raw[i]);
        bool lead = (c >= 0x81 && c <= 0x9F) || (c >= 0xE0 && c <= 0xFC);
        int step = lead ? 2 : 1;
        if (i + step > IniText::MaxValueBytes)
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

// Reads the whole file; false with errno kept when any part of it fails. A
// registry of the most remotes with every key named is far below the limit.
bool readAll(const QString& path, QByteArray& out, int& err) {
    BoundedRead read = ReadBounded(path, 16 * 1024 * 1024);
    if (read.result == BoundedRead::TooLarge)
        err = EFBIG;
    else if (!read.ok())
        err = read.errnum;
    out = std::move(read.bytes);
    return read.ok();
}

// Counts turns of the event loop: it moves whenever the loop wakes or is about
// to sleep, so anything another program did is looked at again.
quint64 loopTurn = 1;

void countTurns() {
    static QPointer<QAbstractEventDispatcher> watched;
    QAbstractEventDispatcher* d = QAbstractEventDispatcher::instance();
    if (!d || d == watched)
        return;
    watched = d;
    QObject::connect(d, &QAbstractEventDispatcher::awake, [] { ++loopTurn; });
    QObject::connect(d, &QAbstractEventDispatcher::aboutToBlock, [] { ++loopTurn; });
}

} // namespace

IniText::IniText(QByteArrayView bytes) {
    qsizetype firstLf = bytes.indexOf('\n');
    if (firstLf > 0 && bytes[firstLf - 1] != '\r')
        eol_ = "\n";

    qsizetype pos = 0;
    while (pos < bytes.size()) {
        qsizetype lf = bytes.indexOf('\n', pos);
        qsizetype end = lf < 0 ? bytes.size() : lf;
        qsizetype next = lf < 0 ? bytes.size() : lf + 1;
        if (lf >= 0 && end > pos && bytes[end - 1] == '\r')
            --end;
        Line line;
        line.raw = bytes.sliced(pos, end - pos).toByteArray();
        line.end = bytes.sliced(end, next - end).toByteArray();
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
        line.name = fold(ShiftJis::Decode(line.key));
        lines_.push_back(std::move(line));
    }
    index();
}

void IniText::index() {
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
            if (values_.contains(k))
                continue;
            QByteArray text = trimmed(line.raw);
            qsizetype eq = text.indexOf('=');
            QByteArray value = eq < 0 ? QByteArray() : trimmed(text.sliced(eq + 1));
            values_.insert(k, ShiftJis::Decode(cutValue(value)));
        }
    }
}

qsizetype IniText::findSection(const QString& folded) const {
    for (size_t i = 0; i < lines_.size(); ++i)
        if (lines_[i].kind == Kind::Section && lines_[i].name == folded)
            return qsizetype(i);
    return -1;
}

QString IniText::value(QStringView section, QStringView key) const {
    // Folded in one piece, ASCII by hand: pages look up hundreds of keys per
    // request, and a full Unicode lower-casing is slow for plain names.
    QString k;
    k.reserve(section.size() + 1 + key.size());
    k.append(section).append(u'\n').append(key);
    bool ascii = true;
    for (QChar& c : k) {
        const char16_t u = c.unicode();
        if (u >= 0x80) {
            ascii = false;
            break;
        }
        if (u >= u'A' && u <= u'Z')
            c = QChar(u + (u'a' - u'A'));
    }
    return values_.value(ascii ? k : std::move(k).toLower());
}

void IniText::setValue(QStringView section, QStringView key, QStringView value) {
    const QString fs = fold(section), fk = fold(key);
    const QByteArray keyBytes = trimmed(oneLine(key, u"="));
    const QByteArray valueBytes = oneLine(value);

    qsizetype s = findSection(fs);
    if (s < 0) {
        Line header;
        header.kind = Kind::Section;
        header.name = fs;
        header.raw = '[' + trimmed(oneLine(section, u"]")) + ']';
        header.end = eol_;
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
        line.raw = keyBytes + '=' + valueBytes;
        line.end = eol_;
        lines_.insert(lines_.begin() + insertAt, std::move(line));
    }
    // The line changed is the one index() reads for the key (the first in the
    // first section of the name): its entry alone changes, as index() would
    // make it. A whole index() per value made writing a large registry
    // quadratic.
    values_.insert(indexKey(fs, fk), ShiftJis::Decode(cutValue(trimmed(valueBytes))));
}

bool IniText::removeSection(QStringView section) {
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
    return changed;
}

QByteArray IniText::bytes() const {
    QByteArray out;
    for (size_t i = 0; i < lines_.size(); ++i) {
        out += lines_[i].raw;
        // A last line without an ending gets one once something follows it; after
        // a CR it must be CR LF, or the reader would take that CR for the ending.
        if (lines_[i].end.isEmpty() && i + 1 < lines_.size())
            out += lines_[i].raw.endsWith('\r') ? QByteArrayView("\r\n") : QByteArrayView(eol_);
        else
            out += lines_[i].end;
    }
    return out;
}

SettingsStore::SettingsStore(QString path) : path_(std::move(path)) {}

SettingsStore::Batch::Batch(SettingsStore& store) : store_(store) {
    if (store_.batches_++ == 0) {
        countTurns();
        store_.checkedTurn_ = 0;
    }
}

SettingsStore::Batch::~Batch() {
    --store_.batches_;
}

SettingsStore::Signature SettingsStore::stat() const {
    struct stat st {};
    Signature s;
    if (::stat(QFile::encodeName(path_).constData(), &st) != 0)
        return s;
    s.exists = true;
    s.size = st.st_size;
    s.mtimeNs = qint64(st.st_mtim.tv_sec) * 1000000000 + st.st_mtim.tv_nsec;
    // A change of mode or owner shows only here.
    s.ctimeNs = qint64(st.st_ctim.tv_sec) * 1000000000 + st.st_ctim.tv_nsec;
    s.inode = st.st_ino;
    s.device = st.st_dev;
    return s;
}

void SettingsStore::refresh(bool always) {
    if (!always && batches_ > 0 && checkedTurn_ == loopTurn && loaded_ && state_ == State::Good)
        return;
    checkedTurn_ = loopTurn;
    Signature now = stat();
    // Until the file reads well again, every access tries again.
    if (loaded_ && now == signature_ && state_ == State::Good)
        return;
    QByteArray bytes;
    int err = 0;
    if (now.exists && !readAll(path_, bytes, err)) {
        if (state_ != State::Unreadable)
            qCWarning(lcSettings).noquote()
                << "cannot read" << path_ << ":" << QString::fromLocal8Bit(std::strerror(err))
                << "- keeping the settings read before and writing none until it can be read";
        signature_ = now;
        state_ = State::Unreadable;
        loaded_ = true;
        return;
    }
    if (bytes.isEmpty() && text_.hasKeys()) {
        // Gone or emptied after it held keys: most likely a rewrite in progress.
        if (state_ != State::Unsettled) {
            state_ = State::Unsettled;
            unsettledSince_.start();
        }
        if (unsettledSince_.elapsed() < SettleMs)
            return;
        qCInfo(lcSettings).noquote() << path_ << "is" << (now.exists ? "empty" : "gone");
    } else if (state_ == State::Unreadable) {
        qCInfo(lcSettings).noquote() << "reading" << path_ << "again";
    }
    state_ = State::Good;
    refusalLogged_ = false;
    signature_ = now;
    loaded_ = true;
    text_ = IniText(bytes);
}

bool SettingsStore::Unreadable() {
    refresh();
    return state_ == State::Unreadable;
}

QString SettingsStore::ReadIni(QStringView section, QStringView key) {
    refresh();
    return text_.value(section, key);
}

bool SettingsStore::writable() {
    refresh(true);
    if (state_ == State::Good)
        return true;
    if (!refusalLogged_)
        qCWarning(lcSettings).noquote()
            << "not writing" << path_ << "while it"
            << (state_ == State::Unreadable ? "cannot be read" : "is being rewritten");
    refusalLogged_ = true;
    return false;
}

bool SettingsStore::WriteIni(QStringView section, QStringView key, QStringView value) {
    return WriteAll({{SettingKey{section.toString(), key.toString()}, value.toString()}});
}

bool SettingsStore::WriteAll(const std::vector<std::pair<SettingKey, QString>>& values,
                             QStringView clearSection) {
    if (!writable())
        return false;
    IniText next = text_;
    // A fresh installation serves the home network only until its owner opens it.
    if (!signature_.exists && !next.hasKeys())
        next.setValue(Key::Internet.section, Key::Internet.key, u"0");
    if (!clearSection.isEmpty())
        next.removeSection(clearSection);
    for (const auto& [key, value] : values)
        next.setValue(key.section, key.key, value);
    return save(next);
}

bool SettingsStore::DeleteIniSection(QStringView section) {
    if (!writable())
        return false;
    IniText next = text_;
    return !next.removeSection(section) || save(next);
}

bool SettingsStore::save(const IniText& next) {
    QString error;
    if (!WriteFileAtomically(path_, next.bytes(), 0600, &error)) {
        qCWarning(lcSettings).noquote() << "cannot write" << error;
        return false; // the file and what we hold of it stay as they were
    }
    text_ = next;
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
