// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include <kez/simpledom.h>

#include "support/bundledirectory.h"
#include "support/failuretext.h"
#include "support/files.h"
#include "support/language.h"

#include <QRandomGenerator>
#include <QStringEncoder>
#include <QTemporaryDir>
#include <QTest>
#include <QThread>
#include <QXmlStreamReader>

#include <algorithm>
#include <memory>
#include <utility>

#include <unistd.h>

#ifdef __SANITIZE_ADDRESS__
constexpr bool IsSanitized = true;
#else
constexpr bool IsSanitized = false;
#endif

namespace {

using Element = std::shared_ptr<XmlElement>;

/// An element that counts the existing ones.
class Counted : public XmlElement {
public:
    explicit Counted(const QString& name, const Element& parent = nullptr)
        : XmlElement(name, parent)
    {
        ++s_count;
    }
    ~Counted() override { --s_count; }

    static inline int s_count = 0;
};

Element counted(const char* name, const Element& parent = nullptr)
{
    return std::make_shared<Counted>(QString::fromLatin1(name), parent);
}

/// Observes an element of a read tree without holding it.
std::weak_ptr<Properties> watch(const Element& element)
{
    return element->attributes();
}

Element first(const SimpleDom& dom, const char* name)
{
    return dom.elementsByName(QString::fromUtf8(name)).value(0);
}

QString readingFailure(const QString& xml)
{
    return failureText([&] { SimpleDom{xml}; });
}

/// What the stream reader reports for the document.
QString readersError(QXmlStreamReader& reader)
{
    while (!reader.atEnd())
        reader.readNext();
    return reader.errorString();
}

/// A file with these bytes, opened for reading.
class OpenFile {
public:
    explicit OpenFile(const QByteArray& bytes)
    {
        const QString path = _directory.filePath(QStringLiteral("document.xml"));
        _isOpen = writeFile(path, bytes);
        _file.setFileName(path);
        _isOpen = _isOpen && _file.open(QIODevice::ReadOnly);
    }
    bool isOpen() const { return _isOpen; }
    QFile* file() { return &_file; }

private:
    QTemporaryDir _directory;
    QFile _file;
    bool _isOpen = false;
};

/// The reading end of a pipe that contains these bytes and is closed after them.
class Pipe {
public:
    explicit Pipe(const QByteArray& bytes)
    {
        int ends[2];
        if (pipe(ends) != 0)
            return;
        const bool isWritten = write(ends[1], bytes.constData(), size_t(bytes.size())) ==
                               static_cast<ssize_t>(bytes.size());
        close(ends[1]);
        _isOpen = _file.open(ends[0], QIODevice::ReadOnly, QFileDevice::AutoCloseHandle);
        _isOpen = _isOpen && isWritten;
    }
    bool isOpen() const { return _isOpen; }
    QFile* file() { return &_file; }

private:
    QFile _file;
    bool _isOpen = false;
};

QByteArray encoded(const QString& text, QStringConverter::Encoding encoding)
{
    QStringEncoder encoder(encoding, QStringConverter::Flag::WriteBom);
    return encoder.encode(text);
}

qint64 residentBytes()
{
    const QList<QByteArray> fields = readFile(QStringLiteral("/proc/self/statm")).split(' ');
    return fields.value(1).toLongLong() * sysconf(_SC_PAGESIZE);
}

constexpr std::pair<const char*, QStringConverter::Encoding> Encodings[] = {
    {"UTF-8", QStringConverter::Utf8},       {"UTF-16LE", QStringConverter::Utf16LE},
    {"UTF-16BE", QStringConverter::Utf16BE}, {"UTF-32LE", QStringConverter::Utf32LE},
    {"UTF-32BE", QStringConverter::Utf32BE},
};

/// Reads up to three bytes in every way.
void checkFewBytes(const QByteArray& bytes, QFile& file)
{
    const QByteArray content = bytes.startsWith("\xef\xbb\xbf") ? bytes.mid(3) : bytes;
    const bool isMark = bytes == "\xff\xfe" || bytes == "\xfe\xff";
    const bool isPrologue = isMark || std::all_of(content.begin(), content.end(), [](char byte) {
                                return byte == ' ' || byte == '\t' || byte == '\r' || byte == '\n';
                            });
    const auto check = [&](const char* way, const auto& read) {
        const QString text = failureText(read);
        const bool isRight = isPrologue
                                 ? text.isNull()
                                 : text.startsWith(QStringLiteral("***** Error encountered: "));
        QVERIFY2(isRight, qPrintable(QString::fromLatin1(way) + QLatin1Char(' ') +
                                     QString::fromLatin1(bytes.toHex()) + QLatin1Char(' ') + text));
    };
    QVERIFY(file.resize(0) && file.seek(0) && file.write(bytes) == bytes.size() && file.seek(0));
    check("file", [&] { SimpleDom{&file}; });
    check("device", [&] {
        QVERIFY(file.seek(0));
        QXmlStreamReader reader(&file);
        SimpleDom(QStringLiteral("<x/>")).readDom(reader);
    });
    if (isMark) // of UTF-16: without device it counts as markup
        return;
    check("bytes", [&] {
        QXmlStreamReader reader(bytes);
        SimpleDom(QStringLiteral("<x/>")).readDom(reader);
    });
}

const QString Declaration = QStringLiteral("<?xml version=\"1.0\" encoding=\"UTF-8\"?>");

} // namespace

class TestSimpleDom : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void init() { useLanguage(QStringLiteral("en_US")); }

    void cleanup() { QCOMPARE(Counted::s_count, 0); }

    // What is kept

    void document_data()
    {
        QTest::addColumn<QString>("xml");
        QTest::addColumn<QString>("text");
        const auto row = [](const char* name, const char16_t* xml, const char16_t* text) {
            QTest::newRow(name) << QString::fromUtf16(xml) << QString::fromUtf16(text);
        };
        row("an empty root", u"<root/>", u"<root/>");
        row("an empty root with an end tag", u"<root></root>", u"<root/>");
        row("comments", u"<!--a--><root><!-- b --><item>Hello<!-- c --></item></root><!-- d -->",
            u"<root><item>Hello</item></root>");
        row("declaration, document type, instructions",
            u"<?xml version=\"1.0\"?>\n<!DOCTYPE root [<!ELEMENT root ANY>]>\n<?do this?>\n"
            u"<root><?and that?><a/></root>\n<?end?>\n",
            u"<root><a/></root>");
        row("indentation", u"<root>\n\t<a>\r\n  <b> </b> </a>\n</root>\n",
            u"<root><a><b/></a></root>");
        row("blanks around a text stay", u"<a>\n  Hello \n</a>", u"<a>\n  Hello \n</a>");
        row("no-break spaces are a text", u"<a>\u00a0</a>", u"<a>\u00a0</a>");
        row("text between children", u"<a>one<b/>two<c/> </a>", u"<a>>two</a>");
        row("text before a child", u"<a>one<b/></a>", u"<a>>one</a>");
        row("text around a comment", u"<a>one<!-- -->two</a>", u"<a>two</a>");
        row("text around an instruction", u"<a>one<?x?>two</a>", u"<a>two</a>");
        row("CDATA", u"<a><![CDATA[1 < 2 & 3]]></a>", u"<a>1 < 2 & 3</a>");
        row("CDATA of blanks", u"<a>x<![CDATA[  ]]></a>", u"<a>x</a>");
        row("CDATA after a text", u"<a>x<![CDATA[y]]></a>", u"<a>y</a>");
        row("references to characters", u"<a b=\"&lt;&#233;&quot;\">&amp;&#x41;</a>",
            u"<a b=\"<é\"\">&A</a>");
        row("declared entities",
            u"<!DOCTYPE a [<!ENTITY who \"you\">]><a b=\"&who;\">for &who;</a>",
            u"<a b=\"you\">for you</a>");
        row("prefixes", u"<x:a xmlns:x=\"urn:x\" x:k=\"1\" xmlns=\"urn:d\"><x:b/><b/></x:a>",
            u"<a k=\"1\"><b/><b/></a>");
        row("attributes", u"<a z='1' A=\"2\" a=\"\"/>", u"<a A=\"2\" a=\"\" z=\"1\"/>");
        row("not ASCII", u"<été à=\"ç\">日本 \U0001F600</été>",
            u"<été à=\"ç\">日本 \U0001F600</été>");
        row("a declared encoding does not count for a string",
            u"<?xml version=\"1.0\" encoding=\"ISO-8859-1\"?><a>é</a>", u"<a>é</a>");
    }
    void document()
    {
        QFETCH(QString, xml);
        QTEST(SimpleDom(xml).toString(false), "text");
    }

    void indentedWhateverTheSourceWas()
    {
        const QString expected = QStringLiteral("<root>\n    <item a=\"1\"\n          b=\"2\">\n"
                                                "        Hello\n    </item>\n    <end/>\n</root>");
        for (const char* xml :
             {"<root><item b=\"2\" a=\"1\">Hello</item><end/></root>",
              "<root>\n<item\n b='2'   a='1'>Hello</item>\n\n\t<end />   </root>"})
            QCOMPARE(SimpleDom(QString::fromLatin1(xml)).toString(true), expected);
    }

    void indentedTextIsReadWithItsBlanks()
    {
        const QString indented = SimpleDom(QStringLiteral("<a>text</a>")).toString(true);
        QCOMPARE(SimpleDom(indented).root()->innerText(), QStringLiteral("\n    text\n"));
    }

    void everyElementReadHasADictionary()
    {
        const SimpleDom dom(QStringLiteral("<a><b/></a>"));
        QVERIFY(first(dom, "a")->attributes() != nullptr);
        QVERIFY(first(dom, "b")->attributes()->empty());
    }

    void namesAreTheirOwn_data()
    {
        QTest::addColumn<QStringList>("names");
        QTest::newRow("of one hash")
            << QStringList{QStringLiteral("AaAa"), QStringLiteral("BBBB"), QStringLiteral("AaBB")};
        QTest::newRow("beginnings of each other") << QStringList{
            QStringLiteral("a"), QStringLiteral("aa"), QStringLiteral("aaa"), QStringLiteral("A")};
        QTest::newRow("not ASCII")
            << QStringList{QStringLiteral(u"\u00e9t\u00e9"), QStringLiteral(u"\u65e5"),
                           QStringLiteral(u"\u00e9t\u00e8")};
        QStringList many;
        for (int i = 0; i < 5000; ++i)
            many.append(QStringLiteral("n%1").arg(i));
        QTest::newRow("many") << many;
    }
    void namesAreTheirOwn()
    {
        QFETCH(QStringList, names);
        QString xml;
        for (int round = 0; round < 3; ++round) {
            for (const QString& name : std::as_const(names))
                xml += QStringLiteral("<%1 %1=\"%2\"/>").arg(name).arg(round);
        }
        xml = QStringLiteral("<root>%1</root>").arg(xml);
        const SimpleDom dom(xml);
        QCOMPARE(dom.toString(false), xml);
        const Element root = dom.root();
        for (int i = 0; i < root->chidrenCount(); ++i) {
            const QString& name = names.at(i % names.size());
            QCOMPARE(root->childAt(i)->name(), name);
            QVERIFY(root->childAt(i)->hasAttribute(name));
        }
    }

    void changedCopyOfANameChangesNoElement()
    {
        const SimpleDom dom(QStringLiteral("<a><item/><item item=\"1\"/></a>"));
        QString name = first(dom, "item")->name();
        name[0] = QLatin1Char('x');
        name.append(QLatin1Char('y'));
        QCOMPARE(dom.toString(false), QStringLiteral("<a><item/><item item=\"1\"/></a>"));
    }

    void changedDictionaryIsTheElementsOwn()
    {
        const SimpleDom dom(QStringLiteral("<a><b k=\"1\"/><b k=\"1\"/></a>"));
        const Element b = first(dom, "b");
        b->attributes()->setValue(QStringLiteral("k"), QStringLiteral("2"));
        b->attributes()->insert(QStringLiteral("m"), QStringLiteral("3"));
        QCOMPARE(b->attributes(), dom.root()->childAt(0)->attributes());
        QCOMPARE(dom.toString(false), QStringLiteral("<a><b k=\"2\" m=\"3\"/><b k=\"1\"/></a>"));
    }

    void manyAttributesAreRead()
    {
        Dictionnary expected;
        QString xml = QStringLiteral("<a");
        for (int i = 0; i < 2000; ++i) {
            const int shuffled = i * 769 % 2000;
            const QString name = QStringLiteral("k%1").arg(shuffled);
            expected.insert(name, QString::number(shuffled));
            xml += QStringLiteral(" %1='%2'").arg(name).arg(shuffled);
        }
        const SimpleDom dom(xml + QStringLiteral("/>"));
        QVERIFY(dom.root()->hasAttribute(QStringLiteral("k1999")));
        QVERIFY(!dom.root()->hasAttribute(QStringLiteral("k2000")));
        const QString text = dom.toString(true);
        QCOMPARE(*dom.root()->attributes()->toDictionnary(), expected);
        QCOMPARE(dom.toString(true), text);
    }

    void linksGoBothWays()
    {
        const SimpleDom dom(QStringLiteral("<a><b/><c><d/></c></a>"));
        const Element root = first(dom, "a");
        QCOMPARE(root->parent(), nullptr);
        QCOMPARE(root->chidrenCount(), 2);
        QCOMPARE(root->childAt(1)->childAt(0), first(dom, "d"));
        QCOMPARE(first(dom, "d")->parent(), first(dom, "c"));
        QCOMPARE(first(dom, "c")->parent(), root);
    }

    void rootIsHandedOut()
    {
        auto dom = std::make_unique<SimpleDom>(QStringLiteral("<a><b/></a>"));
        Element root = dom->root();
        QCOMPARE(root, first(*dom, "a"));
        QCOMPARE(root->parent(), nullptr);
        const auto watched = watch(first(*dom, "b"));
        dom.reset();
        QCOMPARE(root->toString(-1), QStringLiteral("<a><b/></a>"));
        root.reset();
        QVERIFY(watched.expired());
    }

    void documentWithoutElementHasNoRoot()
    {
        const SimpleDom dom(Declaration);
        QCOMPARE(dom.root(), nullptr);
    }

    // Searches

    void searchIsInDocumentOrder()
    {
        const SimpleDom dom(QStringLiteral(
            "<n i='1'><n i='2'><x><n i='3'/></x></n><N i='0'/><y><n i='4'/></y><n i='5'/></n>"));
        QStringList order;
        for (const Element& element : dom.elementsByName(QStringLiteral("n")))
            order.append(element->attributes()->value(QStringLiteral("i")));
        QCOMPARE(order.join(QLatin1Char(' ')), QStringLiteral("1 2 3 4 5"));
    }

    void nestedElementsOfOneNameAreAllFound()
    {
        const SimpleDom dom(QStringLiteral("<a><node><node/></node></a>"));
        const auto found = dom.elementsByName(QStringLiteral("node"));
        QCOMPARE(found.size(), 2);
        QCOMPARE(found.at(1)->parent(), found.at(0));
    }

    void prefixIsNotPartOfTheName()
    {
        const SimpleDom dom(QStringLiteral("<a xmlns:x='urn:x'><x:item/></a>"));
        QCOMPARE(dom.elementsByName(QStringLiteral("item")).size(), 1);
        QVERIFY(dom.elementsByName(QStringLiteral("x:item")).isEmpty());
        QVERIFY(dom.elementsByName(QStringLiteral("Item")).isEmpty());
        QVERIFY(dom.elementsByName(QString()).isEmpty());
    }

    // A document without element

    void nothingButAPrologue_data()
    {
        QTest::addColumn<QString>("xml");
        QTest::newRow("a declaration") << Declaration;
        QTest::newRow("a declaration and blanks") << Declaration + QStringLiteral("\r\n \t\n");
        QTest::newRow("a short declaration") << QStringLiteral("<?xml version='1.0'?>");
        QTest::newRow("a blank") << QStringLiteral(" ");
        QTest::newRow("blanks") << QString(100, QLatin1Char('\n'));
        QTest::newRow("a declaration and many blanks")
            << Declaration + QString(100000, QLatin1Char(' '));
    }
    void nothingButAPrologue()
    {
        QFETCH(QString, xml);
        const auto check = [](const SimpleDom& dom) {
            QVERIFY(dom.elementsByName(QStringLiteral("a")).isEmpty());
            QVERIFY(dom.elementsByName(QString()).isEmpty());
            QCOMPARE(dom.toString(true), QString());
            QCOMPARE(dom.toString(false), QString());
        };
        check(SimpleDom(xml));
        OpenFile plain(xml.toUtf8());
        QVERIFY(plain.isOpen());
        check(SimpleDom(plain.file()));
        Pipe piped(xml.left(60000).toUtf8());
        QVERIFY(piped.isOpen());
        check(SimpleDom(piped.file()));
    }

    void prologueInOtherEncodings_data()
    {
        QTest::addColumn<QByteArray>("bytes");
        QTest::addColumn<bool>("isPrologue");
        QTest::newRow("nothing") << QByteArray() << true;
        const QString declaration = QStringLiteral("<?xml version=\"1.0\"?>");
        for (const auto& [name, encoding] : Encodings) {
            const auto row = [&, name = name, encoding = encoding](const char* what,
                                                                   const QString& text,
                                                                   const QByteArray& end = {}) {
                QTest::addRow("%s, %s", name, what)
                    << encoded(text, encoding) + end << end.isEmpty();
            };
            row("its mark", QString());
            row("a blank", QStringLiteral(" "));
            row("blanks", QStringLiteral(" \t\r\n\n"));
            row("a declaration", declaration);
            row("a declaration and blanks", declaration + QStringLiteral("\r\n \t"));
            row("many blanks", declaration + QString(12000, QLatin1Char(' ')));
            row("a cut character", QString(), "\xf0");
            row("blanks and a cut character", QStringLiteral("    "), "\xf0");
            row("a declaration and a cut character", declaration, "\xf0");
        }
        for (const auto encoding : {QStringConverter::Utf16LE, QStringConverter::Utf16BE}) {
            const QByteArray bytes = encoded(declaration, encoding).mid(2);
            QTest::addRow("UTF-16 without its mark, %d", encoding) << bytes << true;
            QTest::addRow("UTF-16 cut in its last character, %d", encoding)
                << bytes.chopped(1) << false;
            QTest::addRow("half a blank in UTF-16, %d", encoding)
                << encoded(QStringLiteral(" "), encoding).chopped(1) << false;
        }
    }
    void prologueInOtherEncodings()
    {
        QFETCH(QByteArray, bytes);
        QFETCH(bool, isPrologue);
        const QString expected =
            isPrologue ? QString()
                       : QStringLiteral("***** Error encountered: Premature end of document.");
        OpenFile document(bytes);
        QVERIFY(document.isOpen());
        QCOMPARE(failureText([&] { QCOMPARE(SimpleDom(document.file()).root(), nullptr); }),
                 expected);
        QVERIFY(document.file()->atEnd());
        Pipe piped(bytes);
        QVERIFY(piped.isOpen());
        QCOMPARE(failureText([&] { QCOMPARE(SimpleDom(piped.file()).root(), nullptr); }), expected);
    }

    void fewBytesAreAPrologueOrAFailure_data()
    {
        QTest::addColumn<int>("count");
        QTest::newRow("one") << 1;
        QTest::newRow("two") << 2;
        QTest::newRow("three") << 3;
    }
    void fewBytesAreAPrologueOrAFailure()
    {
        QFETCH(int, count);
        // Alone, every byte; two and three of those that have a meaning in XML or in an encoding.
        QByteArray alphabet("\0\n <>ab\xc3\xe9\xef\xbb\xbf\xfe\xff", 14);
        for (int byte = 0; count == 1 && byte < 256; ++byte)
            alphabet.append(char(byte));
        QByteArray bytes(count, alphabet.at(0));
        QList<qsizetype> letters(count, 0);
        const QTemporaryDir directory;
        QFile file(directory.filePath(QStringLiteral("few.xml")));
        QVERIFY(file.open(QIODevice::ReadWrite));
        for (qsizetype place = 0; place < count;) {
            checkFewBytes(bytes, file);
            if (QTest::currentTestFailed())
                return;
            for (place = 0; place < count; ++place) {
                letters[place] = (letters[place] + 1) % alphabet.size();
                bytes[place] = alphabet.at(letters[place]);
                if (letters[place] != 0)
                    break;
            }
        }
    }

    void fewCharactersAreAPrologueOrAFailure()
    {
        for (char16_t c = 1; c < 0x180; ++c) {
            const QString text(1, QChar(c));
            const bool isBlank = QStringLiteral(" \t\r\n").contains(text);
            QCOMPARE(readingFailure(text).isEmpty(), isBlank);
            QCOMPARE(readingFailure(text + text).isEmpty(), isBlank);
        }
        QVERIFY(readingFailure(QString(1, QChar(0xfeff))).isEmpty());
    }

    void readerWithoutDeviceIsLeftAtItsEnd_data()
    {
        QTest::addColumn<QByteArray>("bytes");
        QTest::newRow("nothing") << QByteArray();
        QTest::newRow("a blank") << QByteArray(" ");
        QTest::newRow("blanks") << QByteArray("\t \t \t ");
        QTest::newRow("many blanks") << QByteArray(50000, ' ');
        QTest::newRow("line feeds") << QByteArray("\n\n\n\n");
        QTest::newRow("a mark") << QByteArray("\xef\xbb\xbf");
        QTest::newRow("a declaration") << Declaration.toLatin1();
        QTest::newRow("a declaration and a line feed") << Declaration.toLatin1() + '\n';
        QTest::newRow("a declaration and blanks") << Declaration.toLatin1() + " \r\n\t";
        QTest::newRow("a declaration of several lines and blanks")
            << QByteArray("<?xml\nversion = '1.0'\n standalone='yes'\n?> \n\n  ");
        QTest::newRow("a declaration with all parts and a blank")
            << QByteArray("<?xml version='1.0' encoding='utf-8' standalone='no'?> ");
    }
    void readerWithoutDeviceIsLeftAtItsEnd()
    {
        QFETCH(QByteArray, bytes);
        const auto check = [](QXmlStreamReader& reader, QXmlStreamReader& untouched,
                              const QByteArray& more) {
            SimpleDom dom(QStringLiteral("<x/>"));
            dom.readDom(reader);
            QCOMPARE(dom.root(), nullptr);
            readersError(untouched);
            QCOMPARE(reader.tokenType(), untouched.tokenType());
            QCOMPARE(reader.error(), untouched.error());
            QCOMPARE(reader.errorString(), untouched.errorString());
            QCOMPARE(reader.lineNumber(), untouched.lineNumber());
            QCOMPARE(reader.columnNumber(), untouched.columnNumber());
            QCOMPARE(reader.characterOffset(), untouched.characterOffset());
            QCOMPARE(reader.isStandaloneDocument(), untouched.isStandaloneDocument());
            QCOMPARE(reader.namespaceProcessing(), untouched.namespaceProcessing());
            QCOMPARE(reader.name().toString(), untouched.name().toString());
            QCOMPARE(reader.qualifiedName().toString(), untouched.qualifiedName().toString());
            QVERIFY(reader.atEnd());
            reader.addData(more);
            dom.readDom(reader);
            QCOMPARE(dom.toString(false), QStringLiteral("<a><b/></a>"));
        };
        const QByteArray more =
            bytes.isEmpty() ? QByteArray("<?xml version='1.0'?><a><b/></a>") : "<a><b/></a>";
        QXmlStreamReader ofBytes(bytes);
        QXmlStreamReader sameBytes(bytes);
        check(ofBytes, sameBytes, more);
        QXmlStreamReader ofText(QString::fromUtf8(bytes));
        QXmlStreamReader sameText(QString::fromUtf8(bytes));
        ofText.setNamespaceProcessing(false);
        sameText.setNamespaceProcessing(false);
        check(ofText, sameText, more);
    }

    void readerWithoutDeviceKeepsItsEncoding()
    {
        const QByteArray start = "<?xml version='1.0' encoding='ISO-8859-1'?> ";
        SimpleDom dom(QStringLiteral("<x/>"));
        QXmlStreamReader ofBytes(start);
        dom.readDom(ofBytes);
        ofBytes.addData(QByteArray("<a>\xe9</a>"));
        dom.readDom(ofBytes);
        QCOMPARE(dom.toString(false), QStringLiteral("<a>\u00e9</a>"));

        QXmlStreamReader ofText(QString::fromLatin1(start));
        dom.readDom(ofText);
        ofText.addData(QStringLiteral("<b>\u00e9</b>"));
        dom.readDom(ofText);
        QCOMPARE(dom.toString(false), QStringLiteral("<b>\u00e9</b>"));
    }

    void documentThatBreaksOffEarly_data()
    {
        QTest::addColumn<QString>("xml");
        QTest::newRow("in the declaration") << QStringLiteral("<?xml vers");
        QTest::newRow("before the declaration's end") << QStringLiteral("<?xml version='1.0'?");
        QTest::newRow("after a bracket") << QStringLiteral("<");
        QTest::newRow("in the root's tag") << QStringLiteral("<root");
        QTest::newRow("bracket after the declaration") << Declaration + QStringLiteral("\n<");
        QTest::newRow("tag after the declaration") << Declaration + QStringLiteral("<r a='1");
        QTest::newRow("in a comment") << Declaration + QStringLiteral("<!-- c ");
        QTest::newRow("after a comment") << Declaration + QStringLiteral("<!-- c -->\n");
        QTest::newRow("after an instruction") << QStringLiteral("<?do it?>");
        QTest::newRow("in the document type")
            << Declaration + QStringLiteral("<!DOCTYPE a [ <!ENTITY x \"1\"> ");
        QTest::newRow("after the document type") << QStringLiteral("<!DOCTYPE a>\n");
        QTest::newRow("at the beginning of a document type") << QStringLiteral("<!DOCTYPE a [");
        QTest::newRow("in a document type with blanks")
            << Declaration + QStringLiteral("<!DOCTYPE a [") + QString(50000, QLatin1Char(' '));
        QTest::newRow("in the root") << QStringLiteral("<root>");
        QTest::newRow("in a text") << QStringLiteral("<root><item>Hello");
        QTest::newRow("in an end tag") << QStringLiteral("<root></root");
    }
    void documentThatBreaksOffEarly()
    {
        QFETCH(QString, xml);
        const QString expected =
            QStringLiteral("***** Error encountered: Premature end of document.");
        QCOMPARE(readingFailure(xml), expected);
        SimpleDom dom(QStringLiteral("<x/>"));
        QXmlStreamReader reader(xml.toUtf8());
        QCOMPARE(failureText([&] { dom.readDom(reader); }), expected);
        QCOMPARE(dom.toString(false), QStringLiteral("<x/>"));
        OpenFile plain(xml.toUtf8());
        QVERIFY(plain.isOpen());
        QCOMPARE(failureText([&] { SimpleDom{plain.file()}; }), expected);
        Pipe piped(xml.toUtf8());
        QVERIFY(piped.isOpen());
        QCOMPARE(failureText([&] { SimpleDom{piped.file()}; }), expected);
    }

    // Failures

    void missingSources()
    {
        QFile closed(QStringLiteral("/none/%1.xml"));
        QFile* const none = nullptr;
        const auto check = [&](const char16_t* empty, const char16_t* null,
                               const char16_t* notOpen) {
            QCOMPARE(readingFailure(QString()), QString::fromUtf16(empty));
            QCOMPARE(readingFailure(QStringLiteral("")), QString::fromUtf16(empty));
            QCOMPARE(failureText([&] { SimpleDom{none}; }), QString::fromUtf16(null));
            QCOMPARE(failureText([&] { SimpleDom{&closed}; }), QString::fromUtf16(notOpen));
        };
        check(u"XML descriptor is an undefined or empty string",
              u"File descriptor cannot be a null pointer", u"File [/none/%1.xml] not open");
        useLanguage(QStringLiteral("fr_FR"));
        check(u"Le descripteur XML est une chaîne indéfinie ou vide",
              u"Le descripteur de fichier ne peut pas être un pointeur nul",
              u"Fichier [/none/%1.xml] non ouvert");
    }

    void fileOpenForWritingOnlyIsNotOpen()
    {
        const QTemporaryDir directory;
        const QString path = directory.filePath(QStringLiteral("a.xml"));
        QVERIFY(writeFile(path, "<a/>"));
        QFile file(path);
        QVERIFY(file.open(QIODevice::WriteOnly | QIODevice::Append));
        QCOMPARE(failureText([&] { SimpleDom{&file}; }),
                 QStringLiteral("File [%1] not open").arg(path));
        QVERIFY(file.isOpen());
        QCOMPARE(readFile(path), QByteArray("<a/>"));
    }

    void malformedDocument_data()
    {
        QTest::addColumn<QString>("xml");
        QTest::newRow("unclosed tag") << QStringLiteral("<a><b></a>");
        QTest::newRow("mismatched tag") << QStringLiteral("<a></b>");
        QTest::newRow("no markup") << QStringLiteral("hello");
        QTest::newRow("text after the declaration") << Declaration + QStringLiteral("hello");
        QTest::newRow("text after the root") << QStringLiteral("<a/>x");
        QTest::newRow("two roots") << QStringLiteral("<a/><b/>");
        QTest::newRow("bad character") << QStringLiteral("<a>\u0001</a>");
        QTest::newRow("NUL") << QStringLiteral("<a>") + QChar(0) + QStringLiteral("</a>");
        QTest::newRow("a name too long")
            << QLatin1Char('<') + QString(1000000, QLatin1Char('n')) + QStringLiteral("/>");
        QTest::newRow("attribute twice") << QStringLiteral("<a b='1' b='2'/>");
        QTest::newRow("unquoted attribute") << QStringLiteral("<a b=1/>");
        QTest::newRow("unknown entity") << QStringLiteral("<a>&none;</a>");
        QTest::newRow("unknown prefix") << QStringLiteral("<x:a/>");
        QTest::newRow("bracket in an attribute") << QStringLiteral("<a b='<'/>");
        QTest::newRow("declaration not in front") << QStringLiteral(" ") + Declaration;
        QTest::newRow("blank in front of the declaration")
            << QStringLiteral("\n<?xml version='1.0'?><a/>");
        QTest::newRow("wrong version") << QStringLiteral("<?xml version='7'?><a/>");
        QTest::newRow("end tag only") << QStringLiteral("</a>");
        QTest::newRow("entity that holds itself")
            << QStringLiteral("<!DOCTYPE a [<!ENTITY x \"&x;\">]><a>&x;</a>");
    }
    void malformedDocument()
    {
        QFETCH(QString, xml);
        QXmlStreamReader reader(xml);
        const QString reason = readersError(reader);
        QVERIFY(!reason.isEmpty());
        QCOMPARE(readingFailure(xml), QStringLiteral("***** Error encountered: ") + reason);
        useLanguage(QStringLiteral("fr_FR"));
        QCOMPARE(readingFailure(xml), QStringLiteral(u"***** Erreur rencontrée : ") + reason);
    }

    void placeMarkersInADocumentStay()
    {
        const QString text = readingFailure(QStringLiteral("<a>&%2;</a>"));
        QVERIFY(text.startsWith(QStringLiteral("***** Error encountered: ")));
        const QString named = readingFailure(QStringLiteral("<a><b></%1></a>"));
        QVERIFY(named.startsWith(QStringLiteral("***** Error encountered: ")));
    }

    void attributesThatDifferByPrefixOnlyAreRefused()
    {
        const QString text =
            readingFailure(QStringLiteral("<a xmlns:x='urn:x'><b x:k='1' k='2'/></a>"));
        QCOMPARE(text, failureText([] {
                     Properties properties;
                     properties.insert(QStringLiteral("k"), QString());
                     properties.insert(QStringLiteral("k"), QString());
                 }));
        QVERIFY(!text.isEmpty());
    }

    void textsAreTheLibrarysOwn()
    {
        BundleDirectory directory;
        QVERIFY(directory.write(QStringLiteral("aaa"), QStringLiteral("en_US"),
                                "EmptyXml=taken from the application\n"));
        QVERIFY(Translator::getInstance()->insertBundle(directory.path(), QStringLiteral("aaa"),
                                                        QStringLiteral("en_US")));
        QCOMPARE(Translator::getInstance()->string(QStringLiteral("EmptyXml")),
                 QStringLiteral("taken from the application"));
        QCOMPARE(readingFailure(QString()),
                 QStringLiteral("XML descriptor is an undefined or empty string"));
    }

    // Files

    void fileIsReadFromItsPositionAndStaysOpen()
    {
        OpenFile document("rubbish<a><b>text</b></a>\n");
        QVERIFY(document.isOpen());
        QVERIFY(document.file()->seek(7));
        QCOMPARE(SimpleDom(document.file()).toString(false), QStringLiteral("<a><b>text</b></a>"));
        QVERIFY(document.file()->isOpen());
        QVERIFY(document.file()->atEnd());
        QVERIFY(!document.file()->isTransactionStarted());
        QVERIFY(document.file()->seek(7));
        QCOMPARE(SimpleDom(document.file()).toString(false), QStringLiteral("<a><b>text</b></a>"));
    }

    void failureLeavesTheFileOpen()
    {
        OpenFile document("<a><b></a>");
        QVERIFY(document.isOpen());
        QVERIFY(!failureText([&] { SimpleDom{document.file()}; }).isEmpty());
        QVERIFY(document.file()->isOpen());
        QVERIFY(!document.file()->isTransactionStarted());
        QVERIFY(document.file()->seek(0));
        QCOMPARE(document.file()->readAll(), QByteArray("<a><b></a>"));
    }

    void prologueInATransactionOfItsOwn()
    {
        OpenFile document(Declaration.toLatin1());
        QVERIFY(document.isOpen());
        document.file()->startTransaction();
        QCOMPARE(SimpleDom(document.file()).root(), nullptr);
        QVERIFY(document.file()->isTransactionStarted());
        document.file()->rollbackTransaction();
        QCOMPARE(document.file()->readAll(), Declaration.toLatin1());
    }

    void fileWithATransactionOfItsOwn()
    {
        OpenFile document("<a/>");
        QVERIFY(document.isOpen());
        document.file()->startTransaction();
        QCOMPARE(SimpleDom(document.file()).toString(false), QStringLiteral("<a/>"));
        QVERIFY(document.file()->isTransactionStarted());
        document.file()->rollbackTransaction();
        QCOMPARE(document.file()->readAll(), QByteArray("<a/>"));
    }

    void fileInItsEncoding_data()
    {
        QTest::addColumn<QByteArray>("bytes");
        const QString xml = QStringLiteral(u"<a b=\"ç\">Été</a>");
        QTest::newRow("UTF-8") << xml.toUtf8();
        QTest::newRow("UTF-8 with its mark") << encoded(xml, QStringConverter::Utf8);
        QTest::newRow("UTF-16LE") << encoded(xml, QStringConverter::Utf16LE);
        QTest::newRow("UTF-16BE") << encoded(xml, QStringConverter::Utf16BE);
        QTest::newRow("Latin-1, declared")
            << QByteArray("<?xml version=\"1.0\" encoding=\"ISO-8859-1\"?>") + xml.toLatin1();
    }
    void fileInItsEncoding()
    {
        QFETCH(QByteArray, bytes);
        OpenFile document(bytes);
        QVERIFY(document.isOpen());
        QCOMPARE(SimpleDom(document.file()).toString(false), QStringLiteral(u"<a b=\"ç\">Été</a>"));
    }

    void fileOfWrongBytes_data()
    {
        QTest::addColumn<QByteArray>("bytes");
        QTest::newRow("no UTF-8") << QByteArray("<a>\xff\xfe\xc3</a>");
        QTest::newRow("UTF-8 cut in a character") << QByteArray("<a>\xc3");
        QTest::newRow("surrogates in UTF-8") << QByteArray("<a>\xed\xa0\x80</a>");
        QTest::newRow("unknown encoding")
            << QByteArray("<?xml version=\"1.0\" encoding=\"KLINGON\"?><a/>");
        QTest::newRow("an image") << QByteArray("\x89PNG\r\n\x1a\n\0\0\0\rIHDR", 16);
        QTest::newRow("zeroes") << QByteArray(5000, '\0');
        QTest::newRow("compressed") << qCompress(QByteArray(5000, 'x'));
        QTest::newRow("half of UTF-16") << QByteArray("\xff\xfe<\0a\0", 6);
    }
    void fileOfWrongBytes()
    {
        QFETCH(QByteArray, bytes);
        OpenFile document(bytes);
        QVERIFY(document.isOpen());
        QFile again(document.file()->fileName());
        QVERIFY(again.open(QIODevice::ReadOnly));
        QXmlStreamReader reader(&again);
        const QString reason = readersError(reader);
        QVERIFY(!reason.isEmpty());
        QCOMPARE(failureText([&] { SimpleDom{document.file()}; }),
                 QStringLiteral("***** Error encountered: ") + reason);
    }

    void pipeIsReadToItsEnd()
    {
        const QByteArray text(50000, 'x');
        Pipe document("<?xml version='1.0'?>\n<a>" + text + "</a>");
        QVERIFY(document.isOpen());
        QCOMPARE(first(SimpleDom(document.file()), "a")->innerText(), QString::fromLatin1(text));
    }

    // readDom

    void readAgainReplacesTheTree()
    {
        SimpleDom dom(QStringLiteral("<a><b/></a>"));
        const Element held = first(dom, "b");
        QXmlStreamReader reader(QStringLiteral("<c><d>text</d></c>"));
        dom.readDom(reader);
        QCOMPARE(dom.toString(false), QStringLiteral("<c><d>text</d></c>"));
        QCOMPARE(held->parent()->toString(-1), QStringLiteral("<a><b/></a>"));
    }

    void failedReadLeavesTheTree()
    {
        SimpleDom dom(QStringLiteral("<a><b/></a>"));
        QXmlStreamReader reader(QStringLiteral("<c><d></c>"));
        QVERIFY(!failureText([&] { dom.readDom(reader); }).isEmpty());
        QCOMPARE(dom.toString(false), QStringLiteral("<a><b/></a>"));
        QVERIFY(failureText([&] {
                    dom.readDom(reader);
                }).startsWith(QStringLiteral("***** Error encountered: ")));
    }

    void readOfAPrologueLeavesNoRoot()
    {
        SimpleDom dom(QStringLiteral("<a><b/></a>"));
        QXmlStreamReader reader(Declaration);
        dom.readDom(reader);
        QCOMPARE(dom.toString(false), QString());
    }

    void readerInsideADocument()
    {
        SimpleDom dom(QStringLiteral("<x/>"));
        QXmlStreamReader reader(
            QStringLiteral("<a>one<b><c>two</c>three</b>four<d>five<e/></d>six</a>"));
        QVERIFY(reader.readNextStartElement());
        dom.readDom(reader);
        QCOMPARE(dom.toString(false), QStringLiteral("<b>>three</b>"));
        QCOMPARE(first(dom, "c")->innerText(), QStringLiteral("two"));
        QVERIFY(dom.elementsByName(QStringLiteral("e")).isEmpty());
        QVERIFY(reader.atEnd());
        dom.readDom(reader);
        QCOMPARE(dom.toString(false), QString());
    }

    void readerThatHasBegunGivesNoPrologue()
    {
        SimpleDom dom(QStringLiteral("<x/>"));
        OpenFile document("<?xml version='1.0'?><r");
        QVERIFY(document.isOpen());
        QXmlStreamReader reader(document.file());
        QCOMPARE(reader.readNext(), QXmlStreamReader::StartDocument);
        for (int i = 0; i < 2; ++i)
            QCOMPARE(failureText([&] { dom.readDom(reader); }),
                     QStringLiteral("***** Error encountered: Premature end of document."));
    }

    // Lifetime

    void elementsOfATemporaryAreWhole()
    {
        QStringList seen;
        for (const auto& item :
             SimpleDom(QStringLiteral("<o><item id='1'><n>Nuts</n></item><item id='2'><n>Bolts</n>"
                                      "</item></o>"))
                 .elementsByName(QStringLiteral("item"))) {
            seen.append(item->toString(-1));
            seen.append(item->childAt(0)->innerText());
            seen.append(item->parent()->name());
            QCOMPARE(item->parent()->chidrenCount(), 2);
        }
        QCOMPARE(seen, (QStringList{QStringLiteral("<item id=\"1\"><n>Nuts</n></item>"),
                                    QStringLiteral("Nuts"), QStringLiteral("o"),
                                    QStringLiteral("<item id=\"2\"><n>Bolts</n></item>"),
                                    QStringLiteral("Bolts"), QStringLiteral("o")}));
    }

    void oneHeldElementKeepsTheWholeTree_data()
    {
        QTest::addColumn<QString>("road");
        QTest::newRow("found leaf") << QStringLiteral("found");
        QTest::newRow("child of a found element") << QStringLiteral("child");
        QTest::newRow("parent of a found element") << QStringLiteral("parent");
        QTest::newRow("sibling by the parent") << QStringLiteral("sibling");
        QTest::newRow("root by the parents") << QStringLiteral("root");
    }
    void oneHeldElementKeepsTheWholeTree()
    {
        QFETCH(QString, road);
        const QString xml = QStringLiteral("<a><b><c k=\"1\"/></b><d><e><f>text</f></e></d></a>");
        auto dom = std::make_unique<SimpleDom>(xml);
        const auto root = watch(first(*dom, "a"));
        const auto farLeaf = watch(first(*dom, "f"));
        Element held = first(*dom, "b");
        if (road == QLatin1String("found"))
            held = first(*dom, "c");
        else if (road == QLatin1String("child"))
            held = held->childAt(0);
        else if (road == QLatin1String("parent"))
            held = first(*dom, "c")->parent();
        else if (road == QLatin1String("sibling"))
            held = held->parent()->childAt(1);
        else
            held = held->parent();
        dom.reset();

        QVERIFY(!root.expired() && !farLeaf.expired());
        Element top = held;
        while (top->parent())
            top = top->parent();
        QCOMPARE(top->toString(-1), xml);
        top.reset();
        QVERIFY(!farLeaf.expired());
        held.reset();
        QVERIFY(root.expired());
        QVERIFY(farLeaf.expired());
    }

    void treeGoesWithItsDocument()
    {
        auto dom = std::make_unique<SimpleDom>(QStringLiteral("<a><b><c/></b></a>"));
        const auto root = watch(first(*dom, "a"));
        const auto leaf = watch(first(*dom, "c"));
        QVERIFY(!root.expired() && !leaf.expired());
        dom.reset();
        QVERIFY(root.expired() && leaf.expired());
    }

    void pointersOfATreeShareAnOwner()
    {
        auto dom = std::make_unique<SimpleDom>(QStringLiteral("<a><b/><c/></a>"));
        const Element b = first(*dom, "b");
        const Element c = first(*dom, "c");
        QVERIFY(b != c);
        QVERIFY(!b.owner_before(c) && !c.owner_before(b));
        QVERIFY(b.use_count() == c.use_count());

        Element removed = dom->root()->removeChild(0);
        const std::weak_ptr<XmlElement> watched = removed;
        removed.reset();
        QVERIFY(!watched.expired());
    }

    void copiesShareTheTree()
    {
        auto dom = std::make_unique<SimpleDom>(QStringLiteral("<a><b/></a>"));
        SimpleDom copy(*dom);
        QCOMPARE(first(copy, "b"), first(*dom, "b"));
        const auto watched = watch(first(copy, "b"));
        dom.reset();
        QCOMPARE(copy.toString(false), QStringLiteral("<a><b/></a>"));

        SimpleDom other(QStringLiteral("<x/>"));
        other = copy;
        QXmlStreamReader reader(QStringLiteral("<c/>"));
        copy.readDom(reader);
        QCOMPARE(other.toString(false), QStringLiteral("<a><b/></a>"));
        QCOMPARE(copy.toString(false), QStringLiteral("<c/>"));
        SimpleDom& self = other;
        other = self;
        QCOMPARE(other.toString(false), QStringLiteral("<a><b/></a>"));
        other = copy;
        QVERIFY(watched.expired());
    }

    void movedDocumentIsEmpty()
    {
        SimpleDom dom(QStringLiteral("<a><b/></a>"));
        SimpleDom moved(std::move(dom));
        QCOMPARE(moved.toString(false), QStringLiteral("<a><b/></a>"));
        QCOMPARE(dom.toString(false), QString());
        QVERIFY(dom.elementsByName(QStringLiteral("a")).isEmpty());
        dom = std::move(moved);
        QCOMPARE(dom.toString(false), QStringLiteral("<a><b/></a>"));
    }

    void elementsMayGoInAnotherThread()
    {
        auto dom = std::make_unique<SimpleDom>(QStringLiteral("<a><b><c/></b></a>"));
        const auto watched = watch(first(*dom, "a"));
        Element held = first(*dom, "c");
        dom.reset();
        const std::unique_ptr<QThread> thread(
            QThread::create([element = std::move(held)]() mutable { element.reset(); }));
        thread->start();
        QVERIFY(thread->wait());
        QVERIFY(watched.expired());
    }

    // Trees that are changed

    void addedElementGoesWithTheTree()
    {
        auto dom = std::make_unique<SimpleDom>(QStringLiteral("<a><b/></a>"));
        {
            const Element b = first(*dom, "b");
            const Element child = counted("new", b);
            b->addChild(child);
            const Element grandchild = counted("deep", child);
            child->addChild(grandchild);
            grandchild->addChild(counted("end", b));
        }
        QCOMPARE(dom->toString(false),
                 QStringLiteral("<a><b><new><deep><end/></deep></new></b></a>"));
        QCOMPARE(first(*dom, "deep")->parent()->parent(), first(*dom, "b"));
        QCOMPARE(Counted::s_count, 3);
        dom.reset();
        QCOMPARE(Counted::s_count, 0);
    }

    void branchBuiltFirstIsAddedWhole()
    {
        auto dom = std::make_unique<SimpleDom>(QStringLiteral("<a><b/><c/></a>"));
        {
            const Element b = first(*dom, "b");
            const Element branch = counted("branch", b);
            branch->addChild(counted("twig", branch));
            branch->childAt(0)->addChild(counted("leaf", b));
            branch->addChild(first(*dom, "c")); // of the same tree, by a pointer that owns it
            b->addChild(branch);
        }
        QCOMPARE(first(*dom, "branch")->toString(-1),
                 QStringLiteral("<branch><twig><leaf/></twig><c/></branch>"));
        Element held = first(*dom, "leaf");
        dom.reset();
        QCOMPARE(held->parent()->toString(-1),
                 QStringLiteral("<b><branch><twig><leaf/></twig><c/></branch></b>"));
        QCOMPARE(Counted::s_count, 3);
        held.reset();
        QCOMPARE(Counted::s_count, 0);
    }

    void elementOfTheTreeMayBeAddedAgain()
    {
        auto dom = std::make_unique<SimpleDom>(QStringLiteral("<a><b/><c/></a>"));
        const auto watched = watch(first(*dom, "a"));
        first(*dom, "b")->addChild(first(*dom, "c"));
        first(*dom, "a")->addChild(first(*dom, "a")->childAt(0)->childAt(0));
        QCOMPARE(dom->toString(false), QStringLiteral("<a><b><c/></b><c/><c/></a>"));
        dom.reset();
        QVERIFY(watched.expired());
    }

    void addedElementHeldByItsMakerKeepsItsParents()
    {
        auto dom = std::make_unique<SimpleDom>(QStringLiteral("<a><b/></a>"));
        Element made = counted("new", first(*dom, "b"));
        first(*dom, "b")->addChild(made);
        made->addChild(counted("below", made));
        dom.reset();
        QCOMPARE(made->parent()->name(), QStringLiteral("b"));
        QCOMPARE(made->parent()->parent()->name(), QStringLiteral("a"));
        QVERIFY(!made->hasChild());
        QVERIFY(!made->parent()->hasChild());
        QCOMPARE(Counted::s_count, 1);
        SimpleDom other(QStringLiteral("<x/>"));
        first(other, "x")->addChild(made);
        made->addChild(counted("again", made));
        QCOMPARE(other.toString(false), QStringLiteral("<x><new><again/></new></x>"));
        made.reset();
    }

    void elementThatIsNotAddedYetKeepsTheTree()
    {
        auto dom = std::make_unique<SimpleDom>(QStringLiteral("<a><b/></a>"));
        const auto watched = watch(first(*dom, "a"));
        Element made = counted("new", first(*dom, "b"));
        dom.reset();
        QCOMPARE(made->parent()->parent()->toString(-1), QStringLiteral("<a><b/></a>"));
        made.reset();
        QVERIFY(watched.expired());
    }

    void elementOfAnotherTreeStaysWhole()
    {
        auto dom = std::make_unique<SimpleDom>(QStringLiteral("<a/>"));
        const auto watched = [&] {
            const SimpleDom other(QStringLiteral("<x><y><z/></y></x>"));
            first(*dom, "a")->addChild(first(other, "y"));
            return watch(first(other, "x"));
        }();
        QCOMPARE(dom->toString(false), QStringLiteral("<a><y><z/></y></a>"));
        QCOMPARE(first(*dom, "z")->parent()->parent()->name(), QStringLiteral("x"));
        dom.reset();
        QVERIFY(watched.expired());
    }

    void treeStaysWholeWhenAnotherThatHoldsAPartOfItGoes()
    {
        const SimpleDom dom(QStringLiteral("<x><y><z/></y></x>"));
        {
            const SimpleDom other(QStringLiteral("<a/>"));
            first(other, "a")->addChild(first(dom, "y"));
            const Element top = counted("top");
            top->addChild(first(dom, "y"));
            top->clearChildren();
        }
        QCOMPARE(dom.toString(false), QStringLiteral("<x><y><z/></y></x>"));
    }

    void elementThatTwoTreesHoldStaysWholeForBoth()
    {
        auto one = std::make_unique<SimpleDom>(QStringLiteral("<a/>"));
        auto two = std::make_unique<SimpleDom>(QStringLiteral("<b/>"));
        Element made = counted("new");
        made->addChild(counted("below"));
        first(*one, "a")->addChild(made);
        first(*two, "b")->addChild(made);
        made.reset();
        one.reset();
        QCOMPARE(two->toString(false), QStringLiteral("<b><new><below/></new></b>"));
        two.reset();
        QCOMPARE(Counted::s_count, 0);
    }

    void readElementBelowOneBuiltByHandStaysWhole()
    {
        Element top = counted("top");
        top->addChild(first(SimpleDom(QStringLiteral("<a><b><c/></b></a>")), "b"));
        QCOMPARE(top->toString(-1), QStringLiteral("<top><b><c/></b></top>"));
        const auto watched = watch(top->childAt(0)->parent());
        top->clearChildren();
        QVERIFY(watched.expired());
    }

    void removedElementsStayWholeWhileTheTreeLives()
    {
        auto dom = std::make_unique<SimpleDom>(QStringLiteral("<a><b><c/></b><d/></a>"));
        const Element root = first(*dom, "a");
        Element held = first(*dom, "c");
        const auto watched = watch(held);
        root->addChild(counted("new", root));
        root->clearChildren();
        QCOMPARE(dom->toString(false), QStringLiteral("<a/>"));
        QVERIFY(dom->elementsByName(QStringLiteral("b")).isEmpty());
        QCOMPARE(held->parent()->toString(-1), QStringLiteral("<b><c/></b>"));
        root->addChild(held->parent());
        QCOMPARE(dom->toString(false), QStringLiteral("<a><b><c/></b></a>"));
        held.reset();
        QVERIFY(!watched.expired());
    }

    void removedChildStaysWholeWhileItIsHeld()
    {
        auto dom = std::make_unique<SimpleDom>(QStringLiteral("<a><b><c k=\"1\"/></b><d/></a>"));
        const auto leaf = watch(first(*dom, "c"));
        Element removed = dom->root()->removeChild(0);
        QCOMPARE(dom->toString(false), QStringLiteral("<a><d/></a>"));
        QVERIFY(dom->elementsByName(QStringLiteral("c")).isEmpty());
        QCOMPARE(dom->root()->removeChild(1), nullptr);
        dom.reset();
        QCOMPARE(removed->toString(-1), QStringLiteral("<b><c k=\"1\"/></b>"));
        QCOMPARE(removed->parent()->toString(-1), QStringLiteral("<a><d/></a>"));
        removed.reset();
        QVERIFY(leaf.expired());
    }

    void removedChildMayBeAddedElsewhere()
    {
        auto dom = std::make_unique<SimpleDom>(QStringLiteral("<a><b><c/></b><d/></a>"));
        const auto watched = watch(dom->root());
        dom->root()->childAt(1)->addChild(dom->root()->removeChild(0));
        QCOMPARE(dom->toString(false), QStringLiteral("<a><d><b><c/></b></d></a>"));
        Element top = counted("top");
        top->addChild(dom->root()->childAt(0)->removeChild(0));
        dom.reset();
        QCOMPARE(top->toString(-1), QStringLiteral("<top><b><c/></b></top>"));
        QVERIFY(!watched.expired());
        top->removeChild(0);
        QVERIFY(watched.expired());
    }

    void addedElementIsTakenOutOfTheTreeWhole()
    {
        auto dom = std::make_unique<SimpleDom>(QStringLiteral("<a/>"));
        {
            const Element made = counted("new");
            made->addChild(counted("below", made));
            dom->root()->addChild(made);
        }
        Element removed = dom->root()->removeChild(0);
        QCOMPARE(removed->toString(-1), QStringLiteral("<new><below/></new>"));
        QCOMPARE(Counted::s_count, 2);
        dom.reset();
        QCOMPARE(removed->childAt(0)->parent(), removed);
        removed.reset();
        QCOMPARE(Counted::s_count, 0);
    }

    void elementOfAnotherTreeIsTakenOutWhole()
    {
        const SimpleDom dom(QStringLiteral("<a/>"));
        dom.root()->addChild(SimpleDom(QStringLiteral("<x><y k=\"1\"/></x>")).root());
        Element removed = dom.root()->removeChild(0);
        const auto watched = watch(removed->childAt(0));
        QCOMPARE(removed->toString(-1), QStringLiteral("<x><y k=\"1\"/></x>"));
        removed.reset();
        QVERIFY(watched.expired());
        dom.root()->addChild(SimpleDom(QStringLiteral("<x><y/></x>")).root());
        const auto cleared = watch(dom.root()->childAt(0)->childAt(0));
        dom.root()->clearChildren();
        QVERIFY(cleared.expired());
    }

    /// What a tree leaves behind is a tree built by hand.
    void parentsLeftBehindAreNotHeldByTheirLinks()
    {
        auto dom = std::make_unique<SimpleDom>(QStringLiteral("<a><b><c/></b></a>"));
        Element made = counted("new", first(*dom, "c"));
        first(*dom, "c")->addChild(made);
        dom.reset();
        const Element root = counted("root");
        {
            const Element b = made->parent()->parent();
            QCOMPARE(b->name(), QStringLiteral("b"));
            b->addChild(counted("below", b));
            root->addChild(b);
        }
        root->clearChildren();
        QVERIFY(!made->parent()->parent()->hasChild());
        QCOMPARE(Counted::s_count, 2);
        {
            const Element b = made->parent()->parent();
            b->addChild(counted("below", b));
            root->addChild(b);
            root->clearChildren();
            QCOMPARE(b->toString(-1), QStringLiteral("<b><below/></b>"));
            b->clearChildren();
        }
        made.reset();
    }

    void removedElementsGoWithTheTree()
    {
        auto dom = std::make_unique<SimpleDom>(QStringLiteral("<a><b><c/></b><d/></a>"));
        Element held = first(*dom, "d");
        const auto leaf = watch(held);
        const auto branch = watch(first(*dom, "b"));
        first(*dom, "a")->clearChildren();
        dom.reset();
        QVERIFY(!leaf.expired() && !branch.expired());
        QCOMPARE(held->parent()->toString(-1), QStringLiteral("<a/>"));
        held.reset();
        QVERIFY(leaf.expired() && branch.expired());
    }

    // Size

    void millionElements()
    {
        constexpr int Count = 1000000;
        QString xml = QStringLiteral("<root>");
        for (int i = 0; i < Count / 2; ++i)
            xml += QStringLiteral("<a k=\"1\"><b/></a>");
        xml += QStringLiteral("</root>");
        auto dom = std::make_unique<SimpleDom>(xml);
        QCOMPARE(dom->toString(false), xml);
        auto found = dom->elementsByName(QStringLiteral("b"));
        QCOMPARE(found.size(), Count / 2);
        const auto watched = watch(found.last()->parent());
        dom.reset();
        QVERIFY(!watched.expired());
        found.clear();
        QVERIFY(watched.expired());
    }

    void depthIsNotTheStacks_data()
    {
        QTest::addColumn<int>("depth");
        QTest::newRow("ten thousand") << 10000;
        QTest::newRow("a million") << 1000000;
    }
    void depthIsNotTheStacks()
    {
        QFETCH(int, depth);
        const QString xml = QStringLiteral("<n>").repeated(depth - 1) + QStringLiteral("<n/>") +
                            QStringLiteral("</n>").repeated(depth - 1);
        auto dom = std::make_unique<SimpleDom>(xml);
        QCOMPARE(dom->toString(false), xml);
        auto found = dom->elementsByName(QStringLiteral("n"));
        QCOMPARE(found.size(), depth);
        const auto watched = watch(found.first());
        Element last = found.last();
        found.clear();
        dom.reset();
        QVERIFY(!watched.expired());
        last.reset();
        QVERIFY(watched.expired());
    }

    void lengthOfARowOfTreesIsNotTheStacks()
    {
        bool isReleased = false;
        const std::unique_ptr<QThread> thread(QThread::create([&isReleased] {
            SimpleDom dom(QStringLiteral("<a/>"));
            const auto watched = watch(dom.root());
            for (int i = 1; i < 20000; ++i) {
                const SimpleDom above(QStringLiteral("<a/>"));
                above.root()->addChild(dom.root());
                dom = above;
            }
            const bool isHeld = !watched.expired();
            dom = SimpleDom(QStringLiteral("<a/>"));
            isReleased = isHeld && watched.expired();
        }));
        thread->setStackSize(256 * 1024);
        thread->start();
        QVERIFY(thread->wait());
        QVERIFY(isReleased);
    }

    void deepFailureIsReleased()
    {
        QCOMPARE(readingFailure(QStringLiteral("<n>").repeated(200000)),
                 QStringLiteral("***** Error encountered: Premature end of document."));
    }

    void hugePartsAreRead()
    {
        const QByteArray name(4000, 'n');
        const QByteArray huge(5000000, 'x');
        OpenFile document("<" + name + " k=\"" + huge + "\" " + name + "=\"v\">" + huge + "</" +
                          name + ">");
        QVERIFY(document.isOpen());
        const Element root =
            SimpleDom(document.file()).elementsByName(QString::fromLatin1(name)).value(0);
        QVERIFY(root != nullptr);
        QVERIFY(root->innerText() == QString::fromLatin1(huge));
        QVERIFY(root->attributes()->value(QStringLiteral("k")) == QString::fromLatin1(huge));
        QVERIFY(root->hasAttribute(QString::fromLatin1(name)));
    }

    void documentsInALoopLeaveNothingBehind()
    {
        const QString good = QStringLiteral("<a k='1'><b>text</b><b><c/></b></a>");
        const QString bad = QStringLiteral("<a k='1'><b>text</b><b><c/></a>");
        const auto read = [&](int count) {
            for (int i = 0; i < count; ++i) {
                const auto found = SimpleDom(good).elementsByName(QStringLiteral("c"));
                if (found.size() != 1)
                    return false;
                if (i % 10 == 0 && readingFailure(bad).isEmpty())
                    return false;
            }
            return true;
        };
        // The sanitizer keeps freed memory, and reports by itself what was not freed.
        const int count = IsSanitized ? 10000 : 200000;
        QVERIFY(read(count / 20));
        const qint64 before = residentBytes();
        QVERIFY(before > 0);
        QVERIFY(read(count));
        const qint64 growth = residentBytes() - before;
        if (!IsSanitized)
            QVERIFY2(growth < 2 * 1024 * 1024, qPrintable(QString::number(growth)));
    }

    void movingElementsInALoopLeavesNothingBehind()
    {
        const SimpleDom dom(QStringLiteral("<a><b/><c/></a>"));
        const Element root = dom.root();
        const auto move = [&](int count) {
            for (int i = 0; i < count; ++i) {
                root->addChild(root->removeChild(0));
                const Element child = root->childAt(0);
                root->clearChildren();
                root->addChild(child);
                root->addChild(child);
            }
        };
        move(1000);
        const qint64 before = residentBytes();
        QVERIFY(before > 0);
        move(300000);
        const qint64 growth = residentBytes() - before;
        QCOMPARE(root->chidrenCount(), 2);
        if (!IsSanitized)
            QVERIFY2(growth < 2 * 1024 * 1024, qPrintable(QString::number(growth)));
    }

    // Hostile documents

    void entityBombIsRefused_data()
    {
        QTest::addColumn<QString>("xml");
        QString nested = QStringLiteral("<!DOCTYPE a [<!ENTITY e0 \"0123456789\">");
        for (int i = 1; i <= 20; ++i) {
            nested += QStringLiteral("<!ENTITY e%1 \"").arg(i) +
                      QStringLiteral("&e%1;").arg(i - 1).repeated(10) + QStringLiteral("\">");
        }
        nested += QStringLiteral("]>");
        QTest::newRow("nested, in a text") << nested + QStringLiteral("<a>&e20;</a>");
        QTest::newRow("nested, in an attribute") << nested + QStringLiteral("<a b=\"&e20;\"/>");
        const QString big = QStringLiteral("<!DOCTYPE a [<!ENTITY e \"") +
                            QString(100000, QLatin1Char('x')) + QStringLiteral("\">]>");
        QTest::newRow("one that is big") << big + QStringLiteral("<a>") +
                                                QStringLiteral("&e;").repeated(100000) +
                                                QStringLiteral("</a>");
    }
    void entityBombIsRefused()
    {
        QFETCH(QString, xml);
        const QString text = readingFailure(xml);
        QVERIFY2(text.startsWith(QStringLiteral("***** Error encountered: ")), qPrintable(text));
    }

    void everyBeginningOfADocumentIsAFailureOrAPrologue()
    {
        const QString prologue = QStringLiteral("<?xml version=\"1.0\"?>\n  ");
        const QString xml = prologue + QStringLiteral("<!-- c --><!DOCTYPE a [<!ENTITY e \"x\">]>"
                                                      "<a b='1'>&e;<c><![CDATA[y]]></c></a>");
        const qsizetype declared = prologue.indexOf(QLatin1Char('\n'));
        for (qsizetype length = 1; length < xml.size(); ++length) {
            const bool isPrologue = length >= declared && length <= prologue.size();
            QCOMPARE(readingFailure(xml.left(length)).isEmpty(), isPrologue);
            OpenFile document(xml.left(length).toUtf8());
            QVERIFY(document.isOpen());
            QCOMPARE(failureText([&] { SimpleDom{document.file()}; }).isEmpty(), isPrologue);
        }
        QVERIFY(readingFailure(xml).isEmpty());
    }

    void anyBytesAreReadOrRefused()
    {
        const QByteArray xml = "<?xml version='1.0'?><!DOCTYPE a [<!ENTITY e 'x'>]>"
                               "<a xmlns:p='urn:p' b='1'>&e;<p:c p:d='2'><![CDATA[y]]></p:c></a>";
        constexpr int Count = 2000;
        const QTemporaryDir directory;
        QFile file(directory.filePath(QStringLiteral("a.xml")));
        QRandomGenerator random(99);
        int failures = 0;
        for (int i = 0; i < Count; ++i) {
            QByteArray bytes = xml;
            for (int changes = 1 + random.bounded(4); changes > 0; --changes)
                bytes[random.bounded(int(bytes.size()))] = char(random.bounded(256));
            QVERIFY(writeFile(file.fileName(), bytes));
            QVERIFY(file.open(QIODevice::ReadOnly));
            const QString text = failureText([&] {
                const SimpleDom dom(&file);
                dom.toString(true);
            });
            file.close();
            failures += text.isEmpty() ? 0 : 1;
            QVERIFY2(text.isEmpty() || text.startsWith(QStringLiteral("***** Error encountered: ")),
                     qPrintable(text));
        }
        QVERIFY(failures > 0);
        QVERIFY(failures < Count);
    }
};

QTEST_GUILESS_MAIN(TestSimpleDom)
#include "tst_simpledom.moc"
