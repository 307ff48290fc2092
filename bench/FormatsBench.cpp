// Importing every lircd.conf Debian ships (lirc-compat-remotes): reading the
// files, and turning each key of a protocol-described remote into timings.
#include "infrared/formats/IrFormats.h"

#include <QDirIterator>
#include <QFile>

#include <benchmark/benchmark.h>

namespace {

void BM_ImportLircCompatRemotes(benchmark::State& state) {
    const QString root = QStringLiteral("/usr/share/lirc/remotes");
    std::vector<std::pair<QString, QByteArray>> files;
    QDirIterator it(root, QDir::Files, QDirIterator::Subdirectories);
    while (it.hasNext()) {
        QFile f(it.next());
        if (f.open(QIODevice::ReadOnly))
            files.emplace_back(f.fileName(), f.readAll());
    }
    if (files.empty()) {
        state.SkipWithError("lirc-compat-remotes is not installed");
        return;
    }
    size_t keys = 0;
    for (auto _ : state) {
        keys = 0;
        for (const auto& [name, bytes] : files)
            keys += ReadIrCodes(bytes, name).codes.size();
        benchmark::DoNotOptimize(keys);
    }
    state.counters["files"] = double(files.size());
    state.counters["keys"] = double(keys);
}
BENCHMARK(BM_ImportLircCompatRemotes)->Unit(benchmark::kMillisecond);

} // namespace
