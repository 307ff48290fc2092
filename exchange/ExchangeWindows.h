#pragma once

#include <QDialog>

#include <functional>

class ProgramFolder;
class SettingsStore;
class UserPrompt;
class QCheckBox;
class QLabel;
class QLineEdit;
class QListWidget;
class QPushButton;

// Controls shared by both windows: a folder field with its folder dialog, a
// multi-selection list and its select-all box.
class ExchangeWindow : public QDialog {
    Q_OBJECT
public:
    // The folder dialog; tests replace it. Returns "" when none was chosen.
    std::function<QString(const QString& start)> chooseFolder;

    QLabel* Label1 = nullptr;
    QLabel* Label2 = nullptr;
    QLineEdit* txtLoc = nullptr;
    QPushButton* cmdRefer = nullptr;
    QCheckBox* chkAll = nullptr;
    QPushButton* cmdCancel = nullptr;

    static const QString FolderDialogTitle; // フォルダを指定

protected:
    ExchangeWindow(const ProgramFolder& folder, SettingsStore& settings, UserPrompt& prompt,
                   const QString& title, QWidget* parent);
    void buildList(QListWidget* list);

    const ProgramFolder& folder_;
    SettingsStore& settings_;
    UserPrompt& prompt_;
    QListWidget* list_ = nullptr;
};

// Writes the chosen remotes to <folder>/<device>.kxp.
class ExportWindow final : public ExchangeWindow {
    Q_OBJECT
public:
    ExportWindow(const ProgramFolder& folder, SettingsStore& settings, UserPrompt& prompt,
                 QWidget* parent = nullptr);
    void Load();

    QListWidget* lstDevices = nullptr;
    QPushButton* cmdExport = nullptr;

    static const QString NothingChosenText;
    static const QString NoFolderText;
    static const QString FailedText;

private:
    void exportChosen();
};

// Reads the chosen archives of a folder into this installation.
class ImportWindow final : public ExchangeWindow {
    Q_OBJECT
public:
    ImportWindow(const ProgramFolder& folder, SettingsStore& settings, UserPrompt& prompt,
                 QWidget* parent = nullptr);

    QListWidget* lstFiles = nullptr;
    QCheckBox* chkDuplicate = nullptr;
    QPushButton* cmdImport = nullptr;

    // The box for an archive that was refused.
    static QString RefusedText(const QString& file, const QString& reason);

signals:
    void devicesChanged();

private:
    void fillFiles();
    void importChosen();
};
