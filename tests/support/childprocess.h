// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include <QCoreApplication>
#include <QProcess>
#include <QProcessEnvironment>
#include <QStringList>
#include <QTest>

#include <grp.h>
#include <unistd.h>

#if defined(__SANITIZE_THREAD__)
/// ThreadSanitizer takes a process that has started another one for a forked one. By default it
/// then ends it when it creates its next thread.
extern "C" __attribute__((used)) inline const char* __tsan_default_options()
{
    return "die_after_fork=0";
}
#endif

/// What a child of the test program did.
struct ChildResult {
    bool finished = false;
    bool crashed = false;
    int exitCode = -1;
    QByteArray out;
    QByteArray err;
};

/// Runs this test program again as `--child <arguments>`, in the environment given. For what can
/// only be seen from outside (a fatal line, another LANG) or would disturb the other tests.
inline ChildResult
runChild(const QStringList& arguments,
         const QProcessEnvironment& environment = QProcessEnvironment::systemEnvironment())
{
    QProcess process;
    process.setProcessEnvironment(environment);
    process.start(QCoreApplication::applicationFilePath(), QStringList{"--child"} + arguments);
    ChildResult result;
    result.finished = process.waitForFinished(60000);
    result.crashed = process.exitStatus() == QProcess::CrashExit;
    result.exitCode = process.exitCode();
    result.out = process.readAllStandardOutput();
    result.err = process.readAllStandardError();
    return result;
}

/// In a child: gives up root's rights, so that file permissions count. Does nothing for other
/// users.
inline bool becomeOrdinaryUser()
{
    constexpr uid_t Nobody = 65534;
    return geteuid() != 0 ||
           (setgroups(0, nullptr) == 0 && setgid(Nobody) == 0 && setuid(Nobody) == 0);
}

/// The main function of a test program with children. A child runs `childMain(QStringList)`, whose
/// result is its exit code. It has a core application object only if it makes one.
#define KEZ_TEST_MAIN_WITH_CHILDREN(TestClass, childMain)                                          \
    int main(int argc, char* argv[])                                                               \
    {                                                                                              \
        if (argc > 1 && qstrcmp(argv[1], "--child") == 0) {                                        \
            QStringList arguments;                                                                 \
            for (int i = 2; i < argc; ++i)                                                         \
                arguments.append(QString::fromLocal8Bit(argv[i]));                                 \
            return childMain(arguments);                                                           \
        }                                                                                          \
        QCoreApplication application(argc, argv);                                                  \
        TestClass test;                                                                            \
        return QTest::qExec(&test, argc, argv);                                                    \
    }
