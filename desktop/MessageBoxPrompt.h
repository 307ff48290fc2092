#pragma once

#include "core/UserPrompt.h"

#include <QMessageBox>
#include <QPointer>

#include <functional>
#include <map>

// Real message boxes on the desktop. Notices are non-modal so nothing waits.
class MessageBoxPrompt final : public UserPrompt {
public:
    explicit MessageBoxPrompt(QWidget* parent = nullptr) : parent_(parent) {}

    void Information(const QString& text) override;
    void Warning(const QString& text) override;
    Answer Question(const QString& text) override;
    Answer QuestionWithHelp(const QString& text, const QString& helpPage) override;
    void Notify(const QString& text) override;
    void Notice(const QString& kind, const QString& text) override;

    // Opens a help page; the Help button does nothing without it.
    std::function<void(const QString& page)> openHelp;

private:
    QWidget* parent_;
    struct Shown {
        QPointer<QMessageBox> box;
        QString text;
        int count = 0;
    };
    std::map<QString, Shown> notices_; // by kind, while on screen
};
