#pragma once

#include "infrared/SignalCodeCache.h"
#include "learning/LearningWindow.h"

#include <vector>

class QComboBox;

// The remote editor: adds, re-teaches and deletes functions of a learned
// remote, or deletes the remote. Changes take effect at 完了.
class RemoteEditor final : public LearningWindow {
    Q_OBJECT
public:
    RemoteEditor(LearningParts parts, Transceiver& device, RemoteLauncher& remotes,
                 QWidget* parent = nullptr);

    void Load() override;

    QComboBox* cmbDeviceName = nullptr;
    QPushButton* cmdDelRem = nullptr;

    static const QString TestModeText;
    // "機器名:<name> の記録済み..." for the device about to go.
    static QString DeleteRemoteText(const QString& deviceName);

protected:
    QString deviceName() const override;
    void openPortSetup() override;
    void deleteLine(QListWidgetItem* item) override;
    void finish() override;
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    void fillDevices();
    void selectDevice();
    void deleteRemote();
    int slot() const;

    std::vector<DeletedFunction> deleted_;
    bool firstFocusDone_ = false;
    SignalCodeCache codes_; // each key's protocol, decoded once per file
};
