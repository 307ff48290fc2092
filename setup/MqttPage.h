#pragma once

#include <QString>
#include <QWidget>

#include <functional>

class SettingsStore;
class QCheckBox;
class QLineEdit;

// The settings dialog's MQTT page: the broker, the login, who we are on it and
// what we tell it.
class MqttPage : public QWidget {
    Q_OBJECT
public:
    struct Parts {
        SettingsStore& settings;
        // The settings changed: the client reads them again and reconnects.
        std::function<void()> changed; // may be empty
    };
    explicit MqttPage(Parts parts, QWidget* parent = nullptr);

    void load();
    // What OK must not store, for people; "" when all can be.
    QString problem() const;
    // OK: the text fields, then the client told.
    void save();

private:
    void switched();

    Parts parts_;
    QLineEdit* txtServer_;
    QLineEdit* txtCAFile_;
    QLineEdit* txtUser_;
    QLineEdit* txtPass_;
    QLineEdit* txtNodeId_;
    QLineEdit* txtTopic_;
    QCheckBox* chkDiscovery_;
    QLineEdit* txtPrefix_;
    QCheckBox* chkListen_;
};
