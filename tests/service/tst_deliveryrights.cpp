// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "service/kittexts_p.h"
#include "support/childprocess.h"
#include "support/failuretext.h"
#include "support/spool.h"

#include <kez/FilesQueue.h>
#include <kez/service/delivery.h>

#include <QScopeGuard>
#include <QtTest>

#include <cerrno>
#include <optional>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace KezService;

namespace {

constexpr int NotForThisUser = 77;
constexpr uid_t Nobody = 65534;

/// Fails the child: the condition that does not hold is named on the error output.
#define EXPECT(condition)                                                                          \
    if (!(condition)) {                                                                            \
        fprintf(stderr, "line %d: %s\n", __LINE__, #condition);                                    \
        return 1;                                                                                  \
    }

bool setMode(const QString& path, mode_t mode)
{
    return ::chmod(QFile::encodeName(path).constData(), mode) == 0;
}

std::optional<struct stat> statusOf(const QString& path)
{
    struct stat status {};
    const int error = ::lstat(QFile::encodeName(path).constData(), &status);
    return error == 0 ? std::optional(status) : std::nullopt;
}

/// What a queue of this process takes.
bool isUsable(const QString& path)
{
    return ::faccessat(AT_FDCWD, QFile::encodeName(path).constData(), R_OK | W_OK, AT_EACCESS) == 0;
}

QString failureOfMove(const Spool& spool, const QString& path)
{
    return failureText([&] { Delivery(spool.path()).moveIn(path); });
}

QString failed(const Spool& spool, const QString& name, const QString& reason)
{
    return kitText("DeliveryFailed", name, spool.path(), reason);
}

QString unreadable(const QString& path)
{
    return kitText("DeliverySourceUnreadable", path);
}

/// The process's own files, one of them for reading only.
int childMovesReadOnlyFile()
{
    EXPECT(becomeOrdinaryUser());
    const Spool spool;
    const QString source = spool.beside("a");
    for (const mode_t mode : {mode_t(0400), mode_t(0444), mode_t(0440)}) {
        EXPECT(writeFile(source, "x") && setMode(source, mode));
        const timespec times[] = {{1000, 0}, {981173106, 0}};
        EXPECT(::utimensat(AT_FDCWD, QFile::encodeName(source).constData(), times, 0) == 0);
        const auto before = statusOf(source);
        EXPECT(Delivery(spool.path()).moveIn(source) == "a");
        const auto after = statusOf(spool.path("a"));
        EXPECT(before && after && before->st_ino != after->st_ino);
        EXPECT(Spool::modeOf(spool.path("a")) == (mode | 0600));
        EXPECT(after->st_mtim.tv_sec == times[1].tv_sec);
        EXPECT(isUsable(spool.path("a")) && spool.content("a") == "x");
        EXPECT(FilesQueue(spool.path(), {}, true, 0).size() == 1);
        EXPECT(!QFile::exists(source) && spool.growing().isEmpty());
        EXPECT(QFile::remove(spool.path("a")));
    }
    // One that may be written is still renamed, whatever its other rights.
    EXPECT(writeFile(source, "x") && setMode(source, 0606));
    const auto before = statusOf(source);
    EXPECT(Delivery(spool.path()).moveIn(source) == "a");
    const auto after = statusOf(spool.path("a"));
    EXPECT(before && after && before->st_ino == after->st_ino);
    EXPECT(Spool::modeOf(spool.path("a")) == 0606);
    return 0;
}

/// A copy is refused before it is made if its name is taken, or if the source could not go.
int childKeepsReadOnlyFileThatCannotGo()
{
    EXPECT(becomeOrdinaryUser());
    const Spool spool;
    const QString directory = spool.beside("drop");
    const QString source = spool.beside("drop/a");
    EXPECT(QDir().mkdir(directory) && writeFile(source, "new") && setMode(source, 0444));
    EXPECT(setMode(directory, 0500));
    const QString refused = failureOfMove(spool, source);
    const bool isPlaceMade = QFile::exists(spool.incoming());
    EXPECT(setMode(directory, 0700));
    EXPECT(refused ==
           failed(spool, "a", kitText("SystemFailure", directory, systemErrorText(EACCES))));
    EXPECT(!isPlaceMade && spool.visible().isEmpty());

    EXPECT(writeFile(spool.path("a"), "old"));
    EXPECT(failureOfMove(spool, source) == failed(spool, "a", kitText("DeliveryNameTaken")));
    EXPECT(readFile(source) == "new" && spool.content("a") == "old");
    const Delivery numbering(spool.path(), Delivery::NameTaken::FreshName);
    EXPECT(numbering.moveIn(source) == "a~2");
    EXPECT(spool.content("a~2") == "new" && isUsable(spool.path("a~2")));
    return 0;
}

int childRefusesUnreadableFile()
{
    EXPECT(becomeOrdinaryUser());
    const Spool spool;
    const QString source = spool.beside("a");
    EXPECT(writeFile(source, "x"));
    for (const mode_t mode : {mode_t(0), mode_t(0200), mode_t(0377)}) {
        EXPECT(setMode(source, mode));
        EXPECT(failureOfMove(spool, source) == failed(spool, "a", unreadable(source)));
        const QString text = failureText([&] { Delivery(spool.path()).deliverFile(source); });
        EXPECT(text == failed(spool, "a", unreadable(source)));
        EXPECT(QFile::exists(source) && spool.visible().isEmpty());
    }
    EXPECT(setMode(source, 0600) && failureOfMove(spool, source).isNull());
    return 0;
}

/// A copy's owner is this process's user: the owner's rights of its source are another's.
int childCopiesReadOnlyFile()
{
    EXPECT(becomeOrdinaryUser());
    const Spool spool;
    const QString source = spool.beside("a");
    EXPECT(writeFile(source, "x") && setMode(source, 0444));
    EXPECT(Delivery(spool.path()).deliverFile(source) == "a");
    EXPECT(isUsable(spool.path("a")) && Spool::modeOf(spool.path("a")) == 0644);
    EXPECT(Spool::modeOf(source) == 0444);
    return 0;
}

/// Root plays the other user. The process's own user is the effective one: the real one is root.
int childMovesFilesOfOthers()
{
    if (::geteuid() != 0)
        return NotForThisUser;
    EXPECT(::seteuid(Nobody) == 0);
    const Spool spool;
    const auto rootAgain = qScopeGuard([] { (void)!::seteuid(0); }); // the spool can be removed
    const QString directory = spool.beside("drop");
    EXPECT(QDir().mkdir(directory));
    const auto writeAsRoot = [&](const QString& name, mode_t mode) {
        const QString path = directory + '/' + name;
        return ::seteuid(0) == 0 && writeFile(path, "x") && setMode(path, mode) &&
               ::seteuid(Nobody) == 0;
    };
    EXPECT(writeAsRoot("readable", 0644) && writeAsRoot("secret", 0600));
    EXPECT(writeAsRoot("shared", 0666) && writeAsRoot("others", 0044));

    const QString readable = directory + "/readable";
    EXPECT(Delivery(spool.path()).moveIn(readable) == "readable");
    const auto copy = statusOf(spool.path("readable"));
    EXPECT(copy && copy->st_uid == Nobody && (copy->st_mode & 07777) == 0644);
    EXPECT(isUsable(spool.path("readable")) && !QFile::exists(readable));

    EXPECT(Delivery(spool.path()).moveIn(directory + "/others") == "others");
    EXPECT(isUsable(spool.path("others")) && Spool::modeOf(spool.path("others")) == 0644);

    EXPECT(Delivery(spool.path()).moveIn(directory + "/shared") == "shared");
    const auto renamed = statusOf(spool.path("shared"));
    EXPECT(renamed && renamed->st_uid == 0);

    const QString secret = directory + "/secret";
    EXPECT(failureOfMove(spool, secret) == failed(spool, "secret", unreadable(secret)));
    EXPECT(QFile::exists(secret) && !QFile::exists(spool.path("secret")));

    // Of a sticky directory, neither the file nor the directory is this user's.
    EXPECT(writeAsRoot("readable", 0644) && ::seteuid(0) == 0);
    EXPECT(::chown(QFile::encodeName(directory).constData(), 0, 0) == 0);
    EXPECT(setMode(directory, 01777) && ::seteuid(Nobody) == 0);
    EXPECT(QFile::remove(spool.path("readable")));
    EXPECT(failureOfMove(spool, readable) ==
           failed(spool, "readable", kitText("DeliverySourceSticky")));
    EXPECT(QFile::exists(readable) && !QFile::exists(spool.path("readable")));
    return 0;
}

int childMain(const QStringList& arguments)
{
    const QHash<QString, int (*)()> children = {{"read-only", childMovesReadOnlyFile},
                                                {"cannot go", childKeepsReadOnlyFileThatCannotGo},
                                                {"unreadable", childRefusesUnreadableFile},
                                                {"copy", childCopiesReadOnlyFile},
                                                {"others", childMovesFilesOfOthers}};
    return children.value(arguments.value(0))();
}

} // namespace

class TestDeliveryRights : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void rightsOfTheSourceDecide_data();
    void rightsOfTheSourceDecide();
};

void TestDeliveryRights::rightsOfTheSourceDecide_data()
{
    QTest::addColumn<QString>("child");
    for (const char* child : {"read-only", "cannot go", "unreadable", "copy", "others"})
        QTest::newRow(child) << child;
}

void TestDeliveryRights::rightsOfTheSourceDecide()
{
    QFETCH(const QString, child);
    const ChildResult result = runChild({child});
    if (result.exitCode == NotForThisUser)
        QSKIP("only root has files of other users");
    QVERIFY2(result.finished && !result.crashed && result.exitCode == 0, result.err.constData());
}

KEZ_TEST_MAIN_WITH_CHILDREN(TestDeliveryRights, childMain)
#include "tst_deliveryrights.moc"
