// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "service/xmloutput_p.h"

#include "service/kittexts_p.h"

#include <QFileDevice>

#include <algorithm>
#include <utility>

namespace KezService {

XmlOutput::XmlOutput(QIODevice& device)
    : _device(&device),
      _encoder(QStringEncoder::Utf8),
      _buffer(std::make_unique_for_overwrite<char16_t[]>(Capacity))
{
    if (!device.isWritable())
        raise("XmlDeviceNotOpen", deviceName());
    _encoded.resize(_encoder.requiredSpace(Capacity));
}

XmlOutput::XmlOutput(QString& text)
    : _text(&text), _buffer(std::make_unique_for_overwrite<char16_t[]>(Capacity))
{
    text.clear();
}

void XmlOutput::append(QStringView piece)
{
    while (piece.size() > Capacity - _size) {
        const QStringView fitting = piece.first(Capacity - _size);
        std::copy(fitting.utf16(), fitting.utf16() + fitting.size(), _buffer.get() + _size);
        _size = Capacity;
        drain();
        piece = piece.sliced(fitting.size());
    }
    std::copy(piece.utf16(), piece.utf16() + piece.size(), _buffer.get() + _size);
    _size += piece.size();
}

void XmlOutput::flush()
{
    drain();
    if (_device == nullptr)
        return;
    letDevicePassOn();
    if (auto* const file = qobject_cast<QFileDevice*>(_device); file != nullptr && !file->flush())
        fail();
}

/// The encoder remembers the first half of a character that the buffer ends with.
void XmlOutput::drain()
{
    const QStringView held(_buffer.get(), std::exchange(_size, 0));
    if (_text != nullptr) {
        _text->append(held);
        return;
    }
    char* const begin = _encoded.data();
    const char* const end = _encoder.appendToBuffer(begin, held);
    letDevicePassOn();
    give(QByteArrayView(begin, end - begin));
}

void XmlOutput::give(QByteArrayView bytes)
{
    while (!bytes.isEmpty()) {
        const qint64 taken = _device->write(bytes.data(), bytes.size());
        if (taken < 0 || taken > bytes.size() || (taken == 0 && !isSomePassedOn()))
            fail();
        bytes = bytes.sliced(taken);
    }
}

/// Processes and sockets take everything and keep it: the whole document would gather there. A file
/// that keeps a part says only at the next try why it could not write all.
void XmlOutput::letDevicePassOn()
{
    while (_device->bytesToWrite() > 0) {
        if (!isSomePassedOn())
            fail();
    }
}

bool XmlOutput::isSomePassedOn()
{
    constexpr int PatienceInMilliseconds = 30000;
    auto* const file = qobject_cast<QFileDevice*>(_device);
    if (file == nullptr)
        return _device->waitForBytesWritten(PatienceInMilliseconds);
    const qint64 kept = file->bytesToWrite();
    file->flush();
    return file->bytesToWrite() < kept;
}

void XmlOutput::fail() const
{
    raise("XmlDeviceFailure", deviceName(), _device->errorString());
}

QString XmlOutput::deviceName() const
{
    const auto* const file = qobject_cast<const QFileDevice*>(_device);
    if (file != nullptr && !file->fileName().isEmpty())
        return shownName(file->fileName());
    if (!_device->objectName().isEmpty())
        return shownName(_device->objectName());
    return QString::fromLatin1(_device->metaObject()->className());
}

} // namespace KezService
