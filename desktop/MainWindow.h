#pragma once

#include <QPoint>
#include <QPointer>
#include <QSystemTrayIcon>
#include <QTimer>
#include <QWidget>

#include <functional>

class AboutWindow;
class AddNewWindow;
class ExportWindow;
class ImportWindow;
class AddressWatch;
class Clock;
class Power;
class ProgramEvents;
class ProgramFolder;
class Scheduler;
class SettingsStore;
class UserPrompt;
class QAction;
class QComboBox;
class QLabel;
class QMenu;
class QMenuBar;
class QTableView;
class QToolButton;

// What the main window shows and forwards to.
struct MainParts {
    const ProgramFolder& folder;
    SettingsStore& settings;
    const Clock& clock;
    UserPrompt& prompt;
    ProgramEvents& events;
    Scheduler& scheduler;
    AddressWatch& addressWatch;
    Power& power;
    std::function<void()> close; // the program's close order
};

// The main window: a small frameless panel, dragged from anywhere, that lives in
// the tray when minimised. It shows the application and forwards to it; closing
// it closes the program.
class MainWindow : public QWidget {
    Q_OBJECT
public:
    static constexpr int TwipsPerPixel = 15;
    static constexpr int HeightWithMenuTwips = 2704;
    static constexpr int HeightWithoutMenuTwips = 2070;
    static constexpr int WidthPixels = 400;

    explicit MainWindow(MainParts parts, QWidget* parent = nullptr);
    ~MainWindow() override;

    // The window's share of the start order: place it from Pos, show it or go
    // to the tray by Pos/Hide, the hibernate button, the local URL.
    void ShowAtStart();
    void FillDevices();
    // The reservation dialog, for a new entry or on a file's moment.
    AddNewWindow* ShowAddNew(const QString& editFile = {});
    void ShowLocalAddress();
    // 次の予約: the next moment a reservation is due, "yyyy/mm/dd hh:mm", or
    // nothing without one.
    void ShowNextReserve();
    void ShowMenu(bool shown);
    // cmdSuspend shows only with Options/PowerControl "1".
    void UpdateSuspendButton();

    // Without a system tray the window minimises to the task bar instead.
    bool trayAvailable = QSystemTrayIcon::isSystemTrayAvailable();
    void AddTrayIcon();
    void RemoveTrayIcon();
    QSystemTrayIcon* trayIcon() const { return tray_; }

    // Menu items; those whose windows do not exist yet are disabled.
    QAction* MFileX = nullptr;
    QAction* MFileI = nullptr;
    QAction* MEnd = nullptr;
    QAction* MTira = nullptr;
    QAction* MStudyNew = nullptr;
    QAction* MEditRemote = nullptr;
    QAction* MClimate = nullptr;
    QMenu* MScene = nullptr;
    QAction* MHelpFile = nullptr;
    QAction* MVersion = nullptr;
    // The シーン menu: one item per scene, by id and name.
    void SetScenes(const QList<QPair<int, QString>>& scenes);
    // For tests: how long the device list stays.
    void setComboHideMs(int ms);

signals:
    // A device was chosen in the device list: open its on-screen remote. The
    // id is the registry's, or 0 for the fixed devices of test mode.
    void remoteWindowRequested(const QString& deviceName, int id);
    // The learning menu: a new remote, or changes to a learned one.
    void studyRequested();
    void editRequested();
    // The air conditioners' window.
    void climateRequested();
    // A scene chosen in the シーン menu.
    void sceneRequested(int id);

protected:
    void paintEvent(QPaintEvent* event) override;
    void mousePressEvent(QMouseEvent* event) override;
    void mouseMoveEvent(QMouseEvent* event) override;
    void mouseReleaseEvent(QMouseEvent* event) override;
    void changeEvent(QEvent* event) override;
    void closeEvent(QCloseEvent* event) override;

private:
    void buildMenus();
    void buildPanel();
    void layOut();
    void trayActivated(QSystemTrayIcon::ActivationReason reason);
    void deviceChosen(int index);
    void StorePosition();
    void showAbout();
    void showExport();
    void showImport();

    MainParts app_;
    QTimer timComboVisible_; // 10 s, one shot: hides the device list
    bool menuShown_ = false;
    bool dragActive_ = false;
    QPoint dragStart_; // press position relative to the window's top left

    QMenuBar* menuBar_ = nullptr;
    QToolButton* command1_[2] = {};
    QToolButton* command2_[2] = {};
    QToolButton* command11_ = nullptr;
    QToolButton* command12_ = nullptr;
    QLabel* label3_ = nullptr;
    QLabel* lblAddr_ = nullptr;
    QLabel* labelTime_ = nullptr;
    QLabel* lblTime_ = nullptr;
    QString shownMinute_; // the minute lblTime was last worked out in
    QTableView* grid_ = nullptr;
    QToolButton* cmdRemocon_ = nullptr;
    QComboBox* cmbDeviceName_ = nullptr;
    QToolButton* cmdTimer_ = nullptr;
    QToolButton* cmdDelRes_ = nullptr;
    QToolButton* cmdSuspend_ = nullptr;
    QSystemTrayIcon* tray_ = nullptr;
    QPointer<AboutWindow> about_;
    QPointer<AddNewWindow> addNew_;
    QPointer<ExportWindow> export_;
    QPointer<ImportWindow> import_;
};
