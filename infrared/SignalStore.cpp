#include "infrared/SignalStore.h"

#include "core/AtomicFile.h"
#include "core/ProgramFolder.h"
#include "core/ShiftJis.h"

#include <QFile>
#include <QFileInfo>

#include <algorithm>

using namespace Qt::StringLiterals;

QString SignalFilePrefix(QStringView device) {
    return ShiftJis::RoundTrip(device) + u'-';
}

QString SignalFilePath(const ProgramFolder& folder, QStringView device, QStringView function) {
    return folder.path(u"IRSignals/"_s + SignalFilePrefix(device) + ShiftJis::RoundTrip(function) +
                       u".bin"_s);
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

SignalRead ReadSignalFile(const QString& path, QByteArray* bytes) {
    bytes->clear();
    QFileInfo info(path);
    if (!info.exists() || info.isDir())
        return SignalRead::Missing;
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return SignalRead::Unreadable;
    QByteArray image = file.read(SignalFileSize);
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
