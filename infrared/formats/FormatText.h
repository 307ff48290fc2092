#pragma once

#include <QByteArrayView>
#include <QString>

#include <cstdint>
#include <optional>
#include <vector>

// What the text formats share: lines with their numbers, and messages that
// name the file and line.
namespace IrFormatText {

struct Line {
    int number = 0;
    QByteArrayView text; // without the line break, trimmed
};

// Splits on LF (a CR before it is dropped) and trims each line.
std::vector<Line> SplitLines(QByteArrayView bytes);
// ASCII white space, as QByteArrayView::trimmed() takes it.
bool IsSpace(char c);
std::vector<QByteArrayView> Words(QByteArrayView line);
// The parts between separators, each trimmed; empty ones kept.
std::vector<QByteArrayView> Fields(QByteArrayView text, char separator);

QString At(const QString& fileName, int line, const QString& what);
// Text for a message: at most 40 characters of the bytes, as text.
QString Quote(QByteArrayView word);

// A whole decimal number without sign, up to limit; nothing otherwise.
std::optional<uint64_t> Number(QByteArrayView word, uint64_t limit);
std::optional<uint64_t> HexNumber(QByteArrayView word, uint64_t limit); // with or without 0x

} // namespace IrFormatText
