// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "support/files.h"

#include <kez/langbundle.h>
#include <kez/translator.h>

#include <QSet>
#include <QTest>

#include <algorithm>
#include <iterator>

namespace {

struct Entry {
    QStringView key;
    QStringView english;
    QStringView french;
};

// The library's messages, letter for letter, slips included, in the order of the French file.
// clang-format off
constexpr Entry Catalogue[] = {
    {u"AttributeNotFound", u"Attribute [%1] does not exist", u"L'attribut [%1] n'existe pas"},
    {u"Bytes", u"Bytes", u"Octets"},
    {u"CannotWriteLine", u"Failed to write line [%1]", u"Echec d'écriture de la ligne [%1]"},
    {u"ClassAlreadyRecorded", u"Class [%1] is already registered", u"La classe [%1] est déjà enregistrée"},
    {u"ClassNotRegisterable", u"Unregisterable class meta-type", u"Meta-type de la classe non enregistrable"},
    {u"ClassNotRegistered", u"Reflexive class not declared in the metatype management mechanism", u"Classe réflexive non déclarée auprès du mécanisme de gestion des méta-types"},
    {u"ConfParamInvalid", u"Configuration parameter [%1] is invalid", u"Le paramètre de configuration [%1] est invalide"},
    {u"ConfParamNotFound", u"Configuration parameter [%1] does not exist", u"Le paramètre de configuration [%1] n'existe pas"},
    {u"CannotDeleteFile", u"File [%1] cannot be deleted", u"Le fichier [%1] ne peut pas être supprimé"},
    {u"CannotDeleteSubdir", u"Subdirectory [%1] cannot be deleted", u"Le sous-répertoire [%1] ne peut pas être supprimé"},
    {u"Closed", u"Closed", u"Fermé"},
    {u"Days", u"Days", u"Jours"},
    {u"DefaultCopyright", u"(c) Vandrel", u"(c) Vandrel"},
    {u"DirDoesnExist", u"Directory [%1] does not exist", u"Le répertoire [%1] n'existe pas"},
    {u"DirAccessFailure", u"Access to directory [%1] is impossible or file rights are insufficient.", u"L'accès au répertoire [%1] est impossible ou les droits du compte utilisé sont insuffisants"},
    {u"DefaultLogBanner", u"Start of track recording", u"Debut de l'enregistrement des traces"},
    {u"DirNotReadable", u"Directory [%1] is not writable", u"Le répertoire [%1] ne peut pas être lu"},
    {u"DuplicateProperty", u"Property [%1] already exists (duplicate prohibited)", u"La propriété [%1] existe déjà (duplication interdite)"},
    {u"EmptyXml", u"XML descriptor is an undefined or empty string", u"Le descripteur XML est une chaîne indéfinie ou vide"},
    {u"ErrorEncountered", u"Error encountered: %1", u"Erreur rencontrée : %1"},
    {u"False", u"false", u"faux"},
    {u"FileAlreadyExists", u"File [%1] already exists", u"Le fichier [%1] existe déjà"},
    {u"FileAppendFailure", u"Failed to open file [%1] in append mode", u"Echec d'ouverture du fichier [%1] en mode ajout"},
    {u"FileCreatingFailure", u"Failed to open file [%1] in create mode", u"Echec d'ouverture du fichier [%1] en mode création"},
    {u"FileDescriptorCannotBeNull", u"File descriptor cannot be a null pointer", u"Le descripteur de fichier ne peut pas être un pointeur nul"},
    {u"FileDescriptorGettingFailure", u"Failed to get a system file descriptor", u"Echec d'obtention d'un descripteur de fichier système"},
    {u"FileDoesntExist", u"File [%1] doesn't exist", u"Le fichier [%1] n'existe pas"},
    {u"FileIsntDirectory", u"File [%1] is not a directory", u"Le fichier [%1] n'est pas un répertoire"},
    {u"FileIsntRegularFile", u"File [%1] is not a regular file", u"Le fichier [%1] n'est pas un fichier régulier"},
    {u"FileNotOpened", u"File [%1] not open", u"Fichier [%1] non ouvert"},
    {u"FileNotReadable", u"File [%1] isn't readable", u"Le fichier [%1] ne peut pas être lu"},
    {u"FileNotWritable", u"File [%1] cannot be modified", u"Le fichier [%1] ne peut pas être modifié"},
    {u"IllegalParameter", u"Illegal parameter [%1]: %2", u"Paramètre [%1] invalide : %2"},
    {u"InitialJsonStream", u"Initial JSON stream (before interpretation)", u"Flux JSON initial (avant interprétation)"},
    {u"InvalidParameter", u"Invalid parameter \"%1\"=[%2]", u"Paramètre \"%1\"=[%2] invalide"},
    {u"InvariantTypeNotDeclared", u"The type invariant identifier of the reflexive class [%1] was not registered in the MetaTypes singleton", u"L'identifiant invariant de type de la classe réflexive [%1] n'a pas été enregsitré dans le singleton MetaTypes"},
    {u"LibLoadingFailure", u"Failed to load dynamic library %1", u"Echec du chargement de la librairie dynamique %1"},
    {u"LogLockFailure", u"[log lock failed for write]", u"[échec verrouillage journal pour écriture]"},
    {u"LogNotInitialized", u"The log has not yet been initialized", u"Le journal n'a pas encore été initialisé"},
    {u"LogNoTrace", u"No log recording: parameter \"log.filename\" not declared in the configuration", u"Pas d'enregistrment des traces : paramètre \"log.filename\" non déclaré dans la configuration"},
    {u"LogRotationFailure", u"[log file rotation failure]", u"[échec rotation fichier journal]"},
    {u"MethodNotImplemented", u"Method [%1] has not been implemented", u"La méthode [%1] n'a pas été implémentée"},
    {u"Multimedia", u"Multimédia", u"Multimédia"},
    {u"No", u"no", u"non"},
    {u"NoMetaTypeInDictionnary", u"Class [%1] does not exist in the the reflexive class dictionary", u"La classe [%1] n'existe pas dans le dictionnaire des classes réflexives"},
    {u"NoInvariantIdIndictionnary", u"The class invariant identifier [%1] does not exist in the reflexive class dictionary", u"L'identfiant invariant de classe [%1] n'existe pas dans le dictionnaire des classes réflexives"},
    {u"NotABoolean", u"his is not a boolean", u"ce n'est pas un booléen"},
    {u"NotAnArray", u"this is not an array", u"ce n'est pas un tableau"},
    {u"NotAnInteger", u"this is not an integer", u"ce n'est pas un entier"},
    {u"NotDirectory", u"File [%1] is not a directory support", u"Le fichier [%1] n'est pas le support d'un répertoire"},
    {u"NotFileOrDir", u"File [%1] is neither a directory nor a regular file", u"Le fichier [%1] n'est ni celui d'un répertoire ni celui d'un fichier régulier"},
    {u"NotImplementedYet", u"Method not yet implemented", u"Méthode non encore implémentée"},
    {u"NotReflectiveClass", u"The class is not reflective", u"La classe n'est réflexive"},
    {u"NotValidEnum", u"The string expression [%1] is not a valid value for the enumeration [%2]", u"L'expresison chaine [%1] n'est pas une valeur valide pour l'énumération [%2]"},
    {u"Opened", u"Opened", u"Ouvert"},
    {u"ParkPageLoadingFailure", u"Failed to load parking page [%1]", u"Echec du chargement de la page parking [%1]"},
    {u"PropertyAlreadyExists", u"Property [%1] already exists", u"La propriété [%1] existe déjà"},
    {u"PropertyNotFound", u"Property [%1] does not exist", u"La propriété [%1] n'existe pas"},
    {u"RandomizerNotInitialized", u"Random generator not initialized", u"Générateur d'aléa non initialisé"},
    {u"TraceNotSaved", u"[not saved]", u"[non sauvegardé]"},
    {u"True", u" true", u"vrai"},
    {u"UndefinedClass", u"Instantiable class [%1] is not declared", u"La classe instantiable [%1] n'est pas déclarée"},
    {u"UndefinedClassFactory", u"Class [%1] does not have a class factory", u"La classe [%1] ne dispose pas de fabrique de classe"},
    {u"UndefinedConfig", u"The configuration object is not defined (null pointer)", u"L'objet de configuration n'est pas défini (pointeur nul)"},
    {u"UnknownMetaType", u"Unknown metatype [%1] (metatype class registered?)", u"Méta-type [%1] inconnu (méta-type de la classe enregistré ?)"},
    {u"UnsupportedPlatform", u"Unsupported platform", u"Plate-forme non supportée"},
    {u"Yes", u"yes", u"oui"},
};
// clang-format on

const QString Directory = QStringLiteral(":resources/lang");
const QString Module = QStringLiteral("kez");

QString textIn(const Entry& entry, const QString& lang)
{
    return (lang == QLatin1String("fr_FR") ? entry.french : entry.english).toString();
}

QStringList frenchOrder()
{
    QStringList keys;
    for (const Entry& entry : Catalogue)
        keys.append(entry.key.toString());
    return keys;
}

void moveBefore(QStringList& keys, const QString& moved, const QString& next)
{
    keys.removeOne(moved);
    keys.insert(keys.indexOf(next), moved);
}

QStringList englishOrder()
{
    QStringList keys = frenchOrder();
    moveBefore(keys, QStringLiteral("LogLockFailure"), QStringLiteral("InvariantTypeNotDeclared"));
    moveBefore(keys, QStringLiteral("NotAnArray"), QStringLiteral("NotABoolean"));
    return keys;
}

QStringList orderIn(const QString& lang)
{
    return lang == QLatin1String("fr_FR") ? frenchOrder() : englishOrder();
}

const Entry& entryOf(const QString& key)
{
    return *std::find_if(std::begin(Catalogue), std::end(Catalogue),
                         [&](const Entry& entry) { return entry.key == key; });
}

QByteArray fileIn(const QString& lang)
{
    QString text = QStringLiteral("module=kez;lang=%1\n").arg(lang);
    for (const QString& key : orderIn(lang))
        text += key + QLatin1Char('=') + textIn(entryOf(key), lang) + QLatin1Char('\n');
    return text.toUtf8();
}

QByteArray embeddedFile(const QString& lang)
{
    return readFile(QStringLiteral(":resources/lang/kez_%1.lang").arg(lang));
}

void addLanguages()
{
    QTest::addColumn<QString>("lang");
    QTest::newRow("English") << QStringLiteral("en_US");
    QTest::newRow("French") << QStringLiteral("fr_FR");
}

} // namespace

/// The library's own bundles, as compiled in.
class TestCatalogue : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void everyTextIsAsStated_data();
    void everyTextIsAsStated();
    void bundleHoldsTheKeysAndNoOthers_data() { addLanguages(); }
    void bundleHoldsTheKeysAndNoOthers();
    void fileIsAsStatedByteForByte_data() { addLanguages(); }
    void fileIsAsStatedByteForByte();
    void linesStandInTheStatedOrder_data() { addLanguages(); }
    void linesStandInTheStatedOrder();
    void linesEndWithOneNewlineAndNoneIsBlankOrComment_data() { addLanguages(); }
    void linesEndWithOneNewlineAndNoneIsBlankOrComment();
    void defaultLanguageAnswersFromItsFile_data() { addLanguages(); }
    void defaultLanguageAnswersFromItsFile();
    void placeMarkersAreTheSameInBothLanguages();
    void invalidParameterIsCompleted();
    void slipsStay();
    void keyThatIsMissingReadsAsBracketedKey_data() { addLanguages(); }
    void keyThatIsMissingReadsAsBracketedKey();
};

void TestCatalogue::initTestCase()
{
    for (const char* lang : {"en_US", "fr_FR"})
        Translator::getInstance()->insertBundle(Directory, Module, QString::fromLatin1(lang));
}

void TestCatalogue::everyTextIsAsStated_data()
{
    QTest::addColumn<QString>("key");
    QTest::addColumn<QString>("english");
    QTest::addColumn<QString>("french");
    for (const Entry& entry : Catalogue) {
        QTest::newRow(entry.key.toString().toLatin1().constData())
            << entry.key.toString() << entry.english.toString() << entry.french.toString();
    }
}

void TestCatalogue::everyTextIsAsStated()
{
    QFETCH(QString, key);
    QFETCH(QString, english);
    QFETCH(QString, french);
    const Translator* translator = Translator::getInstance();
    QCOMPARE(translator->string(key, Module, QStringLiteral("en_US")), english);
    QCOMPARE(translator->string(key, Module, QStringLiteral("fr_FR")), french);
}

void TestCatalogue::bundleHoldsTheKeysAndNoOthers()
{
    QFETCH(QString, lang);
    const auto bundle = LangBundle::load(Directory, Module, lang);
    QCOMPARE(bundle->size(), 67);
    QStringList keys = frenchOrder();
    keys.sort();
    QCOMPARE(QStringList(bundle->keyBegin(), bundle->keyEnd()), keys);
    QCOMPARE(QSet<QString>(keys.begin(), keys.end()).size(), 67);
    QCOMPARE(bundle->path(), Directory);
    QCOMPARE(bundle->bundleFileName(), QStringLiteral(":resources/lang/kez_%1.lang").arg(lang));
}

void TestCatalogue::fileIsAsStatedByteForByte()
{
    QFETCH(QString, lang);
    QCOMPARE(embeddedFile(lang), fileIn(lang));
}

void TestCatalogue::linesStandInTheStatedOrder()
{
    QFETCH(QString, lang);
    QStringList keys;
    const QStringList lines = QString::fromUtf8(embeddedFile(lang)).split(QLatin1Char('\n'));
    for (const QString& line : lines.mid(1)) {
        if (!line.isEmpty())
            keys.append(line.left(line.indexOf(QLatin1Char('='))));
    }
    QCOMPARE(lines.first(), QStringLiteral("module=kez;lang=%1").arg(lang));
    QCOMPARE(keys, orderIn(lang));
}

void TestCatalogue::linesEndWithOneNewlineAndNoneIsBlankOrComment()
{
    QFETCH(QString, lang);
    const QByteArray bytes = embeddedFile(lang);
    QVERIFY(!bytes.startsWith("\xef\xbb\xbf"));
    QVERIFY(!bytes.contains('\r'));
    QVERIFY(bytes.endsWith('\n'));
    QVERIFY(!bytes.contains("\n\n"));
    QVERIFY(!bytes.contains("\n#"));
    QCOMPARE(bytes.count('\n'), 68);
}

void TestCatalogue::defaultLanguageAnswersFromItsFile()
{
    QFETCH(QString, lang);
    Translator::getInstance()->setDefaultBundleKey(Module, lang);
    for (const Entry& entry : Catalogue)
        QCOMPARE(Translator::getInstance()->string(entry.key.toString()), textIn(entry, lang));
}

void TestCatalogue::placeMarkersAreTheSameInBothLanguages()
{
    const Translator* translator = Translator::getInstance();
    for (const Entry& entry : Catalogue) {
        const QString key = entry.key.toString();
        const QString english = translator->string(key, Module, QStringLiteral("en_US"));
        const QString french = translator->string(key, Module, QStringLiteral("fr_FR"));
        for (const char* marker : {"%1", "%2", "%3"})
            QCOMPARE(french.count(QLatin1String(marker)), english.count(QLatin1String(marker)));
    }
}

void TestCatalogue::invalidParameterIsCompleted()
{
    Translator* translator = Translator::getInstance();
    const QString key = QStringLiteral("InvalidParameter");
    const QString name = QStringLiteral("log.maxsize");
    const QString value = QStringLiteral("abc");
    QCOMPARE(translator->string(key, Module, QStringLiteral("en_US")).arg(name, value),
             QStringLiteral("Invalid parameter \"log.maxsize\"=[abc]"));
    QCOMPARE(translator->string(key, Module, QStringLiteral("fr_FR")).arg(name, value),
             QStringLiteral("Paramètre \"log.maxsize\"=[abc] invalide"));
}

void TestCatalogue::slipsStay()
{
    const Translator* translator = Translator::getInstance();
    const auto english = [&](const char* key) {
        return translator->string(QString::fromLatin1(key), Module, QStringLiteral("en_US"));
    };
    const auto french = [&](const char* key) {
        return translator->string(QString::fromLatin1(key), Module, QStringLiteral("fr_FR"));
    };
    QCOMPARE(english("True"), QStringLiteral(" true"));
    QCOMPARE(french("True"), QStringLiteral("vrai"));
    QCOMPARE(english("NotABoolean"), QStringLiteral("his is not a boolean"));
    QVERIFY(english("DirNotReadable").endsWith(QStringLiteral("is not writable")));
    QVERIFY(english("NoMetaTypeInDictionnary").contains(QStringLiteral("in the the")));
    QCOMPARE(english("Multimedia"), QStringLiteral("Multimédia"));
    QCOMPARE(french("Multimedia"), QStringLiteral("Multimédia"));
    QVERIFY(french("InvariantTypeNotDeclared").contains(QStringLiteral("enregsitré")));
    QVERIFY(french("NoInvariantIdIndictionnary").contains(QStringLiteral("identfiant")));
    QVERIFY(french("NotValidEnum").contains(QStringLiteral("expresison")));
    QVERIFY(french("LogNoTrace").contains(QStringLiteral("enregistrment")));
}

void TestCatalogue::keyThatIsMissingReadsAsBracketedKey()
{
    QFETCH(QString, lang);
    Translator* translator = Translator::getInstance();
    translator->setDefaultBundleKey(Module, lang);
    // The catalogue holds the first two with a slip, and the third with a capital.
    for (const char* key : {"DirDoesntExist", "NoInvariantIdInDictionnary", "yes"}) {
        const QString name = QString::fromLatin1(key);
        QCOMPARE(translator->string(name), QStringLiteral("[%1]").arg(name));
    }
}

QTEST_GUILESS_MAIN(TestCatalogue)
#include "tst_catalogue.moc"
