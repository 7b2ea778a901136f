#pragma once

#include <QProcess>
#include <QSslCertificate>
#include <QSslConfiguration>
#include <QString>

// HTTPS on loopback the way a patch server offers it.
namespace TestTls
{
    // Makes this process, and no other, trust the certificates in `file`.
    inline void trust(const QString &file)
    {
        QSslConfiguration tls = QSslConfiguration::defaultConfiguration();
        tls.addCaCertificates(QSslCertificate::fromPath(file));
        QSslConfiguration::setDefaultConfiguration(tls);
    }

    // Writes cert.pem and key.pem for 127.0.0.1 into `directory` with the
    // openssl tool, and makes this process trust the certificate.
    inline bool makeTrustedCertificate(const QString &directory)
    {
        const QString certificate = directory + QStringLiteral("/cert.pem");
        QProcess openssl;
        openssl.start(
            QStringLiteral("openssl"),
            {QStringLiteral("req"), QStringLiteral("-x509"), QStringLiteral("-newkey"), QStringLiteral("rsa:2048"),
             QStringLiteral("-nodes"), QStringLiteral("-days"), QStringLiteral("1"), QStringLiteral("-subj"),
             QStringLiteral("/CN=127.0.0.1"), QStringLiteral("-addext"), QStringLiteral("subjectAltName=IP:127.0.0.1"),
             QStringLiteral("-keyout"), directory + QStringLiteral("/key.pem"), QStringLiteral("-out"), certificate});
        if (!openssl.waitForFinished() || openssl.exitStatus() != QProcess::NormalExit || openssl.exitCode() != 0)
            return false;
        trust(certificate);
        return true;
    }
}
