// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include <QLatin1String>
#include <QString>

/// The texts of this example, module "intake", compiled into its programs in French and English.
///
/// *Threads*: any thread reads; loading and switching happen while no other thread reads.
/// *Owns*: nothing; the translator keeps the bundles.
/// *Fails*: loadTexts() and startInLanguage() throw a pointer to an Exception, as
/// LangBundle::load does; the rest never.
namespace intake {

/// Loads the texts in the user's language.
void loadTexts();

/// Makes `lang` the language of every text, at the start of a program, before it has a log:
/// Translator::setDefaultLang would create a log without a file.
void startInLanguage(const QString& lang);

/// Whether this example and the library have texts in that language.
bool isLanguage(const QString& lang);

/// The text of `key` in the current language.
QString text(QLatin1String key);

/// `name` on one line and without the ledger's separator: control characters, ";" and "%" become
/// "%XX". A file name comes from outside and may hold anything.
///
///     a;b<line feed>c  ->  a%3Bb%0Ac
QString printable(const QString& name);

/// The system's text for the failure of the last system call (errno).
QString systemError();

} // namespace intake
