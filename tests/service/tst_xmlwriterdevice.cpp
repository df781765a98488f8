// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "service/kittexts_p.h"
#include "support/allocations.h"
#include "support/failuretext.h"
#include "support/files.h"
#include "support/tracelog.h"
#include "support/xmltrees.h"

#include <kez/service/xmlwriter.h>
#include <kez/simpledom.h>

#include <QBuffer>
#include <QProcess>
#include <QSaveFile>
#include <QTemporaryDir>
#include <QTest>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <functional>
#include <stdexcept>
#include <sys/resource.h>

using namespace KezService;

namespace {

using Layout = XmlWriter::Layout;

/// What the writer may hold, as its documentation says.
constexpr qint64 MostHeld = 200000;

/// A device that keeps what it got, and misbehaves as it is told to.
class Device : public QIODevice {
    Q_OBJECT

public:
    Device() { open(QIODevice::WriteOnly); }

    bool isSequential() const override { return true; }
    qint64 bytesToWrite() const override { return _kept; }

    bool waitForBytesWritten(int) override
    {
        ++_waits;
        if (_waitsUntilDeaf-- == 0)
            return false;
        _room = _roomAfterWait;
        _kept = std::max<qint64>(0, _kept - _passedPerWait);
        return true;
    }

    QByteArray _bytes;
    qint64 _largestWrite = 0;
    qint64 _mostKept = 0;
    int _waits = 0;

    qint64 _mostPerWrite = -1;      ///< -1: takes all
    qint64 _soundBytes = -1;        ///< refuses to write after them; -1: never
    qint64 _room = -1;              ///< takes nothing without it; -1: always has some
    qint64 _roomAfterWait = -1;     ///< as _room
    int _waitsUntilDeaf = -1;       ///< fails to wait after them; -1: never
    qint64 _passedPerWait = 0;      ///< not 0: keeps what it takes until a wait
    std::function<void()> _onWrite; ///< called first

protected:
    qint64 readData(char*, qint64) override { return -1; }

    qint64 writeData(const char* data, qint64 size) override
    {
        if (_onWrite)
            _onWrite();
        _largestWrite = std::max(_largestWrite, size);
        if (_soundBytes >= 0 && _bytes.size() >= _soundBytes) {
            setErrorString(QStringLiteral("the tape is torn"));
            return -1;
        }
        qint64 taken = _mostPerWrite < 0 ? size : std::min(size, _mostPerWrite);
        if (_room >= 0) {
            taken = std::min(taken, _room);
            _room -= taken;
        }
        _bytes.append(data, qsizetype(taken));
        _kept += _passedPerWait > 0 ? taken : 0;
        _mostKept = std::max(_mostKept, _kept);
        return taken;
    }

private:
    qint64 _kept = 0;
};

/// A device that says that it took more than it got.
class Boaster : public QIODevice {
public:
    Boaster() { open(QIODevice::WriteOnly | QIODevice::Unbuffered); }

protected:
    qint64 readData(char*, qint64) override { return -1; }
    qint64 writeData(const char*, qint64 size) override { return size + 1; }
};

/// While it lives, no file may grow beyond `size`.
class FileSizeLimit {
public:
    explicit FileSizeLimit(rlim_t size) : _handler(std::signal(SIGXFSZ, SIG_IGN))
    {
        getrlimit(RLIMIT_FSIZE, &_usual);
        const rlimit limit{size, _usual.rlim_max};
        setrlimit(RLIMIT_FSIZE, &limit);
    }
    ~FileSizeLimit()
    {
        setrlimit(RLIMIT_FSIZE, &_usual);
        std::signal(SIGXFSZ, _handler);
    }
    FileSizeLimit(const FileSizeLimit&) = delete;
    FileSizeLimit& operator=(const FileSizeLimit&) = delete;

private:
    rlimit _usual{};
    void (*_handler)(int);
};

const QString ItemText = QStringLiteral("Écrous & boulons <20 mm> 😀\n");

/// A line of about 120 bytes.
void writeItem(XmlWriter& writer, int number)
{
    writer.element("item", ItemText + QString::number(number),
                   {{"id", QString::number(number)}, {"note", "\"à vérifier\""}});
}

void writeItems(XmlWriter& writer, int count)
{
    writer.startElement("items");
    for (int i = 0; i < count; ++i)
        writeItem(writer, i);
    writer.endElement();
    writer.finish();
}

QString textOfItems(int count)
{
    QString text;
    XmlWriter writer(text);
    writeItems(writer, count);
    return text;
}

constexpr int ItemsOfTenMegabytes = 110000;

QString deviceFailure(const QString& name, const QString& error)
{
    return kitText("XmlDeviceFailure", name, error);
}

} // namespace

class TestXmlWriterDevice : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void fileHoldsTheTextInUtf8();
    void fileIsWrittenFromItsPosition();
    void savedFileIsWhole();
    void tenMegabytesAreNotHeld();
    void tenMegabytesNeedNoLargeBlock();
    void tenMegabytesOfOneTextAreNotHeld();
    void tenMegabytesOfATreeAreNotHeld();
    void tenMegabytesThroughAProcess();
    void deviceThatTakesLittleGetsTheRestLater_data();
    void deviceThatTakesLittleGetsTheRestLater();
    void deviceThatKeepsBytesIsWaitedFor();
    void failureOfTheDeviceIsSaidAndLasts_data();
    void failureOfTheDeviceIsSaidAndLasts();
    void deviceThatTakesTooMuchIsAFailure();
    void fileWithoutRoomIsAFailure_data();
    void fileWithoutRoomIsAFailure();
    void streamWithoutRoomIsAFailure();
    void closedDeviceIsAFailure();
    void deviceIsNamed();
    void callFromInsideACallIsRefused();
    void exceptionOfTheDeviceReachesTheCaller();
    void unfinishedDocumentIsLogged();

private:
    QString path(const char* name) const { return _directory.filePath(QString::fromLatin1(name)); }

    QTemporaryDir _directory;
};

void TestXmlWriterDevice::fileHoldsTheTextInUtf8()
{
    QFile file(path("items.xml"));
    QVERIFY(file.open(QIODevice::WriteOnly));
    XmlWriter writer(file);
    writeItems(writer, ItemsOfTenMegabytes);
    QVERIFY(file.isOpen());
    const QByteArray bytes = readFile(file.fileName()); // before the file is closed
    file.close();
    QVERIFY(bytes.size() > 10000000);
    QVERIFY(bytes == textOfItems(ItemsOfTenMegabytes).toUtf8());

    QVERIFY(file.open(QIODevice::ReadOnly));
    const SimpleDom dom(&file);
    const auto items = dom.root();
    QCOMPARE(items->chidrenCount(), ItemsOfTenMegabytes);
    for (int i = 0; i < ItemsOfTenMegabytes; ++i) {
        const QString number = QString::number(i);
        const Element expected =
            makeElement("item", ItemText + number, {{"id", number}, {"note", "\"à vérifier\""}});
        QCOMPARE(treeDifference(*items->childAt(i), *expected), QString());
    }
}

void TestXmlWriterDevice::fileIsWrittenFromItsPosition()
{
    QVERIFY(writeFile(path("log.txt"), "before\n"));
    QFile file(path("log.txt"));
    QVERIFY(file.open(QIODevice::WriteOnly | QIODevice::Append));
    XmlWriter writer(file);
    writer.element("a", "");
    writer.finish();
    QCOMPARE(file.write("after\n"), qint64(6));
    file.close();
    QCOMPARE(readFile(path("log.txt")),
             QByteArray("before\n<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<a/>\nafter\n"));
}

void TestXmlWriterDevice::savedFileIsWhole()
{
    const auto save = [this](const QString& text) {
        QSaveFile file(path("saved.xml"));
        if (!file.open(QIODevice::WriteOnly))
            return QStringLiteral("not open");
        const QString failure = failureText([&] {
            XmlWriter writer(file);
            writer.startElement("a");
            writeItem(writer, 1);
            writer.element("b", text);
            writer.endElement();
            writer.finish();
            file.commit();
        });
        return failure;
    };
    QCOMPARE(save("good"), QString());
    const QByteArray first = readFile(path("saved.xml"));
    QVERIFY(first.contains("<b>good</b>"));
    QCOMPARE(save(" "), kitText("XmlBlankText", QStringLiteral("/a/b[1]")));
    QCOMPARE(readFile(path("saved.xml")), first);
}

void TestXmlWriterDevice::tenMegabytesAreNotHeld()
{
    const qint64 leastSize = textOfItems(2).toUtf8().size() - textOfItems(1).toUtf8().size();
    Device device;
    XmlWriter writer(device);
    writer.startElement("items");
    for (int i = 0; i < ItemsOfTenMegabytes; ++i) {
        writeItem(writer, i);
        QVERIFY(device._bytes.size() >= i * leastSize - MostHeld);
    }
    writer.endElement();
    writer.finish();
    QVERIFY(device._largestWrite <= MostHeld);
    QVERIFY(device._bytes == textOfItems(ItemsOfTenMegabytes).toUtf8());
}

void TestXmlWriterDevice::tenMegabytesNeedNoLargeBlock()
{
    if (!Allocations::AreCounted)
        QSKIP("The sanitizer allocates");
    QFile discarded(QStringLiteral("/dev/null"));
    QVERIFY(discarded.open(QIODevice::WriteOnly));
    Allocations::largest = 0;
    XmlWriter writer(discarded);
    writeItems(writer, ItemsOfTenMegabytes);
    QVERIFY(Allocations::largest > 0);
    QVERIFY(Allocations::largest < std::size_t(MostHeld));
}

void TestXmlWriterDevice::tenMegabytesOfOneTextAreNotHeld()
{
    const QString text = QStringLiteral("<é😀").repeated(1000000);
    Device device;
    device._bytes.reserve(30000000);
    Allocations::largest = 0;
    XmlWriter writer(device);
    writer.element("a", text, {{"b", text}});
    writer.finish();
    if (Allocations::AreCounted)
        QVERIFY(Allocations::largest < std::size_t(MostHeld));
    QVERIFY(device._largestWrite <= MostHeld);
    const QByteArray escaped = QByteArray("&lt;é😀").repeated(1000000);
    QVERIFY(device._bytes == "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<a b=\"" + escaped +
                                 "\">" + escaped + "</a>\n");
}

void TestXmlWriterDevice::tenMegabytesOfATreeAreNotHeld()
{
    const Element tree = makeElement("items");
    const QString text = QStringLiteral("x").repeated(100);
    for (int i = 0; i < 90000; ++i)
        addChild(tree, "item", text);
    QFile discarded(QStringLiteral("/dev/null"));
    QVERIFY(discarded.open(QIODevice::WriteOnly));
    XmlWriter writer(discarded);
    Allocations::largest = 0;
    writer.write(*tree);
    writer.finish();
    if (Allocations::AreCounted)
        QVERIFY(Allocations::largest < std::size_t(MostHeld));
}

void TestXmlWriterDevice::tenMegabytesThroughAProcess()
{
    QProcess copy;
    copy.setStandardOutputFile(path("copy.xml"));
    copy.start(QStringLiteral("cat"), QStringList());
    QVERIFY(copy.waitForStarted());
    qint64 mostKept = 0;
    XmlWriter writer(copy);
    writer.startElement("items");
    for (int i = 0; i < ItemsOfTenMegabytes; ++i) {
        writeItem(writer, i);
        mostKept = std::max(mostKept, copy.bytesToWrite());
    }
    writer.endElement();
    writer.finish();
    QVERIFY(mostKept > 0);
    QVERIFY(mostKept <= MostHeld);
    QCOMPARE(copy.bytesToWrite(), qint64(0));
    copy.closeWriteChannel();
    QVERIFY(copy.waitForFinished());
    QVERIFY(readFile(path("copy.xml")) == textOfItems(ItemsOfTenMegabytes).toUtf8());
}

void TestXmlWriterDevice::deviceThatTakesLittleGetsTheRestLater_data()
{
    QTest::addColumn<qint64>("mostPerWrite");
    QTest::addColumn<qint64>("room");
    QTest::newRow("bytes one by one") << qint64(1) << qint64(-1);
    QTest::newRow("some") << qint64(1000) << qint64(-1);
    QTest::newRow("nothing at first") << qint64(-1) << qint64(0);
    QTest::newRow("some after each wait") << qint64(7) << qint64(1001);
}

void TestXmlWriterDevice::deviceThatTakesLittleGetsTheRestLater()
{
    QFETCH(const qint64, mostPerWrite);
    QFETCH(const qint64, room);
    Device device;
    device._mostPerWrite = mostPerWrite;
    device._room = room;
    device._roomAfterWait = room < 0 ? -1 : room + 1;
    XmlWriter writer(device);
    writeItems(writer, 1000);
    QVERIFY(device._bytes == textOfItems(1000).toUtf8());
    QCOMPARE(device._waits > 0, room >= 0);
}

void TestXmlWriterDevice::deviceThatKeepsBytesIsWaitedFor()
{
    Device device;
    device._passedPerWait = 10000;
    XmlWriter writer(device);
    writeItems(writer, 10000);
    QVERIFY(device._bytes == textOfItems(10000).toUtf8());
    QCOMPARE(device.bytesToWrite(), qint64(0));
    QVERIFY(device._mostKept <= MostHeld);
}

void TestXmlWriterDevice::failureOfTheDeviceIsSaidAndLasts_data()
{
    QTest::addColumn<qint64>("soundBytes");
    QTest::addColumn<int>("waitsUntilDeaf");
    QTest::addColumn<qint64>("room");
    QTest::addColumn<qint64>("passedPerWait");
    QTest::addColumn<int>("items");
    const qint64 any = -1;
    const qint64 none = 0;
    QTest::newRow("at the first piece") << qint64(0) << -1 << any << none << 10000;
    QTest::newRow("at a later piece") << qint64(100000) << -1 << any << none << 10000;
    QTest::newRow("at the end") << qint64(0) << -1 << any << none << 1;
    QTest::newRow("takes nothing") << any << 0 << qint64(0) << none << 10000;
    QTest::newRow("takes nothing at the end") << any << 0 << qint64(0) << none << 1;
    QTest::newRow("passes nothing on") << any << 0 << any << qint64(1) << 10000;
    QTest::newRow("passes nothing on at the end") << any << 0 << any << qint64(1) << 1;
    QTest::newRow("stops passing on") << any << 30 << any << qint64(10000) << 10000;
}

void TestXmlWriterDevice::failureOfTheDeviceIsSaidAndLasts()
{
    QFETCH(const qint64, soundBytes);
    QFETCH(const int, waitsUntilDeaf);
    QFETCH(const qint64, room);
    QFETCH(const qint64, passedPerWait);
    QFETCH(const int, items);
    Device device;
    device._soundBytes = soundBytes;
    device._waitsUntilDeaf = waitsUntilDeaf;
    device._room = room;
    device._passedPerWait = passedPerWait;
    XmlWriter writer(device);
    const QString failure = failureText([&] { writeItems(writer, items); });
    QCOMPARE(failure, deviceFailure("Device", device.errorString()));
    QCOMPARE(device.errorString() == QLatin1String("the tape is torn"), soundBytes >= 0);

    const qsizetype size = device._bytes.size();
    QCOMPARE(failureText([&] { writer.element("b", ""); }), kitText("XmlRefused", failure));
    QCOMPARE(failureText([&] { writer.finish(); }), kitText("XmlRefused", failure));
    QCOMPARE(device._bytes.size(), size);
}

void TestXmlWriterDevice::deviceThatTakesTooMuchIsAFailure()
{
    Boaster device;
    XmlWriter writer(device);
    writer.element("a", "");
    QCOMPARE(failureText([&] { writer.finish(); }),
             deviceFailure("QIODevice", device.errorString()));
}

void TestXmlWriterDevice::fileWithoutRoomIsAFailure_data()
{
    QTest::addColumn<int>("items");
    QTest::newRow("found at the end") << 100;
    QTest::newRow("found on the way") << 100000;
}

void TestXmlWriterDevice::fileWithoutRoomIsAFailure()
{
    QFETCH(const int, items);
    QFile file(path("full.xml"));
    QVERIFY(file.open(QIODevice::WriteOnly));
    QString failure;
    {
        const FileSizeLimit limit(5000);
        XmlWriter writer(file);
        failure = failureText([&] { writeItems(writer, items); });
        QCOMPARE(failureText([&] { writer.finish(); }), kitText("XmlRefused", failure));
        QCOMPARE(failure, deviceFailure(file.fileName(), systemErrorText(EFBIG)));
        file.close();
    }
    QVERIFY(readFile(file.fileName()).size() <= 5000);
}

/// The C library's stream keeps bytes of its own.
void TestXmlWriterDevice::streamWithoutRoomIsAFailure()
{
    FILE* const stream = std::fopen(path("stream.xml").toLocal8Bit().constData(), "w");
    QVERIFY(stream != nullptr);
    QFile file;
    QVERIFY(file.open(stream, QIODevice::WriteOnly));
    {
        const FileSizeLimit limit(10);
        XmlWriter writer(file);
        writer.element("a", "b");
        QCOMPARE(failureText([&writer] { writer.finish(); }),
                 deviceFailure("QFile", systemErrorText(EFBIG)));
        file.close();
        std::fclose(stream);
    }
    QVERIFY(readFile(path("stream.xml")).size() <= 10);
}

void TestXmlWriterDevice::closedDeviceIsAFailure()
{
    QFile file(path("closed.xml"));
    const QString failure = kitText("XmlDeviceNotOpen", file.fileName());
    QCOMPARE(failureText([&file] { XmlWriter{file}; }), failure);
    QVERIFY(writeFile(file.fileName(), "<a/>"));
    QVERIFY(file.open(QIODevice::ReadOnly));
    QCOMPARE(failureText([&file] { XmlWriter{file}; }), failure);
    QCOMPARE(readFile(file.fileName()), QByteArray("<a/>"));

    QBuffer buffer;
    QVERIFY(buffer.open(QIODevice::WriteOnly));
    XmlWriter writer(buffer);
    writer.element("a", "");
    buffer.close();
    QCOMPARE(failureText([&writer] { writer.finish(); }),
             deviceFailure("QBuffer", buffer.errorString()));
}

void TestXmlWriterDevice::deviceIsNamed()
{
    QBuffer buffer;
    QCOMPARE(failureText([&buffer] { XmlWriter{buffer}; }),
             kitText("XmlDeviceNotOpen", QStringLiteral("QBuffer")));
    buffer.setObjectName("to\nthe bank");
    QCOMPARE(failureText([&buffer] { XmlWriter{buffer}; }),
             kitText("XmlDeviceNotOpen", shownName("to\nthe bank")));
    QFile file;
    QCOMPARE(failureText([&file] { XmlWriter{file}; }),
             kitText("XmlDeviceNotOpen", QStringLiteral("QFile")));
    file.setFileName("a\nb");
    QCOMPARE(failureText([&file] { XmlWriter{file}; }),
             kitText("XmlDeviceNotOpen", shownName("a\nb")));
}

void TestXmlWriterDevice::callFromInsideACallIsRefused()
{
    Device device;
    XmlWriter writer(device);
    QStringList failures;
    device._onWrite = [&] { failures.append(failureText([&writer] { writer.text("x"); })); };
    writer.element("a", "b");
    writer.finish();
    QCOMPARE(failures, QStringList{kitText("XmlRefused", kitText("XmlUnfinishedCall"))});
    QCOMPARE(device._bytes, QByteArray("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<a>b</a>\n"));
}

void TestXmlWriterDevice::exceptionOfTheDeviceReachesTheCaller()
{
    Device device;
    device._onWrite = [] { throw std::runtime_error("torn"); };
    XmlWriter writer(device);
    writer.element("a", "b");
    QVERIFY_EXCEPTION_THROWN(writer.finish(), std::runtime_error);
    QCOMPARE(failureText([&writer] { writer.finish(); }),
             kitText("XmlRefused", kitText("XmlUnfinishedCall")));
}

void TestXmlWriterDevice::unfinishedDocumentIsLogged()
{
    TraceLog log;
    QBuffer buffer;
    QVERIFY(buffer.open(QIODevice::WriteOnly));
    {
        const XmlWriter nothingBegun(buffer);
        XmlWriter finished(buffer);
        finished.element("a", "");
        finished.finish();
        XmlWriter failed(buffer);
        failed.startElement("a");
        failureText([&failed] { failed.text(QString(QChar(0))); });
    }
    QCOMPARE(log.take(), QStringList());
    const QByteArray before = buffer.data();
    {
        XmlWriter open(buffer);
        open.startElement("or\u00e9e");
        XmlWriter ended(buffer);
        ended.element("done", "");
    }
    const QString warning = QString::number(int(LoggerLevel::warning));
    QCOMPARE(log.take(),
             (QStringList{warning + kitText("XmlNotFinished", QStringLiteral("done")),
                          warning + kitText("XmlNotFinished", QStringLiteral("or\u00e9e"))}));
    QCOMPARE(buffer.data(), before);
}

QTEST_GUILESS_MAIN(TestXmlWriterDevice)
#include "tst_xmlwriterdevice.moc"
