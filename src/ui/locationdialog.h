#pragma once

#include <QDialog>

class MainWindow;
class QLineEdit;

// Asks where the game's files live. The first-run variant cannot be
// cancelled and falls back to the default location; the other one offers to
// move an existing installation to the chosen place.
class LocationDialog : public QDialog
{
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(LocationDialog)

public:
    LocationDialog(MainWindow *window, bool firstRun);

    // The field as the dialog ended; empty means the first run was left
    // without any location, not even the default one.
    QString chosenPath() const;
    // The launcher's own directory was chosen and refused; the caller asks
    // again with a new dialog.
    bool launcherDirectoryRefused() const;

public slots:
    void browseForDirectory();
    void confirmLocation();

private:
    MainWindow *m_window;
    bool m_firstRun;
    bool m_launcherDirectoryRefused = false;
    QLineEdit *m_pathEdit = nullptr;
};
