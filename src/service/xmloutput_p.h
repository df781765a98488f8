// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include <QByteArray>
#include <QString>
#include <QStringEncoder>
#include <QStringView>

#include <memory>

class QIODevice;

namespace KezService {

/// Where a document goes: a text, or, in UTF-8, a device. It holds a bounded part of the document.
class XmlOutput {
public:
    /// Throws Exception if the device is not open for writing.
    explicit XmlOutput(QIODevice& device);

    /// Replaces the text.
    explicit XmlOutput(QString& text);

    /// These throw Exception if the device fails.
    void append(QStringView piece);
    void flush();

private:
    void drain();
    void give(QByteArrayView bytes);
    void letDevicePassOn();
    bool isSomePassedOn();
    [[noreturn]] void fail() const;
    QString deviceName() const;

    /// In UTF-16 code units.
    static constexpr qsizetype Capacity = 32768;

    QIODevice* _device = nullptr;
    QString* _text = nullptr;
    QStringEncoder _encoder;
    QByteArray _encoded;
    std::unique_ptr<char16_t[]> _buffer;
    qsizetype _size = 0;
};

} // namespace KezService
