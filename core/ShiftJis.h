#pragma once

#include <QByteArray>
#include <QString>
#include <QStringView>

// Text crosses every boundary of the program (files, sockets, settings) in the
// Windows Japanese code page, CP932. Inside, text is QString.
namespace ShiftJis {

// Characters CP932 cannot hold become "?", one per character, as Windows does.
QByteArray Encode(QStringView text);

// Bytes that are not valid CP932 become U+FFFD; never fails.
QString Decode(QByteArrayView bytes);

// The text as it reads back after a trip through CP932. Windows folds some
// look-alikes (U+301C 〜 comes back as U+FF5E ～, U+2212 − as U+FF0D －), and
// characters it cannot hold come back as "?".
QString RoundTrip(QStringView text);

// The characters of the text that CP932 cannot hold, each once, in order.
QString Unmappable(QStringView text);

// Length of the text once encoded: full-width characters count 2.
qsizetype ByteLength(QStringView text);

} // namespace ShiftJis

// A string of n ideographic spaces (U+3000).
QString WideSpaces(int n);
