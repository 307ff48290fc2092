#include "infrared/SignalStore.h"

#include "core/AtomicFile.h"
#include "core/BoundedRead.h"
#include "core/NameText.h"
#include "core/ProgramFolder.h"
#include "core/ShiftJis.h"
#include "infrared/IrSignal.h"

#include <QFile>
#include <QFileInfo>

#include <algorithm>

using namespace Qt::StringLiterals;

QString SignalFilePrefix(QStringView device) {
    return FileNameOf(ShiftJis::RoundTrip(device), false) + u'-';
}

QString SignalPathStem(const ProgramFolder& folder, QStringView device) {
    return folder.path(u"IRSignals/"_s + SignalFilePrefix(device));
}

QString SignalFilePath(const QString& stem, QStringView function) {
    return stem + FileNameOf(ShiftJis::RoundTrip(function), false) + u".bin"_s;
}

QString SignalFilePath(const ProgramFolder& folder, QStringView device, QStringView function) {
    return SignalFilePath(SignalPathStem(folder, device), function);
}

QString TestSignalPath(const ProgramFolder& folder) {
    return folder.path(u"testsignal.tmp");
}

void StampSignalLength(SignalImage& image, int length) {
    image[1998] = uint8_t(length / 255);
    image[1999] = uint8_t(length % 255);
}

bool WriteSignalFile(const QString& path, QByteArrayView signal, QString* error) {
    SignalImage image{};
    const int length = int(std::min<qsizetype>(signal.size(), SignalFileSize));
    std::copy_n(reinterpret_cast<const uint8_t*>(signal.data()), length, image.begin());
    StampSignalLength(image, length);
    return WriteFileAtomically(
        path, QByteArrayView(reinterpret_cast<const char*>(image.data()), SignalFileSize), 0644,
        error);
}

namespace {
SignalRead readImage(const QString& path, QByteArray* image) {
    image->clear();
    QFileInfo info(path);
    if (!info.exists() || info.isDir())
        return SignalRead::Missing;
    // Whatever follows the image is not read.
    BoundedRead file = ReadBounded(path, SignalFileSize, {.prefix = true});
    if (!file.ok())
        return SignalRead::Unreadable;
    *image = std::move(file.bytes);
    return SignalRead::Ok;
}
} // namespace

ParsedSignal ParseSignalFile(QByteArrayView file) {
    const QByteArrayView image = file.first(std::min<qsizetype>(file.size(), SignalFileSize));
    // A short file is the older layout: no trailer, the blob says how long it is.
    const int stated =
        image.size() == SignalFileSize ? uint8_t(image[1998]) * 255 + uint8_t(image[1999]) : 0;
    if (stated > SignalFileSize)
        return {{}, u"length trailer says %1 bytes"_s.arg(stated)};
    const qsizetype room = stated > 0 ? stated : image.size();
    auto blob = IrBlob::decode(image.first(room));
    if (!blob)
        return {{}, u"no whole signal in its first %1 bytes"_s.arg(room)};
    if (QString problem = SignalProblem(*blob); !problem.isEmpty())
        return {{}, u"signal "_s + problem};
    return {image.first(IrBlob::HeaderSize + qsizetype(blob->sequence.size())).toByteArray(), {}};
}

SignalRead ReadCheckedSignal(const QString& path, QByteArray* blob, QString* why) {
    QByteArray image;
    SignalRead r = readImage(path, &image);
    blob->clear();
    if (r != SignalRead::Ok)
        return r;
    ParsedSignal parsed = ParseSignalFile(image);
    if (!parsed.error.isEmpty()) {
        *why = parsed.error;
        return SignalRead::Damaged;
    }
    *blob = parsed.blob;
    return SignalRead::Ok;
}

SignalRead ReadSignalFile(const QString& path, QByteArray* bytes) {
    QByteArray image;
    if (SignalRead r = readImage(path, &image); r != SignalRead::Ok) {
        bytes->clear();
        return r;
    }
    image.append(SignalFileSize - image.size(), '\0');

    int n = uint8_t(image[1998]) * 255 + uint8_t(image[1999]);
    if (n > SignalFileSize)
        return SignalRead::BadLength;
    if (n == 0) {
        // No stated length: up to the last non-zero byte, at least one byte.
        n = SignalFileSize;
        while (n > 1 && image[n - 1] == '\0')
            --n;
    }
    *bytes = image.left(n);
    return SignalRead::Ok;
}
