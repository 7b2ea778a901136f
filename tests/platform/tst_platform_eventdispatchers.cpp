#include <QtTest>

#include <atomic>

#include "platform/eventdispatchers.h"

// Threads started after the choice wait without GLib; the application's own
// thread keeps it, since GStreamer's bus is watched through it.
class TestEventDispatchers : public QObject
{
    Q_OBJECT

private slots:
    void workerThreadsLeaveGlib();
};

void TestEventDispatchers::workerThreadsLeaveGlib()
{
    if (!QCoreApplication::eventDispatcher()->inherits("QEventDispatcherGlib"))
        QSKIP("This Qt waits without GLib on every thread");
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
    QVERIFY(!worker.eventDispatcher()->inherits("QEventDispatcherGlib"));
}

int main(int argc, char *argv[])
{
    Platform::chooseEventDispatchers();
    QCoreApplication app(argc, argv);
    TestEventDispatchers test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_platform_eventdispatchers.moc"
