#pragma once

#include "core/UserPrompt.h"

class QWidget;

// Real message boxes on the desktop. Notices are non-modal so nothing waits.
class MessageBoxPrompt final : public UserPrompt {
public:
    explicit MessageBoxPrompt(QWidget* parent = nullptr) : parent_(parent) {}

    void Information(const QString& text) override;
    void Warning(const QString& text) override;
    Answer Question(const QString& text) override;
    void Notify(const QString& text) override;

private:
    QWidget* parent_;
};
