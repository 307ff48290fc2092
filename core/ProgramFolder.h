#pragma once

#include <QString>
#include <QStringView>

// The folder beneath which the program keeps everything it stores.
class ProgramFolder {
public:
    explicit ProgramFolder(QString root);

    // --home DIR, else $KESTRAVA_HOME, else $XDG_DATA_HOME/kestrava
    // (~/.local/share/kestrava). The result is absolute.
    static QString Resolve(const QString& homeOption);

    const QString& root() const { return root_; }
    // A path beneath the folder; relative uses "/" as separator.
    QString path(QStringView relative) const;
    QString settingsPath() const { return path(u"setting.ini"); }

    // Creates the folder itself; false (with a reason) when it cannot be made.
    bool Create(QString* error) const;
    // Creates IRSignals/ and reserve/; failures are ignored, as at every start.
    void CreateDataFolders() const;
    // Writes the pictures that ship inside the program into pic/ where missing.
    // Returns how many were written.
    int WritePictures() const;
    // Removes the temporaries of atomic writes ("<name>.<pid>.XXXXXX.tmp") that a
    // process which is gone left behind (killed in the middle of a save), here
    // and in the data folders. Returns how many were removed.
    int RemoveStaleTemporaries() const;

private:
    QString root_;
};

// Keeps one instance per program folder: an advisory lock on a file in the
// folder, held for the life of the process and dropped by the kernel when it
// ends, however it ends.
class InstanceLock {
public:
    enum class Result { Acquired, HeldElsewhere, Failed };

    InstanceLock() = default;
    ~InstanceLock();
    InstanceLock(const InstanceLock&) = delete;
    InstanceLock& operator=(const InstanceLock&) = delete;

    Result Acquire(const ProgramFolder& folder, QString* error);
    // The process that holds the folder, as its lock file says; 0 when unknown.
    static qint64 Holder(const ProgramFolder& folder);
    void Release();

private:
    int fd_ = -1;
};
