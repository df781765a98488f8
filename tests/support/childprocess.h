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
/// A process that has started another one is to the thread sanitizer a forked one itself, which it
/// ends at its next thread unless told otherwise.
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

/// Runs this test program again as `--child <arguments>`, with its own environment. For what can
/// only be seen from outside (a fatal line, another LANG) or would spoil the test process.
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

/// In a child: gives up root, so that file permissions count. Nothing to do for anybody else.
inline bool becomeOrdinaryUser()
{
    constexpr uid_t Nobody = 65534;
    return geteuid() != 0 ||
           (setgroups(0, nullptr) == 0 && setgid(Nobody) == 0 && setuid(Nobody) == 0);
}

/// The main function of a test program with children: `childMain(QStringList)` is what a child
/// runs, without a core application object unless it makes one, and its result is the exit code.
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
