#pragma once

#include <QFile>
#include <QStringList>

// The rows of a tab-separated file under tests/data, its blank lines and "#"
// remarks left out; "\n" in a field stands for a line break.
inline QList<QStringList> DataTable(const QString& relative) {
    QFile file(QStringLiteral(KESTRAVA_TEST_DATA "/") + relative);
    QList<QStringList> rows;
    if (!file.open(QIODevice::ReadOnly))
        return rows;
    for (const QByteArray& line : file.readAll().split('\n'))
        if (!line.trimmed().isEmpty() && !line.startsWith('#'))
            rows << QString::fromUtf8(line)
                        .replace(QStringLiteral("\\n"), QStringLiteral("\n"))
                        .split(u'\t');
    return rows;
}
