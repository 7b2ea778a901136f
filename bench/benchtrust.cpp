// Linked only into the bench build of the launcher that talks HTTPS: it trusts
// the certificate the bench made for its loopback server, named by
// LAUNCHER_BENCH_CA_FILE, the way a player's system trusts a real server's.
#include <QCoreApplication>

#include "support/testtls.h"

namespace
{
    void trustBenchCertificate()
    {
        const QString file = qEnvironmentVariable("LAUNCHER_BENCH_CA_FILE");
        if (!file.isEmpty())
            TestTls::trust(file);
    }
}

Q_COREAPP_STARTUP_FUNCTION(trustBenchCertificate)
