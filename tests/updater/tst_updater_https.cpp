#include <QProcess>
#include <QSignalSpy>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QtTest>

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
    void moreFilesThanOneConnectionServes()
    {
        QVERIFY(TestTls::makeTrustedCertificate(m_root.path()));
        // nginx closes a connection after three requests, whether HTTP/1.1 or
        // HTTP/2; its default is a thousand, fewer files than a game has.
        QByteArray configuration = R"(daemon off; master_process off; pid @ROOT@/nginx.pid; events {}
            http { access_log off; error_log @ROOT@/error.log; client_body_temp_path @ROOT@/body;
                   proxy_temp_path @ROOT@/proxy; fastcgi_temp_path @ROOT@/fastcgi; uwsgi_temp_path @ROOT@/uwsgi;
                   scgi_temp_path @ROOT@/scgi; server { listen 127.0.0.1:@PORT@ ssl http2; root @ROOT@/www;
                   ssl_certificate @ROOT@/cert.pem; ssl_certificate_key @ROOT@/key.pem; keepalive_requests 3; } })";
        configuration.replace("@ROOT@", m_root.path().toUtf8()).replace("@PORT@", QByteArray::number(HTTPS_PORT));
        QVERIFY(TestFiles::write(m_root.filePath("nginx.conf"), configuration));
        m_nginx.setProcessChannelMode(QProcess::ForwardedErrorChannel);
        m_nginx.start(QStandardPaths::findExecutable("nginx", {"/usr/sbin"}),
                      {"-p", m_root.path(), "-c", m_root.filePath("nginx.conf")});
        // Written once nginx listens.
        QTRY_VERIFY_WITH_TIMEOUT(QFile::exists(m_root.filePath("nginx.pid")), 10000);

        const QString url = QStringLiteral("https://127.0.0.1:%1/game").arg(HTTPS_PORT);
        Settings settings(
            TestFiles::writeConfiguration(
                m_root.path(),
                {{"applicationName", "Https Test"}, {"updateUrl", url}, {"executableName", "httpsgame.bin"}}),
            nullptr);
        settings.setInstallPath(m_root.filePath("install"));
        QMap<QString, QByteArray> files;
        for (int i = 0; i < 12; ++i)
            files.insert(QStringLiteral("/data/f%1.bin").arg(i), QByteArray(1000 + 70000 * i, char('a' + i)));
        for (auto it = files.cbegin(); it != files.cend(); ++it)
            QVERIFY(TestFiles::write(m_root.filePath("www/game") + it.key(), it.value()));
        QVERIFY(TestFiles::write(m_root.filePath("www/game/checksums.txt.gz"), TestManifest::body(files)));

        Updater updater;
        updater.setToolProgram(QStringLiteral(LAUNCHER_BINARY));
        QSignalSpy available(&updater, &Updater::updateAvailable);
        QSignalSpy complete(&updater, &Updater::updateComplete);
        QSignalSpy errors(&updater, &Updater::downloadError);
        updater.checkForUpdates();
        QTRY_VERIFY_WITH_TIMEOUT(!available.isEmpty() || !errors.isEmpty(), 20000);
        updater.startUpdate();
        QTRY_VERIFY_WITH_TIMEOUT(!complete.isEmpty() || !errors.isEmpty(), 30000);
        QCOMPARE(errors.value(0).value(0).toString(), QString());
        for (auto it = files.cbegin(); it != files.cend(); ++it)
            QCOMPARE(TestFiles::read(settings.installPath() + it.key()), it.value());
    }

private:
    IsolatedSettings m_isolation;
    QTemporaryDir m_root;
    QProcess m_nginx;
};

QTEST_GUILESS_MAIN(TestUpdaterHttps)
#include "tst_updater_https.moc"
