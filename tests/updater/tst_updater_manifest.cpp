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
    void fileUrl();
};

void TestManifest::parse_data()
{
    QTest::addColumn<QByteArray>("body");
    QTest::addColumn<QByteArray>("expected"); // empty: refused
    QTest::addColumn<bool>("quick"); // read by the quick scan as well

    const QByteArray files
        = R"({"/b.bin": {"checksum": "0000000b", "size": 2}, "/a.bin": {"checksum": "a", "size": 1}})";
    const QByteArray good = "{\"files\": " + files + "}";
    QTest::newRow("framed") << qCompress(good) << files << true;
    QTest::newRow("plain JSON, no framing") << good << QByteArray() << false;
    // A real gzip stream of "{}", as the gzip tool would write it.
    QTest::newRow("real gzip") << QByteArray::fromHex("1f8b0800000000000003ababe5020007a1eadd03000000") << QByteArray()
                               << false;
    QTest::newRow("bad JSON") << qCompress("{\"files\": {") << QByteArray() << false;
    QTest::newRow("array at the root") << qCompress("[1, 2]") << QByteArray() << false;
    QTest::newRow("no files, only binary")
        << qCompress(R"({"binary": {"file": "/game.exe", "checksum": "00000001", "size": "5"}})") << QByteArray()
        << false;
    QTest::newRow("files not an object") << qCompress(R"({"files": []})") << QByteArray() << false;
    QTest::newRow("empty files") << qCompress(R"({"files": {}})") << QByteArray("{}") << false;
    QTest::newRow("incomplete entries left out")
        << qCompress(R"({"files": {"/a": {"checksum": "00000001"}, "/b": 5, "/c": {"checksum": 7, "size": "x"}}})")
        << QByteArray(R"({"/c": {"checksum": "", "size": 0}})") << false;
    QTest::newRow("entries in another form rewritten")
        << qCompress(R"({"files": {"/a": {"checksum": "1", "size": 1, "x": 0}, "/b": {"checksum": 7, "size": 2.5},
                                   "/c": {"checksum": "3", "size": 3}, "/d": {"size": "4", "checksum": "4"}}})")
        << QByteArray(R"({"/a": {"checksum": "1", "size": 1}, "/b": {"checksum": "", "size": 0},
                          "/c": {"checksum": "3", "size": 3}, "/d": {"checksum": "4", "size": 0}})")
        << false;
    QByteArray manyBroken = R"({"/kept": {"checksum": "1", "size": 1})";
    for (int i = 0; i < 100; ++i)
        manyBroken += ", \"/broken" + QByteArray::number(i) + "\": {}";
    QTest::newRow("many entries left out") << qCompress("{\"files\": " + manyBroken + "}}")
                                           << QByteArray(R"({"/kept": {"checksum": "1", "size": 1}})") << false;
    QTest::newRow("binary wins, size stays text")
        << qCompress(R"({"files": {"/game.exe": {"checksum": "00000001", "size": 9}},
                         "binary": {"file": "/game.exe", "checksum": "00000002", "size": "9"}})")
        << QByteArray(R"({"/game.exe": {"checksum": "00000002", "size": "9"}})") << true;
    QTest::newRow("negative and overflowing sizes left out")
        << qCompress(R"({"files": {"/a": {"checksum": "1", "size": -5}, "/b": {"checksum": "2", "size": 9e18},
                                   "/c": {"checksum": "3", "size": 9e18}, "/d": {"checksum": "4", "size": 7}}})")
        << QByteArray(R"({"/b": {"checksum": "2", "size": 9e18}, "/d": {"checksum": "4", "size": 7}})") << false;
    QTest::newRow("binary not an object")
        << qCompress(R"({"files": {}, "binary": 3})") << QByteArray(R"({"": {"checksum": "", "size": ""}})") << false;
    QTest::newRow("other root members, binary added, blanks")
        << qCompress("{ \"version\": \"1.2\", \"beta\": false, \"files\":\t{\"/a\": {\"size\": 1,\r\n"
                     "\"checksum\": \"x\"}, \"/c\": {\"checksum\": \"\", \"size\": 0}},"
                     "\"binary\": {\"size\": \"7\", \"checksum\": \"b\", \"file\": \"/b\"}, \"n\": null } ")
        << QByteArray(R"({"/a": {"checksum": "x", "size": 1}, "/b": {"checksum": "b", "size": "7"},
                          "/c": {"checksum": "", "size": 0}})")
        << true;
    // Forms only the document reads, each with its own outcome there.
    QTest::newRow("key given twice, the last wins")
        << qCompress(R"({"files": {"/a": {"checksum": "1", "size": 1}, "/a": {"checksum": "2", "size": 2}}})")
        << QByteArray(R"({"/a": {"checksum": "2", "size": 2}})") << false;
    QTest::newRow("escapes and non-ASCII")
        << qCompress("{\"files\": {\"/\\u0061\": {\"checksum\": \"1\", \"size\": 1}, \"/\xc3\xa9\": {\"checksum\": "
                     "\"2\", \"size\": 2}}}")
        << QByteArray("{\"/a\": {\"checksum\": \"1\", \"size\": 1}, \"/\xc3\xa9\": {\"checksum\": \"2\", \"size\": 2}}")
        << false;
    QTest::newRow("size with an exponent") << qCompress(R"({"files": {"/a": {"checksum": "1", "size": 1e3}}})")
                                           << QByteArray(R"({"/a": {"checksum": "1", "size": 1000}})") << false;
    QTest::newRow("size with a leading zero")
        << qCompress(R"({"files": {"/a": {"checksum": "1", "size": 01}}})") << QByteArray() << false;
    QTest::newRow("text after the document")
        << qCompress(R"({"files": {"/a": {"checksum": "1", "size": 1}}} x)") << QByteArray() << false;
}

void TestManifest::parse()
{
    QFETCH(QByteArray, body);
    QFETCH(QByteArray, expected);
    QFETCH(bool, quick);
    const std::optional<QJsonObject> manifest = Manifest::parse(body);
    QCOMPARE(manifest.has_value(), !expected.isEmpty());
    if (manifest)
        QCOMPARE(*manifest, QJsonDocument::fromJson(expected).object());

    // The quick scan must give exactly what the document gives, in its order.
    const std::optional<QByteArray> json = Manifest::uncompress(body);
    const std::optional<QList<Manifest::Entry>> entries = json ? Manifest::scan(*json) : std::nullopt;
    QCOMPARE(entries.has_value(), quick);
    if (entries) {
        QStringList scanned;
        for (const Manifest::Entry &entry : *entries)
            scanned << entry.key + u' ' + entry.checksum + u' ' + QString::number(entry.size);
        QStringList parsed;
        for (auto it = manifest->constBegin(); it != manifest->constEnd(); ++it) {
            const QJsonObject value = it.value().toObject();
            parsed << it.key() + u' ' + value.value(u"checksum").toString() + u' '
                    + QString::number(value.value(u"size").toInteger());
        }
        QCOMPARE(scanned, parsed);
    }
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
    for (const char *key : {"/bin/game.exe", "data/a.bin", "/.config", "/data/../bin/game.exe", "/Mapas/ação 1.map"})
        QTest::addRow("'%s'", key) << QString::fromUtf8(key) << true;
    for (const char *key : {"/", "", "/../escape.txt", "/a/../../escape.txt", "..", "/a/..", "//etc/passwd",
                            "C:/Windows/win.ini", "/C:/Windows/win.ini", "C:win.ini", "/..\\..\\escape.txt"})
        QTest::addRow("'%s'", key) << QString::fromUtf8(key) << false;
    QTest::newRow("NUL") << QStringLiteral("/a") + QChar(0) + QStringLiteral("b") << false;
}

void TestManifest::safePaths()
{
    QFETCH(QString, key);
    QFETCH(bool, safe);
    QCOMPARE(Manifest::isSafeRelativePath(key), safe);
}

void TestManifest::fileUrl()
{
    // Separators, blanks, plus and non-ASCII are encoded; unreserved marks are kept.
    QCOMPARE(Manifest::fileUrl(QStringLiteral("https://dl.example/game"), QStringLiteral("/data/ação b+1-_.~e"))
                 .toString(QUrl::FullyEncoded),
             QStringLiteral("https://dl.example/game%2Fdata%2Fa%C3%A7%C3%A3o%20b%2B1-_.~e"));
}

QTEST_APPLESS_MAIN(TestManifest)
#include "tst_updater_manifest.moc"
