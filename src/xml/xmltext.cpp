// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "xml/xmltext_p.h"

void XmlText::grow(qsizetype count)
{
    const qsizetype used = _end - _begin;
    _text.resize(std::max({used + count, 2 * _text.size(), qsizetype(64)}));
    _begin = _text.data();
    _end = _begin + used;
    _limit = _begin + _text.size();
}
