#pragma once

#include <QString>

#include <functional>

// The engine's few questions and alarms for the user. The engine links no
// widgets: the window installs handlers that show message boxes, and tests
// install handlers that answer at once.
namespace UserPrompt
{
    enum class Answer
    {
        Yes,
        No,
    };

    using MessageHandler = std::function<void(const QString &title, const QString &text)>;
    using QuestionHandler = std::function<Answer(const QString &title, const QString &text)>;

    void setHandlers(MessageHandler critical, QuestionHandler question);
    void setHandlers(MessageHandler critical, MessageHandler information, QuestionHandler question);

    // Blocks until the user has read it.
    void critical(const QString &title, const QString &text);
    void information(const QString &title, const QString &text);
    // Yes or No; closing the question without choosing answers No.
    Answer question(const QString &title, const QString &text);
}
