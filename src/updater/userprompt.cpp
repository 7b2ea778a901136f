#include "updater/userprompt.h"

#include <QDebug>

namespace
{
    UserPrompt::MessageHandler s_critical;
    UserPrompt::MessageHandler s_information;
    UserPrompt::QuestionHandler s_question;

    void tell(const UserPrompt::MessageHandler &handler, const QString &title, const QString &text)
    {
        if (handler)
            handler(title, text);
        else
            qWarning().noquote() << title << ':' << text;
    }
}

void UserPrompt::setHandlers(MessageHandler critical, QuestionHandler question)
{
    setHandlers(std::move(critical), MessageHandler(), std::move(question));
}

void UserPrompt::setHandlers(MessageHandler critical, MessageHandler information, QuestionHandler question)
{
    s_critical = std::move(critical);
    s_information = std::move(information);
    s_question = std::move(question);
}

void UserPrompt::critical(const QString &title, const QString &text)
{
    tell(s_critical, title, text);
}

void UserPrompt::information(const QString &title, const QString &text)
{
    tell(s_information, title, text);
}

UserPrompt::Answer UserPrompt::question(const QString &title, const QString &text)
{
    if (s_question)
        return s_question(title, text);
    // Without anyone to ask, nothing is agreed to.
    qWarning().noquote() << title << ':' << text << "(answered No)";
    return Answer::No;
}
