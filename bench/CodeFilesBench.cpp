// Codes as users bring them: reading 10,000 codes of mixed formats, importing
// a 2,000-key file through the object `--import-codes` uses, and how much of
// the stored public collections reads at all.
#include "exchange/CodesExchange.h"
#include "infrared/formats/IrFormats.h"
#include "support/TempFolder.h"

#include <QDirIterator>
#include <QFile>

#include <benchmark/benchmark.h>

using namespace Qt::StringLiterals;

namespace {

const QString Data = QStringLiteral(KESTRAVA_SOURCE_DIR "/tests/data");
const QString Seeds = QStringLiteral(KESTRAVA_SOURCE_DIR "/tests/fuzz/corpus");

QByteArray readAll(const QString& path) {
    QFile f(path);
    return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray();
}

// Every single code the tests store that reads: the seeds of each one-code
// format, SmartIR's Broadlink lines, and every code of the stored files
// written out in each one-code format in turn.
std::vector<std::pair<QString, QByteArray>> mixedCodes() {
    std::vector<std::pair<QString, QByteArray>> codes;
    for (const char* seeds : {"pronto_fuzz", "broadlink_fuzz", "globalcache_fuzz", "esphome_fuzz",
                              "tasmota_fuzz", "timingjson_fuzz", "irctl_fuzz"}) {
        QDirIterator it(Seeds + u'/' + QLatin1StringView(seeds), QDir::Files);
        while (it.hasNext()) {
            const QString path = it.next();
            const QByteArray bytes = readAll(path);
            if (ReadIrCodes(bytes, path).ok())
                codes.emplace_back(path, bytes);
        }
    }
    for (const QByteArray& line : readAll(Data + u"/broadlink/smartir.txt"_s).split('\n'))
        if (line.count(' ') == 2)
            codes.emplace_back(u"smartir.txt"_s, line.split(' ')[2]);
    const IrFormat formats[] = {IrFormat::Pronto,  IrFormat::Broadlink, IrFormat::GlobalCache,
                                IrFormat::RawList, IrFormat::Tasmota,   IrFormat::Json,
                                IrFormat::IrCtl};
    size_t turn = 0;
    QDirIterator it(Data, QDir::Files, QDirIterator::Subdirectories);
    while (it.hasNext()) {
        const IrCodeRead read = ReadIrCodePath(it.next());
        for (const NamedSignal& code : read.codes) {
            const IrFormat format = formats[turn++ % std::size(formats)];
            QString error;
            const QByteArray bytes = WriteIrCodes(format, {code}, &error);
            if (!bytes.isEmpty())
                codes.emplace_back(u"x."_s + IrFormatExtension(format), bytes);
        }
    }
    return codes;
}

void BM_Read10000MixedCodes(benchmark::State& state) {
    const auto distinct = mixedCodes();
    std::vector<std::pair<QString, QByteArray>> codes;
    while (codes.size() < 10000)
        codes.push_back(distinct[codes.size() % distinct.size()]);
    size_t read = 0;
    for (auto _ : state) {
        read = 0;
        for (const auto& [name, bytes] : codes)
            read += ReadIrCodes(bytes, name).codes.size();
        benchmark::DoNotOptimize(read);
    }
    state.counters["distinct"] = double(distinct.size());
    state.counters["read"] = double(read);
}
BENCHMARK(BM_Read10000MixedCodes)->Unit(benchmark::kMillisecond);

// A Flipper library of 2,000 keys (the stored codes, cycled, each its own
// name) into an empty program folder: 31 remotes of up to 66 keys.
void BM_Import2000Keys(benchmark::State& state) {
    std::vector<NamedSignal> all;
    QDirIterator it(Data, QDir::Files, QDirIterator::Subdirectories);
    while (it.hasNext())
        for (NamedSignal& c : ReadIrCodePath(it.next()).codes)
            all.push_back(std::move(c));
    std::vector<NamedSignal> keys;
    for (size_t i = 0; keys.size() < 2000; ++i) {
        NamedSignal k = all[i % all.size()];
        k.name = u"Key %1"_s.arg(i + 1);
        k.group.clear();
        keys.push_back(k);
    }
    QTemporaryDir dir;
    const QString file = dir.filePath(u"library.ir"_s);
    QString error;
    if (!SaveIrCodes(file, IrFormat::Flipper, keys, &error)) {
        state.SkipWithError(error.toUtf8().constData());
        return;
    }
    int added = 0;
    for (auto _ : state) {
        state.PauseTiming();
        TempFolder t;
        state.ResumeTiming();
        const CodesImportResult r = ImportCodes(t.folder, t.settings, {file, u"Big"_s, 0});
        added = 0;
        for (const CodesImported& remote : r.remotes)
            added += remote.added;
        if (!r.error.isEmpty())
            state.SkipWithError(r.error.toUtf8().constData());
    }
    state.counters["added"] = added;
}
BENCHMARK(BM_Import2000Keys)->Unit(benchmark::kMillisecond)->Iterations(3);

// How much of the public collections stored as test data reads: codes read
// and codes refused (each with its reason) over every file.
void BM_StoredCollections(benchmark::State& state) {
    size_t read = 0, refused = 0, files = 0, unread = 0;
    for (auto _ : state) {
        read = refused = files = unread = 0;
        QDirIterator it(Data, QDir::Files, QDirIterator::Subdirectories);
        while (it.hasNext()) {
            const QString path = it.next();
            if (path.endsWith(u"/SOURCE"_s))
                continue;
            ++files;
            if (path.endsWith(u"smartir.txt"_s)) { // a list of codes, a line each
                for (const QByteArray& line : readAll(path).split('\n'))
                    if (line.count(' ') == 2)
                        ++(ReadIrCodes(line.split(' ')[2], path).ok() ? read : refused);
                continue;
            }
            const IrCodeRead r = ReadIrCodePath(path);
            read += r.codes.size();
            refused += size_t(r.refused.size());
            unread += r.ok() ? 0 : 1;
        }
    }
    state.counters["files"] = double(files);
    state.counters["codes_read"] = double(read);
    state.counters["codes_refused"] = double(refused);
    state.counters["files_unread"] = double(unread);
}
BENCHMARK(BM_StoredCollections)->Unit(benchmark::kMillisecond)->Iterations(1);

} // namespace
