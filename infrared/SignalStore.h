#pragma once

#include <QByteArray>
#include <QString>
#include <QStringView>

#include <array>
#include <cstdint>

class ProgramFolder;

// A learned signal is one 2000-byte file: the signal's bytes from the start,
// and its length N in the last two bytes as a number to base 255
// (byte 1998 = N / 255, byte 1999 = N % 255). Files from older versions carry
// no length (both bytes zero, or a short file); their signal ends at the last
// non-zero byte.
constexpr int SignalFileSize = 2000;
using SignalImage = std::array<uint8_t, SignalFileSize>;

// IRSignals/<device>-<function>.bin. Files are named from the names as
// setting.ini gives them back (CP932 folds 〜 into ～ and the like), so a name
// finds the same file whether it was typed or read; characters a file name
// cannot hold become '_' (FileNameOf), so no name writes outside IRSignals.
QString SignalFilePath(const ProgramFolder& folder, QStringView device, QStringView function);
// The same in two steps, for many keys of one device: the path up to the
// function's name, then the whole path.
QString SignalPathStem(const ProgramFolder& folder, QStringView device);
QString SignalFilePath(const QString& stem, QStringView function);
// "<device>-": every signal file of the device starts so.
QString SignalFilePrefix(QStringView device);
QString TestSignalPath(const ProgramFolder& folder); // testsignal.tmp

// Writes the length trailer into the image; a signal of 1999 or 2000 bytes
// loses its last bytes to it.
void StampSignalLength(SignalImage& image, int length);

// Writes a signal file (or testsignal.tmp) for the given signal bytes,
// replacing any old one whole. False, with the reason in error, on failure.
bool WriteSignalFile(const QString& path, QByteArrayView signal, QString* error = nullptr);

enum class SignalRead { Ok, Missing, Unreadable, BadLength, Damaged };
// The bytes of a signal file as its layout reads. Reading never creates the file.
SignalRead ReadSignalFile(const QString& path, QByteArray* bytes);

// The signal a signal file's bytes hold, checked whole before anything goes
// out: length trailer, the blob's header, counts and indexes, carrier and
// total length. Bytes in, the exact blob bytes or the reason out; it touches
// nothing else, so it may be fed any bytes.
struct ParsedSignal {
    QByteArray blob;
    QString error; // empty when blob may be sent
};
ParsedSignal ParseSignalFile(QByteArrayView file);

// ReadSignalFile then ParseSignalFile: Ok with the blob, Damaged with why.
SignalRead ReadCheckedSignal(const QString& path, QByteArray* blob, QString* why);
