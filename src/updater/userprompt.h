#pragma once

#include <QString>

#include <functional>

class QWidget;

// The few questions and alarms for the user. The engine links no widgets:
// the window installs handlers that show message boxes, and tests install
// handlers that answer at once. The engine's boxes have no parent; the
// window's own pass the window or dialog they belong to.
namespace UserPrompt
{
    enum class Answer
    {
        Yes,
        No,
    };

    using MessageHandler = std::function<void(const QString &title, const QString &text, QWidget *parent)>;
    using QuestionHandler = std::function<Answer(const QString &title, const QString &text, QWidget *parent)>;

    struct Handlers
    {
        MessageHandler critical;
        MessageHandler warning;
        MessageHandler information;
        QuestionHandler question;
    };

    // A missing message handler logs the text; a missing question handler
    // answers No.
    void setHandlers(Handlers handlers);

    // Each blocks until the user has read it.
    void critical(const QString &title, const QString &text, QWidget *parent = nullptr);
    void warning(const QString &title, const QString &text, QWidget *parent = nullptr);
    void information(const QString &title, const QString &text, QWidget *parent = nullptr);
    // Yes or No; closing the question without choosing answers No.
    Answer question(const QString &title, const QString &text, QWidget *parent = nullptr);
}
