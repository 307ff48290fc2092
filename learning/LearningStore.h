#pragma once

#include "infrared/IrProtocol.h"
#include "infrared/SignalStore.h"
#include "remotes/Registry.h"

#include <QByteArray>
#include <QString>
#include <QStringList>

#include <vector>

class ProgramFolder;
class SettingsStore;

// One use of the learning or editing window holds at most this many new
// signals; beyond it the window asks to finish first.
constexpr int MaxSessionSignals = 100;

// The signals learned in one use of the learning or editing window. Each lies
// in <n>.tmp in the program folder, n counted from 1, until the window
// finishes; nothing reaches the signal store or the registry before that.
class LearningSession {
public:
    struct Signal {
        QString function; // "" once removed from the list
        int button = 0;   // picture button, from 0
    };

    explicit LearningSession(const ProgramFolder& folder) : folder_(folder) {}

    int count() const { return int(signals_.size()); }
    bool full() const { return count() >= MaxSessionSignals; }
    const std::vector<Signal>& signalList() const { return signals_; }

    // Writes the captured image to the next <n>.tmp and returns n; 0 when the
    // session is full or the file cannot be written (error says why).
    int Add(const SignalImage& image, const QString& function, int button, QString* error);
    // Takes signal n out: it is not stored when the window finishes.
    void Remove(int n);
    QString TempPath(int n) const;

    // Deletes the learning's temporaries of the program folder (<n>.tmp and the
    // test send's testsignal.tmp), as the learning window does when it closes
    // and the program at start (a killed one leaves them, and the API takes
    // 1.tmp for an open window). Returns how many.
    static int RemoveTempFiles(const ProgramFolder& folder);

private:
    const ProgramFolder& folder_;
    std::vector<Signal> signals_;
};

// Why a device or function name cannot be used, "" when it can: it names
// files, and must read back from setting.ini as it was typed. Every front that
// takes such a name asks this, with the name as it came (before trimming).
QString LearnedNameProblem(const QString& name);

// A captured signal made ready to store. One that decodes is replaced by its
// protocol's exact timings when clean is set (a capture jitters, the code does
// not); kept as captured, an unknown carrier takes the protocol's. The image
// and length change only when the result fits. Returns the code, raw when none.
IrCode TidyCapture(SignalImage& image, int& length, bool clean);

struct DeletedFunction {
    QString function;
    int button = 0;
};

// One key to store: its picture button, its function name and the bytes of
// its signal file.
struct StoredKey {
    int button = 0;
    QString function;
    QByteArray signal;
};

// A change to one remote: Remote-<slot> in the registry and the device's files.
struct RemoteChange {
    int slot = 0;
    QString device;
    int design = 0;                       // when set, Device and Design are written too
    bool replace = false;                 // the slot's keys and the device's old files go first
    std::vector<DeletedFunction> deleted; // each loses its file and its Button-<k>
    std::vector<StoredKey> keys;
};

// Stores the change whole or not at all, so that a full disk or a setting.ini
// that cannot be written leaves no Button-<k> naming a missing file and no
// file without its key: the signal files first, then every registry change in
// one write; when either fails the files it made go again, and false with why.
// Files the registry no longer names go last.
bool StoreRemote(const ProgramFolder& folder, SettingsStore& settings, const RemoteChange& change,
                 QString* error = nullptr);

// Stores a remote learned in the wizard into Remote-<slot>, with a Button-<k>
// for each signal of the session, in place of whatever the slot and the
// device's files held. As StoreRemote.
bool StoreLearnedRemote(const ProgramFolder& folder, SettingsStore& settings,
                        const RemoteSlot& slot, const QString& deviceName, int design,
                        const LearningSession& session, QString* error = nullptr);

// The editor's finish: each deleted function loses its signal file and gets an
// empty Button-<k>, and the session's signals are stored. As StoreRemote.
bool StoreRemoteEdit(const ProgramFolder& folder, SettingsStore& settings, int slot,
                     const QString& deviceName, const std::vector<DeletedFunction>& deleted,
                     const LearningSession& session, QString* error = nullptr);

// Deletes Remote-<slot> and the device's signal files.
void DeleteRemote(const ProgramFolder& folder, SettingsStore& settings, int slot,
                  const QString& deviceName);

// Tells the device's own signal file names: <device>-*.bin, except those that
// belong to another registered device whose name starts with "<device>-".
class OwnSignalFiles {
public:
    OwnSignalFiles(SettingsStore& settings, const QString& deviceName);
    bool Owns(const QString& fileName) const;

private:
    QString prefix_;
    QStringList others_;
};

// The device's own files in IRSignals/, by OwnSignalFiles.
QStringList DeviceSignalFiles(const ProgramFolder& folder, SettingsStore& settings,
                              const QString& deviceName);

// The remotes the editor offers: slots 1 to 100 with a device name.
struct EditableRemote {
    int slot = 0;
    QString name;
};
std::vector<EditableRemote> EditableRemotes(SettingsStore& settings);
