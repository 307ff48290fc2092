#include "reservations/ReserveGrid.h"

#include "reservations/ReserveStore.h"

using namespace Qt::StringLiterals;

void ReserveGrid::FillGrid(const QString& folderPath) {
    std::vector<ReserveRow> rows;
    for (const QString& name : Reserve::ListNames(folderPath)) {
        const QString day = Reserve::DayText(name), time = Reserve::TimeText(name);
        for (const QString& line : Reserve::ReadLines(folderPath + u'/' + name)) {
            if (line.isEmpty())
                continue;
            Reserve::Operation op = Reserve::SplitLine(line);
            rows.push_back({name, day, time, std::move(op.device), std::move(op.function)});
        }
    }
    beginResetModel();
    rows_ = std::move(rows);
    endResetModel();
}

int ReserveGrid::rowCount(const QModelIndex& parent) const {
    return parent.isValid() ? 0 : int(rows_.size()) + 1;
}

int ReserveGrid::columnCount(const QModelIndex& parent) const {
    return parent.isValid() ? 0 : ColumnCount;
}

QString ReserveGrid::Cell(const ReserveRow& row, int column) {
    switch (column) {
    case File:
        return row.file;
    case Day:
        return row.day;
    case Time:
        return row.time;
    case Device:
        return row.device;
    case Function:
        return row.function;
    }
    return {};
}

QVariant ReserveGrid::data(const QModelIndex& index, int role) const {
    if (!index.isValid())
        return {};
    if (role == Qt::TextAlignmentRole)
        return QVariant::fromValue(Qt::Alignment(Qt::AlignCenter));
    if (role != Qt::DisplayRole || index.row() >= int(rows_.size()))
        return {};
    return Cell(rows_[size_t(index.row())], index.column());
}

QVariant ReserveGrid::headerData(int section, Qt::Orientation orientation, int role) const {
    if (orientation != Qt::Horizontal)
        return {};
    if (role == Qt::TextAlignmentRole)
        return QVariant::fromValue(Qt::Alignment(Qt::AlignCenter));
    if (role != Qt::DisplayRole)
        return {};
    static const QString titles[ColumnCount] = {QString(), u"日付/曜日"_s, u"時刻"_s, u"機器名"_s,
                                                u"機能名"_s};
    return section >= 0 && section < ColumnCount ? titles[section] : QString();
}
