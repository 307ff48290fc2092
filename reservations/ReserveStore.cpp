#include "reservations/ReserveStore.h"

#include "core/AtomicFile.h"
#include "core/BoundedRead.h"
#include "core/NameText.h"
#include "core/ProgramFolder.h"
#include "core/ShiftJis.h"
#include "remotes/Registry.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QLoggingCategory>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {

Q_LOGGING_CATEGORY(lcStore, "kestrava.reserve")

bool isDigits(QStringView s) {
    return std::all_of(s.begin(), s.end(), [](QChar c) { return c >= u'0' && c <= u'9'; });
}

struct FileBytes {
    enum State { Read, Missing, TooLarge, Refused } state;
    QByteArray data;
};

// A reservation is a plain file: a link is neither followed nor replaced (it
// may point anywhere), and a pipe would stall the whole program.
FileBytes readFile(const QString& path) {
    // Nothing we write comes near the limit; a larger file is someone else's
    // and would only swell the grid and the pages.
    BoundedRead read =
        ReadBounded(path, Reserve::MaxFileBytes, {.plainOnly = true, .noFollow = true});
    switch (read.result) {
    case BoundedRead::Ok:
        return {FileBytes::Read, std::move(read.bytes)};
    case BoundedRead::Missing:
        return {FileBytes::Missing, {}};
    case BoundedRead::TooLarge:
        qCWarning(lcStore).noquote() << "ignoring" << path << "- too large for a reservation";
        return {FileBytes::TooLarge, {}};
    case BoundedRead::NotPlain:
        qCWarning(lcStore).noquote() << "skipping" << path << "- not a plain file";
        return {FileBytes::Refused, {}};
    case BoundedRead::Failed:
        break;
    }
    if (read.errnum == ELOOP)
        qCWarning(lcStore).noquote() << "skipping" << path << "- a link";
    else
        qCWarning(lcStore).noquote() << "cannot read" << path << "-" << read.error;
    return {FileBytes::Refused, {}};
}

bool isPlainFile(const QString& path) {
    struct stat st {};
    if (lstat(QFile::encodeName(path).constData(), &st) != 0)
        return false;
    if (!S_ISREG(st.st_mode))
        qCWarning(lcStore).noquote()
            << "skipping" << path << (S_ISLNK(st.st_mode) ? "- a link" : "- not a plain file");
    return S_ISREG(st.st_mode);
}

// Every entry with a reservation's name, plain or not.
qsizetype countNames(const QString& folderPath) {
    const QStringList all =
        QDir(folderPath)
            .entryList(QDir::Files | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot);
    return std::count_if(all.begin(), all.end(),
                         [](const QString& n) { return Reserve::IsValidName(n); });
}

// Writes the lines that are not empty, in order.
bool writeLines(const QString& path, const QStringList& lines) {
    QByteArray bytes;
    for (const QString& line : lines)
        if (!line.isEmpty())
            bytes += ShiftJis::Encode(line) + "\r\n";
    QString error;
    if (!WriteFileAtomically(path, bytes, 0644, &error)) {
        qCWarning(lcStore).noquote() << "cannot write" << error;
        return false;
    }
    return true;
}

bool validPath(const QString& path) {
    return Reserve::IsValidName(QFileInfo(path).fileName());
}

} // namespace

namespace Reserve {

const QString DayLetters = u"日月火水木金土"_s;

QString Folder(const ProgramFolder& folder, SettingsStore& settings) {
    return folder.path(IsTestMode(settings) ? u"testmode/reserve" : u"reserve");
}

bool IsValidName(QStringView name) {
    const qsizetype blank = name.indexOf(u' ');
    if (blank < 0 || name.size() != blank + 6)
        return false;
    const QStringView day = name.left(blank), time = name.mid(blank + 1);
    if (!isDigits(time.left(2)) || time[2] != u'_' || !isDigits(time.mid(3)))
        return false;
    if (blank == 7)
        return std::all_of(day.begin(), day.end(), [](QChar c) { return c == u'0' || c == u'1'; });
    return blank == 10 && isDigits(day.left(4)) && day[4] == u'_' && isDigits(day.mid(5, 2)) &&
           day[7] == u'_' && isDigits(day.mid(8));
}

bool IsRepeating(QStringView name) {
    return name.indexOf(u' ') == 7;
}

QString NameFor(QStringView dateOrMask, QStringView time) {
    QString name = dateOrMask.toString() + u' ' + time.toString();
    return name.replace(u'/', u'_').replace(u':', u'_');
}

QString MaskFor(const std::array<bool, 7>& days) {
    QString mask;
    for (bool on : days)
        mask += on ? u'1' : u'0';
    return mask;
}

QString DayText(QStringView name) {
    if (!IsRepeating(name))
        return name.left(10).toString().replace(u'_', u'/');
    const QStringView mask = name.left(7);
    if (mask == u"1111111")
        return u"毎日"_s;
    QString letters;
    for (int i = 0; i < 7; ++i)
        if (mask[i] == u'1')
            letters += DayLetters[i];
    return letters;
}

QString TimeText(QStringView name) {
    const qsizetype blank = name.indexOf(u' ');
    return blank < 0 ? QString() : name.mid(blank + 1).toString().replace(u'_', u':');
}

QString NameFromTexts(QStringView dayText, QStringView timeText) {
    QString day;
    if (dayText == u"毎日") {
        day = u"1111111"_s;
    } else if (dayText.size() == 10 && dayText[4] == u'/') {
        day = dayText.toString();
    } else {
        std::array<bool, 7> days{};
        for (int i = 0; i < 7; ++i)
            days[i] = dayText.contains(DayLetters[i]);
        day = MaskFor(days);
    }
    return NameFor(day, timeText);
}

Operation SplitLine(QStringView line) {
    const qsizetype bar = line.indexOf(u'|');
    if (bar < 0)
        return {QString(), line.toString()};
    return {line.left(bar).toString(), line.mid(bar + 1).toString()};
}

QString JoinLine(QStringView device, QStringView function) {
    return device.toString() + u'|' + function.toString();
}

QStringList ReadLines(const QString& path) {
    const QByteArray bytes = readFile(path).data;
    QStringList lines;
    qsizetype start = 0;
    while (start < bytes.size()) {
        qsizetype end = bytes.indexOf('\n', start);
        if (end < 0)
            end = bytes.size();
        qsizetype stop = end;
        if (stop > start && bytes[stop - 1] == '\r')
            --stop;
        lines << ShiftJis::Decode(QByteArrayView(bytes).sliced(start, stop - start));
        start = end + 1;
    }
    return lines;
}

QStringList ListNames(const QString& folderPath) {
    QStringList names;
    const QFileInfoList entries =
        QDir(folderPath).entryInfoList(QDir::Files | QDir::Hidden | QDir::System);
    for (const QFileInfo& entry : entries) {
        if (!IsValidName(entry.fileName()))
            continue;
        if (entry.isSymLink() || !entry.isFile())
            qCWarning(lcStore).noquote() << "skipping" << entry.filePath()
                                         << (entry.isSymLink() ? "- a link" : "- not a plain file");
        else
            names << entry.fileName();
    }
    std::sort(names.begin(), names.end(),
              [](const QString& a, const QString& b) { return a.compare(b) < 0; });
    return names;
}

bool IsWritableName(QStringView name) {
    return !name.isEmpty() && name.size() <= MaxNameLength && !name.contains(u'|') &&
           !HasControlOrBrokenChar(name);
}

AddResult AddLine(const QString& path, QStringView device, QStringView function) {
    if (!validPath(path))
        return AddResult::NotWritten;
    if (!IsWritableName(device) || !IsWritableName(function))
        return AddResult::BadName;
    // The old bytes stay as they are; only a missing line end is supplied.
    FileBytes old = readFile(path);
    if (old.state == FileBytes::TooLarge)
        return AddResult::FileFull;
    if (old.state == FileBytes::Refused)
        return AddResult::NotWritten;
    const QString folderPath = QFileInfo(path).path();
    if (old.state == FileBytes::Missing && countNames(folderPath) >= MaxFiles)
        return AddResult::TooManyFiles;
    QByteArray bytes = std::move(old.data);
    if (!bytes.isEmpty() && !bytes.endsWith('\n'))
        bytes += "\r\n";
    bytes += ShiftJis::Encode(JoinLine(device, function)) + "\r\n";
    // Past the limit the reader would refuse the file whole, the lines that
    // were there first included.
    if (bytes.size() > MaxFileBytes)
        return AddResult::FileFull;
    QDir().mkpath(folderPath);
    QString error;
    if (!WriteFileAtomically(path, bytes, 0644, &error)) {
        qCWarning(lcStore).noquote() << "cannot add:" << error;
        return AddResult::NotWritten;
    }
    return AddResult::Added;
}

QString AddRefusalText(AddResult result) {
    switch (result) {
    case AddResult::Added:
        return {};
    case AddResult::BadName:
        return u"機器名または機能名が不正です"_s;
    case AddResult::FileFull:
        return u"この日付・時刻にはこれ以上予約できません"_s;
    case AddResult::TooManyFiles:
        return u"予約の数が上限に達しています"_s;
    case AddResult::NotWritten:
        break;
    }
    return u"予約を保存できませんでした"_s;
}

const char* AddRefusalReason(AddResult result) {
    switch (result) {
    case AddResult::Added:
        return "added";
    case AddResult::BadName:
        return "a device or function name that cannot be stored";
    case AddResult::FileFull:
        return "the moment's file is full";
    case AddResult::TooManyFiles:
        return "too many moments";
    case AddResult::NotWritten:
        break;
    }
    return "the file could not be written";
}

bool MoveLine(const QString& path, int line, bool up) {
    QStringList lines = ReadLines(path);
    const int other = up ? line - 1 : line + 1;
    if (!validPath(path) || line < 1 || other < 1 || line > lines.size() || other > lines.size())
        return false;
    lines.swapItemsAt(line - 1, other - 1);
    return writeLines(path, lines);
}

bool DeleteLine(const QString& path, int line) {
    QStringList lines = ReadLines(path);
    if (!validPath(path) || line < 1 || line > lines.size())
        return false;
    lines.removeAt(line - 1);
    return writeLines(path, lines);
}

bool DeleteLineIf(const QString& path, int line, QStringView expected) {
    const QStringList lines = ReadLines(path);
    if (line < 1 || line > lines.size() || lines[line - 1] != expected)
        return false;
    return DeleteLine(path, line);
}

bool DeleteByContent(const QString& path, QStringView line) {
    QStringList lines = ReadLines(path);
    if (!validPath(path) || lines.removeAll(line) == 0)
        return false;
    lines.removeAll(QString());
    if (lines.isEmpty())
        return RemoveFile(path);
    return writeLines(path, lines);
}

bool RemoveFile(const QString& path) {
    return validPath(path) && isPlainFile(path) && QFile::remove(path);
}

} // namespace Reserve
