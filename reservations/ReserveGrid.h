#pragma once

#include <QAbstractTableModel>
#include <QString>

#include <vector>

// One line of a reservation file as the lists show it.
struct ReserveRow {
    QString file; // name in the store
    QString day;  // "2026/11/23", "毎日", "月木"
    QString time; // "21:30"
    QString device;
    QString function;
};

// Every reservation, file by file in name order and line by line: what the
// main window shows and what the scheduler works from. FillGrid rebuilds it
// after every change. Columns: file (hidden), day, time, device, function;
// the last row is always empty.
class ReserveGrid : public QAbstractTableModel {
    Q_OBJECT
public:
    enum Column { File, Day, Time, Device, Function, ColumnCount };
    // Column widths in twips; the file column is hidden.
    static constexpr int ColumnTwips[ColumnCount] = {0, 1320, 650, 1800, 1800};

    using QAbstractTableModel::QAbstractTableModel;

    void FillGrid(const QString& folderPath);
    const std::vector<ReserveRow>& rows() const { return rows_; }

    int rowCount(const QModelIndex& parent = {}) const override;
    int columnCount(const QModelIndex& parent = {}) const override;
    QVariant data(const QModelIndex& index, int role) const override;
    QVariant headerData(int section, Qt::Orientation orientation, int role) const override;

    static QString Cell(const ReserveRow& row, int column);

private:
    std::vector<ReserveRow> rows_;
};
