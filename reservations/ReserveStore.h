#pragma once

#include <QString>
#include <QStringList>
#include <QStringView>

#include <array>

class ProgramFolder;
class SettingsStore;

// The reservation store: one file per moment of the schedule, nothing else.
// The name says when, "2026_11_23 07_05" once or "0100100 21_30" on the days
// of a Sunday-first mask; each line "<device>|<function>" says what, in firing
// order. Contents are CP932 with CR LF; every change replaces the file whole.
namespace Reserve {

// reserve/, or testmode/reserve/ in test mode.
QString Folder(const ProgramFolder& folder, SettingsStore& settings);

// "yyyy_mm_dd hh_mm" or "<seven 0/1> hh_mm". Anything else in the folder is
// not a reservation and is never read, written or deleted as one.
bool IsValidName(QStringView name);
bool IsRepeating(QStringView name); // the first blank is the 8th character

// The name for a date ("yyyy/mm/dd") or a mask, and a time ("hh:mm").
QString NameFor(QStringView dateOrMask, QStringView time);
QString MaskFor(const std::array<bool, 7>& days); // Sunday first

// What the lists show for a name: "2026/11/23", "毎日" or the day letters
// ("月木"); and "21:30".
QString DayText(QStringView name);
QString TimeText(QStringView name);
// Back from the shown texts to the name ("毎日" and letters give a mask).
QString NameFromTexts(QStringView dayText, QStringView timeText);

extern const QString DayLetters; // 日月火水木金土

// A line is split at its first "|"; without one the device is empty.
struct Operation {
    QString device;
    QString function;
};
Operation SplitLine(QStringView line);
QString JoinLine(QStringView device, QStringView function);

// The lines of a file (at CR LF, or a lone LF), empty ones kept so that line
// numbers stay those of the file. Missing, unreadable, above MaxFileBytes, or
// not a plain file (a link is never followed): none.
QStringList ReadLines(const QString& path);
constexpr qint64 MaxFileBytes = 1 << 20;

// The moments a folder may hold. Every change re-reads the whole store for the
// grid and list.asp shows every row, so the count bounds that work; it is far
// beyond a household's schedule (a one-shot for every day of ten years).
constexpr int MaxFiles = 4000;
// Longer is no device's or key's name.
constexpr qsizetype MaxNameLength = 200;

// The names of the reservations in a folder, in ordinal order; links and other
// files that are not plain are left out.
QStringList ListNames(const QString& folderPath);

// A device or function name a line may hold: not empty, not too long, no "|"
// and no control or broken character (a TAB or line end would break the rows).
bool IsWritableName(QStringView name);

enum class AddResult { Added, BadName, FileFull, TooManyFiles, NotWritten };
// Appends a line unless it would take the file past MaxFileBytes or make one
// moment too many; the file is then left as it was.
AddResult AddLine(const QString& path, QStringView device, QStringView function);
// What the user reads of a refusal, and what the log says.
QString AddRefusalText(AddResult result);
const char* AddRefusalReason(AddResult result);

// The others return whether the file was changed. Line numbers count from 1.
// Swaps a line with the one before (up) or after; rewrites without empty lines.
bool MoveLine(const QString& path, int line, bool up);
// Removes one line; a file left without lines stays, empty.
bool DeleteLine(const QString& path, int line);
// The same, but only while that line still reads `expected`.
bool DeleteLineIf(const QString& path, int line, QStringView expected);
// Removes every line equal to `line`; the file goes when nothing is left.
bool DeleteByContent(const QString& path, QStringView line);
// Deletes a reservation file; a link stays.
bool RemoveFile(const QString& path);

} // namespace Reserve
