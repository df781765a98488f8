// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include <QDateTime>
#include <QString>

/// The texts of this example, module "intake", compiled into its programs in French and English.
/// Any thread reads them; the language is switched while no other thread does.
namespace intake {

/// Loads the texts in the user's language.
void loadTexts();

/// The text of `key` in the current language, its place markers replaced by the values.
QString text(QLatin1String key);
template <class... Values>
QString text(QLatin1String key, const Values&... values)
{
    return text(key).arg(values...);
}

/// `name` on one line and without the ledger's separator: control characters, ";" and "%" become
/// "%XX". A file name comes from outside and may hold anything.
///
///     a;b<line feed>c  ->  a%3Bb%0Ac
QString printable(const QString& name);

// Numbers and times as people read them in the current language; "_" is a narrow no-break space.
QString countText(qint64 count);                                // 1_234 or 1,234
QString amountText(qint64 hundredths, const QString& currency); // 12,50 EUR or 12.50 EUR
QString momentText(const QDateTime& moment); // 09/03/2026 à 08:05:04 or 2026-03-09 08:05:04

} // namespace intake
