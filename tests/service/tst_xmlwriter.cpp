// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "service/kittexts_p.h"
#include "support/failuretext.h"
#include "support/xmltrees.h"

#include <kez/service/xmlwriter.h>
#include <kez/simpledom.h>

#include <QRandomGenerator>
#include <QTest>

#include <algorithm>
#include <functional>

using namespace KezService;

namespace {

using Layout = XmlWriter::Layout;
using Steps = std::function<void(XmlWriter&)>;

const QString Declaration = QStringLiteral("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n");

constexpr Layout BothLayouts[] = {Layout::Compact, Layout::Indented};

QString character(char32_t code)
{
    return QString::fromUcs4(&code, 1);
}

/// What is different after the tree was written and read, in both layouts; empty if nothing is. The
/// failure if it cannot be written.
QString changeOf(const XmlElement& tree)
{
    for (const Layout layout : BothLayouts) {
        QString text;
        const QString failure = failureText([&] { text = XmlWriter::toText(tree, layout); });
        if (!failure.isNull())
            return failure;
        const QString notRead = failureText([&text] { SimpleDom{text}; });
        if (!notRead.isNull())
            return QStringLiteral("not read: ") + notRead;
        const QString change = treeDifference(tree, *SimpleDom(text).root());
        if (!change.isEmpty())
            return change;
    }
    return QString();
}

/// A text that can be written, of characters that are treated differently.
QString randomText(QRandomGenerator& random)
{
    static const QStringList parts{"a",      " ", "\n",     "\r",    "\t",       "<",
                                   ">",      "&", "]]>",    "\"",    "'",        "é",
                                   "\u20AC", "😀", "\uFEFF", "&amp;", "<![CDATA["};
    QString text;
    for (auto left = random.bounded(6); left > 0; --left)
        text += parts.at(random.bounded(int(parts.size())));
    return text;
}

Element randomTree(QRandomGenerator& random)
{
    static const QStringList names{"a", "b", "c-d.e", "_", "é", "xml"};
    const auto name = [&random] { return names.at(random.bounded(int(names.size()))); };
    QList<Element> elements{makeElement(name())};
    for (auto left = random.bounded(30); left > 0; --left)
        elements.append(addChild(elements.at(random.bounded(int(elements.size()))), name()));
    for (const Element& element : elements) {
        const QString text = randomText(random);
        if (!text.trimmed().isEmpty())
            element->setInnerText(text);
        for (auto left = random.bounded(3); left > 0; --left)
            element->appendAttribute(name(), randomText(random));
    }
    return elements.first();
}

QString codePoint(char32_t code)
{
    return "U+" + QString::number(code, 16).toUpper().rightJustified(4, '0');
}

/// What XML 1.0 says of characters (production 2) and of names (4 and 4a, without the colon).
bool isXmlCharacter(char32_t c)
{
    return c == 9 || c == 10 || c == 13 || (c >= 0x20 && c <= 0xD7FF) ||
           (c >= 0xE000 && c <= 0xFFFD) || (c >= 0x10000 && c <= 0x10FFFF);
}

bool isXmlNameStart(char32_t c)
{
    return (c >= 'A' && c <= 'Z') || c == '_' || (c >= 'a' && c <= 'z') ||
           (c >= 0xC0 && c <= 0xD6) || (c >= 0xD8 && c <= 0xF6) || (c >= 0xF8 && c <= 0x2FF) ||
           (c >= 0x370 && c <= 0x37D) || (c >= 0x37F && c <= 0x1FFF) ||
           (c >= 0x200C && c <= 0x200D) || (c >= 0x2070 && c <= 0x218F) ||
           (c >= 0x2C00 && c <= 0x2FEF) || (c >= 0x3001 && c <= 0xD7FF) ||
           (c >= 0xF900 && c <= 0xFDCF) || (c >= 0xFDF0 && c <= 0xFFFD) ||
           (c >= 0x10000 && c <= 0xEFFFF);
}

bool isXmlNameCharacter(char32_t c)
{
    return isXmlNameStart(c) || c == '-' || c == '.' || (c >= '0' && c <= '9') || c == 0xB7 ||
           (c >= 0x300 && c <= 0x36F) || (c >= 0x203F && c <= 0x2040);
}

/// `action` for each character of the first plane, and for every 15th and the last ones of the
/// others.
template <typename Action>
void forCharacters(Action action)
{
    for (char32_t c = 0; c <= 0x10FFFF; c += c < 0x10000 || (c & 0xFFFF) >= 0xFFF0 ? 1 : 15)
        action(c, c < 0x10000 ? QString(QChar(char16_t(c))) : character(c));
}

/// Whether the reader takes the document and finds `name` in it, as an element or an attribute.
bool isRead(const QString& document, const QString& name)
{
    bool isFound = false;
    failureText([&] {
        const SimpleDom dom(QString::fromUtf8(document.toUtf8()));
        isFound = dom.root()->name() == name || dom.root()->hasAttribute(name);
    });
    return isFound;
}

} // namespace

Q_DECLARE_METATYPE(Steps)

class TestXmlWriter : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void documentIsLaidOut_data();
    void documentIsLaidOut();
    void treeIsWrittenAsItsElementsAre();
    void treeIsReadBack_data();
    void treeIsReadBack();
    void anyTreeIsReadBack();
    void readDocumentIsReadBack();
    void everyCharacterOfXmlIsReadBack();
    void otherCharactersAreRefused();
    void namesAreReadBackOrRefused();
    void nameIsReadBackUpToTheReadersLimit();
    void treeThatIsNotReadBackIsRefused_data();
    void treeThatIsNotReadBackIsRefused();
    void failureNamesTheElement_data();
    void failureNamesTheElement();
    void pathIsShort();
    void sharedElementIsWrittenInEachPlace();
    void elementBelowItselfIsRefused_data();
    void elementBelowItselfIsRefused();
    void deepTreeIsReadBack_data();
    void deepTreeIsReadBack();
    void indentationHasALimit();
    void piecesMakeOneText_data();
    void piecesMakeOneText();
    void treeMayStandBelowAnOpenElement();
    void callsOutOfOrderAreRefused_data();
    void callsOutOfOrderAreRefused();
    void refusesAfterAFailure();
    void textIsReplaced();
    void textMayBeItsOwnTarget();
};

void TestXmlWriter::documentIsLaidOut_data()
{
    QTest::addColumn<Steps>("steps");
    QTest::addColumn<QString>("compact");
    QTest::addColumn<QString>("indented");

    QTest::newRow("empty element") << Steps([](XmlWriter& w) { w.element("a", ""); }) << "<a/>\n"
                                   << "<a/>\n";
    QTest::newRow("text") << Steps([](XmlWriter& w) { w.element("a", " b "); }) << "<a> b </a>\n"
                          << "<a> b </a>\n";
    QTest::newRow("attributes in the order of their names")
        << Steps([](XmlWriter& w) {
               w.element("a", "", {{"c", "3"}, {"b", ""}, {"B", "1"}, {"é", "4"}});
           })
        << "<a B=\"1\" b=\"\" c=\"3\" é=\"4\"/>\n"
        << "<a B=\"1\" b=\"\" c=\"3\" é=\"4\"/>\n";
    QTest::newRow("children") << Steps([](XmlWriter& w) {
        w.startElement("a", {{"k", "v"}});
        w.element("b", "");
        w.startElement("c");
        w.element("d", "text");
        w.endElement();
        w.endElement();
    }) << "<a k=\"v\"><b/><c><d>text</d></c></a>\n"
                              << "<a k=\"v\">\n"
                                 "    <b/>\n"
                                 "    <c>\n"
                                 "        <d>text</d>\n"
                                 "    </c>\n"
                                 "</a>\n";
    QTest::newRow("text and children") << Steps([](XmlWriter& w) {
        w.startElement("a");
        w.startElement("b");
        w.text("text ");
        w.startElement("c");
        w.element("d", "");
        w.endElement();
        w.element("e", "");
        w.endElement();
        w.element("f", "");
        w.endElement();
    }) << "<a><b>text <c><d/></c><e/></b><f/></a>\n"
                                       << "<a>\n"
                                          "    <b>text <c><d/></c><e/></b>\n"
                                          "    <f/>\n"
                                          "</a>\n";
    QTest::newRow("escapes")
        << Steps([](XmlWriter& w) {
               w.element("a", "&amp; <b> ]]> \"'\t\n\r\u0085\u2028", {{"k", "&<>\"'\t\n\r "}});
           })
        << "<a k=\"&amp;&lt;&gt;&quot;'&#9;&#10;&#13; \">&amp;amp; &lt;b&gt; ]]&gt; "
           "\"'\t\n&#13;\u0085\u2028</a>\n"
        << "<a k=\"&amp;&lt;&gt;&quot;'&#9;&#10;&#13; \">&amp;amp; &lt;b&gt; "
           "]]&gt; \"'\t\n&#13;\u0085\u2028</a>\n";
}

void TestXmlWriter::documentIsLaidOut()
{
    QFETCH(const Steps, steps);
    for (const Layout layout : BothLayouts) {
        QString text;
        XmlWriter writer(text, layout);
        steps(writer);
        writer.finish();
        QFETCH(const QString, compact);
        QFETCH(const QString, indented);
        QCOMPARE(text, Declaration + (layout == Layout::Compact ? compact : indented));
    }
}

void TestXmlWriter::treeIsWrittenAsItsElementsAre()
{
    const Element tree = makeElement("a");
    tree->appendAttribute("k", "<");
    addChild(tree, "b", "text & more");
    addChild(addChild(tree, "c"), "d");
    QString text;
    XmlWriter writer(text, Layout::Compact);
    writer.write(*tree);
    writer.finish();
    QCOMPARE(text, Declaration + "<a k=\"&lt;\"><b>text &amp; more</b><c><d/></c></a>\n");
    QCOMPARE(XmlWriter::toText(*tree, Layout::Compact), text);
    QCOMPARE(XmlWriter::toText(*tree),
             Declaration + "<a k=\"&lt;\">\n    <b>text &amp; more</b>\n    <c>\n        <d/>\n"
                           "    </c>\n</a>\n");
}

void TestXmlWriter::treeIsReadBack_data()
{
    QTest::addColumn<Element>("tree");
    const auto addRow = [](const char* title, const Element& tree) {
        QTest::newRow(title) << tree;
    };

    addRow("name", makeElement("a"));
    addRow("name with all kinds of characters", makeElement("_a-b.c1é·"));
    addRow("name that XML reserves", makeElement("xml", QString(), {{"xml", "1"}}));
    addRow("element xmlns", makeElement("xmlns"));
    addRow("attribute of a letter that is new", makeElement("a", QString(), {{"Ⰰ𐐀", "1"}}));
    addRow("blanks around a text", makeElement("a", " \n\tb\t\n "));
    addRow("carriage returns", makeElement("a", "\r\nb\r", {{"c", "\r\n\r"}}));
    addRow("blanks that XML does not know", makeElement("a", "\u00A0"));
    addRow("byte order marks", makeElement("a", "\uFEFFb\uFEFF", {{"c", "\uFEFF"}}));
    addRow("end of a section", makeElement("a", "]]>", {{"b", "]]>"}}));
    addRow("markup",
           makeElement("a", "<b c='d'/>&amp;&#10;<!-- --><?e?><![CDATA[ ]]>", {{"f", "\"'&lt;<"}}));
    addRow("beyond the first plane", makeElement("a", "😀\U0010FFFF", {{"b", "😀"}}));
    addRow("attribute of blanks", makeElement("a", QString(), {{"b", " \t\n\r "}}));
    addRow("empty attribute", makeElement("a", QString(), {{"b", ""}}));

    const Element mixed = makeElement("a", "\n text \n");
    addChild(addChild(mixed, "b", "below"), "c");
    addChild(mixed, "d");
    addRow("text and children", mixed);

    const Element mixedBelow = makeElement("a");
    addChild(mixedBelow, "b", "before");
    addChild(addChild(mixedBelow, "c", "x"), "d");
    addChild(mixedBelow, "e");
    addRow("text and children below", mixedBelow);

    const Element manyNames = makeElement("a");
    for (int i = 0; i < 1500; ++i) {
        const QString name = "é" + QString::number(i % 500);
        manyNames->addChild(makeElement(name, QString(), {{name, "1"}}));
    }
    addRow("many names beyond ASCII", manyNames);
}

void TestXmlWriter::treeIsReadBack()
{
    QFETCH(const Element, tree);
    QCOMPARE(changeOf(*tree), QString());
}

void TestXmlWriter::anyTreeIsReadBack()
{
    QRandomGenerator random(4711);
    for (int i = 0; i < 500; ++i) {
        const QString change = changeOf(*randomTree(random));
        QVERIFY2(change.isEmpty(), qPrintable(QStringLiteral("tree %1: %2").arg(i).arg(change)));
    }
}

void TestXmlWriter::readDocumentIsReadBack()
{
    const SimpleDom dom(QStringLiteral("<?xml version='1.0'?><!DOCTYPE a [<!ENTITY e 'xy'>]>"
                                       "<p:a xmlns:p='urn:p' p:b='1&#10;2' xml:lang='fr'>"
                                       "<!-- --> lost <c>&e;</c>  kept\r\n <d/> </p:a>"));
    QCOMPARE(dom.root()->innerText(), QString("  kept\n "));
    QCOMPARE(XmlWriter::toText(*dom.root(), Layout::Compact),
             Declaration + "<a b=\"1&#10;2\" lang=\"fr\">  kept\n <c>xy</c><d/></a>\n");
    QCOMPARE(changeOf(*dom.root()), QString());
}

void TestXmlWriter::everyCharacterOfXmlIsReadBack()
{
    const Element tree = makeElement("a");
    forCharacters([&tree](char32_t code, const QString& text) {
        if (isXmlCharacter(code))
            tree->addChild(makeElement("b", '.' + text + '.', {{"c", text}}));
    });
    QVERIFY(tree->chidrenCount() > 63000);
    QCOMPARE(changeOf(*tree), QString());
}

void TestXmlWriter::otherCharactersAreRefused()
{
    QStringList faults;
    const auto check = [&faults](const Element& tree, const QString& expected) {
        const QString failure = failureText([&tree] { XmlWriter::toText(*tree); });
        if (failure != expected)
            faults.append(expected + " but: " + failure);
    };
    forCharacters([&check](char32_t code, const QString& text) {
        if (isXmlCharacter(code))
            return;
        const QString root = QStringLiteral("/a");
        check(makeElement("a", '.' + text + '.'), kitText("XmlCharacter", root, codePoint(code)));
        check(makeElement("a", QString(), {{"b", text}}),
              kitText("XmlAttributeCharacter", root, QStringLiteral("b"), codePoint(code)));
    });
    QVERIFY2(faults.isEmpty(), qPrintable(faults.mid(0, 20).join('\n')));
}

void TestXmlWriter::namesAreReadBackOrRefused()
{
    QStringList faults;
    const auto check = [&faults](const Element& tree, const QString& name, bool isReadBack) {
        if (changeOf(*tree).isEmpty() != isReadBack)
            faults.append(name + (isReadBack ? " is refused" : " is taken"));
    };
    forCharacters([&check](char32_t code, const QString& letter) {
        // Above the alphabets, one of some is enough; the ends of the ranges count.
        const bool isAtAnEnd = isXmlNameStart(code) != isXmlNameStart(code + 1) ||
                               isXmlNameStart(code) != isXmlNameStart(code - 1);
        if (code > 0x3100 && code % 31 != 0 && !isAtAnEnd)
            return;
        for (const QString& name : {letter, 'a' + letter}) {
            const bool isName = name == letter ? isXmlNameStart(code) : isXmlNameCharacter(code);
            check(makeElement(name), name, isName && isRead('<' + name + "/>", name));
            check(makeElement("x", QString(), {{name, "1"}}), name,
                  isName && isRead("<x " + name + "='1'/>", name));
        }
    });
    QVERIFY2(faults.isEmpty(), qPrintable(faults.mid(0, 20).join('\n')));
}

void TestXmlWriter::nameIsReadBackUpToTheReadersLimit()
{
    for (const QString& letter : {QStringLiteral("a"), QStringLiteral("é")}) {
        for (const int length : {1, 255, 256, 257, 4095, 4096}) {
            const QString name = letter.repeated(length);
            QCOMPARE(changeOf(*makeElement(name, "text", {{name, "value"}})), QString());
        }
        const QString tooLong = letter.repeated(4097);
        const QString shown = letter.repeated(80) + "…";
        QCOMPARE(changeOf(*makeElement(tooLong)), kitText("XmlElementName", '/' + shown, shown));
        QCOMPARE(changeOf(*makeElement("x", QString(), {{tooLong, "1"}})),
                 kitText("XmlAttributeName", QStringLiteral("/x"), shown));
    }
}

void TestXmlWriter::treeThatIsNotReadBackIsRefused_data()
{
    QTest::addColumn<Element>("tree");
    QTest::addColumn<QString>("failure");
    const auto elementName = [](const char* title, const QString& name) {
        QTest::addRow("element: %s", title)
            << makeElement(name)
            << kitText("XmlElementName", '/' + shownName(name), shownName(name));
    };
    const auto attributeName = [](const char* title, const QString& name) {
        QTest::addRow("attribute: %s", title)
            << makeElement("a", QString(), {{name, "1"}})
            << kitText("XmlAttributeName", QStringLiteral("/a"), shownName(name));
    };
    const auto blankText = [](const char* title, const QString& text) {
        QTest::addRow("text: %s", title)
            << makeElement("a", text) << kitText("XmlBlankText", QStringLiteral("/a"));
    };
    const QString nul(QChar(0));
    elementName("empty", "");
    elementName("prefix", "a:b");
    elementName("blank", "a b");
    elementName("digit first", "1a");
    elementName("markup", "a/><b");
    elementName("line feed", "a\nb");
    elementName("NUL", "a" + nul);
    elementName("half of a character", "a" + QString(QChar(0xD800)));
    attributeName("empty", "");
    attributeName("prefix", "xml:lang");
    attributeName("declaration of a namespace", "xmlns");
    attributeName("markup", "b='' c");
    attributeName("not a letter of XML", "ª");
    attributeName("NUL", nul);
    attributeName("half of a character", QString(QChar(0xDC00)));
    blankText("blank", " ");
    blankText("line feed", "\n");
    blankText("carriage return", "\r");
    blankText("all blanks", " \t\r\n");

    QTest::newRow("half a character at the end of a text")
        << makeElement("a", "b" + QString(QChar(0xD83D)))
        << kitText("XmlCharacter", QStringLiteral("/a"), QStringLiteral("U+D83D"));
    QTest::newRow("halves in the wrong order")
        << makeElement("a", QString(QChar(0xDE00)) + QChar(0xD83D))
        << kitText("XmlCharacter", QStringLiteral("/a"), QStringLiteral("U+DE00"));
    QTest::newRow("half a character at the end of an attribute")
        << makeElement("a", QString(), {{"b", QString(QChar(0xD83D))}})
        << kitText("XmlAttributeCharacter", QStringLiteral("/a"), QStringLiteral("b"),
                   QStringLiteral("U+D83D"));
    const Element blankBeforeAChild = makeElement("a", "\n");
    addChild(blankBeforeAChild, "b");
    QTest::newRow("text of blanks before a child")
        << blankBeforeAChild << kitText("XmlBlankText", QStringLiteral("/a"));
}

void TestXmlWriter::treeThatIsNotReadBackIsRefused()
{
    QFETCH(const Element, tree);
    QFETCH(const QString, failure);
    for (const Layout layout : BothLayouts)
        QCOMPARE(failureText([&] { XmlWriter::toText(*tree, layout); }), failure);
}

void TestXmlWriter::failureNamesTheElement_data()
{
    QTest::addColumn<QStringList>("namesBefore");
    QTest::addColumn<QString>("path");
    QTest::newRow("first") << QStringList() << "/order/item[1]";
    QTest::newRow("third") << QStringList{"item", "item"} << "/order/item[3]";
    QTest::newRow("third among others")
        << QStringList{"client", "item", "date", "item", "date"} << "/order/item[3]";
    QStringList many;
    for (int i = 0; i < 31; ++i)
        many.append("n" + QString::number(i));
    QTest::newRow("many names") << many << "/order/item[1]";
    many.append("n31");
    QTest::newRow("too many names") << many << "/order/item";
    QTest::newRow("too many names after it") << QStringList("item") + many << "/order/item[2]";
}

void TestXmlWriter::failureNamesTheElement()
{
    QFETCH(const QStringList, namesBefore);
    QFETCH(const QString, path);
    const Element tree = makeElement("order");
    for (const QString& name : namesBefore)
        addChild(tree, name);
    addChild(tree, "item", " ");
    QCOMPARE(changeOf(*tree), kitText("XmlBlankText", path));

    QString text;
    XmlWriter writer(text);
    writer.startElement("order");
    for (const QString& name : namesBefore)
        writer.element(name, "");
    QCOMPARE(failureText([&] { writer.element("item", " "); }), kitText("XmlBlankText", path));
}

void TestXmlWriter::pathIsShort()
{
    const auto pathOfDepth = [](int depth) {
        QString text;
        XmlWriter writer(text);
        for (int i = 0; i < depth; ++i)
            writer.startElement("n" + QString::number(i));
        return failureText([&writer] { writer.finish(); });
    };
    QString twenty = "/n0";
    for (int i = 1; i < 20; ++i)
        twenty += QStringLiteral("/n%1[1]").arg(i);
    QCOMPARE(pathOfDepth(20), kitText("XmlOpenElement", twenty));
    QString more = "/n0/n1[1]/n2[1]/n3[1]/…";
    for (int i = 5; i < 21; ++i)
        more += QStringLiteral("/n%1[1]").arg(i);
    QCOMPARE(pathOfDepth(21), kitText("XmlOpenElement", more));
    QVERIFY(pathOfDepth(100000).size() < 500);
}

void TestXmlWriter::sharedElementIsWrittenInEachPlace()
{
    const Element tree = makeElement("a");
    const auto shared = std::make_shared<XmlElement>("b");
    shared->addChild(std::make_shared<XmlElement>("c"));
    tree->addChild(shared);
    tree->addChild(shared);
    addChild(tree, "d")->addChild(shared);
    QCOMPARE(XmlWriter::toText(*tree, Layout::Compact),
             Declaration + "<a><b><c/></b><b><c/></b><d><b><c/></b></d></a>\n");
}

void TestXmlWriter::elementBelowItselfIsRefused_data()
{
    QTest::addColumn<int>("distance");
    QTest::addColumn<QString>("path");
    QTest::newRow("own child") << 1 << "/a/b[1]/b[1]";
    QTest::newRow("two below") << 2 << "/a/b[1]/c1[1]/b[1]";
    QTest::newRow("four below") << 4 << "/a/b[1]/c1[1]/c2[1]/c3[1]/b[1]";
}

void TestXmlWriter::elementBelowItselfIsRefused()
{
    QFETCH(const int, distance);
    QFETCH(const QString, path);
    const Element tree = makeElement("a");
    const Element top = addChild(tree, "b");
    Element last = top;
    for (int i = 1; i < distance; ++i)
        last = addChild(last, QStringLiteral("c%1").arg(i));
    last->addChild(top);
    QCOMPARE(failureText([&] { XmlWriter::toText(*tree); }), kitText("XmlCycle", path));
    last->clearChildren();
}

void TestXmlWriter::deepTreeIsReadBack_data()
{
    QTest::addColumn<Layout>("layout");
    QTest::addColumn<int>("depth");
    QTest::newRow("compact") << Layout::Compact << 300000;
    QTest::newRow("indented") << Layout::Indented << 60000;
}

void TestXmlWriter::deepTreeIsReadBack()
{
    QFETCH(const Layout, layout);
    QFETCH(const int, depth);
    const Element tree = makeElement("a");
    Element last = tree;
    for (int i = 1; i < depth; ++i)
        last = addChild(last, "a");
    last->setInnerText("bottom");
    last.reset();
    const QString text = XmlWriter::toText(*tree, layout);
    QVERIFY(text.size() < qsizetype(depth) * 270);
    const SimpleDom dom(text);
    QCOMPARE(treeDifference(*tree, *dom.root()), QString());
}

/// Each level of a very deep tree would otherwise take more room than the one above.
void TestXmlWriter::indentationHasALimit()
{
    QString text;
    XmlWriter writer(text);
    for (int i = 0; i < 35; ++i)
        writer.startElement("n" + QString::number(i));
    for (int i = 0; i < 35; ++i)
        writer.endElement();
    writer.finish();
    const QStringList lines = text.split('\n').mid(1);
    for (int i = 0; i < 34; ++i) {
        const QString margin(4 * std::min(i, 32), ' ');
        QCOMPARE(lines.at(i), QStringLiteral("%1<n%2>").arg(margin).arg(i));
        QCOMPARE(lines.at(68 - i), QStringLiteral("%1</n%2>").arg(margin).arg(i));
    }
    QCOMPARE(lines.at(34), QString(128, ' ') + "<n34/>");
}

void TestXmlWriter::piecesMakeOneText_data()
{
    QTest::addColumn<QStringList>("pieces");
    QTest::addColumn<QString>("failure");
    const QString smile = QStringLiteral("😀");
    const QString high = smile.left(1);
    const QString low = smile.right(1);
    const QString notHeld = kitText("XmlCharacter", QStringLiteral("/a"), QStringLiteral("U+D83D"));
    QTest::newRow("plain") << QStringList{"a", "", "b"} << QString();
    QTest::newRow("nothing") << QStringList{"", ""} << QString();
    QTest::newRow("blanks first") << QStringList{" ", "\n", "b"} << QString();
    QTest::newRow("blanks last") << QStringList{"b", " "} << QString();
    QTest::newRow("blanks only") << QStringList{" ", "\n"}
                                 << kitText("XmlBlankText", QStringLiteral("/a"));
    QTest::newRow("end of a section") << QStringList{"]", "]", ">"} << QString();
    QTest::newRow("cut in a character") << QStringList{"a" + high, low + "b"} << QString();
    QTest::newRow("cut in two characters") << QStringList{high, low + high, low} << QString();
    QTest::newRow("nothing between two halves") << QStringList{high, "", low} << QString();
    QTest::newRow("half a character") << QStringList{high} << notHeld;
    QTest::newRow("two first halves") << QStringList{high, high} << notHeld;
    QTest::newRow("half a character, then another") << QStringList{high, "b"} << notHeld;
}

void TestXmlWriter::piecesMakeOneText()
{
    QFETCH(const QStringList, pieces);
    QFETCH(const QString, failure);
    for (const bool isBeforeAChild : {false, true}) {
        QString text;
        XmlWriter writer(text);
        writer.startElement("a");
        const QString happened = failureText([&] {
            for (const QString& piece : pieces)
                writer.text(piece);
            if (isBeforeAChild)
                writer.element("b", "");
            writer.endElement();
            writer.finish();
        });
        QCOMPARE(happened, failure);
        if (!failure.isNull())
            continue;
        QCOMPARE(SimpleDom(text).root()->innerText(), pieces.join(QString()));
        QCOMPARE(SimpleDom(text).root()->chidrenCount(), isBeforeAChild ? 1 : 0);
    }
}

void TestXmlWriter::treeMayStandBelowAnOpenElement()
{
    const Element order = makeElement("order");
    addChild(order, "item", "Nuts");
    QString text;
    XmlWriter writer(text);
    writer.startElement("orders");
    writer.write(*order);
    writer.element("pause", "");
    writer.write(*order);
    writer.endElement();
    writer.finish();
    QCOMPARE(text, Declaration + "<orders>\n"
                                 "    <order>\n        <item>Nuts</item>\n    </order>\n"
                                 "    <pause/>\n"
                                 "    <order>\n        <item>Nuts</item>\n    </order>\n"
                                 "</orders>\n");

    addChild(order, "item", "\n");
    XmlWriter other(text);
    other.startElement("orders");
    other.element("order", "");
    QCOMPARE(failureText([&] { other.write(*order); }),
             kitText("XmlBlankText", QStringLiteral("/orders/order[2]/item[2]")));
}

void TestXmlWriter::callsOutOfOrderAreRefused_data()
{
    QTest::addColumn<Steps>("before");
    QTest::addColumn<Steps>("wrong");
    QTest::addColumn<QString>("failure");
    const Steps none = [](XmlWriter&) {};
    const Steps root = [](XmlWriter& w) { w.element("a", ""); };
    const Steps finished = [](XmlWriter& w) {
        w.element("a", "");
        w.finish();
    };
    const Steps text = [](XmlWriter& w) { w.text("b"); };
    const Steps end = [](XmlWriter& w) { w.endElement(); };
    const Steps finish = [](XmlWriter& w) { w.finish(); };
    const Steps childAndOpen = [](XmlWriter& w) {
        w.startElement("a");
        w.element("b", "");
    };
    QTest::newRow("second root") << root << Steps([](XmlWriter& w) {
        w.startElement("b");
    }) << kitText("XmlSecondRoot", QStringLiteral("a"), QStringLiteral("b"));
    QTest::newRow("second root from a tree")
        << root << Steps([](XmlWriter& w) { w.write(XmlElement("b")); })
        << kitText("XmlSecondRoot", QStringLiteral("a"), QStringLiteral("b"));
    QTest::newRow("text before the root") << none << text << kitText("XmlTextOutside");
    QTest::newRow("text after the root") << root << text << kitText("XmlTextOutside");
    QTest::newRow("empty text outside")
        << root << Steps([](XmlWriter& w) { w.text(""); }) << kitText("XmlTextOutside");
    QTest::newRow("text after a child")
        << childAndOpen << text << kitText("XmlTextAfterChildren", QStringLiteral("/a"));
    QTest::newRow("end before the root") << none << end << kitText("XmlNothingToEnd");
    QTest::newRow("end after the root") << root << end << kitText("XmlNothingToEnd");
    QTest::newRow("finish without a root") << none << finish << kitText("XmlNoRoot");
    QTest::newRow("finish with an open element")
        << childAndOpen << finish << kitText("XmlOpenElement", QStringLiteral("/a"));
    QTest::newRow("finish again") << finished << finish << kitText("XmlFinished");
    QTest::newRow("element after the end")
        << finished << Steps([](XmlWriter& w) { w.startElement("b"); }) << kitText("XmlFinished");
    QTest::newRow("tree after the end")
        << finished << Steps([](XmlWriter& w) { w.write(XmlElement("b")); })
        << kitText("XmlFinished");
}

void TestXmlWriter::callsOutOfOrderAreRefused()
{
    QFETCH(const Steps, before);
    QFETCH(const Steps, wrong);
    QFETCH(const QString, failure);
    QString text;
    XmlWriter writer(text);
    before(writer);
    const QString held = text;
    QCOMPARE(failureText([&] { wrong(writer); }), failure);
    QCOMPARE(failureText([&] { wrong(writer); }), kitText("XmlRefused", failure));
    QCOMPARE(text, held);
}

void TestXmlWriter::refusesAfterAFailure()
{
    const Steps calls[] = {
        [](XmlWriter& w) { w.startElement("b"); },      [](XmlWriter& w) { w.text("b"); },
        [](XmlWriter& w) { w.endElement(); },           [](XmlWriter& w) { w.element("b", ""); },
        [](XmlWriter& w) { w.write(XmlElement("b")); }, [](XmlWriter& w) { w.finish(); },
    };
    QString text;
    XmlWriter writer(text);
    writer.startElement("a");
    const QString failure = failureText([&writer] { writer.startElement("1"); });
    QCOMPARE(failure, kitText("XmlElementName", QStringLiteral("/a/1[1]"), QStringLiteral("1")));
    for (const Steps& call : calls)
        QCOMPARE(failureText([&] { call(writer); }), kitText("XmlRefused", failure));
}

void TestXmlWriter::textIsReplaced()
{
    QString text = "before";
    XmlWriter writer(text);
    writer.element("a", "");
    writer.finish();
    QCOMPARE(text, Declaration + "<a/>\n");
}

void TestXmlWriter::textMayBeItsOwnTarget()
{
    QString text;
    XmlWriter writer(text, Layout::Compact);
    writer.startElement("a");
    const QString before(100000, 'x');
    writer.text(before);
    const QString written(text.constData(), text.size()); // a copy would keep the text
    QVERIFY(written.size() > 50000);
    writer.text(text);
    writer.endElement();
    writer.finish();
    QVERIFY(SimpleDom(text).root()->innerText() == before + written);
}

QTEST_GUILESS_MAIN(TestXmlWriter)
#include "tst_xmlwriter.moc"
