// convert: a signal or a file of many from one format into another.
#include "core/AtomicFile.h"
#include "core/NameText.h"
#include "infrared/formats/IrFormats.h"
#include "tools/kestrava-ir/Tool.h"

#include <QDir>
#include <QFileInfo>
#include <QSet>

#include <utility>
#include <vector>

using namespace Qt::StringLiterals;

namespace irtool {

int convert(const QStringList& args) {
    QStringList paths;
    std::optional<IrFormat> to;
    IrFormatOptions options;
    for (int i = 0; i < args.size(); ++i) {
        if (args[i] == u"--to" && i + 1 < args.size()) {
            to = IrFormatFromName(args[++i]);
            if (!to) {
                complain(u"unknown format '"_s + args[i] +
                         u"' (irctl, pronto, flipper, broadlink, lircd, json, globalcache, "
                         u"esphome, tasmota, irdb or bin)"_s);
                return 2;
            }
        } else if (args[i] == u"--broadlink-unit" && i + 1 < args.size()) {
            const QString unit = args[++i];
            bool number = false;
            const double us = unit.toDouble(&number);
            if (unit == u"broadlink")
                options.broadlinkUnitUs = BroadlinkUnitUs;
            else if (unit == u"python-broadlink")
                options.broadlinkUnitUs = PythonBroadlinkUnitUs;
            else if (number && us >= 1 && us <= 1000)
                options.broadlinkUnitUs = us;
            else {
                complain(u"unknown Broadlink unit '"_s + unit + u"'"_s);
                return 2;
            }
        } else if (args[i].startsWith(u"--"_s)) {
            complain(u"unknown option '"_s + args[i] + u"'"_s);
            return 2;
        } else {
            paths << args[i];
        }
    }
    if (paths.size() != 2) {
        complain(u"wrong arguments for 'convert'"_s);
        return 2;
    }
    const QString& in = paths[0];
    const QString& out = paths[1];
    outputTo(out);
    const QFileInfo outInfo(out);
    const bool intoDirectory = !isStdio(out) && (outInfo.isDir() || out.endsWith(u'/'));
    if (!to && !intoDirectory)
        to = IrFormatFromPath(out);
    if (!to) {
        complain(out + u": cannot tell the format from the name; say --to FORMAT"_s);
        return 2;
    }
    IrCodeRead read;
    if (isStdio(in)) {
        const auto bytes = readStdin(MaxCodeFileBytes);
        if (!bytes) {
            complain(u"standard input: more than a file of codes may have"_s);
            return 1;
        }
        read = ReadIrCodes(*bytes, u"standard input"_s, options);
    } else {
        read = ReadIrCodePath(in, options);
    }
    for (const QString& note : read.refused)
        complain(u"left out: "_s + note);
    if (!read.ok()) {
        complain(read.error);
        return 1;
    }
    QString error;
    if (!intoDirectory) {
        if (IrFormatIsSingle(*to) && read.codes.size() > 1) {
            complain(in + u" holds %1 signals and %2 holds one per file: give a directory as OUT"_s
                              .arg(read.codes.size())
                              .arg(IrFormatName(*to)));
            return 1;
        }
        const QByteArray bytes = WriteIrCodes(*to, read.codes, &error, options);
        if (bytes.isEmpty())
            error = out + u": "_s + error;
        if (bytes.isEmpty() || !writeOut(out, bytes, &error)) {
            complain(error);
            return 1;
        }
        print(u"wrote %1 signal(s) to %2 as %3\n"_s.arg(read.codes.size())
                  .arg(out, IrFormatName(*to)));
        return 0;
    }
    // One file per signal; every one is made before any is written.
    std::vector<std::pair<QString, QByteArray>> files;
    QSet<QString> taken;
    for (const NamedSignal& code : read.codes) {
        QByteArray bytes = WriteIrCodes(*to, {code}, &error, options);
        if (bytes.isEmpty()) {
            complain(code.name + u": "_s + error);
            return 1;
        }
        // Names as file names by the program's one rule, so that no name
        // (":", "..", "a/b") writes outside OUT.
        QString base = FileNameOf(QStringView(code.group.isEmpty() || read.codes.size() < 2
                                                  ? code.name
                                                  : code.group + u"-"_s + code.name)
                                      .left(100));
        QString name = base + u"."_s + IrFormatExtension(*to);
        for (int n = 2; taken.contains(name); ++n)
            name = base + u"-"_s + QString::number(n) + u"."_s + IrFormatExtension(*to);
        taken.insert(name);
        files.emplace_back(QDir(out).filePath(name), std::move(bytes));
    }
    if (!QDir().mkpath(out)) {
        complain(out + u": cannot be made as a directory"_s);
        return 1;
    }
    for (const auto& [path, bytes] : files)
        if (!WriteFileAtomically(path, bytes, 0644, &error)) {
            complain(error);
            return 1;
        }
    print(u"wrote %1 file(s) into %2 as %3\n"_s.arg(files.size()).arg(out, IrFormatName(*to)));
    return 0;
}

} // namespace irtool
