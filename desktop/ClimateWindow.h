#pragma once

#include <QWidget>

class ClimateUnits;
class QCheckBox;
class QComboBox;
class QDoubleSpinBox;
class QLabel;
class QListWidget;
class QPushButton;

// A small window to drive the air conditioners from the desktop: a unit
// chosen from the list, its power, mode, temperature, fan and swing set, and
// sent whole. What it shows is what ClimateUnits believes.
class ClimateWindow : public QWidget {
    Q_OBJECT
public:
    explicit ClimateWindow(ClimateUnits& units, QWidget* parent = nullptr);

    QListWidget* list = nullptr;
    QCheckBox* power = nullptr;
    QComboBox* mode = nullptr;
    QDoubleSpinBox* temperature = nullptr;
    QComboBox* fan = nullptr;
    QCheckBox* swing = nullptr;
    QPushButton* send = nullptr;
    QLabel* message = nullptr;

private:
    void fillList();
    void showUnit();
    void sendState();
    QString chosen() const;

    ClimateUnits& units_;
    bool sending_ = false;
};
