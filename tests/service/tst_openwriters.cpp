// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "service/openwriters_p.h"
#include "support/childprocess.h"
#include "support/files.h"
#include "support/interposed.h"

#include <QTemporaryDir>
#include <QtTest>

#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <functional>

#include <fcntl.h>

using namespace KezService;

namespace {

/// Called after each fcntl() with the command and the result.
std::function<void(int, int)> afterControl;

int signalCount = 0;

void countSignal(int)
{
    ++signalCount;
}

/// The file of another user.
int childMain(const QStringList&)
{
    if (!becomeOrdinaryUser())
        return 1;
    QFile file("/etc/passwd");
    if (!file.open(QIODevice::ReadOnly))
        return 2;
    return openWritersOf(file.handle()) == OpenWriters::Unknown ? 0 : 3;
}

} // namespace

extern "C" {

#define KEZ_INTERPOSE_FCNTL(name)                                                                  \
    int name(int file, int command, ...)                                                           \
    {                                                                                              \
        static const auto original = interposed<int (*)(int, int, ...)>(#name);                    \
        va_list arguments;                                                                         \
        va_start(arguments, command);                                                              \
        void* const argument = va_arg(arguments, void*);                                           \
        va_end(arguments);                                                                         \
        const int result = original(file, command, argument);                                      \
        if (afterControl)                                                                          \
            afterControl(command, result);                                                         \
        return result;                                                                             \
    }
KEZ_INTERPOSE_FCNTL(fcntl)
KEZ_INTERPOSE_FCNTL(fcntl64)
}

class TestOpenWriters : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();
    void nobodyWrites();
    void somebodyWrites_data();
    void somebodyWrites();
    void anotherProcessWrites();
    void leaseIsGivenBack();
    void writerThatComesMeanwhileEndsNothing();
    void systemDoesNotTell();
    void fileOfAnotherUserIsUnknown();

private:
    std::unique_ptr<QTemporaryDir> _directory;
    QString _path;
    QFile _file;
};

void TestOpenWriters::init()
{
    _directory = std::make_unique<QTemporaryDir>();
    _path = _directory->filePath("a");
    QVERIFY(writeFile(_path, "x"));
    _file.setFileName(_path);
    QVERIFY(_file.open(QIODevice::ReadOnly));
}

void TestOpenWriters::cleanup()
{
    _file.close();
}

void TestOpenWriters::nobodyWrites()
{
    QFile reader(_path);
    QVERIFY(reader.open(QIODevice::ReadOnly));
    QVERIFY(openWritersOf(_file.handle()) == OpenWriters::None);
    QVERIFY(openWritersOf(_file.handle()) == OpenWriters::None);
}

void TestOpenWriters::somebodyWrites_data()
{
    QTest::addColumn<int>("mode");
    QTest::newRow("write") << int(QIODevice::WriteOnly);
    QTest::newRow("read and write") << int(QIODevice::ReadWrite);
    QTest::newRow("append") << int(QIODevice::Append);
}

void TestOpenWriters::somebodyWrites()
{
    QFETCH(const int, mode);
    QFile writer(_path);
    QVERIFY(writer.open(QIODevice::OpenMode(mode)));
    QVERIFY(openWritersOf(_file.handle()) == OpenWriters::Some);
    writer.close();
    QVERIFY(openWritersOf(_file.handle()) == OpenWriters::None);
}

void TestOpenWriters::anotherProcessWrites()
{
    QProcess writer;
    writer.start("/bin/sh", {"-c", "exec 3>>\"$0\"; echo open; read end", _path});
    QVERIFY(writer.waitForReadyRead(60000));
    QVERIFY(openWritersOf(_file.handle()) == OpenWriters::Some);
    writer.write("\n");
    QVERIFY(writer.waitForFinished(60000));
    QVERIFY(openWritersOf(_file.handle()) == OpenWriters::None);
}

void TestOpenWriters::leaseIsGivenBack()
{
    QVERIFY(openWritersOf(_file.handle()) == OpenWriters::None);
    QCOMPARE(::fcntl(_file.handle(), F_GETLEASE), int(F_UNLCK));
    QFile writer(_path);
    QVERIFY(writer.open(QIODevice::WriteOnly | QIODevice::Append));
}

/// Without the direction of the signal, SIGIO would end the test here.
void TestOpenWriters::writerThatComesMeanwhileEndsNothing()
{
    signalCount = 0;
    int refused = 0;
    const auto breakLease = [&](int command, int result) {
        if (command != F_SETLEASE || result != 0 || refused != 0)
            return;
        const int writer = ::open(QFile::encodeName(_path), O_WRONLY | O_NONBLOCK | O_CLOEXEC);
        refused = writer < 0 ? errno : -1;
    };
    for (const bool isHandled : {false, true}) {
        std::signal(SIGURG, isHandled ? &countSignal : SIG_DFL);
        refused = 0;
        afterControl = breakLease;
        const OpenWriters writers = openWritersOf(_file.handle());
        afterControl = nullptr;
        QVERIFY(writers == OpenWriters::None);
        QCOMPARE(refused, EWOULDBLOCK);
    }
    std::signal(SIGURG, SIG_DFL);
    QCOMPARE(signalCount, 1);
}

void TestOpenWriters::systemDoesNotTell()
{
    QFile device("/dev/null");
    QVERIFY(device.open(QIODevice::ReadOnly));
    QVERIFY(openWritersOf(device.handle()) == OpenWriters::Unknown);
    QVERIFY(openWritersOf(-1) == OpenWriters::Unknown);
}

void TestOpenWriters::fileOfAnotherUserIsUnknown()
{
    QCOMPARE(runChild({}).exitCode, 0);
}

KEZ_TEST_MAIN_WITH_CHILDREN(TestOpenWriters, childMain)
#include "tst_openwriters.moc"
