#include <QJsonDocument>
#include <QtTest>

#include "updater/manifest.h"

class TestManifest : public QObject
{
    Q_OBJECT

private slots:
    void parse_data()
    {
        QTest::addColumn<QByteArray>("body");
        QTest::addColumn<QByteArray>("expected"); // empty: refused
        QTest::addColumn<bool>("quick"); // read by the quick scan as well
        const auto raw = [](const char *name, const QByteArray &body, const QByteArray &expected = {},
                            bool quick = false) { QTest::newRow(name) << body << expected << quick; };
        const auto row = [&raw](const char *name, const QByteArray &json, const QByteArray &expected = {},
                                bool quick = false) { raw(name, qCompress(json), expected, quick); };

        const QByteArray files
            = R"({"/b.bin": {"checksum": "0000000b", "size": 2}, "/a.bin": {"checksum": "a", "size": 1}})";
        const QByteArray good = "{\"files\": " + files + "}";
        row("framed", good, files, true);
        // The length is a hint only: a huge one must not be allocated, a wrong one must not cut the data.
        raw("declares 4 GiB", QByteArray::fromHex("ffffffff") + qCompress(good).mid(4), files, true);
        raw("declares too little", QByteArray::fromHex("00000001") + qCompress(good).mid(4), files, true);
        raw("declares nothing", QByteArray::fromHex("00000000") + qCompress(good).mid(4));
        raw("stream cut short", qCompress(good).left(12));
        // A real gzip stream of "{}", as the gzip tool would write it.
        raw("real gzip", QByteArray::fromHex("1f8b0800000000000003ababe5020007a1eadd03000000"));
        row("bad JSON", "{\"files\": {");
        row("no files, only binary", R"({"binary": {"file": "/game.exe", "checksum": "00000001", "size": "5"}})");
        row("empty files", R"({"files": {}})", "{}");
        // Incomplete entries left out, past many by copying the rest (a few go in place below); other forms rewritten.
        QByteArray odd = R"({"files": {"/a": {"checksum": "1"}, "/b": 5, "/c": {"checksum": "1", "size": 1, "x": 0},
        "/d": {"checksum": 7, "size": 2.5}, "/e": {"checksum": "3", "size": 3}, "/f": {"size": "4", "checksum": "4"})";
        for (int i = 0; i < 100; ++i)
            odd += ", \"/broken" + QByteArray::number(i) + "\": {}";
        row("left out and rewritten", odd + "}}",
            R"({"/c": {"checksum": "1", "size": 1}, "/d": {"checksum": "", "size": 0},
                "/e": {"checksum": "3", "size": 3}, "/f": {"checksum": "4", "size": 0}})");
        row("binary wins, size stays text",
            R"({"files":{"/g":{"checksum":"1","size":9}},"binary":{"file":"/g","checksum":"2","size":"9"}})",
            R"({"/g": {"checksum": "2", "size": "9"}})", true);
        row("negative and overflowing sizes left out",
            R"({"files": {"/a": {"checksum": "1", "size": -5}, "/b": {"checksum": "2", "size": 9e18},
                "/c": {"checksum": "3", "size": 9e18}, "/d": {"checksum": "4", "size": 7}}})",
            R"({"/b": {"checksum": "2", "size": 9e18}, "/d": {"checksum": "4", "size": 7}})");
        row("other root members, binary added, blanks",
            "{ \"version\": \"1.2\", \"beta\": false, \"files\":\t{\"/a\": {\"size\": 1,\r\n\"checksum\": \"x\"}, "
            "\"/c\": {\"checksum\": \"\", \"size\": 0}}, \"binary\": {\"size\": \"7\", \"checksum\": \"b\", \"file\": "
            "\"/b\"}, \"n\": null } ",
            R"({"/a":{"checksum":"x","size":1},"/b":{"checksum":"b","size":"7"},"/c":{"checksum":"","size":0}})", true);
        row("slashes escaped, as PHP writes them",
            R"({"files":{"\/a\/b.bin":{"checksum":"1","size":1}},"binary":{"file":"\/g","checksum":"2","size":"3"}})",
            R"({"/a/b.bin": {"checksum": "1", "size": 1}, "/g": {"checksum": "2", "size": "3"}})", true);
        // Forms only the document reads, each with its own outcome there.
        row("key given twice, the last wins",
            R"({"files":{"/a":{"checksum":"1","size":1},"/a":{"checksum":"2","size":2}}})",
            R"({"/a":{"checksum":"2","size":2}})");
        row("escapes and non-ASCII",
            "{\"files\":{\"/\\u0061\":{\"checksum\":\"1\",\"size\":1},\"/\xc3\xa9\":{\"checksum\":\"2\",\"size\":2}}}",
            "{\"/a\":{\"checksum\":\"1\",\"size\":1},\"/\xc3\xa9\":{\"checksum\":\"2\",\"size\":2}}");
        row("size with an exponent", R"({"files":{"/a":{"checksum":"1","size":1e3}}})",
            R"({"/a":{"checksum":"1","size":1000}})");
        row("size with a leading zero", R"({"files": {"/a": {"checksum": "1", "size": 01}}})");
        row("text after the document", R"({"files": {"/a": {"checksum": "1", "size": 1}}} x)");
    }

    void parse()
    {
        QFETCH(QByteArray, body);
        QFETCH(QByteArray, expected);
        QFETCH(bool, quick);
        const std::optional<QByteArray> json = Manifest::uncompress(body);
        const std::optional<QJsonObject> manifest = json ? Manifest::parseDocument(*json) : std::nullopt;
        QCOMPARE(manifest.has_value(), !expected.isEmpty());
        if (manifest)
            QCOMPARE(*manifest, QJsonDocument::fromJson(expected).object());
        // One byte short of the text, the limit refuses it while it inflates.
        QVERIFY(!json || !Manifest::uncompress(body, json->size() - 1));

        // The quick scan must give exactly what the document gives, in its order.
        const std::optional<QList<Manifest::Entry>> entries = json ? Manifest::scan(*json) : std::nullopt;
        QCOMPARE(entries.has_value(), quick);
        if (!entries)
            return;
        QStringList scanned, parsed;
        for (const Manifest::Entry &entry : *entries)
            scanned << entry.key << entry.checksum << QString::number(entry.size);
        for (auto it = manifest->constBegin(); it != manifest->constEnd(); ++it)
            parsed << it.key() << it->toObject().value(u"checksum").toString()
                   << QString::number(it->toObject().value(u"size").toInteger());
        QCOMPARE(scanned, parsed);
    }

    // Keys that climb out, even to come back in, name a drive or an absolute path, are refused; names are encoded.
    void paths()
    {
        const QStringList safe {"/bin/game.exe", "data/a.bin", "/.config", "/data/../bin/game.exe",
                                "/Mapas/ação 1.map"};
        QStringList accepted;
        for (const QString &key : safe
                 + QStringList {"/", "", "..", "/a/..", "/a/../../x/escape.txt", "//etc/passwd", "/C:/Windows/win.ini",
                                "/..\\..\\escape.txt", "/a" + QChar(0) + "b"})
            if (Manifest::isSafeRelativePath(key))
                accepted << key;
        QCOMPARE(accepted, safe);
        QCOMPARE(Manifest::fileUrl(QStringLiteral("https://dl.example/game"), QStringLiteral("/data/ação b+1-_.~e"))
                     .toString(QUrl::FullyEncoded),
                 QStringLiteral("https://dl.example/game%2Fdata%2Fa%C3%A7%C3%A3o%20b%2B1-_.~e"));
    }
};

QTEST_APPLESS_MAIN(TestManifest)
#include "tst_updater_manifest.moc"
