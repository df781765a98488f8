// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include <kez/xmlelement.h>

#include "support/failuretext.h"

#include <QRandomGenerator>
#include <QTest>
#include <QThread>

#include <climits>
#include <memory>

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

Element leaf(const char* name)
{
    return std::make_shared<XmlElement>(QString::fromUtf8(name), nullptr);
}

/// A new element with a link to its parent, and added to it.
template <typename Type = XmlElement>
Element childOf(const Element& parent, const char* name)
{
    const auto child = std::make_shared<Type>(QString::fromUtf8(name), parent);
    parent->addChild(child);
    return child;
}

/// `depth` elements, each the only child of the one before, with links in both directions.
template <typename Type = XmlElement>
Element chain(int depth)
{
    const Element root = std::make_shared<Type>(QStringLiteral("n"));
    Element last = root;
    for (int i = 1; i < depth; ++i)
        last = childOf<Type>(last, "n");
    return root;
}

QXmlStreamAttributes attributes(const QList<std::pair<const char*, const char*>>& values)
{
    QXmlStreamAttributes result;
    for (const auto& [name, value] : values)
        result.append(QString::fromUtf8(name), QString::fromUtf8(value));
    return result;
}

/// What toString() must return, computed by recursion.
QString expectedText(const XmlElement& element, int indent)
{
    const bool pretty = indent >= 0;
    const QString margin = pretty ? QString(indent, QLatin1Char(' ')) : QString();
    const QString newLine = pretty ? QStringLiteral("\n") : QString();
    const QString unit = pretty ? QStringLiteral("    ") : QString();
    QString text = margin + QLatin1Char('<') + element.name();
    if (element.attributes()) {
        bool first = true;
        const auto values = element.attributes()->toDictionnary();
        for (auto it = values->cbegin(); it != values->cend(); ++it, first = false) {
            if (first || !pretty)
                text += QLatin1Char(' ');
            else
                text += newLine + margin + QString(element.name().size() + 2, QLatin1Char(' '));
            text += it.key() + QLatin1String("=\"") + it.value() + QLatin1Char('"');
        }
    }
    const QString end = newLine + margin + QLatin1String("</") + element.name() + QLatin1Char('>');
    if (element.hasChild())
        text += QLatin1Char('>');
    if (element.hasInnerText())
        return text + QLatin1Char('>') + newLine + margin + unit + element.innerText() + end;
    if (!element.hasChild())
        return text + QLatin1String("/>");
    for (int i = 0; i < element.chidrenCount(); ++i)
        text += newLine + expectedText(*element.childAt(i), pretty ? indent + 4 : indent);
    return text + end;
}

Element randomTree(QRandomGenerator& random, int depth)
{
    const auto element = std::make_shared<XmlElement>(
        QString(1 + random.bounded(12), QChar(u'a' + random.bounded(26))), nullptr);
    for (int i = random.bounded(4); i > 0; --i)
        element->appendAttribute(QString(1 + i, QChar(u'a' + random.bounded(26))),
                                 QString::number(random.bounded(1000)));
    if (random.bounded(5) == 0)
        element->setInnerText(QString::number(random.bounded(1000)));
    if (depth > 0) {
        for (int i = random.bounded(5); i > 0; --i)
            element->addChild(randomTree(random, depth - 1));
    }
    return element;
}

} // namespace

class TestXmlElement : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void cleanup() { QCOMPARE(Counted::s_count, 0); }

    // Fields

    void newElementHasOnlyItsNameAndParent()
    {
        const Element root = leaf("root");
        const XmlElement element(QStringLiteral("item"), root);
        QCOMPARE(element.name(), QStringLiteral("item"));
        QCOMPARE(element.parent(), root);
        QCOMPARE(element.attributes(), nullptr);
        QVERIFY(element.innerText().isEmpty());
        QVERIFY(!element.hasInnerText());
        QVERIFY(!element.hasChild());
        QVERIFY(!root->hasChild());
        QCOMPARE(root->parent(), nullptr);
    }

    void parentMayBeLeftOut() { QCOMPARE(XmlElement(QStringLiteral("root")).parent(), nullptr); }

    void withoutChildrenThereAreNone()
    {
        const Element element = leaf("a");
        QCOMPARE(element->chidrenCount(), 0);
        QCOMPARE(element->childAt(0), nullptr);
        QCOMPARE(element->childAt(-1), nullptr);
        element->clearChildren();
        QCOMPARE(element->chidrenCount(), 0);
    }

    void childrenAreInTheOrderAdded()
    {
        const Element root = leaf("root");
        const Element first = leaf("b");
        const Element second = leaf("a");
        root->addChild(first);
        QVERIFY(root->hasChild());
        root->addChild(second);
        root->addChild(first);
        QCOMPARE(root->chidrenCount(), 3);
        QCOMPARE(root->childAt(0), first);
        QCOMPARE(root->childAt(1), second);
        QCOMPARE(root->childAt(2), first);
        for (int outside : {-1, 3, INT_MIN, INT_MAX})
            QCOMPARE(root->childAt(outside), nullptr);
    }

    void addChildLeavesTheParentAlone()
    {
        const Element root = leaf("root");
        const Element other = leaf("other");
        const Element child = leaf("child");
        const auto othersChild = std::make_shared<XmlElement>(QStringLiteral("c"), other);
        root->addChild(child);
        root->addChild(othersChild);
        QCOMPARE(child->parent(), nullptr);
        QCOMPARE(othersChild->parent(), other);
    }

    void emptyPointerIsNotAdded()
    {
        const Element root = leaf("root");
        root->addChild(nullptr);
        QVERIFY(!root->hasChild());
        QCOMPARE(root->chidrenCount(), 0);
        QCOMPARE(root->toString(-1), QStringLiteral("<root/>"));
    }

    void innerText_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<bool>("isText");
        QTest::newRow("null") << QString() << false;
        QTest::newRow("empty") << QStringLiteral("") << false;
        QTest::newRow("a blank") << QStringLiteral(" ") << true;
        QTest::newRow("a word") << QStringLiteral(u"Été") << true;
    }
    void innerText()
    {
        QFETCH(QString, text);
        const Element element = leaf("a");
        element->setInnerText(QStringLiteral("before"));
        element->setInnerText(text);
        QCOMPARE(element->innerText(), text);
        QTEST(element->hasInnerText(), "isText");
    }

    // Attributes

    void withoutDictionaryThereIsNoAttribute()
    {
        QVERIFY(!leaf("a")->hasAttribute(QStringLiteral("x")));
        QVERIFY(!leaf("a")->hasAttribute(QString()));
    }

    void setAttributesReplacesTheDictionary()
    {
        const Element element = leaf("a");
        element->setAttributes(attributes({{"b", "2"}, {"a", "1"}}));
        const std::shared_ptr<Properties> before = element->attributes();
        QCOMPARE(before->size(), 2);
        QVERIFY(element->hasAttribute(QStringLiteral("a")));
        QVERIFY(!element->hasAttribute(QStringLiteral("A")));
        element->setAttributes(attributes({{"c", ""}}));
        QVERIFY(!element->hasAttribute(QStringLiteral("a")));
        QVERIFY(element->hasAttribute(QStringLiteral("c")));
        QVERIFY(element->attributes() != before);
        QCOMPARE(before->size(), 2);
        element->setAttributes(QXmlStreamAttributes());
        QVERIFY(element->attributes() != nullptr);
        QVERIFY(element->attributes()->empty());
    }

    void attributesAreStoredByLocalName()
    {
        const Element element = leaf("a");
        QXmlStreamAttributes prefixed;
        prefixed.append(QXmlStreamAttribute(QStringLiteral("urn:x"), QStringLiteral("id"),
                                            QStringLiteral("7")));
        element->setAttributes(prefixed);
        QCOMPARE(element->attributes()->value(QStringLiteral("id")), QStringLiteral("7"));
    }

    void sameLocalNameTwiceIsRefused()
    {
        const Element element = leaf("a");
        QXmlStreamAttributes same = attributes({{"a", "0"}, {"id", "1"}});
        same.append(QStringLiteral("urn:x"), QStringLiteral("id"), QStringLiteral("2"));
        same.append(QStringLiteral("z"), QStringLiteral("3"));
        const QString text = failureText([&] { element->setAttributes(same); });
        QVERIFY2(text.startsWith(
                     QStringLiteral("void Properties::insert(const QString&, const QString&) -> ")),
                 qPrintable(text));
        QCOMPARE(element->toString(-1), QStringLiteral("<a a=\"0\" id=\"1\"/>"));
    }

    void dictionaryIsShared()
    {
        const Element element = leaf("a");
        element->setAttributes(attributes({{"x", "1"}}));
        element->attributes()->insert(QStringLiteral("y"), QStringLiteral("2"));
        QVERIFY(element->hasAttribute(QStringLiteral("y")));
        element->attributes()->clear();
        QCOMPARE(element->toString(0), QStringLiteral("<a/>"));
    }

    void appendAttribute_data()
    {
        QTest::addColumn<bool>("hasDictionary");
        QTest::newRow("with a dictionary") << true;
        QTest::newRow("without one") << false;
    }
    void appendAttribute()
    {
        QFETCH(bool, hasDictionary);
        const Element element = leaf("a");
        if (hasDictionary)
            element->setAttributes(QXmlStreamAttributes());
        const QString name = QStringLiteral("x");
        QVERIFY(element->appendAttribute(name, QStringLiteral("first")));
        QVERIFY(!element->appendAttribute(name, QStringLiteral("second")));
        QCOMPARE(element->attributes()->value(name), QStringLiteral("first"));
        QCOMPARE(element->attributes()->size(), 1);
    }

    void updateAttributeReturnsTheValueBefore()
    {
        const Element element = leaf("a");
        element->appendAttribute(QStringLiteral("x"), QStringLiteral("1"));
        QCOMPARE(element->updateAttribute(QStringLiteral("x"), QStringLiteral("2")),
                 QStringLiteral("1"));
        QCOMPARE(element->updateAttribute(QStringLiteral("x"), QString()), QStringLiteral("2"));
        QCOMPARE(element->toString(0), QStringLiteral("<a x=\"\"/>"));
    }

    void updateOfAMissingAttributeFails()
    {
        const Element element = leaf("a");
        const auto update = [&](const char* name) {
            return failureText(
                [&] { element->updateAttribute(QString::fromLatin1(name), QStringLiteral("v")); });
        };
        QCOMPARE(update("x"), QStringLiteral("L'attribut [x] n'existe pas"));
        QCOMPARE(element->attributes(), nullptr);
        element->appendAttribute(QStringLiteral("y"), QStringLiteral("1"));
        QCOMPARE(update("%1%2"), QStringLiteral("L'attribut [%1%2] n'existe pas"));
        QCOMPARE(element->toString(0), QStringLiteral("<a y=\"1\"/>"));
    }

    void dictionaryIsTheSameAtEveryCall()
    {
        const Element element = leaf("a");
        element->setAttributes(attributes({{"x", "1"}}));
        const std::shared_ptr<Properties> dictionary = element->attributes();
        QCOMPARE(element->attributes(), dictionary);
        element->appendAttribute(QStringLiteral("y"), QStringLiteral("2"));
        element->updateAttribute(QStringLiteral("x"), QStringLiteral("3"));
        QCOMPARE(element->attributes(), dictionary);
        QCOMPARE(dictionary->value(QStringLiteral("x")), QStringLiteral("3"));
        QCOMPARE(dictionary->value(QStringLiteral("y")), QStringLiteral("2"));
    }

    void dictionaryOutlivesItsElement()
    {
        Element element = leaf("a");
        element->setAttributes(attributes({{"x", "1"}}));
        const std::weak_ptr<Properties> watched = element->attributes();
        QVERIFY(!watched.expired());
        const std::shared_ptr<Properties> held = watched.lock();
        element.reset();
        QCOMPARE(held->value(QStringLiteral("x")), QStringLiteral("1"));
    }

    void changeBeforeTheDictionaryIsAskedFor()
    {
        const Element element = leaf("a");
        element->setAttributes(attributes({{"x", "1"}, {"k", "2"}}));
        QVERIFY(!element->appendAttribute(QStringLiteral("x"), QStringLiteral("no")));
        QVERIFY(element->appendAttribute(QStringLiteral("m"), QStringLiteral("3")));
        QCOMPARE(element->toString(-1), QStringLiteral("<a k=\"2\" m=\"3\" x=\"1\"/>"));
        element->setAttributes(attributes({{"x", "1"}, {"k", "2"}}));
        QCOMPARE(element->updateAttribute(QStringLiteral("k"), QStringLiteral("4")),
                 QStringLiteral("2"));
        QCOMPARE(element->toString(-1), QStringLiteral("<a k=\"4\" x=\"1\"/>"));
        element->setAttributes(attributes({{"x", "1"}}));
        QVERIFY(!failureText([&] {
                     element->updateAttribute(QStringLiteral("y"), QString());
                 }).isEmpty());
        QCOMPARE(element->toString(-1), QStringLiteral("<a x=\"1\"/>"));
    }

    void refusedAttributesReplaceThoseBefore()
    {
        const Element element = leaf("a");
        element->setAttributes(attributes({{"before", "1"}}));
        const std::shared_ptr<Properties> before = element->attributes();
        QVERIFY(!failureText([&] {
                     element->setAttributes(attributes({{"z", "1"}, {"b", "2"}, {"z", "3"}}));
                 }).isEmpty());
        QCOMPARE(element->toString(-1), QStringLiteral("<a b=\"2\" z=\"1\"/>"));
        QVERIFY(element->attributes() != before);
        QCOMPARE(before->size(), 1);
    }

    /// As a map of the same values, before and after the dictionary was asked for.
    void anyAttributesAreThoseOfAMap()
    {
        // In the order of code units a surrogate comes before U+E000 and later ones.
        const QString letters = QStringLiteral(u"aZ\u00e9\u65e5\ue000\uffee\U0001F600%\"= ");
        QRandomGenerator random(23);
        const auto word = [&] {
            QString text;
            for (int i = random.bounded(4); i > 0; --i)
                text += letters.at(random.bounded(int(letters.size())));
            return text;
        };
        for (int round = 0; round < 500; ++round) {
            Dictionnary expected;
            QXmlStreamAttributes given;
            for (int i = random.bounded(round % 50 == 0 ? 300 : 8); i > 0; --i) {
                const QString name = word();
                if (expected.contains(name))
                    continue;
                expected.insert(name, word());
                given.append(name, expected.value(name));
            }
            const Element element = leaf("e");
            element->setAttributes(given);
            QString text = QStringLiteral("<e");
            for (auto it = expected.cbegin(); it != expected.cend(); ++it)
                text += QStringLiteral(" ") + it.key() + QStringLiteral("=\"") + it.value() +
                        QLatin1Char('"');
            text += QStringLiteral("/>");
            const auto check = [&] {
                QCOMPARE(element->toString(-1), text);
                for (auto it = expected.cbegin(); it != expected.cend(); ++it)
                    QVERIFY(element->hasAttribute(it.key()));
                for (int i = 0; i < 5; ++i) {
                    const QString name = word();
                    QCOMPARE(element->hasAttribute(name), expected.contains(name));
                }
            };
            check();
            QCOMPARE(*element->attributes()->toDictionnary(), expected);
            check();
        }
    }

    // Text

    void toString_data()
    {
        QTest::addColumn<Element>("element");
        QTest::addColumn<int>("indent");
        QTest::addColumn<QString>("text");
        const auto row = [](const char* name, const Element& element, int indent,
                            const char16_t* text) {
            QTest::newRow(name) << element << indent << QString::fromUtf16(text);
        };
        const Element item = leaf("item");
        item->setAttributes(attributes({{"b", "2"}, {"a", "1"}}));
        const Element root = leaf("root");
        root->addChild(item);
        const Element msg = leaf("msg");
        msg->setInnerText(QStringLiteral("Hello"));

        row("bare", leaf("name"), 0, u"<name/>");
        row("bare, further in", leaf("name"), 3, u"   <name/>");
        row("bare, on one line", leaf("name"), -1, u"<name/>");
        row("attributes below each other", item, 0, u"<item a=\"1\"\n      b=\"2\"/>");
        row("attributes further in", item, 2, u"  <item a=\"1\"\n        b=\"2\"/>");
        row("attributes on one line", item, -1, u"<item a=\"1\" b=\"2\"/>");
        row("child", root, 0, u"<root>\n    <item a=\"1\"\n          b=\"2\"/>\n</root>");
        row("child further in", root, 1,
            u" <root>\n     <item a=\"1\"\n           b=\"2\"/>\n "
            u"</root>");
        row("child on one line", root, -1, u"<root><item a=\"1\" b=\"2\"/></root>");
        row("any negative is one line", root, INT_MIN, u"<root><item a=\"1\" b=\"2\"/></root>");
        row("text", msg, 0, u"<msg>\n    Hello\n</msg>");
        row("text further in", msg, 2, u"  <msg>\n      Hello\n  </msg>");
        row("text on one line", msg, -1, u"<msg>Hello</msg>");

        const Element nested = leaf("a");
        nested->addChild(root);
        nested->addChild(msg);
        nested->addChild(leaf("end"));
        row("nested", nested, 0,
            u"<a>\n    <root>\n        <item a=\"1\"\n              b=\"2\"/>\n    </root>\n"
            u"    <msg>\n        Hello\n    </msg>\n    <end/>\n</a>");
        row("nested on one line", nested, -1,
            u"<a><root><item a=\"1\" b=\"2\"/></root><msg>Hello</msg><end/></a>");

        const Element withBoth = leaf("p");
        withBoth->appendAttribute(QStringLiteral("k"), QStringLiteral("v"));
        withBoth->addChild(leaf("hidden"));
        withBoth->setInnerText(QStringLiteral("text"));
        row("text and child", withBoth, 0, u"<p k=\"v\">>\n    text\n</p>");
        row("text and child on one line", withBoth, -1, u"<p k=\"v\">>text</p>");

        const Element attributed = leaf("e");
        attributed->setAttributes(attributes({{"b", "2"}, {"a", "1"}, {"B", "0"}}));
        attributed->addChild(leaf("c"));
        row("attributes and child", attributed, 0,
            u"<e B=\"0\"\n   a=\"1\"\n   b=\"2\">\n    <c/>\n</e>");
        const Element named = leaf("a&b");
        named->appendAttribute(QStringLiteral("<"), QStringLiteral("say \"hi\" & <go>"));
        named->setInnerText(QStringLiteral("1 < 2 && 3 > 2\n]]>"));
        row("nothing is escaped", named, -1,
            u"<a&b <=\"say \"hi\" & <go>\">1 < 2 && 3 > 2\n]]></a&b>");
        const Element emptied = leaf("e");
        emptied->setAttributes(QXmlStreamAttributes());
        row("no attributes in a dictionary", emptied, 0, u"<e/>");
        row("no name", leaf(""), 0, u"</>");
    }
    void toString()
    {
        QFETCH(Element, element);
        QFETCH(int, indent);
        QTEST(element->toString(indent), "text");
        QCOMPARE(element->toString(indent), expectedText(*element, indent));
    }

    void anyTreeIsWrittenAsDefined()
    {
        QRandomGenerator random(7);
        for (int i = 0; i < 200; ++i) {
            const Element tree = randomTree(random, 5);
            for (int indent : {-1, 0, 3})
                QCOMPARE(tree->toString(indent), expectedText(*tree, indent));
        }
    }

    // Lifetime

    void childKeepsItsParent()
    {
        Element root = std::make_shared<Counted>(QStringLiteral("root"));
        const std::weak_ptr<XmlElement> watched = root;
        Element child = std::make_shared<Counted>(QStringLiteral("child"), root);
        root.reset();
        QVERIFY(!watched.expired());
        QCOMPARE(child->parent()->name(), QStringLiteral("root"));
        child.reset();
        QVERIFY(watched.expired());
    }

    void parentKeepsItsChildren()
    {
        const Element root = std::make_shared<Counted>(QStringLiteral("root"));
        root->addChild(std::make_shared<Counted>(QStringLiteral("child")));
        QCOMPARE(Counted::s_count, 2);
        QCOMPARE(root->childAt(0)->name(), QStringLiteral("child"));
    }

    void treeWithParentsStaysUntilItIsTakenApart()
    {
        Element root = chain<Counted>(5);
        const std::weak_ptr<XmlElement> watched = root;
        root.reset();
        QCOMPARE(Counted::s_count, 5);
        watched.lock()->clearChildren();
        QCOMPARE(Counted::s_count, 0);
    }

    // Taking apart

    void heldGrandchildKeepsItsChildren()
    {
        Element root = chain<Counted>(5);
        Element held = root->childAt(0)->childAt(0);
        root->clearChildren();
        QVERIFY(!root->hasChild());
        QCOMPARE(held->toString(-1), QStringLiteral("<n><n><n/></n></n>"));
        QCOMPARE(held->childAt(0)->parent(), held);
        QCOMPARE(held->parent()->parent(), root);
        QVERIFY(!held->parent()->hasChild());
        QCOMPARE(Counted::s_count, 5);

        root->addChild(held);
        QCOMPARE(root->toString(-1), QStringLiteral("<n><n><n><n/></n></n></n>"));
        held.reset();
        root->clearChildren();
        QCOMPARE(Counted::s_count, 1);
        root.reset();
    }

    void movedChildKeepsWhatIsBelowIt()
    {
        const Element from = leaf("from");
        childOf(childOf(from, "child"), "grandchild");
        const Element to = leaf("to");
        {
            const Element child = from->childAt(0);
            from->clearChildren();
            to->addChild(child);
        }
        QCOMPARE(from->toString(-1), QStringLiteral("<from/>"));
        QCOMPARE(to->toString(-1), QStringLiteral("<to><child><grandchild/></child></to>"));
        to->clearChildren();
    }

    void childBelowTwoTreesStaysWholeInTheOther()
    {
        const Element one = std::make_shared<Counted>(QStringLiteral("one"));
        const Element two = std::make_shared<Counted>(QStringLiteral("two"));
        const std::weak_ptr<XmlElement> shared = [&] {
            const Element child = childOf<Counted>(one, "shared");
            childOf<Counted>(childOf<Counted>(child, "below"), "deep");
            two->addChild(child);
            return child;
        }();
        one->clearChildren();
        QCOMPARE(two->toString(-1), QStringLiteral("<two><shared><below><deep/></below></shared>"
                                                   "</two>"));
        QCOMPARE(Counted::s_count, 5);
        two->clearChildren();
        QVERIFY(shared.expired());
        QCOMPARE(Counted::s_count, 2);
    }

    void childOfAHeldElementIsHeld()
    {
        const Element root = std::make_shared<Counted>(QStringLiteral("root"));
        const Element held = childOf<Counted>(root, "held");
        childOf<Counted>(childOf<Counted>(held, "shared"), "below");
        root->addChild(held->childAt(0));
        root->clearChildren();
        QCOMPARE(held->toString(-1), QStringLiteral("<held><shared><below/></shared></held>"));
        held->clearChildren();
        QCOMPARE(Counted::s_count, 2);
    }

    /// A parent link keeps the parent, but the parent does not count as held.
    void parentThatNobodyHoldsLosesItsChildren_data()
    {
        QTest::addColumn<bool>("isAdded");
        QTest::newRow("its child is held") << true;
        QTest::newRow("an element made with it, but never added, is held") << false;
    }
    void parentThatNobodyHoldsLosesItsChildren()
    {
        QFETCH(bool, isAdded);
        const Element root = std::make_shared<Counted>(QStringLiteral("root"));
        Element held;
        {
            const Element between = childOf<Counted>(root, "between");
            held = std::make_shared<Counted>(QStringLiteral("held"), between);
            if (isAdded)
                between->addChild(held);
            childOf<Counted>(childOf<Counted>(between, "other"), "below");
        }
        root->clearChildren();
        QCOMPARE(Counted::s_count, 3);
        QCOMPARE(held->parent()->toString(-1), QStringLiteral("<between/>"));
        held.reset();
        QCOMPARE(Counted::s_count, 1);
    }

    void linkOfAnElementThatIsGoneDoesNotCount()
    {
        const Element root = std::make_shared<Counted>(QStringLiteral("root"));
        const Element held = childOf<Counted>(root, "held");
        childOf<Counted>(held, "below");
        for (int i = 0; i < 3; ++i)
            std::make_shared<Counted>(QStringLiteral("gone"), held);
        held->removeChild(0);
        childOf<Counted>(held, "below");
        root->clearChildren();
        QCOMPARE(held->toString(-1), QStringLiteral("<held><below/></held>"));
        held->clearChildren();
        QCOMPARE(Counted::s_count, 2);
    }

    /// A link that has another owner than the pointers in the lists counts as a holder.
    void linkOfAnotherOwnerHolds()
    {
        const Element root = std::make_shared<Counted>(QStringLiteral("root"));
        Element held;
        {
            const Element between = childOf<Counted>(root, "between");
            const auto owner = std::make_shared<Element>(between);
            const Element guarded(owner, between.get());
            held = std::make_shared<Counted>(QStringLiteral("held"), between);
            between->addChild(std::make_shared<Counted>(QStringLiteral("made"), guarded));
        }
        root->clearChildren();
        QCOMPARE(held->parent()->toString(-1), QStringLiteral("<between><made/></between>"));
        held->parent()->clearChildren();
        held.reset();
        QCOMPARE(Counted::s_count, 1);
    }

    void parentOnTheStackIsNotHeld()
    {
        XmlElement parent(QStringLiteral("parent"));
        const Element child = std::make_shared<Counted>(QStringLiteral("child"),
                                                        Element(std::shared_ptr<void>(), &parent));
        parent.addChild(child);
        QCOMPARE(child->parent().get(), &parent);
        QCOMPARE(parent.toString(-1), QStringLiteral("<parent><child/></parent>"));
        parent.clearChildren();
    }

    void parentObtainedFromAChildIsHeld()
    {
        const Element root = std::make_shared<Counted>(QStringLiteral("root"));
        Element parent = childOf<Counted>(childOf<Counted>(root, "parent"), "child")->parent();
        root->clearChildren();
        QCOMPARE(parent->toString(-1), QStringLiteral("<parent><child/></parent>"));
        parent->clearChildren();
        parent.reset();
        QCOMPARE(Counted::s_count, 1);
    }

    void elementListedElsewhereThanBelowItsParentGoes()
    {
        const Element root = std::make_shared<Counted>(QStringLiteral("root"));
        {
            const Element branch = childOf<Counted>(root, "branch");
            const Element twig = childOf<Counted>(branch, "twig");
            twig->addChild(std::make_shared<Counted>(QStringLiteral("leaf"), branch));
            root->addChild(std::make_shared<Counted>(QStringLiteral("end"), twig));
        }
        QCOMPARE(Counted::s_count, 5);
        root->clearChildren();
        QCOMPARE(Counted::s_count, 1);
    }

    void sameElementTwiceInAListGoesOnce()
    {
        const Element root = std::make_shared<Counted>(QStringLiteral("root"));
        {
            const Element branch = childOf<Counted>(root, "branch");
            for (int i = 0; i < 3; ++i) {
                branch->addChild(childOf<Counted>(root, "shared"));
                root->addChild(branch);
            }
            childOf<Counted>(branch, "end");
        }
        QCOMPARE(Counted::s_count, 6);
        root->clearChildren();
        QCOMPARE(Counted::s_count, 1);
    }

    void heldElementTwiceInAListKeepsItsChildren()
    {
        const Element root = leaf("root");
        const Element held = childOf(root, "held");
        childOf(held, "child");
        root->addChild(held);
        root->clearChildren();
        QCOMPARE(held->toString(-1), QStringLiteral("<held><child/></held>"));
        held->clearChildren();
    }

    void removedChildIsWhole()
    {
        const Element root = std::make_shared<Counted>(QStringLiteral("root"));
        for (const char* name : {"a", "b", "c"})
            childOf<Counted>(childOf<Counted>(root, name), "below");
        const Element b = root->childAt(1);
        QCOMPARE(root->removeChild(1), b);
        QCOMPARE(b->toString(-1), QStringLiteral("<b><below/></b>"));
        QCOMPARE(b->parent(), root);
        QCOMPARE(root->toString(-1), QStringLiteral("<root><a><below/></a><c><below/></c></root>"));
        root->removeChild(1)->clearChildren();
        root->addChild(b);
        QCOMPARE(root->toString(-1), QStringLiteral("<root><a><below/></a><b><below/></b></root>"));
        root->clearChildren();
        b->clearChildren();
        QCOMPARE(Counted::s_count, 2);
    }

    void removedChildGoesWithItsLastPointer()
    {
        const Element root = std::make_shared<Counted>(QStringLiteral("root"));
        childOf<Counted>(root, "child");
        QCOMPARE(Counted::s_count, 2);
        root->removeChild(0);
        QCOMPARE(Counted::s_count, 1);
        QVERIFY(!root->hasChild());
        QCOMPARE(root->toString(-1), QStringLiteral("<root/>"));
    }

    void removingTakesOneOfSeveralPlaces()
    {
        const Element root = leaf("root");
        const Element child = leaf("child");
        root->addChild(child);
        root->addChild(leaf("between"));
        root->addChild(child);
        QCOMPARE(root->removeChild(0), child);
        QCOMPARE(root->toString(-1), QStringLiteral("<root><between/><child/></root>"));
    }

    void nothingIsRemovedOutOfRange()
    {
        const Element root = leaf("root");
        QCOMPARE(root->removeChild(0), nullptr);
        root->addChild(leaf("child"));
        for (int outside : {-1, 1, INT_MIN, INT_MAX})
            QCOMPARE(root->removeChild(outside), nullptr);
        QCOMPARE(root->chidrenCount(), 1);
    }

    /// Any graph of children and parents: what can be reached from a held element, down the lists
    /// of children, stays as it is; everything else goes, or has lost its children.
    void whatIsHeldStaysAndAllElseGoes()
    {
        QRandomGenerator random(11);
        for (int round = 0; round < 500; ++round) {
            QList<Element> all{std::make_shared<Counted>(QStringLiteral("root"))};
            for (int i = 1; i < 20; ++i) {
                const Element above = all.at(random.bounded(i));
                const Element parent = random.bounded(3) > 0 ? above : all.at(random.bounded(i));
                all.append(std::make_shared<Counted>(QString::number(i), parent));
                above->addChild(all.last());
                if (random.bounded(4) == 0)
                    all.at(random.bounded(i))->addChild(all.last());
            }
            QList<Element> held;
            for (int i = random.bounded(4); i > 0; --i)
                held.append(all.at(1 + random.bounded(19)));
            QStringList texts;
            for (const Element& element : std::as_const(held))
                texts.append(element->toString(-1));
            const Element root = all.first();
            all.clear();

            root->clearChildren();
            QCOMPARE(root->toString(-1), QStringLiteral("<root/>"));
            for (int i = 0; i < held.size(); ++i)
                QCOMPARE(held.at(i)->toString(-1), texts.at(i));
            for (const Element& element : std::as_const(held))
                element->clearChildren();
            held.clear();
            QCOMPARE(Counted::s_count, 1);
        }
    }

    // Size

    void depthIsNotTheStacks_data()
    {
        QTest::addColumn<int>("depth");
        QTest::newRow("ten thousand") << 10000;
        QTest::newRow("a million") << 1000000;
    }
    void depthIsNotTheStacks()
    {
        QFETCH(int, depth);
        const Element root = chain<Counted>(depth);
        const QString text = root->toString(-1);
        QCOMPARE(text.size(), qsizetype(depth) * 7 - 3);
        QVERIFY(text.startsWith(QStringLiteral("<n><n><n>")));
        QVERIFY(text.contains(QStringLiteral("<n><n/></n>")));
        root->clearChildren();
        QCOMPARE(Counted::s_count, 1);
    }

    void deepTreeWithoutParentsIsReleased()
    {
        constexpr int Depth = 300000;
        Element top = std::make_shared<Counted>(QStringLiteral("n"));
        for (int i = 1; i < Depth; ++i) {
            const Element above = std::make_shared<Counted>(QStringLiteral("n"));
            above->addChild(top);
            top = above;
        }
        QCOMPARE(Counted::s_count, Depth);
        top.reset();
        QCOMPARE(Counted::s_count, 0);
    }

    void longLineOfParentsIsReleased()
    {
        constexpr int Depth = 300000;
        Element last = std::make_shared<Counted>(QStringLiteral("n"));
        for (int i = 1; i < Depth; ++i)
            last = std::make_shared<Counted>(QStringLiteral("n"), last);
        QCOMPARE(Counted::s_count, Depth);
        last.reset();
        QCOMPARE(Counted::s_count, 0);
    }

    void lastElementOfATreeTakenApartReleasesItsParents()
    {
        constexpr int Depth = 300000;
        Element root = chain<Counted>(Depth);
        Element last = root;
        while (last->hasChild())
            last = last->childAt(0);
        root->clearChildren();
        root.reset();
        QCOMPARE(Counted::s_count, Depth);
        last.reset();
        QCOMPARE(Counted::s_count, 0);
    }

    void smallStackIsEnough()
    {
        bool isReleased = false;
        const std::unique_ptr<QThread> thread(QThread::create([&isReleased] {
            Element root = chain<Counted>(100000);
            const bool isWritten = !root->toString(-1).isEmpty();
            root->clearChildren();
            root.reset();
            isReleased = isWritten && Counted::s_count == 0;
        }));
        thread->setStackSize(256 * 1024);
        thread->start();
        QVERIFY(thread->wait());
        QVERIFY(isReleased);
    }

    void deepTreeIsIndented()
    {
        constexpr int Depth = 2000;
        const Element root = chain(Depth);
        const QStringList lines = root->toString(0).split(QLatin1Char('\n'));
        QCOMPARE(lines.size(), 2 * Depth - 1);
        QCOMPARE(lines.at(Depth - 1),
                 QString(4 * (Depth - 1), QLatin1Char(' ')) + QStringLiteral("<n/>"));
        QCOMPARE(lines.at(Depth),
                 QString(4 * (Depth - 2), QLatin1Char(' ')) + QStringLiteral("</n>"));
        QCOMPARE(lines.last(), QStringLiteral("</n>"));
        root->clearChildren();
    }

    void millionSiblings()
    {
        constexpr int Count = 1000000;
        const Element root = std::make_shared<Counted>(QStringLiteral("root"));
        for (int i = 0; i < Count; ++i)
            childOf<Counted>(root, "n");
        QCOMPARE(root->chidrenCount(), Count);
        QCOMPARE(root->toString(-1).size(), qsizetype(Count) * 4 + 13);
        QCOMPARE(root->toString(0).size(), qsizetype(Count) * 9 + 14);
        root->clearChildren();
        QCOMPARE(Counted::s_count, 1);
    }

    void textOfAnyLengthIsWritten()
    {
        for (int length = 0; length < 300; ++length) {
            const Element root = leaf("root");
            const auto child =
                std::make_shared<XmlElement>(QString(length, QLatin1Char('n')), nullptr);
            root->addChild(child);
            root->addChild(leaf("end"));
            child->appendAttribute(QStringLiteral("k"), QString(length, QChar(u'\u65e5')));
            for (int indent : {-1, 0, 100})
                QCOMPARE(root->toString(indent), expectedText(*root, indent));
            child->setInnerText(QString(2 * length, QLatin1Char('t')));
            QCOMPARE(root->toString(length), expectedText(*root, length));
        }
    }

    void hugeValuesAreWritten()
    {
        const Element element = leaf("a");
        const QString huge(10000000, QLatin1Char('x'));
        element->appendAttribute(QStringLiteral("k"), huge);
        element->setInnerText(huge);
        QCOMPARE(element->toString(-1).size(), 2 * huge.size() + 12);
    }
};

QTEST_GUILESS_MAIN(TestXmlElement)
#include "tst_xmlelement.moc"
