#include <QProcess>
#include <QSignalSpy>
#include <QStandardPaths>
#include <QTcpSocket>
#include <QTemporaryDir>
#include <QtTest>

#include <memory>

#include "config/settings.h"
#include "isolatedsettings.h"
#include "support/testfiles.h"
#include "support/testmanifest.h"
#include "support/testtls.h"
#include "updater/updater.h"

// The engine against nginx over HTTPS, set up the way patch servers are:
// HTTP/2 on offer, and a connection closed after a number of requests.
class TestUpdaterHttps : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void cleanupTestCase()
    {
        m_nginx.kill();
        m_nginx.waitForFinished();
    }
    void moreFilesThanOneConnectionServes();

private:
    IsolatedSettings m_isolation;
    QTemporaryDir m_root;
    QProcess m_nginx;
    std::unique_ptr<Settings> m_settings;
};

void TestUpdaterHttps::initTestCase()
{
    QVERIFY(TestTls::makeTrustedCertificate(m_root.path()));

    // nginx closes a connection after three requests, whether HTTP/1.1 or
    // HTTP/2; its default is a thousand, fewer files than a game has.
    QByteArray configuration = R"(worker_processes 1; daemon off; master_process off;
pid @ROOT@/nginx.pid; error_log @ROOT@/error.log warn;
events { worker_connections 64; }
http {
    access_log off; client_body_temp_path @ROOT@/body; proxy_temp_path @ROOT@/proxy;
    fastcgi_temp_path @ROOT@/fastcgi; uwsgi_temp_path @ROOT@/uwsgi; scgi_temp_path @ROOT@/scgi;
    server {
        listen 127.0.0.1:@PORT@ ssl http2;
        ssl_certificate @ROOT@/cert.pem; ssl_certificate_key @ROOT@/key.pem;
        keepalive_requests 3;
        root @ROOT@/www;
    }
})";
    configuration.replace("@ROOT@", m_root.path().toUtf8()).replace("@PORT@", QByteArray::number(HTTPS_PORT));
    QVERIFY(TestFiles::write(m_root.filePath(QStringLiteral("nginx.conf")), configuration));
    m_nginx.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    m_nginx.start(
        QStandardPaths::findExecutable(QStringLiteral("nginx"), {QStringLiteral("/usr/sbin")}),
        {QStringLiteral("-p"), m_root.path(), QStringLiteral("-c"), m_root.filePath(QStringLiteral("nginx.conf"))});
    QTRY_VERIFY_WITH_TIMEOUT(([] {
                                 QTcpSocket socket;
                                 socket.connectToHost(QStringLiteral("127.0.0.1"), HTTPS_PORT);
                                 return socket.waitForConnected(200);
                             })(),
                             10000);

    m_settings = std::make_unique<Settings>(
        TestFiles::writeConfiguration(
            m_root.path(),
            {{QStringLiteral("applicationName"), QStringLiteral("Https Test")},
             {QStringLiteral("updateUrl"), QStringLiteral("https://127.0.0.1:%1/game").arg(HTTPS_PORT)},
             {QStringLiteral("executableName"), QStringLiteral("httpsgame.bin")}}),
        nullptr);
    m_settings->setInstallPath(m_root.filePath(QStringLiteral("install")));
}

void TestUpdaterHttps::moreFilesThanOneConnectionServes()
{
    QMap<QString, QByteArray> files;
    for (int i = 0; i < 12; ++i)
        files.insert(QStringLiteral("/data/f%1.bin").arg(i), QByteArray(1000 + 70000 * i, char('a' + i)));
    for (auto it = files.cbegin(); it != files.cend(); ++it)
        QVERIFY(TestFiles::write(m_root.filePath(QStringLiteral("www/game")) + it.key(), it.value()));
    QVERIFY(TestFiles::write(m_root.filePath(QStringLiteral("www/game/checksums.txt.gz")), TestManifest::body(files)));

    Updater updater;
    updater.setToolProgram(QStringLiteral(LAUNCHER_BINARY));
    QSignalSpy available(&updater, &Updater::updateAvailable);
    QSignalSpy complete(&updater, &Updater::updateComplete);
    QSignalSpy errors(&updater, &Updater::downloadError);
    updater.checkForUpdates();
    QTRY_VERIFY_WITH_TIMEOUT(!available.isEmpty() || !errors.isEmpty(), 20000);
    QCOMPARE(errors.value(0).value(0).toString(), QString());
    updater.startUpdate();
    QTRY_VERIFY_WITH_TIMEOUT(!complete.isEmpty() || !errors.isEmpty(), 30000);
    QCOMPARE(errors.value(0).value(0).toString(), QString());
    for (auto it = files.cbegin(); it != files.cend(); ++it)
        QCOMPARE(TestFiles::read(m_settings->installPath() + it.key()), it.value());
}

QTEST_GUILESS_MAIN(TestUpdaterHttps)
#include "tst_updater_https.moc"
