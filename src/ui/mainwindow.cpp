#include "ui/mainwindow.h"
#include "ui_mainwindow.h"

#include <QDesktopServices>
#include <QFile>
#include <QGraphicsOpacityEffect>
#include <QMessageBox>
#include <QMouseEvent>
#include <QUrl>

#include "config/settings.h"

namespace
{
    // Offset between the pointer and the window's corner when a title bar
    // drag starts.
    QPoint dragOffset;

    const qreal HoverOpacity = 0.9;
    const qreal PressedOpacity = 0.8;
}

MainWindow::MainWindow(QWidget *parent)
    : QMainWindow(parent)
    , ui(new Ui::MainWindow)
{
    new Settings(this);

    setWindowFlags(Qt::FramelessWindowHint);
    setAttribute(Qt::WA_TranslucentBackground, true);
    setAttribute(Qt::WA_QuitOnClose, true);
    setVisible(false);

    ui->setupUi(this);
    setWindowTitle(Settings::instance()->applicationName() + QStringLiteral(" Launcher"));

    setAttribute(Qt::WA_OpaquePaintEvent, true);
    setAttribute(Qt::WA_TransparentForMouseEvents, false);
    loadStyleSheet();

    if (auto *button = findChild<QPushButton *>(QStringLiteral("minimizeButton")))
        connect(button, &QPushButton::clicked, this, &QWidget::showMinimized);
    if (auto *button = findChild<QPushButton *>(QStringLiteral("closeButton")))
        connect(button, &QPushButton::clicked, this, &QWidget::close);

    setLogo();
    installEventFilterOn("titleBar");
    installEventFilterOn("companyButton");
    if (auto *panel = findChild<QWidget *>(QStringLiteral("bottomPanel")))
        panel->raise();
    installEventFilterOn("minimizeButton");
    installEventFilterOn("closeButton");
    installEventFilterOn("manageButton");
    installEventFilterOn("settingsButton");
}

MainWindow::~MainWindow()
{
    delete ui;
    delete Settings::instance();

    if (errorBox) {
        // Closing normally finishes the box, which clears errorBox itself.
        errorBox->close();
        delete errorBox;
    }
}

void MainWindow::loadStyleSheet()
{
    QFile file(QStringLiteral(":/resources/style.qss"));
    if (!file.open(QIODevice::ReadOnly | QIODevice::Text))
        return;
    setStyleSheet(QString::fromUtf8(file.readAll()));
    file.close();
}

void MainWindow::setLogo()
{
    // The logo is the background of logoWidget; the empty logoLabel on top of
    // it only reserves its size in the layout.
    auto *logoWidget = findChild<QWidget *>(QStringLiteral("logoWidget"));
    if (!logoWidget)
        return;
    logoWidget->setStyleSheet(QStringLiteral("background-image: url(:/resources/")
                              + Settings::instance()->logoImage()
                              + QStringLiteral("); background-repeat: no-repeat; background-position: center;"));
}

void MainWindow::installEventFilterOn(const char *objectName)
{
    if (auto *widget = findChild<QWidget *>(QLatin1String(objectName)))
        widget->installEventFilter(this);
}

bool MainWindow::eventFilter(QObject *watched, QEvent *event)
{
    auto *button = qobject_cast<QPushButton *>(watched);
    if (button) {
        switch (event->type()) {
        case QEvent::Enter: {
            auto *effect = new QGraphicsOpacityEffect(button);
            effect->setOpacity(HoverOpacity);
            button->setGraphicsEffect(effect);
            break;
        }
        case QEvent::Leave:
            button->setGraphicsEffect(nullptr);
            break;
        case QEvent::MouseButtonPress:
        case QEvent::MouseButtonRelease:
            if (auto *effect = qobject_cast<QGraphicsOpacityEffect *>(button->graphicsEffect()))
                effect->setOpacity(event->type() == QEvent::MouseButtonPress ? PressedOpacity : HoverOpacity);
            break;
        default:
            break;
        }

        // On press, not on click, and without consuming the event.
        if (event->type() == QEvent::MouseButtonPress && button->objectName() == QLatin1String("companyButton"))
            QDesktopServices::openUrl(QUrl(Settings::instance()->companyUrl()));
    }

    if (watched->objectName() == QLatin1String("titleBar"))
        return handleTitleBarEvent(event);

    if (watched->property("class").toString() == QLatin1String("CategoryButton")) {
        if (event->type() != QEvent::MouseButtonRelease
            || static_cast<QMouseEvent *>(event)->button() != Qt::LeftButton)
            return false;
        const QString url = watched->property("url").toString();
        if (url.isEmpty())
            return false;
        QDesktopServices::openUrl(QUrl(url));
        return true;
    }

    return QMainWindow::eventFilter(watched, event);
}

bool MainWindow::handleTitleBarEvent(QEvent *event)
{
    switch (event->type()) {
    case QEvent::MouseButtonPress: {
        const auto *mouseEvent = static_cast<QMouseEvent *>(event);
        if (mouseEvent->button() != Qt::LeftButton || isOverWindowButton())
            return false;
        dragOffset = mouseEvent->globalPosition().toPoint() - frameGeometry().topLeft();
        return true;
    }
    case QEvent::MouseMove: {
        const auto *mouseEvent = static_cast<QMouseEvent *>(event);
        if (isOverWindowButton() || !(mouseEvent->buttons() & Qt::LeftButton))
            return false;
        move(mouseEvent->globalPosition().toPoint() - dragOffset);
        return true;
    }
    default:
        return false;
    }
}

bool MainWindow::isOverWindowButton() const
{
    for (const char *name : {"minimizeButton", "closeButton"}) {
        const auto *button = findChild<QWidget *>(QLatin1String(name));
        if (button && button->underMouse())
            return true;
    }
    return false;
}

void MainWindow::showErrorMessage(const QString &title, const QString &text)
{
    if (errorBox)
        return;

    errorBox = new QMessageBox(QMessageBox::Critical, title, text, QMessageBox::Ok, this);
    // A message box is modal by default; this one must leave the launcher
    // usable while it is open.
    errorBox->setModal(false);
    connect(errorBox, &QMessageBox::finished, this, [this] {
        errorBox->deleteLater();
        errorBox = nullptr;
    });
    errorBox->show();
}
