// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "kez/FileEntry.h"
#include "frame/failure_p.h"

#include <algorithm>

FileEntry::FileEntry(const QString& fileName, int count)
    : _fileName(fileName), _uptakeFlags(qMax(count, 0))
{
    std::fill(_uptakeFlags.begin(), _uptakeFlags.end(), false);
}

FileEntry::~FileEntry() = default;

QString FileEntry::fileName() const
{
    return _fileName;
}

bool FileEntry::isConsumed(int index) const
{
    if (!isFlag(index)) {
        Failure::raise("bool FileEntry::isConsumed(int)",
                       QStringLiteral("Indice %1 hors intervalle [%2..%3]")
                           .arg(index)
                           .arg(0)
                           .arg(_uptakeFlags.size() - 1));
    }
    return _uptakeFlags.at(index);
}

bool FileEntry::allConsumed() const
{
    return std::find(_uptakeFlags.begin(), _uptakeFlags.end(), false) == _uptakeFlags.end();
}

void FileEntry::appendConsumerFlag()
{
    _uptakeFlags.append(false);
}

void FileEntry::enableUptakeFlag(int index)
{
    if (isFlag(index))
        _uptakeFlags[index] = true;
}

void FileEntry::disableUptakeFlag(int index)
{
    if (isFlag(index))
        _uptakeFlags[index] = false;
}

bool FileEntry::isFlag(int index) const
{
    return index >= 0 && index < _uptakeFlags.size();
}
