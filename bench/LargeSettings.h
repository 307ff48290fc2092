#pragma once

#include <QByteArray>
#include <QFile>
#include <QString>
#include <QTemporaryDir>

// A setting.ini as a busy owner has it: 100 remotes of design 6 with all 66
// buttons named, names in CP932. Returns its path inside dir.
inline QString WriteLargeSettings(const QTemporaryDir& dir) {
    QString path = dir.filePath(QStringLiteral("setting.ini"));
    QByteArray text = "[WebServer]\r\nPort=8080\r\n[Options]\r\nInternet=0\r\nTakePic=0\r\n";
    for (int id = 1; id <= 100; ++id) {
        text += "[Remote-" + QByteArray::number(id) + "]\r\n";
        text += "Device=\x83\x65\x83\x8C\x83\x72" + QByteArray::number(id) + "\r\nDesign=6\r\n";
        for (int k = 0; k < 66; ++k)
            text += "Button-" + QByteArray::number(k) + "=\x93\x64\x8C\xB9" +
                    QByteArray::number(k) + "\r\n";
    }
    QFile f(path);
    if (f.open(QIODevice::WriteOnly))
        f.write(text);
    return path;
}
