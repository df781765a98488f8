// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include "support/files.h"

#include <QDir>
#include <QFile>
#include <QProcess>
#include <QProcessEnvironment>
#include <QTemporaryDir>
#include <QTest>

#include <memory>
#include <signal.h>

/// Limit of any wait, in ms; reached only when something never happens.
constexpr int Patience = 60000;

inline QByteArray goodDocument(const QByteArray& number = "C-1")
{
    return R"(<order number=")" + number +
           R"("><customer>Étienne Durand</customer><amount currency="EUR">12.50</amount></order>)";
}

/// Writes a file the way that a queue needs it: under a hidden name, then renamed.
inline void dropFile(const QString& path, const QByteArray& content)
{
    const QString hidden = QFileInfo(path).dir().filePath(QStringLiteral(".hidden"));
    QVERIFY(writeFile(hidden, content));
    QVERIFY(QFile::rename(hidden, path));
}

/// What is in the directory, hidden or not, except the directory in which the service kit keeps its
/// own files.
inline QStringList entriesOf(const QString& directory)
{
    QStringList names = QDir(directory).entryList(
        QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot, QDir::Name);
    names.removeAll(QStringLiteral(".kez"));
    return names;
}

/// The directories and the configuration of one service, in a directory of their own.
class IntakeFixture {
public:
    IntakeFixture()
    {
        for (const char* name : {"spool", "archive", "setaside", "log"})
            QDir(_directory.path()).mkdir(QString::fromLatin1(name));
    }

    QString path(const char* name) const { return _directory.filePath(QString::fromUtf8(name)); }
    QString spool(const QString& name) const { return path("spool/") + name; }
    QStringList spooled() const { return entriesOf(path("spool")); }
    QStringList archived() const { return entriesOf(path("archive")); }

    /// The files that were set aside, without the text that lies beside each of them.
    QStringList setAside() const
    {
        QStringList names = entriesOf(path("setaside"));
        for (const QString& name : QStringList(names))
            if (names.contains(name + QStringLiteral(".txt")))
                names.removeOne(name + QStringLiteral(".txt"));
        return names;
    }

    /// The files that the ledger names, in its order.
    QStringList booked() const
    {
        QStringList names;
        for (const QByteArray& line : readFile(path("ledger.csv")).split('\n'))
            if (!line.isEmpty())
                names.append(QString::fromUtf8(line.split(';').value(1)));
        return names;
    }

    QString log() const
    {
        QByteArray text;
        for (int index = 0;; ++index) {
            const QString file = path("log/intake-%1.log").arg(index);
            if (!QFile::exists(file))
                return QString::fromUtf8(text);
            text += readFile(file);
        }
    }
    bool logHas(const char* part) const { return log().contains(QString::fromUtf8(part)); }

    void writeProperties(const QByteArray& extra = "lang=en_US\n") const
    {
        QVERIFY(
            writeFile(path("intake.properties"), "log.filename=log/intake\nlog.filter=debug\n"
                                                 "queue.path=spool\nqueue.period=50\n"
                                                 "archive.path=archive\nsetaside.path=setaside\n"
                                                 "ledger.path=ledger.csv\n" +
                                                     extra));
    }

private:
    QTemporaryDir _directory;
};
