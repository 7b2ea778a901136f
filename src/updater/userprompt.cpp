#include "updater/userprompt.h"

#include <QDebug>

namespace
{
    UserPrompt::CriticalHandler s_critical;
    UserPrompt::QuestionHandler s_question;
}

void UserPrompt::setHandlers(CriticalHandler critical, QuestionHandler question)
{
    s_critical = std::move(critical);
    s_question = std::move(question);
}

void UserPrompt::critical(const QString &title, const QString &text)
{
    if (s_critical)
        s_critical(title, text);
    else
        qWarning().noquote() << title << ':' << text;
}

UserPrompt::Answer UserPrompt::question(const QString &title, const QString &text)
{
    if (s_question)
        return s_question(title, text);
    // Without anyone to ask, nothing is agreed to.
    qWarning().noquote() << title << ':' << text << "(answered No)";
    return Answer::No;
}
