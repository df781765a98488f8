// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "kez/service/xmlwriter.h"

#include "service/kittexts_p.h"
#include "service/xmlcharacters_p.h"
#include "service/xmloutput_p.h"

#include <kez/log.h>
#include <kez/xmlelement.h>

#include <algorithm>
#include <unordered_set>
#include <utility>
#include <vector>

namespace KezService {

namespace {

using Attributes = QMap<QString, QString>;

/// How often each name came among the children of an element.
class NameCounts {
public:
    /// 1 for the first child of that name; 0 if there are too many names to count.
    qint64 next(const QString& name)
    {
        constexpr std::size_t MostNames = 32;
        const auto found = std::find_if(_counts.begin(), _counts.end(),
                                        [&name](const auto& count) { return count.first == name; });
        if (found != _counts.end())
            return ++found->second;
        if (_counts.size() == MostNames)
            return 0;
        _counts.emplace_back(name, 1);
        return 1;
    }

private:
    std::vector<std::pair<QString, qint64>> _counts;
};

/// An element whose end is not written yet. While it is empty, its ">" is not written either.
struct OpenElement {
    QString name;
    qint64 number;    ///< among its parent's children of that name; 0 if it is not counted
    bool isOnOneLine; ///< with all that is in it: blanks would change a text
    bool hasText = false;
    bool isTextBlank = true;
    bool hasChildren = false;
    NameCounts childNames = {};
};

/// A name as a failure shows it.
QString shownXmlName(const QString& name)
{
    constexpr qsizetype Longest = 80;
    if (name.size() <= Longest)
        return shownName(name);
    return shownName(name.left(Longest)) + QStringLiteral("…");
}

QString codePoint(QChar character)
{
    const QString digits = QString::number(character.unicode(), 16).toUpper();
    return QStringLiteral("U+") + digits.rightJustified(4, QLatin1Char('0'));
}

} // namespace

struct XmlWriter::Private {
    template <typename Target>
    Private(Target& target, Layout givenLayout) : output(target), layout(givenLayout)
    {}

    template <typename Action>
    void guarded(Action action);

    void start(const QString& name, const Attributes& attributes);
    void text(QStringView text);
    void end();
    void write(const XmlElement& tree);
    void finish();

    bool isCutShort() const { return !isRefused && !isFinished && !rootName.isNull(); }
    QString path() const;

    void beginChild();
    void beginLine();
    void endText();
    void appendAttribute(const QString& name, const QString& value);
    void appendText(QStringView text);
    qsizetype appendEscaped(QStringView text, XmlPlace place);

    XmlOutput output;
    Layout layout;
    XmlNames names;
    std::vector<OpenElement> open;
    QString rootName; ///< null before the root
    QChar firstHalf;  ///< of a character that the text so far ends with; else U+0000
    bool isFinished = false;
    bool isRefused = false;
    QString failure;
};

/// After a failure nobody knows what the device holds, so nothing more is written. A call counts as
/// failed until it has come to its end: a slot that runs while the device waits is refused.
template <typename Action>
void XmlWriter::Private::guarded(Action action)
{
    if (std::exchange(isRefused, true))
        raise("XmlRefused", failure.isNull() ? kitText("XmlUnfinishedCall") : failure);
    try {
        if (isFinished)
            raise("XmlFinished");
        action();
    } catch (const Exception& e) {
        failure = e.detail();
        throw;
    }
    isRefused = false;
}

void XmlWriter::Private::start(const QString& name, const Attributes& attributes)
{
    const bool isRoot = open.empty();
    if (!isRoot)
        beginChild();
    else if (rootName.isNull())
        output.append(u"<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n");
    else
        raise("XmlSecondRoot", shownXmlName(rootName), shownXmlName(name));

    const bool isOnOneLine = layout == Layout::Compact || (!isRoot && open.back().isOnOneLine);
    const qint64 number = isRoot ? 0 : open.back().childNames.next(name);
    open.push_back({name, number, isOnOneLine});
    if (!names.isOfElement(name))
        raise("XmlElementName", path(), shownXmlName(name));
    if (isRoot)
        rootName = name;
    output.append(u"<");
    output.append(name);
    for (auto it = attributes.cbegin(); it != attributes.cend(); ++it)
        appendAttribute(it.key(), it.value());
}

void XmlWriter::Private::text(QStringView text)
{
    if (open.empty())
        raise("XmlTextOutside");
    if (text.isEmpty())
        return;
    OpenElement& element = open.back();
    if (element.hasChildren)
        raise("XmlTextAfterChildren", path());
    if (!std::exchange(element.hasText, true))
        output.append(u">");
    element.isOnOneLine = true;
    element.isTextBlank = element.isTextBlank && isXmlBlank(text);

    if (!firstHalf.isNull()) {
        const QChar halves[] = {std::exchange(firstHalf, QChar()), text.front()};
        appendText(halves);
        text = text.sliced(1);
    }
    if (!text.isEmpty() && text.back().isHighSurrogate()) {
        firstHalf = text.back();
        text.chop(1);
    }
    appendText(text);
}

void XmlWriter::Private::end()
{
    if (open.empty())
        raise("XmlNothingToEnd");
    endText();
    const OpenElement element = std::move(open.back());
    open.pop_back();
    if (!element.hasText && !element.hasChildren) {
        output.append(u"/>");
        return;
    }
    if (!element.isOnOneLine)
        beginLine();
    output.append(u"</");
    output.append(element.name);
    output.append(u">");
}

/// Uses a stack of its own, so that a deep tree does not need a deep one.
void XmlWriter::Private::write(const XmlElement& tree)
{
    struct Place {
        std::shared_ptr<const XmlElement> element;
        int nextChild;
    };
    std::vector<Place> places;
    std::unordered_set<const XmlElement*> parents;
    const auto enter = [&](std::shared_ptr<const XmlElement> element) {
        const std::shared_ptr<Properties> attributes = element->attributes();
        start(element->name(), attributes ? *attributes->toDictionnary() : Attributes());
        text(element->innerText());
        if (!element->hasChild())
            return end();
        if (!parents.insert(element.get()).second)
            raise("XmlCycle", path());
        places.push_back({std::move(element), 0});
    };
    enter({std::shared_ptr<void>(), &tree}); // does not own it
    while (!places.empty()) {
        auto& [element, nextChild] = places.back();
        if (std::shared_ptr<const XmlElement> child = element->childAt(nextChild++)) {
            enter(std::move(child));
        } else {
            end();
            parents.erase(element.get());
            places.pop_back();
        }
    }
}

void XmlWriter::Private::finish()
{
    if (!open.empty())
        raise("XmlOpenElement", path());
    if (rootName.isNull())
        raise("XmlNoRoot");
    output.append(u"\n");
    output.flush();
    isFinished = true;
}

/// The path of the last open element. The middle of a long path is left out.
QString XmlWriter::Private::path() const
{
    constexpr std::size_t StepsAtTop = 4;
    constexpr std::size_t StepsAtEnd = 16;
    QString path;
    for (std::size_t i = 0; i < open.size(); ++i) {
        if (i == StepsAtTop && open.size() > StepsAtTop + StepsAtEnd) {
            path += QStringLiteral("/…");
            i = open.size() - StepsAtEnd;
        }
        path += QLatin1Char('/') + shownXmlName(open[i].name);
        if (open[i].number > 0)
            path += QStringLiteral("[%1]").arg(open[i].number);
    }
    return path;
}

void XmlWriter::Private::beginChild()
{
    endText();
    OpenElement& parent = open.back();
    if (!parent.hasText && !parent.hasChildren)
        output.append(u">");
    parent.hasChildren = true;
    if (!parent.isOnOneLine)
        beginLine();
}

/// The indentation has a limit: that of a very deep tree would take more room than the tree.
void XmlWriter::Private::beginLine()
{
    constexpr std::size_t DeepestIndented = 32;
    static constexpr QStringView LineBegin = u"\n"
                                             "                                "
                                             "                                "
                                             "                                "
                                             "                                ";
    const auto depth = static_cast<qsizetype>(std::min(open.size(), DeepestIndented));
    output.append(LineBegin.first(1 + 4 * depth));
}

void XmlWriter::Private::endText()
{
    const OpenElement& element = open.back();
    if (!firstHalf.isNull())
        raise("XmlCharacter", path(), codePoint(firstHalf));
    if (element.hasText && element.isTextBlank)
        raise("XmlBlankText", path());
}

void XmlWriter::Private::appendAttribute(const QString& name, const QString& value)
{
    if (!names.isOfAttribute(name))
        raise("XmlAttributeName", path(), shownXmlName(name));
    output.append(u" ");
    output.append(name);
    output.append(u"=\"");
    if (const qsizetype end = appendEscaped(value, XmlPlace::Attribute); end < value.size())
        raise("XmlAttributeCharacter", path(), shownXmlName(name), codePoint(value.at(end)));
    output.append(u"\"");
}

void XmlWriter::Private::appendText(QStringView text)
{
    if (const qsizetype end = appendEscaped(text, XmlPlace::Content); end < text.size())
        raise("XmlCharacter", path(), codePoint(text.at(end)));
}

/// Returns the position of the first character that XML cannot hold, or the size.
qsizetype XmlWriter::Private::appendEscaped(QStringView text, XmlPlace place)
{
    QStringView rest = text;
    while (true) {
        const qsizetype plain = xmlPlainLength(rest, place);
        output.append(rest.first(plain));
        rest = rest.sliced(plain);
        if (rest.isEmpty())
            break;
        const QStringView reference = xmlReference(rest.front(), place);
        if (reference.isEmpty())
            break;
        output.append(reference);
        rest = rest.sliced(1);
    }
    return text.size() - rest.size();
}

XmlWriter::XmlWriter(QIODevice& device, Layout layout)
    : _d(std::make_unique<Private>(device, layout))
{}

XmlWriter::XmlWriter(QString& text, Layout layout) : _d(std::make_unique<Private>(text, layout))
{}

XmlWriter::~XmlWriter()
{
    if (!_d->isCutShort())
        return;
    try {
        Log::getInstance()->warning(kitText("XmlNotFinished", shownXmlName(_d->rootName)));
    } catch (...) {
        // A log that fails says so itself.
    }
}

QString XmlWriter::toText(const XmlElement& tree, Layout layout)
{
    QString text;
    XmlWriter writer(text, layout);
    writer.write(tree);
    writer.finish();
    return text;
}

void XmlWriter::startElement(const QString& name, const QMap<QString, QString>& attributes)
{
    _d->guarded([&] { _d->start(name, attributes); });
}

/// Holds the text, which may be the one that is written.
void XmlWriter::text(const QString& text)
{
    _d->guarded([this, held = text] { _d->text(held); });
}

void XmlWriter::endElement()
{
    _d->guarded([this] { _d->end(); });
}

void XmlWriter::element(const QString& name, const QString& text,
                        const QMap<QString, QString>& attributes)
{
    _d->guarded([&, held = text] {
        _d->start(name, attributes);
        _d->text(held);
        _d->end();
    });
}

void XmlWriter::write(const XmlElement& tree)
{
    _d->guarded([&] { _d->write(tree); });
}

void XmlWriter::finish()
{
    _d->guarded([this] { _d->finish(); });
}

} // namespace KezService
