// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include <QByteArray>
#include <QByteArrayView>
#include <QString>

#include <optional>
#include <tuple>

namespace KezService {

/// The name of a logging category, or a pattern with a "*" at its end, at its beginning or both.
class CategoryPattern {
public:
    /// Nothing if the text is empty or has a "*" elsewhere.
    static std::optional<CategoryPattern> parsed(const QString& text)
    {
        CategoryPattern pattern;
        QByteArray fixed = text.toUtf8();
        if (fixed.isEmpty())
            return std::nullopt;
        pattern._isOpenAtEnd = fixed.endsWith('*');
        fixed.chop(pattern._isOpenAtEnd ? 1 : 0);
        pattern._isOpenAtStart = fixed.startsWith('*');
        fixed.remove(0, pattern._isOpenAtStart ? 1 : 0);
        if (fixed.contains('*'))
            return std::nullopt;
        pattern._fixed = fixed;
        return pattern;
    }

    bool matches(QByteArrayView category) const
    {
        if (_isOpenAtStart && _isOpenAtEnd)
            return category.contains(_fixed);
        if (_isOpenAtStart)
            return category.endsWith(_fixed);
        return _isOpenAtEnd ? category.startsWith(_fixed) : category == _fixed;
    }

    /// Whether this one decides if both match.
    bool precedes(const CategoryPattern& other) const { return rank() < other.rank(); }

private:
    std::tuple<bool, qsizetype, bool, bool> rank() const
    {
        return {_isOpenAtStart || _isOpenAtEnd, -_fixed.size(), _isOpenAtStart, _isOpenAtEnd};
    }

    QByteArray _fixed;
    bool _isOpenAtStart = false;
    bool _isOpenAtEnd = false;
};

} // namespace KezService
