#pragma once

#include <QFuture>
#include <QFutureWatcher>
#include <QHash>
#include <QJsonObject>
#include <QList>
#include <QMap>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QObject>
#include <QSet>
#include <QString>
#include <QStringList>
#include <QThreadPool>
#include <QUrl>

#include <memory>

#include "updater/manifest.h"

class QFile;
class QLockFile;
struct VerificationRun;

// Upper bound on file transfers in flight, taken once at process start.
extern const int maxConcurrentDownloads;

// A file transfer in flight.
struct ActiveDownload
{
    QString fileName;
    QString expectedChecksum;
    QNetworkReply *reply = nullptr;
    QFile *file = nullptr;
    // The most bytes the manifest allows the file, -1 for no bound.
    qint64 byteLimit = -1;
    // CRC-32 of the bytes written so far; the finished file is judged by it
    // instead of being read back from the disk.
    quint32 crc = 0;
};

// A staged file opened for writing, or why it could not be.
struct StagedFile
{
    QFile *file = nullptr;
    QString error;
    // Made by this open, so that giving it up can take it away again.
    bool created = false;
};

// A transfer deferred because every slot was taken.
struct PendingDownload
{
    QUrl url;
    QString fileName;
};

// The checks of one manifest: the tasks in key order, and the order in which
// a run fetches what fails, planned once here so that a large game is never
// sorted on the GUI thread. A task's size only orders the downloads.
struct VerificationPlan
{
    QList<Manifest::Entry> tasks;
    // Indices into `tasks`, largest file first, equal sizes in key order.
    QList<qsizetype> largestFirst;
};

// The checks of a parsed manifest, or of its entries read ahead of it.
VerificationPlan planVerification(const QJsonObject &manifest);
VerificationPlan planVerification(const QList<Manifest::Entry> &entries);

// The patching engine: fetches the manifest, verifies every file, downloads
// what differs into the staging directory and moves it into place through the
// relocation tool. It reports every outcome as a signal and touches no widget.
class Updater : public QObject
{
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(Updater)

public:
    explicit Updater(QObject *parent = nullptr);
    ~Updater() override;

    void checkForUpdates();
    bool isInstalled() const;
    QList<QString> verifyInstallation();
    // Blocks until a running verification has stopped; its outcome never
    // arrives. Needed before the settings its workers read go away.
    void stopVerification();

    static QString fileChecksum(const QString &path);
    static bool isStagedFileValid(const QString &relativePath, const QString &expectedChecksum);
    static QString stagingDirectory();

    void cancelAllDownloads();
    bool runInstaller(const QString &source, const QString &destination, const QStringList &ignore);
    int installStagedFiles();
    void checkLauncherVersion();
    bool isGameRunning() const;
    // A finished installation of the former launcher under APPDATA.
    bool hasLegacyInstallation() const;
    // Unpacks the legacy archive in place, then moves the legacy tree into
    // the install directory. Shows nothing; the caller tells the user.
    bool migrateLegacyInstallation();
    // Asks, then removes the install directory through the relocation tool,
    // elevated where the player cannot write it. Blocks while the tool runs.
    void uninstall();

    // The relocation tool is this program itself; tests run the built one.
    void setToolProgram(const QString &program);
    // A transfer that brings less than a trickle of bytes for this long is
    // given up; tests shorten it.
    void setStallTimeout(int milliseconds);

signals:
    void updateAvailable(const QString &newVersion);
    void noUpdateAvailable();
    void downloadProgress(qlonglong bytesPerSecond);
    void downloadFinished();
    void downloadError(const QString &error);
    void installProgress(int percentage);
    void installFinished();
    void installError(const QString &error);
    void uninstallFinished();
    void uninstallError(const QString &error);
    void updateComplete();
    void stateChanged(const QString &state);
    void overallProgress(qlonglong bytesDownloaded, qlonglong totalBytes);
    void checkingForUpdates();
    void verificationStarted(int totalFiles);
    void verificationProgress(int filesChecked, int totalFiles);
    void launcherVersionCheckComplete(bool success);

public slots:
    void startUpdate();

private slots:
    void handleNetworkReply(QNetworkReply *reply);
    void handleDownloadError(QNetworkReply::NetworkError error);
    void downloadNextFile();

private:
    void parseManifest(const QByteArray &data);
    void reportUnusableManifest();
    void startVerification(VerificationPlan plan);
    void retireVerification();
    void handleVerificationFinished();
    void announceProgress(const std::shared_ptr<VerificationRun> &run);
    void startFileDownload(const QUrl &url, const QString &fileName);
    StagedFile takeStagedFile(const QString &stagedPath);
    void openFilesAhead();
    void discardFilesOpenedAhead();
    void writeReceivedData(QNetworkReply *reply);
    void handleFileFinished(QNetworkReply *reply);
    void handleFileFailure(QNetworkReply *reply);
    void handleFileProgress(QNetworkReply *reply, qint64 bytesReceived);
    void finishDownload(QNetworkReply *reply);
    void releaseReply(QNetworkReply *reply);
    void finishRun();
    void failRun(const QString &message);
    bool lockStaging();
    void unlockStaging();
    bool prepareStagingDirectory();
    void pruneStagingDirectory() const;
    void watchTransfer(QNetworkReply *reply);
    void handleLauncherVersionReply(QNetworkReply *reply);
    // The relocation tool, and its command line for one move or delete: each
    // value stays one argument, so paths with quotes, blanks or a trailing
    // separator and an empty value arrive as they are.
    QString relocationTool() const;
    static QStringList relocationArguments(const QString &source, const QString &destination, const QString &ignore);
    bool runInstallerElevated(const QStringList &arguments);
    bool runInstallerDirectly(const QStringList &arguments);
    // Set on a reply that was given up for bringing too little for too long.
    static constexpr char StalledProperty[] = "launcherStalled";

    QNetworkRequest makeRequest(const QUrl &url) const;
    QUrl fileUrl(const QString &fileName) const;

    QNetworkAccessManager networkManager;
    // One manager per transfer slot for the game's files: each manager
    // reads and decrypts on a thread of its own, and one thread alone
    // cannot keep up with several fast transfers over TLS.
    std::vector<std::unique_ptr<QNetworkAccessManager>> transferManagers;
    QNetworkAccessManager *transferManager();
    QNetworkReply *launcherVersionReply = nullptr;
    // The newest manifest request; an older reply is never used.
    QNetworkReply *manifestReply = nullptr;
    // Counts manifest parses; a parse whose number is no longer the latest
    // is dropped when it ends.
    quint64 manifestGeneration = 0;
    QJsonObject manifest;
    // Files whose stored size of 0 stands for a size that was no whole
    // number, and so bounds nothing.
    QSet<QString> unsizedFiles;
    // Largest file first from the moment verification fills it.
    QList<QString> filesToDownload;
    // The manifest sizes of the queue, added up when it is filled.
    qint64 queuedBytes = 0;
    int currentFileIndex = 0;
    bool updating = false;
    bool recheckRequired = false;
    QMap<QNetworkReply *, ActiveDownload> activeDownloads;
    // The staged files of the next transfers in the queue, by staged path,
    // created on threads of their own: creating a file can take longer than
    // fetching it, and on the GUI thread every transfer would wait for it.
    QHash<QString, QFuture<StagedFile>> filesOpenedAhead;
    QThreadPool stagingPool;
    QList<PendingDownload> pendingDownloads;
    QMap<QString, qint64> fileBytesReceived;
    qint64 bytesDownloaded = 0;
    qint64 totalBytes = 0;
    QFutureWatcher<void> *verificationWatcher = nullptr;
    // Set while the verification runs on a plan read ahead of the manifest:
    // its outcome waits until the manifest is in place, and is dropped if
    // the manifest is refused.
    bool awaitingManifest = false;
    bool outcomeWaiting = false;
    std::shared_ptr<VerificationRun> currentVerification;
    // Verifications replaced by a newer one, still finishing their chunks.
    QList<QFuture<void>> retiredVerifications;
    QList<QString> verificationResults;
    // Staged files whose digest is known to be right; nothing else in the
    // staging directory is ever moved into the install directory.
    QSet<QString> verifiedStagedFiles;
    bool stagedFilesKnown = false;
    std::unique_ptr<QLockFile> stagingLock;

    qint64 lastOverallReportTime = 0;
    qint64 lastSpeedSampleTime = 0;
    qint64 bytesSinceSpeedSample = 0;
    QList<qint64> speedSamples;
    QMap<QNetworkReply *, qint64> lastBytesByReply;

    QString toolProgram;
    int stallTimeoutMs = 30000;
};
