#include <QtTest>

#include <atomic>

#include "platform/eventdispatchers.h"

namespace
{
    // Whether a thread started before the choice waits with GLib, as this Qt
    // does by default.
    bool glibByDefault = false;
    // Set by whoever started the test; then it is theirs to pass on.
    bool noGlibFromOutside = false;

    bool waitsWithGlib(QThread *thread)
    {
        return thread->eventDispatcher()->inherits("QEventDispatcherGlib");
    }
}

class TestEventDispatchers : public QObject
{
    Q_OBJECT

private slots:
    void threadsLeaveGlib();
    void otherProgramsKeepTheirDefault();
};

void TestEventDispatchers::threadsLeaveGlib()
{
    if (!glibByDefault)
        QSKIP("This Qt waits without GLib on every thread");
    QVERIFY(!QCoreApplication::eventDispatcher()->inherits("QEventDispatcherGlib"));

    QThread worker;
    QObject receiver;
    receiver.moveToThread(&worker);
    worker.start();
    const auto stop = qScopeGuard([&worker] {
        worker.quit();
        worker.wait();
    });
    // Posted from here, as the GUI thread posts to a network thread.
    std::atomic<QThread *> ranOn {nullptr};
    QMetaObject::invokeMethod(
        &receiver, [&ranOn] { ranOn = QThread::currentThread(); }, Qt::QueuedConnection);
    QTRY_COMPARE(ranOn.load(), &worker);
    QVERIFY(!waitsWithGlib(&worker));
}

void TestEventDispatchers::otherProgramsKeepTheirDefault()
{
    const QString noGlib = QStringLiteral("QT_NO_GLIB");
    if (noGlibFromOutside || !QProcessEnvironment::systemEnvironment().contains(noGlib))
        QSKIP("Nothing was set for this process's threads");
    // A game built with Qt would otherwise wait without GLib too.
    QVERIFY(!Platform::environmentForOtherPrograms().contains(noGlib));
    QCOMPARE(Platform::environmentForOtherPrograms().value(QStringLiteral("PATH")), qEnvironmentVariable("PATH"));
}

int main(int argc, char *argv[])
{
    noGlibFromOutside = qEnvironmentVariableIsSet("QT_NO_GLIB");
    // Qt gives a thread its dispatcher before running it.
    const std::unique_ptr<QThread> early(
        QThread::create([] { glibByDefault = waitsWithGlib(QThread::currentThread()); }));
    early->start();
    early->wait();

    Platform::chooseEventDispatchers();
    QCoreApplication app(argc, argv);
    TestEventDispatchers test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_platform_eventdispatchers.moc"
