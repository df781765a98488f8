// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

// Puts order files into a spool directory: good ones, with bad ones spread among them.

#include "progress.h"
#include "sampleorders.h"
#include "texts.h"

#include <kez/exception.h>

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QDateTime>
#include <QDir>
#include <QFileInfo>
#include <QScopeGuard>
#include <QTextStream>
#include <QThread>

#include <cstdio>
#include <cstdlib>

using namespace Qt::StringLiterals;

namespace {

constexpr int UsageFault = 2;

struct Task {
    int good = 0;
    int bad = 0;
    int pause = 0; // ms
    QString prefix;
    QDir spool;
};

int usageFault(const QString& reason)
{
    QTextStream(stderr) << reason << '\n' << intake::text("DropUsage"_L1) << Qt::endl;
    return UsageFault;
}

/// The value of an option if it is an integer of 0 or more; otherwise -1.
int countOf(const QCommandLineParser& parser, const QString& option)
{
    bool isNumber = false;
    const int value = parser.value(option).toInt(&isNumber);
    return isNumber && value >= 0 ? value : -1;
}

/// A file is written under a hidden name and renamed when it is complete: a queue takes a file as
/// soon as it is visible.
void drop(const QDir& spool, const QString& name, const QByteArray& content)
{
    const QString visible = spool.filePath(name);
    if (QFileInfo::exists(visible))
        throw Exception(intake::text("FileThere"_L1).arg(visible));
    QFile file(spool.filePath(u'.' + name));
    auto removeHidden = qScopeGuard([&file] { file.remove(); });
    if (!file.open(QFile::WriteOnly) || file.write(content) != content.size() || !file.flush())
        throw Exception(intake::text("CannotWrite"_L1).arg(file.fileName(), file.errorString()));
    file.close();
    if (std::rename(QFile::encodeName(file.fileName()).constData(),
                    QFile::encodeName(visible).constData()) != 0)
        throw Exception(intake::text("CannotWrite"_L1).arg(visible, intake::systemError()));
    removeHidden.dismiss();
}

/// Whether the file at `index` is a bad one; they are spread evenly.
bool isBad(const Task& task, qint64 index)
{
    const qint64 total = qint64{task.good} + task.bad;
    return (index + 1) * task.bad / total > index * task.bad / total;
}

void dropAll(const Task& task)
{
    const int total = task.good + task.bad;
    intake::Progress progress(total);
    int badCount = 0;
    for (int index = 0; index < total; ++index) {
        const QByteArray content = isBad(task, index) ? intake::badOrder(badCount++)
                                                      : intake::goodOrder(task.prefix, index + 1);
        const QString number = QString::number(index + 1).rightJustified(6, u'0');
        drop(task.spool, u"%1-%2.xml"_s.arg(task.prefix, number), content);
        progress.show(index + 1);
        if (task.pause > 0)
            QThread::msleep(static_cast<unsigned long>(task.pause));
    }
    QTextStream(stdout) << intake::text("Dropped"_L1)
                               .arg(QString::number(task.good), QString::number(task.bad),
                                    task.spool.path())
                        << Qt::endl;
}

QString defaultPrefix()
{
    const QString now = QDateTime::currentDateTime().toString(u"yyyyMMdd-HHmmss"_s);
    return u"%1-%2"_s.arg(now, QString::number(QCoreApplication::applicationPid()));
}

void addOptions(QCommandLineParser& parser)
{
    parser.addOption({u"good"_s, QString(), u"N"_s, u"100"_s});
    parser.addOption({u"bad"_s, QString(), u"N"_s, u"0"_s});
    parser.addOption({u"pause"_s, QString(), u"MS"_s, u"0"_s});
    parser.addOption({u"prefix"_s, QString(), u"TEXT"_s, defaultPrefix()});
    parser.addOption(QCommandLineOption(u"help"_s));
}

int run(const QCommandLineParser& parser)
{
    for (const QString& option : {u"good"_s, u"bad"_s, u"pause"_s})
        if (countOf(parser, option) < 0)
            return usageFault(intake::text("NoCount"_L1).arg(option, parser.value(option)));
    const QStringList arguments = parser.positionalArguments();
    if (arguments.size() != 1)
        return usageFault(intake::text("OneSpool"_L1));
    const QString prefix = parser.value(u"prefix"_s);
    if (prefix.isEmpty() || prefix.startsWith(u'.') || prefix.contains(u'/'))
        return usageFault(intake::text("NoPrefix"_L1).arg(prefix));
    const QFileInfo spool(arguments.first());
    if (!spool.isDir() || !spool.isWritable())
        throw Exception(intake::text("NoSpool"_L1).arg(arguments.first()));
    dropAll({countOf(parser, u"good"_s), countOf(parser, u"bad"_s), countOf(parser, u"pause"_s),
             prefix, QDir(spool.filePath())});
    return EXIT_SUCCESS;
}

} // namespace

int main(int argc, char* argv[])
{
    const QCoreApplication application(argc, argv);
    intake::loadTexts();

    QCommandLineParser parser;
    addOptions(parser);
    if (!parser.parse(QCoreApplication::arguments()))
        return usageFault(parser.errorText());
    if (parser.isSet(u"help"_s)) {
        QTextStream(stdout) << intake::text("DropUsage"_L1) << Qt::endl;
        return EXIT_SUCCESS;
    }
    try {
        return run(parser);
    } catch (const Exception& failure) {
        QTextStream(stderr) << failure.detail() << Qt::endl;
        return EXIT_FAILURE;
    }
}
