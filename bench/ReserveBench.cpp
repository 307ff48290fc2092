// The reservation grid and its scan at their largest: 1000 files of 3 lines.
#include "reservations/Scheduler.h"
#include "support/FixedClock.h"
#include "support/TempFolder.h"

#include <benchmark/benchmark.h>

namespace {

// 1000 moments, none of them due at 23:59 on 2026/11/23: weekly ones on other
// minutes and one-shots in the future.
void writeStore(const TempFolder& t) {
    for (int i = 0; i < 1000; ++i) {
        const QString time = QStringLiteral("%1_%2")
                                 .arg(i / 60 % 24, 2, 10, QLatin1Char('0'))
                                 .arg(i % 60, 2, 10, QLatin1Char('0'));
        const QString day =
            i % 2 ? QStringLiteral("0100100")
                  : QStringLiteral("2027_%1_01").arg(i % 12 + 1, 2, 10, QLatin1Char('0'));
        t.writeFile(QStringLiteral("reserve/") + day + QLatin1Char(' ') + time,
                    "TV|power\r\nTV|ch1\r\nRecorder|rec\r\n");
    }
}

void BM_FillGrid_1000Files(benchmark::State& state) {
    TempFolder t;
    writeStore(t);
    ReserveGrid grid;
    for (auto _ : state)
        grid.FillGrid(t.path(u"reserve"));
    state.SetLabel(std::to_string(grid.rows().size()) + " rows");
}
BENCHMARK(BM_FillGrid_1000Files)->Unit(benchmark::kMillisecond);

void BM_Scan_1000Rows_NothingDue(benchmark::State& state) {
    TempFolder t;
    for (int i = 0; i < 334; ++i) // about 1000 rows
        t.writeFile(QStringLiteral("reserve/0100100 %1_%2")
                        .arg(i / 60 % 23, 2, 10, QLatin1Char('0'))
                        .arg(i % 60, 2, 10, QLatin1Char('0')),
                    "TV|power\r\nTV|ch1\r\nRecorder|rec\r\n");
    FixedClock clock(QDateTime(QDate(2026, 11, 23), QTime(23, 59, 10)));
    Scheduler scheduler(t.folder, t.settings, clock);
    scheduler.FillGrid();
    for (auto _ : state) {
        scheduler.LastScanMinute.clear();
        scheduler.Tick();
    }
    scheduler.Stop();
    state.SetLabel(std::to_string(scheduler.grid.rows().size()) + " rows");
}
BENCHMARK(BM_Scan_1000Rows_NothingDue)->Unit(benchmark::kMicrosecond);

} // namespace
