#include "updater/userprompt.h"

#include <QDebug>

namespace
{
    UserPrompt::Handlers s_handlers;

    void tell(const UserPrompt::MessageHandler &handler, const QString &title, const QString &text, QWidget *parent)
    {
        if (handler)
            handler(title, text, parent);
        else
            qWarning().noquote() << title << ':' << text;
    }
}

void UserPrompt::setHandlers(Handlers handlers)
{
    s_handlers = std::move(handlers);
}

void UserPrompt::critical(const QString &title, const QString &text, QWidget *parent)
{
    tell(s_handlers.critical, title, text, parent);
}

void UserPrompt::warning(const QString &title, const QString &text, QWidget *parent)
{
    tell(s_handlers.warning, title, text, parent);
}

void UserPrompt::information(const QString &title, const QString &text, QWidget *parent)
{
    tell(s_handlers.information, title, text, parent);
}

UserPrompt::Answer UserPrompt::question(const QString &title, const QString &text, QWidget *parent)
{
    if (s_handlers.question)
        return s_handlers.question(title, text, parent);
    // Without anyone to ask, nothing is agreed to.
    qWarning().noquote() << title << ':' << text << "(answered No)";
    return Answer::No;
}
