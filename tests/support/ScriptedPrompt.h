#pragma once

#include "core/UserPrompt.h"

#include <QStringList>

#include <deque>

// Records every box and answers questions from a script (No when it runs out).
class ScriptedPrompt final : public UserPrompt {
public:
    void Information(const QString& text) override { shown << QStringLiteral("info:") + text; }
    void Warning(const QString& text) override { shown << QStringLiteral("warning:") + text; }
    Answer Question(const QString& text) override {
        shown << QStringLiteral("question:") + text;
        if (answers.empty())
            return Answer::No;
        Answer a = answers.front();
        answers.pop_front();
        return a;
    }
    Answer QuestionWithHelp(const QString& text, const QString& helpPage) override {
        helpPages << helpPage;
        return Question(text);
    }
    void Notify(const QString& text) override { shown << QStringLiteral("notify:") + text; }

    QStringList shown;
    QStringList helpPages; // of questions with a Help button
    std::deque<Answer> answers;
};
