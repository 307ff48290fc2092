// Where the data and the words go, and a signal file read and checked.
#include "core/AtomicFile.h"
#include "infrared/SignalStore.h"
#include "infrared/formats/IrFormats.h"
#include "tools/kestrava-ir/Tool.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace irtool {

FILE* notes = stdout;

bool isStdio(const QString& path) {
    return path == u"-";
}

// Standard input to its end; nothing when it holds more than limit bytes.
std::optional<QByteArray> readStdin(qsizetype limit) {
    QByteArray bytes;
    char piece[64 * 1024];
    for (;;) {
        const ssize_t n = ::read(STDIN_FILENO, piece, sizeof piece);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            return bytes;
        bytes.append(piece, n);
        if (bytes.size() > limit)
            return std::nullopt;
    }
}

// The data takes standard output; the words go to standard error.
void outputTo(const QString& path) {
    if (isStdio(path))
        notes = stderr;
}

// bytes into path, replaced whole, or onto standard output for "-".
bool writeOut(const QString& path, QByteArrayView bytes, QString* error) {
    if (!isStdio(path))
        return WriteFileAtomically(path, bytes, 0644, error);
    const bool ok =
        std::fwrite(bytes.data(), 1, size_t(bytes.size()), stdout) == size_t(bytes.size()) &&
        std::fflush(stdout) == 0;
    if (!ok)
        *error = u"standard output: "_s + QString::fromLocal8Bit(std::strerror(errno));
    return ok;
}

// A signal file's bytes for a blob: the image with its length stamped.
QByteArray signalImage(QByteArrayView blob) {
    SignalImage image{};
    const int length = int(std::min<qsizetype>(blob.size(), SignalFileSize));
    std::copy_n(reinterpret_cast<const uint8_t*>(blob.data()), length, image.begin());
    StampSignalLength(image, length);
    return QByteArray(reinterpret_cast<const char*>(image.data()), SignalFileSize);
}

void print(const QString& text) {
    std::fputs(text.toLocal8Bit().constData(), notes);
}

void complain(const QString& text) {
    std::fprintf(stderr, "kestrava-ir: %s\n", text.toLocal8Bit().constData());
}

// The signal of a file, checked as the program checks it before a send.
bool readSignal(const QString& path, QByteArray* bytes) {
    QString why;
    if (isStdio(path)) {
        const auto image = readStdin(MaxCodeFileBytes);
        const ParsedSignal parsed =
            image ? ParseSignalFile(image->left(SignalFileSize)) : ParsedSignal{};
        if (!image || !parsed.error.isEmpty()) {
            complain(u"standard input: not a usable signal: "_s +
                     (image ? parsed.error : u"too large"_s));
            return false;
        }
        *bytes = parsed.blob;
        return true;
    }
    switch (ReadCheckedSignal(path, bytes, &why)) {
    case SignalRead::Ok:
        return true;
    case SignalRead::Damaged:
        complain(path + u": not a usable signal: "_s + why);
        return false;
    default:
        complain(path + u": not a readable signal file"_s);
        return false;
    }
}

} // namespace irtool
