#pragma once

#include <QString>

// Message boxes. The desktop shows real boxes, a headless run logs the text and
// answers No, tests script the answers. Texts are the program's own Japanese.
class UserPrompt {
public:
    enum class Answer { Yes, No };

    virtual ~UserPrompt() = default;

    // Blocking boxes: for a person at the desktop.
    virtual void Information(const QString& text) = 0;
    virtual void Warning(const QString& text) = 0;
    virtual Answer Question(const QString& text) = 0;
    // A question whose box also has a Help button that opens a help page
    // (a file of the help folder, with an optional #fragment).
    virtual Answer QuestionWithHelp(const QString& text, const QString& helpPage) {
        (void)helpPage;
        return Question(text);
    }

    // Non-blocking notice: for what a web request, a reservation or a timer
    // caused. Nothing waits for it, so the server and the scan go on.
    virtual void Notify(const QString& text) = 0;
    // A notice that replaces the one of the same kind still on screen instead
    // of adding another (a press repeated on a device that fails).
    virtual void Notice(const QString& kind, const QString& text) {
        (void)kind;
        Notify(text);
    }
};

class HeadlessPrompt final : public UserPrompt {
public:
    void Information(const QString& text) override;
    void Warning(const QString& text) override;
    Answer Question(const QString& text) override;
    void Notify(const QString& text) override;
};
