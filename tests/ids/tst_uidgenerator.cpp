// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "ids/uidwords_p.h"
#include "kez/randomgenerator.h"
#include "kez/text.h"
#include "kez/uidgenerator.h"

#include "support/childprocess.h"
#include "support/failuretext.h"

#include <QPointer>
#include <QSet>
#include <QTest>
#include <QUuid>

#include <cstdio>
#include <memory>
#include <thread>
#include <vector>

static_assert(std::is_base_of_v<QObject, UidGenerator>);

namespace {

/// Counts the questions, to show that none is asked while generating.
class NotingVerifier : public IUidVerifier {
public:
    bool contains(const QByteArray&) override
    {
        ++questions;
        return true;
    }
    void append(const QByteArray&) override { ++questions; }

    int questions = 0;
};

/// Gives texts instead of random bytes.
class Counting : public UidGenerator {
public:
    using UidGenerator::generate;
    using UidGenerator::UidGenerator;

    QByteArray generate() override { return QByteArray::number(++_count); }

private:
    int _count = 0;
};

QString refusal(UidGenerator& generator)
{
    return failureText([&generator] { generator.generate(); });
}

// What the children do. Each is a process in which no call has been made yet; its exit code stands
// for the line of the check that failed.

#define CHECK(condition)                                                                           \
    if (!(condition))                                                                              \
    return __LINE__ % 250 + 1

int sayRefusal()
{
    int argc = 0;
    const QCoreApplication application(argc, nullptr);
    UidGenerator generator(16);
    std::fputs(refusal(generator).toUtf8().constData(), stdout);
    return 0;
}

int keepFirstArguments()
{
    QObject laterParent;
    NotingVerifier laterVerifier;
    UidGenerator* const generator = UidGenerator::getInstance(16, nullptr, nullptr);
    CHECK(generator != nullptr);
    CHECK(generator->isInitialized());
    CHECK(generator->parent() == nullptr);
    CHECK(generator->generate().size() == 16);
    CHECK(UidGenerator::getInstance(8, &laterVerifier, &laterParent) == generator);
    CHECK(UidGenerator::getInstance(8) == generator);
    CHECK(generator->generate().size() == 16);
    CHECK(generator->parent() == nullptr);
    CHECK(generator->isInitialized());
    CHECK(laterVerifier.questions == 0);
    return 0;
}

int neverAskTheVerifier()
{
    NotingVerifier verifier;
    UidGenerator* const generator = UidGenerator::getInstance(16, &verifier);
    CHECK(generator->generate().size() == 16);
    CHECK(generator->generate(10U).size() == 10);
    CHECK(verifier.questions == 0);
    return 0;
}

int generateOfSize(unsigned char size)
{
    UidGenerator* const generator = UidGenerator::getInstance(size);
    std::vector<QSet<char>> values(size);
    QSet<QByteArray> uids;
    for (int i = 0; i < 500; ++i) {
        const QByteArray uid = generator->generate();
        CHECK(uid.size() == size);
        uids.insert(uid);
        for (std::size_t k = 0; k < values.size(); ++k)
            values[k].insert(uid[static_cast<qsizetype>(k)]);
    }
    // 500 draws of one random byte give about 220 different values.
    for (const QSet<char>& seen : values)
        CHECK(seen.size() > 150);
    CHECK(size < 8 || uids.size() == 500);
    return 0;
}

int generateBatches()
{
    UidGenerator* const generator = UidGenerator::getInstance(16);
    CHECK(generator->generate(0U).isEmpty());
    const QList<std::shared_ptr<QByteArray>> batch = generator->generate(3U);
    CHECK(batch.size() == 3);
    for (const std::shared_ptr<QByteArray>& uid : batch) {
        CHECK(uid && uid->size() == 16);
        CHECK(uid.use_count() == 1);
    }
    CHECK(*batch[0] != *batch[1] && *batch[1] != *batch[2] && *batch[0] != *batch[2]);
    QSet<QByteArray> seen;
    for (const std::shared_ptr<QByteArray>& uid : generator->generate(100'000U))
        seen.insert(*uid);
    CHECK(seen.size() == 100'000);
    return 0;
}

int surviveAParentOfAnotherThread()
{
    std::unique_ptr<QObject> parent;
    QPointer<UidGenerator> generator;
    std::thread([&] {
        parent = std::make_unique<QObject>();
        generator = UidGenerator::getInstance(16, nullptr, parent.get());
    }).join();
    parent.reset();
    CHECK(!generator.isNull());
    CHECK(generator->parent() == nullptr);
    CHECK(generator->generate().size() == 16);
    return 0;
}

int surviveTheParent()
{
    auto parent = std::make_unique<QObject>();
    const QPointer<UidGenerator> generator = UidGenerator::getInstance(16, nullptr, parent.get());
    CHECK(generator->parent() == parent.get());
    parent.reset();
    CHECK(!generator.isNull());
    CHECK(generator->parent() == nullptr);
    CHECK(UidGenerator::getInstance(16) == generator);
    CHECK(generator->generate().size() == 16);
    return 0;
}

int surviveTheApplication()
{
    int argc = 0;
    {
        QCoreApplication application(argc, nullptr);
        CHECK(UidGenerator::getInstance(16, nullptr, &application)->parent() == &application);
    }
    CHECK(UidGenerator::getInstance(16)->generate().size() == 16);
    return 0;
}

int endBeforeTheParent()
{
    static QObject* const parent = new QObject;
    CHECK(UidGenerator::getInstance(16, nullptr, parent)->parent() == parent);
    return 0;
}

int generateInThreads()
{
    constexpr unsigned int Count = 5000;
    UidGenerator* const generator = UidGenerator::getInstance(16);
    std::vector<QList<std::shared_ptr<QByteArray>>> batches(4);
    std::vector<std::thread> threads;
    for (auto& batch : batches)
        threads.emplace_back([&batch] { batch = UidGenerator::getInstance(16)->generate(Count); });
    for (std::thread& thread : threads)
        thread.join();
    QSet<QByteArray> seen;
    for (const auto& batch : batches)
        for (const std::shared_ptr<QByteArray>& uid : batch)
            seen.insert(*uid);
    CHECK(seen.size() == 4 * qsizetype{Count});
    CHECK(generator->isInitialized());
    return 0;
}

#undef CHECK

int childMain(const QStringList& arguments)
{
    const QString task = arguments.value(0);
    if (task == QLatin1String("refusal"))
        return sayRefusal();
    if (task == QLatin1String("size"))
        return generateOfSize(static_cast<unsigned char>(arguments.value(1).toUInt()));
    const QMap<QString, int (*)()> tasks{
        {QStringLiteral("first arguments"), &keepFirstArguments},
        {QStringLiteral("verifier"), &neverAskTheVerifier},
        {QStringLiteral("batches"), &generateBatches},
        {QStringLiteral("parent goes"), &surviveTheParent},
        {QStringLiteral("parent of another thread goes"), &surviveAParentOfAnotherThread},
        {QStringLiteral("application goes"), &surviveTheApplication},
        {QStringLiteral("parent stays"), &endBeforeTheParent},
        {QStringLiteral("threads"), &generateInThreads},
    };
    return tasks.contains(task) ? tasks.value(task)() : 255;
}

} // namespace

class TestUidGenerator : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void builtDirectlyRefusesToGenerate();
    void builtDirectlyStillGivesAnEmptyBatch();
    void refusalIsInTheUsersLanguage_data();
    void refusalIsInTheUsersLanguage();
    void directObjectsBelongToTheirParent();
    void batchesComeFromTheVirtualGenerate();

    void singleInstance_data();
    void singleInstance();
    void sizesAreCoveredByRandomBytes_data();
    void sizesAreCoveredByRandomBytes();
    void wordsFollowTheRuleAndCoverTheSize();

    void toUUID_data();
    void toUUID();
    void toUUIDOfEverySize();
    void toUUIDOfSixteenBytesIsThatOfQt();
};

void TestUidGenerator::builtDirectlyRefusesToGenerate()
{
    UidGenerator generator(16, nullptr);
    QVERIFY(!generator.isInitialized());
    QVERIFY_EXCEPTION_THROWN(generator.generate(), Exception);
    QVERIFY_EXCEPTION_THROWN(generator.generate(2U), Exception);
    QVERIFY(
        refusal(generator).startsWith(QLatin1String("QByteArray UidGenerator::generate() -> ")));
}

void TestUidGenerator::builtDirectlyStillGivesAnEmptyBatch()
{
    UidGenerator generator(16, nullptr);
    QVERIFY(generator.generate(0U).isEmpty());
}

void TestUidGenerator::refusalIsInTheUsersLanguage_data()
{
    QTest::addColumn<QString>("lang");
    QTest::addColumn<QString>("detail");

    QTest::newRow("English") << QStringLiteral("en_US.UTF-8")
                             << QStringLiteral("QByteArray UidGenerator::generate() -> Random "
                                               "generator not initialized");
    QTest::newRow("French") << QStringLiteral("fr_FR.UTF-8")
                            << QStringLiteral("QByteArray UidGenerator::generate() -> Générateur "
                                              "d'aléa non initialisé");
}

void TestUidGenerator::refusalIsInTheUsersLanguage()
{
    QFETCH(const QString, lang);
    QFETCH(const QString, detail);

    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("LANG"), lang);
    const ChildResult child = runChild({QStringLiteral("refusal")}, environment);
    QCOMPARE(child.exitCode, 0);
    QCOMPARE(QString::fromUtf8(child.out), detail);
}

void TestUidGenerator::directObjectsBelongToTheirParent()
{
    auto parent = std::make_unique<QObject>();
    const QPointer<UidGenerator> generator = new UidGenerator(16, parent.get());
    QCOMPARE(generator->parent(), parent.get());
    parent.reset();
    QVERIFY(generator.isNull());
}

void TestUidGenerator::batchesComeFromTheVirtualGenerate()
{
    Counting counting(16);
    UidGenerator& generator = counting;
    const QList<std::shared_ptr<QByteArray>> batch = generator.generate(3U);
    QCOMPARE(batch.size(), 3);
    QCOMPARE(*batch[0], QByteArray("1"));
    QCOMPARE(*batch[1], QByteArray("2"));
    QCOMPARE(*batch[2], QByteArray("3"));
}

void TestUidGenerator::singleInstance_data()
{
    QTest::addColumn<QString>("task");

    QTest::newRow("keeps the arguments of the first call") << QStringLiteral("first arguments");
    QTest::newRow("never asks the verifier") << QStringLiteral("verifier");
    QTest::newRow("generates batches") << QStringLiteral("batches");
    QTest::newRow("survives its parent") << QStringLiteral("parent goes");
    QTest::newRow("survives a parent of another thread")
        << QStringLiteral("parent of another thread goes");
    QTest::newRow("survives the application") << QStringLiteral("application goes");
    QTest::newRow("ends before its parent") << QStringLiteral("parent stays");
    QTest::newRow("serves several threads") << QStringLiteral("threads");
}

void TestUidGenerator::singleInstance()
{
    QFETCH(const QString, task);

    const ChildResult child = runChild({task});
    QVERIFY(child.finished);
    QVERIFY2(!child.crashed, child.err.constData());
    QCOMPARE(child.exitCode, 0);
    QCOMPARE(child.err, QByteArray());
}

void TestUidGenerator::sizesAreCoveredByRandomBytes_data()
{
    QTest::addColumn<int>("size");
    for (const int size : {0, 1, 2, 3, 4, 5, 8, 15, 16, 17, 18, 19, 20, 33, 35, 36, 252, 253, 255})
        QTest::addRow("%d bytes", size) << size;
}

void TestUidGenerator::sizesAreCoveredByRandomBytes()
{
    QFETCH(const int, size);

    const ChildResult child = runChild({QStringLiteral("size"), QString::number(size)});
    QVERIFY2(!child.crashed, child.err.constData());
    QCOMPARE(child.exitCode, 0);
}

void TestUidGenerator::wordsFollowTheRuleAndCoverTheSize()
{
    for (int size = 0; size <= 255; ++size) {
        const qsizetype words = uidWords(static_cast<unsigned char>(size));
        const qsizetype quotient = size / 4;
        const qsizetype rule = quotient + (quotient % 4 != 0 ? 1 : 0);
        QCOMPARE(words, rule * 4 >= size ? rule : quotient + 1);
        QVERIFY(words * 4 >= size);
    }
    QCOMPARE(uidWords(16), 4);
    QCOMPARE(uidWords(8), 3);
    QCOMPARE(uidWords(19), 5);
    QCOMPARE(uidWords(3), 1);
}

void TestUidGenerator::toUUID_data()
{
    QTest::addColumn<QByteArray>("uid");
    QTest::addColumn<QString>("expected");

    QTest::newRow("sixteen bytes") << QByteArray::fromHex("0F3C2A9E51B74C0D9A2E7B4F10C3D8E1")
                                   << QStringLiteral("0f3c2a9e-51b7-4c0d-9a2e-7b4f10c3d8e1");
    QTest::newRow("two bytes") << QByteArray("\x12\xab")
                               << QStringLiteral("00000000-0000-0000-0000-0000000012ab");
    QTest::newRow("nothing") << QByteArray()
                             << QStringLiteral("00000000-0000-0000-0000-000000000000");
    QTest::newRow("fifteen bytes")
        << QByteArray(15, '\xff') << QStringLiteral("00ffffff-ffff-ffff-ffff-ffffffffffff");
    QTest::newRow("seventeen bytes")
        << QByteArray(17, '\xff') << QStringLiteral("ffffffff-ffff-ffff-ffff-ffffffffffffff");
    QTest::newRow("twenty bytes") << QByteArray::fromHex("000102030405060708090a0b0c0d0e0f10111213")
                                  << QStringLiteral("00010203-0405-0607-0809-0a0b0c0d0e0f10111213");
}

void TestUidGenerator::toUUID()
{
    QFETCH(const QByteArray, uid);
    QFETCH(const QString, expected);

    QCOMPARE(UidGenerator::toUUID(uid), expected);
}

void TestUidGenerator::toUUIDOfEverySize()
{
    RandomGenerator random(20261122);
    for (int size = 0; size <= 300; ++size) {
        QByteArray uid(size, '\0');
        random.fillRange(uid, false);
        const QString digits = Text::toHexa(uid, true).rightJustified(32, QLatin1Char('0'));
        const QStringList groups{digits.mid(0, 8), digits.mid(8, 4), digits.mid(12, 4),
                                 digits.mid(16, 4), digits.mid(20)};
        QCOMPARE(UidGenerator::toUUID(uid), groups.join(QLatin1Char('-')));
    }
}

void TestUidGenerator::toUUIDOfSixteenBytesIsThatOfQt()
{
    RandomGenerator random(20261122);
    for (int i = 0; i < 1000; ++i) {
        QByteArray uid(16, '\0');
        random.fillRange(uid, false);
        QCOMPARE(UidGenerator::toUUID(uid), QUuid::fromRfc4122(uid).toString(QUuid::WithoutBraces));
    }
}

KEZ_TEST_MAIN_WITH_CHILDREN(TestUidGenerator, childMain)
#include "tst_uidgenerator.moc"
