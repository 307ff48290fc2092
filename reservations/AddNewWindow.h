#pragma once

#include <QWidget>

class Clock;
class ProgramFolder;
class Scheduler;
class SettingsStore;
class UserPrompt;
class QCheckBox;
class QComboBox;
class QDateEdit;
class QPushButton;
class QRadioButton;
class QTableWidget;

// frmAddNew: the operations of one moment of the schedule. Choosing the moment
// lists what already stands there; operations are added, reordered and
// deleted in place, and the main grid is refilled after each change. Not modal.
class AddNewWindow : public QWidget {
    Q_OBJECT
public:
    AddNewWindow(const ProgramFolder& folder, SettingsStore& settings, const Clock& clock,
                 UserPrompt& prompt, Scheduler& scheduler, QWidget* parent = nullptr);

    // Points the controls at the moment of a file name ("0100100 21_30").
    void EditFile(const QString& name);
    // The file name the controls point at.
    QString FileName() const;

    static const QString Title;

protected:
    void closeEvent(QCloseEvent* event) override;
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    void setHourMode(bool h24, bool store);
    void fillFunctions();
    void RefreshList();
    void Add();
    void Move(bool up);
    void Delete();
    int selectedLine() const;

    const ProgramFolder& folder_;
    SettingsStore& settings_;
    const Clock& clock_;
    UserPrompt& prompt_;
    Scheduler& scheduler_;
    QRadioButton* option_[6] = {}; // Option1 .. Option5 at 1 .. 5
    QDateEdit* dtPicker1_ = nullptr;
    QCheckBox* check1_[7] = {};
    QComboBox* combo1_ = nullptr;
    QComboBox* combo2_ = nullptr;
    QComboBox* combo3_ = nullptr;
    QComboBox* cmbDeviceName_ = nullptr;
    QComboBox* cmbFunc_ = nullptr;
    QTableWidget* grid_ = nullptr;
};
