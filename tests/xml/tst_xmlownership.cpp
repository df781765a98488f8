// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

// Who holds an element: parents with unusual owners, releases in several threads, no memory.

#include "support/allocations.h"

#include <kez/simpledom.h>
#include <kez/xmlelement.h>

#include <QTest>

#include <memory>
#include <new>
#include <thread>
#include <vector>

using Element = std::shared_ptr<XmlElement>;

namespace {

Element element(const char* name, const Element& parent = nullptr)
{
    return std::make_shared<XmlElement>(QString::fromLatin1(name), parent);
}

Element addedChild(const Element& parent, const char* name)
{
    const Element child = element(name, parent);
    parent->addChild(child);
    return child;
}

/// Whether the action fails for want of memory, after `granted` requests.
template <typename Action>
bool failsWithoutMemory(Action action, int granted = 0)
{
    bool hasFailed = false;
    Allocations::granted = granted;
    Allocations::areRefused = true;
    try {
        action();
    } catch (const std::bad_alloc&) {
        hasFailed = true;
    }
    Allocations::areRefused = false;
    return hasFailed;
}

} // namespace

class TestXmlOwnership : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void nullParentWithAnOwnerIsNone_data()
    {
        QTest::addColumn<Element>("parent");
        QTest::newRow("alias") << Element(std::make_shared<int>(0), nullptr);
        QTest::newRow("null that is owned") << Element(static_cast<XmlElement*>(nullptr));
    }
    void nullParentWithAnOwnerIsNone()
    {
        QFETCH(const Element, parent);
        const Element made = element("made", parent);
        QVERIFY(!made->parent());
        made->addChild(element("below", made));
        QCOMPARE(made->toString(-1), QStringLiteral("<made><below/></made>"));
        made->clearChildren();
    }

    /// A child remembers the owner of its parent only while it lives.
    void deleterThatHoldsTheParentGoes()
    {
        std::weak_ptr<XmlElement> watched;
        {
            const Element held = element("parent");
            watched = held;
            const Element guarded(held.get(), [held](XmlElement*) {});
            element("child", guarded);
        }
        QVERIFY(watched.expired());
    }

    void childrenMayBeReleasedInSeveralThreads()
    {
        constexpr size_t Count = 20000;
        const Element top = element("top");
        const Element root = addedChild(top, "root");
        std::vector<Element> children;
        for (size_t i = 0; i < Count; ++i)
            children.push_back(addedChild(root, "item"));
        root->clearChildren();
        const auto middle = children.begin() + Count / 2;
        std::vector<Element> half(std::make_move_iterator(middle),
                                  std::make_move_iterator(children.end()));
        children.erase(middle, children.end());
        std::thread other([&half] { half.clear(); });
        children.clear();
        other.join();

        addedChild(root, "last");
        top->clearChildren();
        QCOMPARE(root->chidrenCount(), 1); // `root` is held here
        root->clearChildren();
    }

    /// The links of the first owner no longer count once the element has another one.
    void elementWithTwoOwnersIsStillHeld()
    {
        const Element held = element("held");
        const Element first = element("first", held);
        const Element second = element("second", held);
        const Element guarded(held.get(), [](XmlElement*) {});
        {
            const SimpleDom dom(QStringLiteral("<a/>"));
            dom.root()->addChild(guarded);
        }
        addedChild(held, "below");
        const Element top = element("top");
        top->addChild(guarded);
        top->clearChildren();
        QCOMPARE(held->chidrenCount(), 1); // `guarded` holds it
        held->clearChildren();
    }

    void textKeepsNoMoreThanTwiceItsRoom()
    {
        const Element root = element("root");
        for (int i = 0; i < 5000; ++i)
            root->addChild(element("a-name-of-some-length"));
        for (int i = 0; i < 40; ++i) {
            const QString text = root->toString(-1);
            QVERIFY2(text.capacity() <= 2 * text.size(), qPrintable(QString::number(text.size())));
            for (int added = 0; added < 100; ++added)
                root->addChild(element("another"));
        }
    }

    void childrenStayIfThereIsNoMemory()
    {
        if (!Allocations::AreCounted)
            QSKIP("The sanitizer has the functions that would refuse.");
        const SimpleDom dom(QStringLiteral("<a><b/><c/><d/><e/><f/></a>"));
        const Element root = dom.root();
        std::vector<Element> held;
        for (int i = 0; i < root->chidrenCount(); ++i)
            held.push_back(root->childAt(i));
        QVERIFY(failsWithoutMemory([&root] { root->clearChildren(); }));
        QVERIFY(failsWithoutMemory([&root] { root->removeChild(0); }));
        QCOMPARE(root->toString(-1), QStringLiteral("<a><b/><c/><d/><e/><f/></a>"));
        root->clearChildren();
        QCOMPARE(held.back()->name(), QStringLiteral("f"));
    }

    /// An element of a read tree lives as long as the tree, also if its removal had to be repeated.
    void removalThatFailsHalfwayCanBeRepeated()
    {
        if (!Allocations::AreCounted)
            QSKIP("The sanitizer has the functions that would refuse.");
        bool hasFailed = true;
        for (int granted = 0; hasFailed; ++granted) {
            const SimpleDom dom(QStringLiteral("<a><b/></a>"));
            const Element root = dom.root();
            bool isReleased = false;
            root->childAt(0)->addChild(Element(new XmlElement(QStringLiteral("below"), nullptr),
                                               [&isReleased](XmlElement* below) {
                                                   isReleased = true;
                                                   delete below;
                                               }));
            hasFailed = failsWithoutMemory([&root] { root->removeChild(0); }, granted);
            QCOMPARE(root->chidrenCount(), hasFailed ? 1 : 0);
            root->removeChild(0);
            QCOMPARE(root->chidrenCount(), 0);
            QVERIFY(!isReleased);
            QVERIFY(hasFailed || granted > 1); // it failed at each of its requests
        }
    }
};

QTEST_GUILESS_MAIN(TestXmlOwnership)
#include "tst_xmlownership.moc"
