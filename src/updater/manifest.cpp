#include "updater/manifest.h"

#include <QJsonDocument>
#include <QJsonParseError>
#include <QSet>

#include <algorithm>
#include <limits>

#include <zlib.h>

namespace
{
    // The block's first four bytes: the length qCompress recorded.
    const qsizetype HeaderSize = 4;
    const qsizetype InflateStep = 256 * 1024;
    const qsizetype MaxRemovalsInPlace = 64;
    const qsizetype ExpectedRatio = 16;
}

std::optional<QByteArray> Manifest::uncompress(const QByteArray &data, qsizetype limit)
{
    if (data.size() <= HeaderSize)
        return std::nullopt;
    const auto *bytes = reinterpret_cast<const uchar *>(data.constData());
    const quint32 declared
        = (quint32(bytes[0]) << 24) | (quint32(bytes[1]) << 16) | (quint32(bytes[2]) << 8) | quint32(bytes[3]);
    if (declared == 0)
        return std::nullopt;

    z_stream stream {};
    if (inflateInit(&stream) != Z_OK)
        return std::nullopt;
    stream.next_in = const_cast<Bytef *>(bytes + HeaderSize);
    stream.avail_in = static_cast<uInt>(data.size() - HeaderSize);

    // The declared length is right in the normal case: one allocation
    // instead of a growing array. It comes from the server, though, so it
    // is believed only as far as text usually compresses.
    QByteArray out;
    out.reserve(std::min({qsizetype(declared) + 1, data.size() * ExpectedRatio, limit}));
    int status = Z_OK;
    while (status == Z_OK) {
        if (out.size() >= limit) {
            inflateEnd(&stream);
            return std::nullopt;
        }
        const qsizetype used = out.size();
        out.resize(std::min(used + InflateStep, limit));
        stream.next_out = reinterpret_cast<Bytef *>(out.data() + used);
        stream.avail_out = static_cast<uInt>(out.size() - used);
        status = inflate(&stream, Z_NO_FLUSH);
        out.resize(out.size() - stream.avail_out);
        // Input that ends before the stream does leaves no way forward.
        if (status == Z_BUF_ERROR && stream.avail_in == 0)
            break;
        if (status == Z_BUF_ERROR)
            status = Z_OK;
    }
    inflateEnd(&stream);
    if (status != Z_STREAM_END || out.isEmpty())
        return std::nullopt;
    return out;
}

std::optional<QJsonObject> Manifest::parseDocument(const QByteArray &json, QSet<QString> *unsized)
{
    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson(json, &error);
    if (error.error != QJsonParseError::NoError || !document.isObject())
        return std::nullopt;

    const QJsonObject root = document.object();
    if (root.isEmpty())
        return std::nullopt;
    const QJsonValue files = root.value(QLatin1String("files"));
    if (!files.isObject())
        return std::nullopt;

    // Entries already in their stored form (two keys, a digest as text, a
    // whole size) stay as the document holds them: building a new object
    // for each costs more than parsing the whole text. Only the others are
    // rewritten or removed afterwards.
    QJsonObject manifest = files.toObject();
    QStringList dropped;
    QList<std::pair<QString, QJsonObject>> rewritten;
    qint64 total = 0;
    for (auto it = manifest.constBegin(); it != manifest.constEnd(); ++it) {
        const QJsonObject entry = it.value().toObject();
        if (!entry.contains(QLatin1String("checksum")) || !entry.contains(QLatin1String("size"))) {
            dropped.append(it.key());
            continue;
        }
        const QJsonValue size = entry.value(QLatin1String("size"));
        // Sizes feed the progress total: a negative one or an overflowing
        // sum would make the count run backwards or wrap.
        if (size.isDouble()
            && (size.toDouble() < 0 || size.toInteger(0) > std::numeric_limits<qint64>::max() - total)) {
            dropped.append(it.key());
            continue;
        }
        const qint64 bytes = size.toInteger(0);
        total += bytes;
        if (unsized && (!size.isDouble() || byteLimit(size) < 0))
            unsized->insert(it.key());
        const QJsonValue checksum = entry.value(QLatin1String("checksum"));
        if (entry.size() != 2 || !checksum.isString() || !size.isDouble() || size.toDouble() != double(bytes)) {
            rewritten.append({it.key(),
                              QJsonObject {{QStringLiteral("checksum"), checksum.toString(QString())},
                                           {QStringLiteral("size"), bytes}}});
        }
    }

    // Each removal moves every entry behind it, so a table with many to
    // drop is copied without them instead.
    if (dropped.size() <= MaxRemovalsInPlace) {
        for (const QString &key : std::as_const(dropped))
            manifest.remove(key);
    } else {
        const QSet<QString> left(dropped.cbegin(), dropped.cend());
        QJsonObject kept;
        for (auto it = manifest.constBegin(); it != manifest.constEnd(); ++it) {
            if (!left.contains(it.key()))
                kept.insert(it.key(), it.value());
        }
        manifest = kept;
    }
    for (const auto &[key, entry] : std::as_const(rewritten))
        manifest.insert(key, entry);

    // The "binary" entry keeps its size as text, so it never weighs in the
    // total or in the largest-first plan.
    if (root.contains(QLatin1String("binary"))) {
        const QJsonObject binary = root.value(QLatin1String("binary")).toObject();
        const QString name = binary.value(QLatin1String("file")).toString(QString());
        // Its size is text by design and bounds its transfer as it is.
        if (unsized)
            unsized->remove(name);
        manifest.insert(name,
                        QJsonObject {
                            {QStringLiteral("checksum"), binary.value(QLatin1String("checksum")).toString(QString())},
                            {QStringLiteral("size"), binary.value(QLatin1String("size")).toString(QString())},
                        });
    }
    return manifest;
}

namespace
{
    // Reads JSON text only as far as it is in the plain form of a manifest;
    // every function gives up on anything else, so what it accepts is always
    // JSON that QJsonDocument reads to the same values.
    class PlainReader
    {
    public:
        explicit PlainReader(const QByteArray &text)
            : m_at(text.constData())
            , m_end(text.constData() + text.size())
        { }

        bool take(char expected)
        {
            skipBlanks();
            if (m_at == m_end || *m_at != expected)
                return false;
            ++m_at;
            return true;
        }

        bool atEnd()
        {
            skipBlanks();
            return m_at == m_end;
        }

        // Printable ASCII as it stands in the text, whose only escape may be
        // "\/": PHP's encoder writes every slash of a path that way. Read
        // through text().
        std::optional<QLatin1String> string()
        {
            if (!take('"'))
                return std::nullopt;
            const char *start = m_at;
            while (m_at != m_end && *m_at != '"') {
                const auto c = static_cast<uchar>(*m_at);
                if (c < 0x20 || c > 0x7e)
                    return std::nullopt;
                if (c == '\\' && (++m_at == m_end || *m_at != '/'))
                    return std::nullopt;
                ++m_at;
            }
            if (m_at == m_end)
                return std::nullopt;
            const QLatin1String text(start, m_at - start);
            ++m_at;
            return text;
        }

        // Digits only, without a leading zero, and few enough that a double
        // holds the number exactly.
        std::optional<qint64> wholeNumber()
        {
            skipBlanks();
            const char *start = m_at;
            while (m_at != m_end && *m_at >= '0' && *m_at <= '9')
                ++m_at;
            const qsizetype digits = m_at - start;
            if (digits == 0 || digits > 15 || (digits > 1 && *start == '0'))
                return std::nullopt;
            if (m_at != m_end && (*m_at == '.' || *m_at == 'e' || *m_at == 'E'))
                return std::nullopt;
            qint64 number = 0;
            for (const char *digit = start; digit != m_at; ++digit)
                number = number * 10 + (*digit - '0');
            return number;
        }

        // A member of the root that the manifest does not use.
        bool skipScalar()
        {
            skipBlanks();
            for (const QLatin1String word : {QLatin1String("true"), QLatin1String("false"), QLatin1String("null")}) {
                if (QLatin1String(m_at, std::min<qsizetype>(word.size(), m_end - m_at)) == word) {
                    m_at += word.size();
                    return true;
                }
            }
            return (m_at != m_end && *m_at == '"') ? string().has_value() : wholeNumber().has_value();
        }

    private:
        void skipBlanks()
        {
            while (m_at != m_end && (*m_at == ' ' || *m_at == '\n' || *m_at == '\r' || *m_at == '\t'))
                ++m_at;
        }

        const char *m_at;
        const char *m_end;
    };

    // A string of the reader as the document gives it.
    QString text(QLatin1String raw)
    {
        return QString(raw).remove(QLatin1Char('\\'));
    }

    bool readFiles(PlainReader &reader, QList<Manifest::Entry> &entries)
    {
        if (!reader.take('{'))
            return false;
        qint64 total = 0;
        do {
            const std::optional<QLatin1String> key = reader.string();
            if (!key || !reader.take(':') || !reader.take('{'))
                return false;
            std::optional<QLatin1String> checksum;
            std::optional<qint64> size;
            for (int member = 0; member < 2; ++member) {
                if (member > 0 && !reader.take(','))
                    return false;
                const std::optional<QLatin1String> name = reader.string();
                if (!name || !reader.take(':'))
                    return false;
                if (*name == QLatin1String("checksum") && !checksum)
                    checksum = reader.string();
                else if (*name == QLatin1String("size") && !size)
                    size = reader.wholeNumber();
                if (!(member == 0 ? checksum || size : checksum && size))
                    return false;
            }
            if (!reader.take('}') || *size > std::numeric_limits<qint64>::max() - total)
                return false;
            total += *size;
            entries.append({text(*key), text(*checksum), *size});
        } while (reader.take(','));
        return reader.take('}');
    }

    std::optional<Manifest::Entry> readBinary(PlainReader &reader)
    {
        if (!reader.take('{'))
            return std::nullopt;
        std::optional<QLatin1String> file;
        std::optional<QLatin1String> checksum;
        std::optional<QLatin1String> size;
        do {
            const std::optional<QLatin1String> name = reader.string();
            if (!name || !reader.take(':'))
                return std::nullopt;
            std::optional<QLatin1String> *member = nullptr;
            if (*name == QLatin1String("file"))
                member = &file;
            else if (*name == QLatin1String("checksum"))
                member = &checksum;
            else if (*name == QLatin1String("size"))
                member = &size;
            if (!member || member->has_value())
                return std::nullopt;
            *member = reader.string();
            if (!member->has_value())
                return std::nullopt;
        } while (reader.take(','));
        if (!reader.take('}') || !file || !checksum)
            return std::nullopt;
        return Manifest::Entry {text(*file), text(*checksum), 0};
    }
}

std::optional<QList<Manifest::Entry>> Manifest::scan(const QByteArray &json)
{
    PlainReader reader(json);
    QList<Entry> entries;
    // Each entry names its checksum once: room for all of them at once,
    // without a bound a hostile text could inflate.
    entries.reserve(json.count("\"checksum\""));
    std::optional<Entry> binary;
    bool filesRead = false;
    if (!reader.take('{'))
        return std::nullopt;
    do {
        const std::optional<QLatin1String> name = reader.string();
        if (!name || !reader.take(':'))
            return std::nullopt;
        bool read = false;
        if (*name == QLatin1String("files"))
            read = !std::exchange(filesRead, true) && readFiles(reader, entries);
        else if (*name == QLatin1String("binary"))
            read = !binary && (binary = readBinary(reader)).has_value();
        else
            read = reader.skipScalar();
        if (!read)
            return std::nullopt;
    } while (reader.take(','));
    if (!reader.take('}') || !reader.atEnd() || entries.isEmpty())
        return std::nullopt;

    // Keys in ASCII sort alike as bytes and as the document's keys. Of keys
    // given twice the document keeps the last, which is left to it.
    const auto byKey = [](const Entry &left, const Entry &right) { return left.key < right.key; };
    if (!std::is_sorted(entries.cbegin(), entries.cend(), byKey))
        std::sort(entries.begin(), entries.end(), byKey);
    const auto sameKey = [](const Entry &left, const Entry &right) { return left.key == right.key; };
    if (std::adjacent_find(entries.cbegin(), entries.cend(), sameKey) != entries.cend())
        return std::nullopt;
    if (binary) {
        const auto at = std::lower_bound(entries.begin(), entries.end(), *binary, byKey);
        if (at != entries.end() && at->key == binary->key)
            *at = *binary;
        else
            entries.insert(at, *binary);
    }
    return entries;
}

qint64 Manifest::byteLimit(const QJsonValue &size)
{
    // JSON numbers arrive as doubles; only those that are integral and
    // within range count.
    if (size.isString()) {
        bool ok = false;
        const qint64 bytes = size.toString().toLongLong(&ok);
        return ok && bytes >= 0 ? bytes : -1;
    }
    if (!size.isDouble())
        return -1;
    const double number = size.toDouble();
    if (number < 0 || number >= 9.2e18 || number != static_cast<double>(static_cast<qint64>(number)))
        return -1;
    return static_cast<qint64>(number);
}

bool Manifest::isSafeRelativePath(const QString &key)
{
    if (key.isEmpty() || key == QLatin1String("/") || key.contains(QChar(0)))
        return false;
    // A backslash is a separator on Windows and a colon names a drive or an
    // alternate stream there; neither belongs in a published path.
    if (key.contains(QLatin1Char('\\')) || key.contains(QLatin1Char(':')))
        return false;

    // One leading "/" is the normal form; more would make a UNC or absolute
    // path once it is appended to a directory and cleaned.
    const QStringView relative = QStringView(key).sliced(key.startsWith(QLatin1Char('/')) ? 1 : 0);
    if (relative.isEmpty() || relative.startsWith(QLatin1Char('/')))
        return false;

    // Walked without splitting: this runs for every entry of the manifest.
    int depth = 0;
    for (qsizetype start = 0; start <= relative.size();) {
        qsizetype end = relative.indexOf(QLatin1Char('/'), start);
        if (end < 0)
            end = relative.size();
        const QStringView segment = relative.sliced(start, end - start);
        start = end + 1;
        if (segment.isEmpty() || segment == QLatin1String("."))
            continue;
        if (segment == QLatin1String("..")) {
            if (--depth < 0)
                return false;
            continue;
        }
        ++depth;
    }
    // Something must remain that names a file below the root.
    return depth > 0;
}

QUrl Manifest::fileUrl(const QString &updateUrl, const QString &relativePath)
{
    return QUrl(updateUrl + QString::fromLatin1(QUrl::toPercentEncoding(relativePath)), QUrl::TolerantMode);
}
