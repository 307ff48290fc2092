#pragma once

#include "learning/LearningStore.h"

#include <QColor>
#include <QPointer>
#include <QTimer>
#include <QWidget>

#include <array>

class ProgramEvents;
class ProgramFolder;
class SettingsStore;
class UserPrompt;
class QGroupBox;
class QLabel;
class QLineEdit;
class QListWidget;
class QCheckBox;
class QListWidgetItem;
class QPushButton;
class QRadioButton;
class RemoteWindow;
class RemoteLauncher;
class Transceiver;

// What the learning windows use besides the transceiver and the remotes.
struct LearningParts {
    const ProgramFolder& folder;
    SettingsStore& settings;
    UserPrompt& prompt;
    ProgramEvents& events; // the close order
};

// What the learning wizard and the remote editor share: the design options,
// the frame where functions are learned one by one (name, capture and proof,
// click on the picture), the list of learned lines and the closing buttons.
class LearningWindow : public QWidget {
    Q_OBJECT
public:
    ~LearningWindow() override;

    // Runs the window's start: what it shows and asks when it opens.
    virtual void Load() = 0;

    // One pass for a function: capture, proof by sending it back, then the
    // click on the picture button that is to carry it.
    void StudyCapture(const QString& function);
    // Between a proved capture and the click on the picture.
    bool waitingForPicture() const { return pictureLoop_ != nullptr; }
    // The design whose option is chosen, 1 to 6; 0 when none.
    int selectedDesign() const;
    const LearningSession& session() const { return session_; }

    // Controls, by the names the program's texts use for them.
    std::array<QRadioButton*, 6> optSelRemote{};
    QGroupBox* Frame4 = nullptr;
    QGroupBox* frameDevice = nullptr;
    QGroupBox* frameSignals = nullptr;
    QLabel* lblDevice = nullptr;
    std::array<QLabel*, 3> lblStep{};
    QLabel* Label1 = nullptr;
    QLabel* Label2 = nullptr;
    QLineEdit* txtFunc = nullptr;
    QPushButton* cmdFuncOK = nullptr;
    QListWidget* lstSignals = nullptr;
    QPushButton* cmdDel = nullptr;
    QCheckBox* chkClean = nullptr; // store decoded captures with their protocol's timings
    QPushButton* cmdRetry = nullptr;
    QLabel* lblState = nullptr;
    QPushButton* cmdOK = nullptr;
    QPushButton* cmdCancel = nullptr;
    QTimer timUnload; // 1 s: closes a window that refused to open

    static const QString Title;
    static const QString NoFunctionText;
    static const QString SessionFullText;
    static const QString NoDesignText;
    static const QString NotStoredText;

    // Item data roles of the list lines.
    static constexpr int ItemDataRole = Qt::UserRole;      // temp file or button
    static constexpr int NewSignalRole = Qt::UserRole + 1; // learned in this window
    static constexpr int FunctionRole = Qt::UserRole + 2;

signals:
    // The registry changed: the main window's device list should be refilled.
    void devicesChanged();
    // The step that is due now: 0 name, 1 capture, 2 click on the picture.
    void stepChanged(int step);

protected:
    // Makes the device frame with its label; the window adds its own field.
    LearningWindow(LearningParts parts, Transceiver& device, RemoteLauncher& remotes,
                   const QString& objectName, const QString& positionKey,
                   const QString& deviceLabel, QWidget* parent);

    // The parts each window fills in.
    virtual QString deviceName() const = 0;
    virtual void openPortSetup() = 0;
    virtual void signalLearned() {}
    virtual void deleteLine(QListWidgetItem* item) = 0;
    virtual void finish() = 0; // cmdOK

    // Lays out the frames; the device frame's content is the window's own.
    void build(const QString& signalFrameTitle);
    void setStep(int step); // the due step's label red, the others black
    void setState(const QString& text, const QColor& colour);
    // Opens the chosen design's window (closing the others) and puts the
    // captions on it; nullptr when no design is chosen.
    RemoteWindow* showDesign(int design);
    // Closes the pictures; a remote moved beside this window gets its own place back.
    void unloadDesigns();
    RemoteWindow* designWindow() const;
    // code: the signal's protocol and code as shown ("NEC 0x0408"), or empty.
    void addLine(const QString& function, int button, int data, bool learnedHere,
                 const QString& code = {});
    // Why a device or function name cannot be used, "" when it can: it names
    // files, and must read back from setting.ini as it was typed.
    static QString NameProblem(const QString& name);
    // Warns while a field holds a name that cannot be used, once per problem.
    void warnOnBadName(const QString& text, QString* lastWarned);
    void refuseInTestMode(const QString& text);
    void closeWindow(); // closes now, or as soon as the running pass has unwound
    bool busy() const { return busy_ > 0; }

    void closeEvent(QCloseEvent* event) override;

    LearningParts app_;
    Transceiver& device_;
    RemoteLauncher& remotes_;
    LearningSession session_;
    std::array<QString, 66> captions_{}; // what the picture buttons show
    int shownDesign_ = 0;                // the design whose picture is in use
    IrCode lastCode_;                    // what the last capture decoded to

private:
    void studyPass(const QString& function);
    bool captureAndProve();
    bool waitForPicture(int* button);
    void learned(const QString& function, int button);
    void retry();
    void funcOK();
    void deleteSelected();
    void restorePosition();
    void storePosition();
    void placeBeside(QWidget* picture) const;

    QString positionKey_;
    QString lastFunction_;
    QString funcWarned_;
    int busy_ = 0;
    bool closePending_ = false;
    QPointer<QObject> pictureLoop_;
    struct KeptPlace {
        int design = 0;
        QString top, left; // Pos/Remote<design>_T and _L before it came beside
    } keptPlace_;
};
