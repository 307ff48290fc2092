#include "infrared/SignalCodeCache.h"

#include "core/AtomicFile.h"
#include "core/BoundedRead.h"
#include "infrared/SignalStore.h"

#include <QFile>
#include <QLoggingCategory>

#include <limits>

#include <sys/stat.h>

using namespace Qt::StringLiterals;

namespace {
Q_LOGGING_CATEGORY(lcCodes, "kestrava.codes")

constexpr QByteArrayView Header = "kestrava signal codes 1\n";
constexpr qsizetype MaxFileBytes = 16 * 1024 * 1024;

QByteArray identityKey(const SignalCodeCache::Identity& id) {
    return QByteArray::number(id.inode) + ' ' + QByteArray::number(id.size) + ' ' +
           QByteArray::number(id.mtimeNs);
}

// Not there: size -1.
SignalCodeCache::Identity identityOf(const QString& path) {
    struct stat st {};
    if (::stat(QFile::encodeName(path).constData(), &st) != 0 || !S_ISREG(st.st_mode))
        return {};
    return {uint64_t(st.st_ino), int64_t(st.st_size),
            int64_t(st.st_mtim.tv_sec) * 1000000000 + st.st_mtim.tv_nsec};
}

// A whole decimal number as we write it: no sign, no leading zero.
template <typename T> std::optional<T> number(QByteArrayView text) {
    if (text.isEmpty() || text.size() > 20 || (text.size() > 1 && text[0] == '0'))
        return std::nullopt;
    for (char c : text)
        if (c < '0' || c > '9')
            return std::nullopt;
    bool ok = false;
    const qulonglong v = text.toULongLong(&ok);
    if (!ok || v > qulonglong(std::numeric_limits<T>::max()))
        return std::nullopt;
    return T(v);
}

} // namespace

SignalCodeCache::SignalCodeCache() = default;

SignalCodeCache::SignalCodeCache(QString file) : file_(std::move(file)) {
    saveTimer_.setSingleShot(true);
    saveTimer_.setInterval(SaveDelayMs);
    QObject::connect(&saveTimer_, &QTimer::timeout, [this] { save(); });
    load();
}

SignalCodeCache::~SignalCodeCache() {
    save();
}

void SignalCodeCache::clear() {
    byPath_.clear();
    byIdentity_.clear();
}

IrCode SignalCodeCache::codeOf(const QString& path) {
    bool exists = false;
    return codeOf(path, &exists);
}

IrCode SignalCodeCache::codeOf(const QString& path, bool* exists) {
    const Identity id = identityOf(path);
    *exists = id.size >= 0;
    const auto it = byPath_.constFind(path);
    if (it != byPath_.cend() && it->id == id)
        return it->code;
    if (!*exists) {
        byPath_.remove(path);
        return {};
    }
    const QByteArray key = identityKey(id);
    if (const auto known = byIdentity_.constFind(key); known != byIdentity_.cend()) {
        byPath_.insert(path, {id, *known, true}); // renamed, or known from the file
    } else {
        Entry e{id, {}, false};
        QByteArray blob;
        QString why;
        if (ReadCheckedSignal(path, &blob, &why) == SignalRead::Ok)
            if (auto b = IrBlob::decode(blob)) {
                e.code = DecodeSignal(TimingFromBlob(*b));
                // Written while we read it: its identity may not be this content's.
                e.keep = identityOf(path) == id;
            }
        if (e.keep)
            byIdentity_.insert(key, e.code);
        byPath_.insert(path, e);
    }
    if (!file_.isEmpty() && byPath_[path].keep) {
        dirty_ = true;
        if (!saveTimer_.isActive())
            saveTimer_.start();
    }
    return byPath_[path].code;
}

std::optional<std::vector<SignalCodeCache::Record>> SignalCodeCache::Parse(QByteArrayView bytes) {
    if (!bytes.startsWith(Header) || !bytes.endsWith('\n'))
        return std::nullopt;
    std::vector<Record> records;
    qsizetype at = Header.size();
    while (at < bytes.size()) {
        const qsizetype end = bytes.indexOf('\n', at);
        const QByteArrayView line = bytes.sliced(at, end - at);
        at = end + 1;
        // inode size mtime flags spec \t path
        const qsizetype tab = line.indexOf('\t');
        if (tab < 0)
            return std::nullopt;
        const QList<QByteArray> f = line.first(tab).toByteArray().split(' ');
        if (f.size() != 5)
            return std::nullopt;
        Record r;
        const auto inode = number<uint64_t>(f[0]);
        const auto size = number<int64_t>(f[1]);
        const auto mtime = number<int64_t>(f[2]);
        const auto flags = number<uint8_t>(f[3]);
        if (!inode || !size || !mtime || !flags || *flags > 3)
            return std::nullopt;
        r.id = {*inode, *size, *mtime};
        const QString spec = QString::fromLatin1(f[4]);
        if (spec != u"raw") {
            const auto code = ParseCodeSpec(spec);
            // Only what we write ourselves: a spec read back as written.
            if (!code || CodeSpec(*code) != spec)
                return std::nullopt;
            r.code = *code;
        }
        r.code.toggle = *flags & 1;
        r.code.repeats = *flags & 2;
        const QByteArrayView path = line.sliced(tab + 1);
        r.path = QString::fromUtf8(path);
        if (r.path.isEmpty() || path.contains('\r') || r.path.toUtf8() != path)
            return std::nullopt;
        records.push_back(std::move(r));
    }
    return records;
}

QByteArray SignalCodeCache::Format(const std::vector<Record>& records) {
    QByteArray out = Header.toByteArray();
    for (const Record& r : records) {
        if (r.path.isEmpty() || r.path.contains(u'\n') || r.path.contains(u'\r'))
            continue;
        out += identityKey(r.id) + ' ' +
               QByteArray::number(int(r.code.toggle) | int(r.code.repeats) << 1) + ' ' +
               CodeSpec(r.code).toLatin1() + '\t' + r.path.toUtf8() + '\n';
    }
    return out;
}

void SignalCodeCache::load() {
    const BoundedRead read = ReadBounded(file_, MaxFileBytes, {.plainOnly = true});
    if (!read.ok()) {
        if (read.result == BoundedRead::Missing || read.result == BoundedRead::TooLarge)
            return; // TooLarge: none of ours, replaced at the next save
        // What we cannot read we do not replace either.
        qCWarning(lcCodes).noquote() << "cannot read" << file_ << "- decoding anew";
        file_.clear();
        return;
    }
    const auto records = Parse(read.bytes);
    if (!records) {
        qCWarning(lcCodes).noquote() << file_ << "is not a list of signal codes - decoding anew";
        dirty_ = true; // replaced by a good one at the next save
        return;
    }
    for (const Record& r : *records) {
        byPath_.insert(r.path, {r.id, r.code, true});
        byIdentity_.insert(identityKey(r.id), r.code);
    }
}

void SignalCodeCache::save() {
    saveTimer_.stop();
    if (file_.isEmpty() || !dirty_)
        return;
    std::vector<Record> records;
    records.reserve(size_t(byPath_.size()));
    for (auto it = byPath_.cbegin(); it != byPath_.cend(); ++it)
        if (it->keep && identityOf(it.key()) == it->id) // gone or changed: not kept
            records.push_back({it->id, it->code, it.key()});
    QString error;
    if (WriteFileAtomically(file_, Format(records), 0644, &error))
        dirty_ = false;
    else
        qCWarning(lcCodes).noquote() << "cannot write" << file_ << ":" << error;
}
