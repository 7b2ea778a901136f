#include <QJsonDocument>
#include <QtTest>

#include "updater/manifest.h"

class TestManifest : public QObject
{
    Q_OBJECT

private slots:
    void parse_data();
    void parse();
    void uncompress_data();
    void uncompress();
    void safePaths_data();
    void safePaths();
    void fileUrl_data();
    void fileUrl();
};

namespace
{
    QByteArray framed(const QByteArray &json)
    {
        return qCompress(json);
    }

    // A real gzip stream of "{}", as the gzip tool would write it.
    const QByteArray Gzip = QByteArray::fromHex("1f8b0800000000000003ababe5020007a1eadd03000000");
}

void TestManifest::parse_data()
{
    QTest::addColumn<QByteArray>("body");
    QTest::addColumn<bool>("accepted");
    QTest::addColumn<QByteArray>("expected");

    const QByteArray good = R"({"files": {"/b.bin": {"checksum": "0000000b", "size": 2},
                                          "/a.bin": {"checksum": "0000000a", "size": 1}}})";
    QTest::newRow("framed, keys sorted") << framed(good) << true
                                         << QByteArray(R"({"/a.bin": {"checksum": "0000000a", "size": 1},
                                                          "/b.bin": {"checksum": "0000000b", "size": 2}})");
    QTest::newRow("plain JSON, no framing") << good << false << QByteArray();
    QTest::newRow("real gzip") << Gzip << false << QByteArray();
    QTest::newRow("bad JSON") << framed("{\"files\": {") << false << QByteArray();
    QTest::newRow("array at the root") << framed("[1, 2]") << false << QByteArray();
    QTest::newRow("empty object") << framed("{}") << false << QByteArray();
    QTest::newRow("no files, only binary")
        << framed(R"({"binary": {"file": "/game.exe", "checksum": "00000001", "size": "5"}})") << false << QByteArray();
    QTest::newRow("files not an object") << framed(R"({"files": []})") << false << QByteArray();
    QTest::newRow("empty files") << framed(R"({"files": {}})") << true << QByteArray("{}");
    QTest::newRow("incomplete entries left out")
        << framed(R"({"files": {"/a": {"checksum": "00000001"}, "/b": 5, "/c": {"checksum": 7, "size": "x"}}})") << true
        << QByteArray(R"({"/c": {"checksum": "", "size": 0}})");
    QTest::newRow("binary wins, size stays text")
        << framed(R"({"files": {"/game.exe": {"checksum": "00000001", "size": 9}},
                      "binary": {"file": "/game.exe", "checksum": "00000002", "size": "9"}})")
        << true << QByteArray(R"({"/game.exe": {"checksum": "00000002", "size": "9"}})");
    QTest::newRow("negative and overflowing sizes left out")
        << framed(R"({"files": {"/a": {"checksum": "1", "size": -5}, "/b": {"checksum": "2", "size": 9e18},
                                "/c": {"checksum": "3", "size": 9e18}, "/d": {"checksum": "4", "size": 7}}})")
        << true << QByteArray(R"({"/b": {"checksum": "2", "size": 9e18}, "/d": {"checksum": "4", "size": 7}})");
    QTest::newRow("binary not an object")
        << framed(R"({"files": {}, "binary": 3})") << true << QByteArray(R"({"": {"checksum": "", "size": ""}})");
}

void TestManifest::parse()
{
    QFETCH(QByteArray, body);
    QFETCH(bool, accepted);
    QFETCH(QByteArray, expected);

    const std::optional<QJsonObject> manifest = Manifest::parse(body);
    QCOMPARE(manifest.has_value(), accepted);
    if (accepted)
        QCOMPARE(*manifest, QJsonDocument::fromJson(expected).object());
}

void TestManifest::uncompress_data()
{
    QTest::addColumn<QByteArray>("block");
    QTest::addColumn<qsizetype>("limit");
    QTest::addColumn<QByteArray>("expected");

    const QByteArray text = QByteArray(3000, 'j') + "son";
    const QByteArray stream = qCompress(text).mid(4);
    QTest::newRow("as qCompress writes it") << qCompress(text) << qsizetype(10000) << text;
    // The length is a hint only: a huge one must not be allocated, a wrong
    // one must not cut the data.
    QTest::newRow("declares 4 GiB") << QByteArray::fromHex("ffffffff") + stream << qsizetype(10000) << text;
    QTest::newRow("declares too little") << QByteArray::fromHex("00000001") + stream << qsizetype(10000) << text;
    QTest::newRow("declares nothing") << QByteArray::fromHex("00000000") + stream << qsizetype(10000) << QByteArray();
    QTest::newRow("inflates past the limit") << qCompress(text) << qsizetype(3002) << QByteArray();
    QTest::newRow("stream cut short") << qCompress(text).left(12) << qsizetype(10000) << QByteArray();
    QTest::newRow("header only") << QByteArray::fromHex("00000010") << qsizetype(10000) << QByteArray();
}

void TestManifest::uncompress()
{
    QFETCH(QByteArray, block);
    QFETCH(qsizetype, limit);
    QFETCH(QByteArray, expected);
    QCOMPARE(Manifest::uncompress(block, limit).value_or(QByteArray()), expected);
}

void TestManifest::safePaths_data()
{
    QTest::addColumn<QString>("key");
    QTest::addColumn<bool>("safe");

    QTest::newRow("leading slash") << "/bin/game.exe" << true;
    QTest::newRow("no leading slash") << "data/a.bin" << true;
    QTest::newRow("dot-file") << "/.config" << true;
    QTest::newRow("harmless dot-dot") << "/data/../bin/game.exe" << true;
    QTest::newRow("blank and unicode") << "/Mapas/ação 1.map" << true;
    QTest::newRow("root alone") << "/" << false;
    QTest::newRow("empty") << "" << false;
    QTest::newRow("climbs out") << "/../escape.txt" << false;
    QTest::newRow("climbs out later") << "/a/../../escape.txt" << false;
    QTest::newRow("only dot-dot") << ".." << false;
    QTest::newRow("names the root again") << "/a/.." << false;
    QTest::newRow("absolute after the slash") << "//etc/passwd" << false;
    QTest::newRow("drive letter") << "C:/Windows/win.ini" << false;
    QTest::newRow("drive after the slash") << "/C:/Windows/win.ini" << false;
    QTest::newRow("drive-relative") << "C:win.ini" << false;
    QTest::newRow("backslashes") << "/..\\..\\escape.txt" << false;
    QTest::newRow("NUL") << QStringLiteral("/a") + QChar(0) + QStringLiteral("b") << false;
}

void TestManifest::safePaths()
{
    QFETCH(QString, key);
    QFETCH(bool, safe);
    QCOMPARE(Manifest::isSafeRelativePath(key), safe);
}

void TestManifest::fileUrl_data()
{
    QTest::addColumn<QString>("key");
    QTest::addColumn<QString>("url");

    QTest::newRow("separators encoded") << "/data/a b.bin"
                                        << "https://dl.example/game%2Fdata%2Fa%20b.bin";
    QTest::newRow("plus and unicode") << "/ação+1.map"
                                      << "https://dl.example/game%2Fa%C3%A7%C3%A3o%2B1.map";
    QTest::newRow("unreserved kept") << "/a-b_c.d~e"
                                     << "https://dl.example/game%2Fa-b_c.d~e";
}

void TestManifest::fileUrl()
{
    QFETCH(QString, key);
    QFETCH(QString, url);
    QCOMPARE(Manifest::fileUrl(QStringLiteral("https://dl.example/game"), key).toString(QUrl::FullyEncoded), url);
}

QTEST_APPLESS_MAIN(TestManifest)
#include "tst_updater_manifest.moc"
