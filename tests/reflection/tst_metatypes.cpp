// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include <kez/metatypes.h>

#include "reflection/pluginorder.h"
#include "support/bundledirectory.h"
#include "support/childprocess.h"
#include "support/failuretext.h"
#include "support/files.h"
#include "support/language.h"

#include <QDir>
#include <QMap>
#include <QMetaType>
#include <QRandomGenerator>
#include <QTemporaryDir>
#include <QTest>
#include <QTextStream>
#include <QThread>

#include <atomic>
#include <climits>
#include <functional>
#include <memory>
#include <vector>

#include <sys/stat.h>

namespace {

/// A class that the test registers with Qt.
struct Receipt {
    QString text = QStringLiteral("new");
};

struct WithoutDefault {
    explicit WithoutDefault(int value) : number(value) {}
    int number;
};

using Action = std::function<void()>;

MetaTypes* registry()
{
    return MetaTypes::getInstance();
}

QStringList names()
{
    return QStringList(registry()->keyBegin(), registry()->keyEnd());
}

QString name(int number)
{
    return QStringLiteral("Class%1").arg(number, 6, 10, QLatin1Char('0'));
}

const QString InstantiatePrefix =
    QStringLiteral("void* MetaTypes::instantiateFromMetaTypes(const QString&, const QString&) -> ");

/// Prints what an ordinary user gets for a library file.
int child(const QStringList& arguments)
{
    if (!becomeOrdinaryUser())
        return 2;
    int argc = 0;
    QCoreApplication application(argc, nullptr);
    useLanguage(QStringLiteral("en_US"));
    QTextStream(stdout) << failureText(
        [&] { MetaTypes::instantiateFromMetaTypes(QStringLiteral("QString"), arguments.at(0)); });
    return 0;
}

} // namespace

class TestMetaTypes : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void init() { useLanguage(QStringLiteral("en_US")); }

    void cleanup()
    {
        for (const QString& registered : names())
            registry()->removeMetaType(registered);
        QVERIFY(registry()->empty());
    }

    void instanceIsOne()
    {
        QVERIFY(MetaTypes::getInstance() != nullptr);
        QCOMPARE(MetaTypes::getInstance(), MetaTypes::getInstance());
    }

    void emptyRegistry()
    {
        QVERIFY(registry()->empty());
        QCOMPARE(registry()->size(), 0);
        QVERIFY(registry()->begin() == registry()->end());
        QVERIFY(registry()->keyBegin() == registry()->keyEnd());
        QVERIFY(!registry()->containsMetaType(QString()));
        QVERIFY(!registry()->isMetaTypeId(0));
        QVERIFY(!registry()->isInvariantType(10000));
        QCOMPARE(registry()->nextInvariantId(), 10000);
    }

    void insertedRecordIsFoundByEachKey()
    {
        QVERIFY(registry()->insertMetaType(QStringLiteral("Order"), 77, 1234));
        QCOMPARE(registry()->size(), 1);
        QVERIFY(!registry()->empty());
        QVERIFY(registry()->containsMetaType(QStringLiteral("Order")));
        QVERIFY(!registry()->containsMetaType(QStringLiteral("order")));
        QVERIFY(registry()->isMetaTypeId(1234));
        QVERIFY(!registry()->isMetaTypeId(77));
        QVERIFY(registry()->isInvariantType(77));
        QVERIFY(!registry()->isInvariantType(1234));

        const QString text = MetaType(QStringLiteral("Order"), 77, 1234).toString();
        QCOMPARE(registry()->metaTypeFromClassName(QStringLiteral("Order")).toString(), text);
        QCOMPARE(registry()->metaTypeFromTypeId(1234).toString(), text);
        QCOMPARE(registry()->metaTypeFromInvariantId(77).toString(), text);
        QCOMPARE(registry()->typeId(QStringLiteral("Order")), 1234);
        QCOMPARE(registry()->invariantId(QStringLiteral("Order")), 77);
        QCOMPARE(registry()->typeId(77), 1234);
        QCOMPARE(registry()->invariantType(1234), 77);
        QCOMPARE(registry()->classNameFromType(1234), QStringLiteral("Order"));
        QCOMPARE(registry()->classNameFromInvariantType(77), QStringLiteral("Order"));
    }

    void knownNameIsNotInsertedAgain()
    {
        QVERIFY(registry()->insertMetaType(QStringLiteral("A"), 5));
        QVERIFY(!registry()->insertMetaType(QStringLiteral("A"), 6));
        QVERIFY(!registry()->insertMetaType(QStringLiteral("A"), 20000, 7));
        QCOMPARE(registry()->size(), 1);
        QCOMPARE(registry()->typeId(QStringLiteral("A")), 5);
        QCOMPARE(registry()->invariantId(QStringLiteral("A")), 10000);
        QVERIFY(!registry()->isMetaTypeId(6));
        QVERIFY(!registry()->isMetaTypeId(7));
        QVERIFY(!registry()->isInvariantType(20000));
        QCOMPARE(registry()->nextInvariantId(), 10001);
    }

    void removedRecordIsReturnedAndForgotten()
    {
        registry()->insertMetaType(QStringLiteral("A"), 10000, 5);
        registry()->insertMetaType(QStringLiteral("B"), 10001, 6);
        QCOMPARE(registry()->removeMetaType(QStringLiteral("A")).toString(),
                 MetaType(QStringLiteral("A"), 10000, 5).toString());
        QCOMPARE(names(), QStringList{QStringLiteral("B")});
        QVERIFY(!registry()->isMetaTypeId(5));
        QVERIFY(!registry()->isInvariantType(10000));
        QVERIFY(registry()->insertMetaType(QStringLiteral("A"), 10000, 5));
    }

    void nameTakenFromTheRegistryItselfIsRemoved()
    {
        registry()->insertMetaType(QStringLiteral("A"), 1, 1);
        registry()->insertMetaType(QStringLiteral("B"), 1, 1);
        QCOMPARE(registry()->removeMetaType(registry()->begin().key()).className(),
                 QStringLiteral("A"));
        QCOMPARE(names(), QStringList{QStringLiteral("B")});
    }

    void iterationIsInNameOrder()
    {
        for (const char* each : {"b", "B", "a", "\xc3\x89t\xc3\xa9", "Z"})
            registry()->insertMetaType(QString::fromUtf8(each), 1);
        const QStringList expected = {QStringLiteral("B"), QStringLiteral("Z"), QStringLiteral("a"),
                                      QStringLiteral("b"), QStringLiteral(u"Été")};
        QCOMPARE(names(), expected);
        QStringList pairs;
        for (auto it = registry()->begin(); it != registry()->end(); ++it) {
            QCOMPARE(it.value().className(), it.key());
            pairs.append(it.key());
        }
        QCOMPARE(pairs, expected);
    }

    // Identifiers

    void firstNameWinsAmongThoseWithTheSameId()
    {
        registry()->insertMetaType(QStringLiteral("M"), 500, 5);
        registry()->insertMetaType(QStringLiteral("Z"), 500, 5);
        QCOMPARE(registry()->classNameFromType(5), QStringLiteral("M"));
        registry()->insertMetaType(QStringLiteral("A"), 500, 5);
        for (const char* expected : {"A", "M", "Z"}) {
            const QString first = QString::fromLatin1(expected);
            QCOMPARE(registry()->classNameFromType(5), first);
            QCOMPARE(registry()->classNameFromInvariantType(500), first);
            QCOMPARE(registry()->metaTypeFromTypeId(5).className(), first);
            QCOMPARE(registry()->metaTypeFromInvariantId(500).className(), first);
            QVERIFY(registry()->isMetaTypeId(5));
            QVERIFY(registry()->isInvariantType(500));
            registry()->removeMetaType(first);
        }
        QVERIFY(!registry()->isMetaTypeId(5));
        QVERIFY(!registry()->isInvariantType(500));
    }

    void idsAnswerForTheFirstNameOnly()
    {
        registry()->insertMetaType(QStringLiteral("A"), 1, 10);
        registry()->insertMetaType(QStringLiteral("B"), 1, 20);
        registry()->insertMetaType(QStringLiteral("C"), 2, 20);
        QCOMPARE(registry()->typeId(1), 10);
        QCOMPARE(registry()->invariantType(20), 1);
        QCOMPARE(registry()->typeId(2), 20);
    }

    void idsOfAnyValueAreKept()
    {
        registry()->insertMetaType(QStringLiteral("least"), INT_MIN, INT_MIN);
        registry()->insertMetaType(QStringLiteral("none"), 0, 0);
        registry()->insertMetaType(QStringLiteral("most"), INT_MAX, INT_MAX);
        QCOMPARE(registry()->classNameFromType(INT_MIN), QStringLiteral("least"));
        QCOMPARE(registry()->classNameFromInvariantType(0), QStringLiteral("none"));
        QCOMPARE(registry()->classNameFromInvariantType(INT_MAX), QStringLiteral("most"));
        QCOMPARE(registry()->nextInvariantId(), 10000);
    }

    void nextInvariantIdCountsFromTenThousand()
    {
        QVERIFY(registry()->insertMetaType(QStringLiteral("A"), 5));
        QCOMPARE(registry()->invariantId(QStringLiteral("A")), 10000);
        QCOMPARE(registry()->nextInvariantId(), 10001);
        QCOMPARE(registry()->nextInvariantId(), 10001);
        registry()->removeMetaType(QStringLiteral("A"));
        QCOMPARE(registry()->nextInvariantId(), 10000);
    }

    void nextInvariantIdMindsChosenIds()
    {
        registry()->insertMetaType(QStringLiteral("A"), 10001, 1);
        QCOMPARE(registry()->nextInvariantId(), 10000);
        registry()->insertMetaType(QStringLiteral("B"), 9999, 1);
        QCOMPARE(registry()->nextInvariantId(), 10000);
        registry()->insertMetaType(QStringLiteral("C"), 1);
        QCOMPARE(registry()->invariantId(QStringLiteral("C")), 10000);
        QCOMPARE(registry()->nextInvariantId(), 10002);
    }

    void nextInvariantIdRefillsGaps()
    {
        for (int i = 0; i < 10; ++i)
            registry()->insertMetaType(name(i), i);
        registry()->removeMetaType(name(7));
        registry()->removeMetaType(name(3));
        QCOMPARE(registry()->nextInvariantId(), 10003);
        registry()->insertMetaType(QStringLiteral("A"), 1);
        QCOMPARE(registry()->nextInvariantId(), 10007);
        registry()->insertMetaType(QStringLiteral("B"), 1);
        QCOMPARE(registry()->nextInvariantId(), 10010);
    }

    void sharedInvariantIdIsFreeWhenItsLastClassGoes()
    {
        registry()->insertMetaType(QStringLiteral("A"), 10000, 1);
        registry()->insertMetaType(QStringLiteral("B"), 10000, 2);
        registry()->removeMetaType(QStringLiteral("A"));
        QCOMPARE(registry()->nextInvariantId(), 10001);
        registry()->removeMetaType(QStringLiteral("B"));
        QCOMPARE(registry()->nextInvariantId(), 10000);
    }

    void registryAnswersAsAPlainMapDoes()
    {
        QRandomGenerator random(20261121);
        QMap<QString, MetaType> model;
        const auto firstName = [&model](auto&& id, int wanted) {
            for (const MetaType& type : std::as_const(model)) {
                if ((type.*id)() == wanted)
                    return type.className();
            }
            return QString();
        };
        for (int step = 0; step < 4000; ++step) {
            const QString className = name(random.bounded(40));
            const int invariantId = 9990 + random.bounded(40);
            const int typeId = random.bounded(8);
            if (random.bounded(2) == 0) {
                const bool isNew = !model.contains(className);
                if (isNew)
                    model.insert(className, MetaType(className, invariantId, typeId));
                QCOMPARE(registry()->insertMetaType(className, invariantId, typeId), isNew);
            } else if (model.remove(className) > 0) {
                registry()->removeMetaType(className);
            }
            int next = 10000;
            while (!firstName(&MetaType::invariantId, next).isNull())
                ++next;
            QCOMPARE(registry()->nextInvariantId(), next);
            QCOMPARE(names(), model.keys());
            const QString byType = firstName(&MetaType::typeId, typeId);
            QCOMPARE(registry()->isMetaTypeId(typeId), !byType.isNull());
            if (!byType.isNull())
                QCOMPARE(registry()->classNameFromType(typeId), byType);
            const QString byInvariant = firstName(&MetaType::invariantId, invariantId);
            QCOMPARE(registry()->isInvariantType(invariantId), !byInvariant.isNull());
            if (!byInvariant.isNull())
                QCOMPARE(registry()->classNameFromInvariantType(invariantId), byInvariant);
        }
    }

    // Failures

    void failedLookUpSaysWhat_data()
    {
        QTest::addColumn<Action>("lookUp");
        QTest::addColumn<QString>("english");
        QTest::addColumn<QString>("french");
        const auto row = [](const char* rowName, const Action& lookUp, const char* prefix,
                            const char16_t* english, const char16_t* french) {
            const QString start = QString::fromLatin1(prefix);
            QTest::newRow(rowName) << lookUp << start + QString::fromUtf16(english)
                                   << start + QString::fromUtf16(french);
        };
        const char16_t* const noNumber =
            u"Class [999] does not exist in the the reflexive class dictionary";
        const char16_t* const pasDeNumero =
            u"La classe [999] n'existe pas dans le dictionnaire des classes réflexives";
        const char16_t* const noName =
            u"Class [X] does not exist in the the reflexive class dictionary";
        const char16_t* const pasDeNom =
            u"La classe [X] n'existe pas dans le dictionnaire des classes réflexives";
        const char16_t* const noInvariant = u"The class invariant identifier [999] does not exist "
                                            u"in the reflexive class dictionary";
        const char16_t* const pasDInvariant = u"L'identfiant invariant de classe [999] n'existe "
                                              u"pas dans le dictionnaire des classes réflexives";
        const QString x = QStringLiteral("X");
        row(
            "metaTypeFromTypeId", [] { registry()->metaTypeFromTypeId(999); },
            "etaType MetaTypes::metaTypeFromTypeId(int) -> ", noNumber, pasDeNumero);
        row(
            "metaTypeFromInvariantId", [] { registry()->metaTypeFromInvariantId(999); },
            "MetaType MetaTypes::metaTypeFromInvariantId(int) -> ", noInvariant, pasDInvariant);
        row(
            "typeId by invariant id", [] { registry()->typeId(999); },
            "int MetaTypes::typeId(int) -> ", noInvariant, pasDInvariant);
        row(
            "invariantType", [] { registry()->invariantType(999); },
            "int MetaTypes::invariantType(int) -> ", u"[NoTypeIdInDictionnary]",
            u"[NoTypeIdInDictionnary]");
        row(
            "classNameFromType", [] { registry()->classNameFromType(999); },
            "QString MetaTypes::classNameFromType(int) -> ", noNumber, pasDeNumero);
        row(
            "classNameFromInvariantType", [] { registry()->classNameFromInvariantType(999); },
            "QString MetaTypes::classNameFromInvariantType(int) -> ", noInvariant, pasDInvariant);
        row(
            "metaTypeFromClassName", [x] { registry()->metaTypeFromClassName(x); },
            "int MetaTypes::typeId(int) -> ", noName, pasDeNom);
        row(
            "typeId by name", [x] { registry()->typeId(x); },
            "int MetaTypes::typeId(const QString&) -> ", noName, pasDeNom);
        row(
            "invariantId", [x] { registry()->invariantId(x); },
            "int MetaTypes::invariantId(const QString&) -> ", noName, pasDeNom);
        row(
            "removeMetaType", [x] { registry()->removeMetaType(x); },
            "int MetaTypes::remove(const QString&) -> ", noName, pasDeNom);
        row(
            "instanciateFromRegistry", [x] { registry()->instanciateFromRegistry(x); },
            "int MetaTypes::typeId(int) -> ", noName, pasDeNom);
    }
    void failedLookUpSaysWhat()
    {
        QFETCH(Action, lookUp);
        registry()->insertMetaType(QStringLiteral("x"), 998, 1000);
        QTEST(failureText(lookUp), "english");
        useLanguage(QStringLiteral("fr_FR"));
        QTEST(failureText(lookUp), "french");
        QCOMPARE(names(), QStringList{QStringLiteral("x")});
    }

    void placeMarkersInANameStay()
    {
        QCOMPARE(failureText([] { registry()->typeId(QStringLiteral("%1%2")); }),
                 QStringLiteral("int MetaTypes::typeId(const QString&) -> Class [%1%2] does not "
                                "exist in the the reflexive class dictionary"));
    }

    void textMayComeFromAnApplicationsBundle()
    {
        BundleDirectory directory;
        QVERIFY(directory.write(QStringLiteral("app"), QStringLiteral("xx_YY"),
                                "NoTypeIdInDictionnary=type %1?\n"));
        QVERIFY(Translator::getInstance()->insertBundle(directory.path(), QStringLiteral("app"),
                                                        QStringLiteral("xx_YY")));
        Translator::getInstance()->setDefaultBundleKey(QStringLiteral("kez"),
                                                       QStringLiteral("xx_YY"));
        QCOMPARE(failureText([] { registry()->invariantType(7); }),
                 QStringLiteral("int MetaTypes::invariantType(int) -> type 7?"));
    }

    // Instances

    void instanceOfARegisteredClass()
    {
        const int typeId = qRegisterMetaType<Receipt>("Receipt");
        registry()->insertMetaType(QStringLiteral("Alias"), typeId);
        void* const first = registry()->instanciateFromRegistry(QStringLiteral("Alias"));
        void* const second = registry()->instanciateFromRegistry(QStringLiteral("Alias"));
        QVERIFY(first != nullptr && second != nullptr && first != second);
        QCOMPARE(static_cast<Receipt*>(first)->text, QStringLiteral("new"));
        QMetaType(typeId).destroy(first);
        QMetaType(typeId).destroy(second);
    }

    void idUnknownToQtMakesNoInstance_data()
    {
        QTest::addColumn<int>("typeId");
        QTest::newRow("none") << 0;
        QTest::newRow("negative") << -5;
        QTest::newRow("never given") << 123456789;
        QTest::newRow("greatest") << INT_MAX;
        QTest::newRow("least") << INT_MIN;
        QTest::newRow("void") << int(QMetaType::Void);
        QTest::newRow("a class that takes arguments") << qRegisterMetaType<WithoutDefault>();
    }
    void idUnknownToQtMakesNoInstance()
    {
        QFETCH(int, typeId);
        registry()->insertMetaType(QStringLiteral("A"), typeId);
        QCOMPARE(registry()->instanciateFromRegistry(QStringLiteral("A")), nullptr);
    }

    void classKnownToQtNeedsNoRegistration()
    {
        for (const QString& noLibrary : {QString(), QStringLiteral("")}) {
            void* const made =
                MetaTypes::instantiateFromMetaTypes(QStringLiteral("QByteArray"), noLibrary);
            QVERIFY(made != nullptr);
            QVERIFY(static_cast<QByteArray*>(made)->isEmpty());
            QMetaType::fromType<QByteArray>().destroy(made);
        }
    }

    void libraryMayBeLeftOut()
    {
        void* const made = MetaTypes::instantiateFromMetaTypes(QStringLiteral("QByteArray"));
        QVERIFY(made != nullptr);
        QMetaType::fromType<QByteArray>().destroy(made);
    }

    void nameWithANulInsideIsUnknown_data()
    {
        QTest::addColumn<QString>("name");
        QTest::newRow("after the name") << QStringLiteral("QByteArray") + QChar(0);
        QTest::newRow("followed by more") << QStringLiteral("QByteArray") + QChar(0) + u'x';
        QTest::newRow("in front") << QChar(0) + QStringLiteral("QByteArray");
    }
    void nameWithANulInsideIsUnknown()
    {
        QFETCH(QString, name);
        QCOMPARE(failureText([&] { MetaTypes::instantiateFromMetaTypes(name, QString()); }),
                 InstantiatePrefix +
                     QStringLiteral("Reflexive class not declared in the metatype "
                                    "management mechanism - [") +
                     name + QLatin1Char(']'));
    }

    void registeredNameThatQtDoesNotKnowMakesNoInstance()
    {
        registry()->insertMetaType(QStringLiteral("Alias"), QMetaType::QString);
        QCOMPARE(failureText([] {
                     MetaTypes::instantiateFromMetaTypes(QStringLiteral("Alias"), QString());
                 }),
                 InstantiatePrefix + QStringLiteral("Reflexive class not declared in the metatype "
                                                    "management mechanism - [Alias]"));
    }

    void unknownClassIsNamed()
    {
        useLanguage(QStringLiteral("fr_FR"));
        QCOMPARE(failureText([] {
                     MetaTypes::instantiateFromMetaTypes(QStringLiteral(u"%1 Été"), QString());
                 }),
                 InstantiatePrefix +
                     QStringLiteral(u"Classe réflexive non déclarée auprès du mécanisme de gestion "
                                    u"des méta-types - [%1 Été]"));
    }

    // Runs before the test below, which loads the library.
    void classOfALibraryIsUnknownWithoutIt()
    {
        QVERIFY(!QMetaType::fromName("PluginOrder").isValid());
        QVERIFY(!failureText([] {
                     MetaTypes::instantiateFromMetaTypes(QStringLiteral("PluginOrder"), QString());
                 }).isEmpty());
    }

    void libraryIsLoadedAndStaysLoaded()
    {
        const QString library = QStringLiteral(ORDER_PLUGIN);
        const QString className = QStringLiteral("PluginOrder");
        for (const QString& path : {library, library, QString()}) {
            void* const made = MetaTypes::instantiateFromMetaTypes(className, path);
            QVERIFY(made != nullptr);
            QCOMPARE(static_cast<PluginOrder*>(made)->quantity, 42);
            QMetaType::fromName("PluginOrder").destroy(made);
        }
    }

    void libraryThatCannotBeLoaded_data()
    {
        QTest::addColumn<QByteArray>("content");
        QTest::newRow("empty") << QByteArray("");
        QTest::newRow("text") << QByteArray("not a library\n");
        QTest::newRow("only the head of one") << readFile(QStringLiteral(ORDER_PLUGIN)).left(64);
        QTest::newRow("noise") << QByteArray(5000, '\xff');
    }
    void libraryThatCannotBeLoaded()
    {
        QFETCH(QByteArray, content);
        const QTemporaryDir directory;
        const QString path = directory.filePath(QStringLiteral("lib%2.so"));
        QVERIFY(writeFile(path, content));
        // The class is known, but the library is loaded first.
        const QString text = failureText(
            [&] { MetaTypes::instantiateFromMetaTypes(QStringLiteral("QString"), path); });
        const QString start = InstantiatePrefix +
                              QStringLiteral("Failed to load dynamic library ") + path +
                              QStringLiteral(" - ");
        QVERIFY2(text.startsWith(start), qPrintable(text));
        QVERIFY(text.size() > start.size());
    }

    void directoryIsNotALibrary()
    {
        const QTemporaryDir directory;
        const QString text = failureText([&] {
            MetaTypes::instantiateFromMetaTypes(QStringLiteral("QString"), directory.path());
        });
        QVERIFY2(text.startsWith(InstantiatePrefix +
                                 QStringLiteral("Failed to load dynamic library ") +
                                 directory.path() + QStringLiteral(" - ")),
                 qPrintable(text));
    }

    void missingLibraryIsNotReadable()
    {
        const QTemporaryDir directory;
        const QString path = directory.filePath(QStringLiteral("libnone.so"));
        QCOMPARE(failureText(
                     [&] { MetaTypes::instantiateFromMetaTypes(QStringLiteral("QString"), path); }),
                 InstantiatePrefix + QStringLiteral("File [%1] isn't readable").arg(path));
    }

    void libraryThatIsCheckedIsTheOneLoaded()
    {
        const QTemporaryDir directory;
        const QString name = QStringLiteral("libm.so.6");
        QVERIFY(writeFile(directory.filePath(name), "this is not a library"));
        const QString before = QDir::currentPath();
        QVERIFY(QDir::setCurrent(directory.path()));
        const QString text = failureText(
            [&] { MetaTypes::instantiateFromMetaTypes(QStringLiteral("QString"), name); });
        QVERIFY(QDir::setCurrent(before));
        QVERIFY2(text.startsWith(InstantiatePrefix +
                                 QStringLiteral("Failed to load dynamic library libm.so.6 - ")),
                 qPrintable(text));
    }

    void fifoIsRefusedWithoutWaiting()
    {
        const QTemporaryDir directory;
        const QString path = directory.filePath(QStringLiteral("libfifo.so"));
        QCOMPARE(mkfifo(QFile::encodeName(path).constData(), 0600), 0);
        QCOMPARE(failureText(
                     [&] { MetaTypes::instantiateFromMetaTypes(QStringLiteral("QString"), path); }),
                 InstantiatePrefix + QStringLiteral("File [%1] isn't readable").arg(path));
    }

    void unreadableLibraryIsRefused()
    {
        const QTemporaryDir directory;
        const QString path = directory.filePath(QStringLiteral("libclosed.so"));
        QVERIFY(writeFile(path, readFile(QStringLiteral(ORDER_PLUGIN))));
        QVERIFY(openToEverybody(directory.path()));
        QVERIFY(QFile::setPermissions(path, QFile::Permissions()));
        const ChildResult result = runChild({path});
        QCOMPARE(result.exitCode, 0);
        QCOMPARE(QString::fromUtf8(result.out),
                 InstantiatePrefix + QStringLiteral("File [%1] isn't readable").arg(path));
    }

    // Size and threads

    void manyClassesAreRegisteredInNoTime()
    {
        constexpr int Count = 20000;
        bool isRight = true;
        for (int i = 0; i < Count; ++i)
            isRight &= registry()->insertMetaType(name(i), i / 2);
        QVERIFY(isRight);
        QCOMPARE(registry()->size(), Count);
        for (int i = 0; i < Count; ++i) {
            isRight &= registry()->classNameFromInvariantType(10000 + i) == name(i);
            isRight &= registry()->classNameFromType(i / 2) == name(i / 2 * 2);
        }
        QVERIFY(isRight);
        // One gap after the other is refilled; each search takes the same short time.
        for (int i = 0; i < Count; ++i) {
            registry()->removeMetaType(name(i));
            isRight &= registry()->nextInvariantId() == 10000 + i;
            isRight &= registry()->insertMetaType(name(i), i);
            isRight &= registry()->nextInvariantId() == 10000 + Count;
        }
        QVERIFY(isRight);
    }

    void manyClassesOfOneIdAreRemovedInNoTime()
    {
        constexpr int Count = 20000;
        bool isRight = true;
        for (int i = 0; i < Count; ++i)
            isRight &= registry()->insertMetaType(name(i), 10000, 1);
        for (int i = 0; i < Count; ++i) {
            isRight &= registry()->classNameFromType(1) == name(i);
            registry()->removeMetaType(name(i));
        }
        QVERIFY(isRight);
        QCOMPARE(registry()->nextInvariantId(), 10000);
    }

    void threadsMayLookUpTogether()
    {
        constexpr int Count = 200;
        for (int i = 0; i < Count; ++i)
            registry()->insertMetaType(name(i), i);
        std::atomic<int> right = 0;
        std::vector<std::unique_ptr<QThread>> threads;
        for (int number = 0; number < 4; ++number) {
            threads.emplace_back(QThread::create([&right] {
                for (int i = 0; i < Count; ++i) {
                    right += registry()->classNameFromType(i) == name(i) &&
                             registry()->typeId(10000 + i) == i &&
                             registry()->nextInvariantId() == 10000 + Count;
                }
            }));
            threads.back()->start();
        }
        for (const auto& thread : threads)
            QVERIFY(thread->wait());
        QCOMPARE(right.load(), 4 * Count);
    }
};

KEZ_TEST_MAIN_WITH_CHILDREN(TestMetaTypes, child)
#include "tst_metatypes.moc"
