// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include <QDateTime>
#include <QString>

/// Numbers and times in the current language of the texts. "_" below stands for the narrow no-break
/// space (U+202F).
///
/// *Threads*: as for the texts.
/// *Owns*: nothing.
/// *Fails*: never.
namespace intake {

///     1234  ->  1_234 (in French)  1,234 (in English)
QString countText(qint64 count);

/// `hundredths` of the currency.
///
///     -123456, "EUR"  ->  -1_234,56 EUR (in French)  -1,234.56 EUR (in English)
QString amountText(qint64 hundredths, const QString& currency);

///     09/03/2026 à 08:05:04 (in French)  2026-03-09 08:05:04 (in English)
QString momentText(const QDateTime& moment);

} // namespace intake
