// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include "service_global.h"

#include <QMap>
#include <QString>

#include <memory>

class QIODevice;
class XmlElement;

namespace KezService {

/// Writes an XML document that SimpleDom reads back as it was.
///
///     XmlWriter writer(file);
///     writer.startElement(u"orders"_s);
///     for (const Order& order : orders)
///         writer.element(u"order"_s, order.text, {{u"id"_s, order.id}});
///     writer.endElement();
///     writer.finish();
///
/// What would not be read back is a failure that names the element by its path, as in
/// "/orders/order[3]":
///
/// - a name that is not a local name of XML (so none with a colon), is longer than 4096 characters,
///   or has letters that the stream reader does not take in names; "xmlns" as an attribute;
/// - a character that XML does not hold: U+0000 and most others below U+0020, half of a surrogate
///   pair, U+FFFE, U+FFFF;
/// - a text of blanks, tabs and line ends only;
/// - an element that stands below itself.
///
/// After a failure the writer refuses every call. What was written until then is not a document; it
/// is the caller's to remove (a QSaveFile that is not committed leaves nothing).
///
/// *Threads*: one thread at a time.
/// *Owns*: a buffer of less than 200 kB; the device or the text is the caller's.
/// *Fails*: throws Exception for what cannot be read back, for calls out of order, and if the
/// device fails; the text then names the file and the device's error.
class KEZ_SERVICE_EXPORT XmlWriter {
public:
    enum class Layout {
        Compact, ///< without blanks and line ends between elements
        Indented ///< one element per line; those in an element with a text stay on its line
    };

    /// Writes from the device's position on, in pieces. The device stays open and has to outlive
    /// the writer. One that keeps bytes, such as a process or a socket, has to implement
    /// waitForBytesWritten(): the writer waits there until a piece is passed on, and fails if
    /// nothing moves for 30 seconds. Throws Exception if the device is not open for writing.
    explicit XmlWriter(QIODevice& device, Layout layout = Layout::Indented);

    /// Replaces `text`, which is complete after finish().
    explicit XmlWriter(QString& text, Layout layout = Layout::Indented);
    XmlWriter(const XmlWriter&) = delete;
    XmlWriter& operator=(const XmlWriter&) = delete;

    /// Does not finish the document: it logs a warning if that was forgotten.
    ~XmlWriter();

    /// The whole document of a tree.
    static QString toText(const XmlElement& tree, Layout layout = Layout::Indented);

    void startElement(const QString& name, const QMap<QString, QString>& attributes = {});

    /// The text of the open element, which comes before its children. Several calls make one text.
    void text(const QString& text);
    void endElement();

    /// An element without children. An empty text is none.
    void element(const QString& name, const QString& text,
                 const QMap<QString, QString>& attributes = {});

    /// The element with everything below it: as the document's root, or as the next child of the
    /// open element. A tree may hold one element in several places, and be as deep as memory
    /// allows. It must not change while it is written. Attributes come in the order of their names.
    void write(const XmlElement& tree);

    /// Ends the document and passes all of it to the device. It closes no element: one that is open
    /// is a failure.
    void finish();

private:
    struct KEZ_HIDDEN Private;
    std::unique_ptr<Private> _d;
};

} // namespace KezService
