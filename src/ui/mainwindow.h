#pragma once

#include <QMainWindow>

class QMessageBox;

namespace Ui
{
    class MainWindow;
}

// The launcher's one window: frameless and translucent, with its own title
// bar. It owns the user settings and everything else the launcher shows.
class MainWindow : public QMainWindow
{
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(MainWindow)

public:
    explicit MainWindow(QWidget *parent = nullptr);
    ~MainWindow() override;

    // Non-blocking; a message that arrives while a box is open is dropped, so
    // a burst of failures does not stack boxes on the player.
    void showErrorMessage(const QString &title, const QString &text);

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    void loadStyleSheet();
    void setLogo();
    void installEventFilterOn(const char *objectName);
    bool handleTitleBarEvent(QEvent *event);
    bool isOverWindowButton() const;

    Ui::MainWindow *ui = nullptr;
    QMessageBox *errorBox = nullptr;
};
