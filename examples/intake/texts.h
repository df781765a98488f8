// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include <QLatin1String>
#include <QString>

/// The texts of this example, module "intake", compiled into its programs in French and English.
///
/// *Threads*: reading: any thread; loading and switching: while no other thread reads.
/// *Owns*: nothing; the translator keeps the bundles.
/// *Fails*: loadTexts() and startInLanguage() throw a pointer to an Exception, as
/// LangBundle::load does; the rest never.
namespace intake {

/// Loads the texts in the user's language.
void loadTexts();

/// Makes `lang` the language of every text. For the start of a program, before there is a log:
/// Translator::setDefaultLang would make one that has no file.
void startInLanguage(const QString& lang);

/// Whether there are texts in that language, the library's included.
bool isLanguage(const QString& lang);

/// The text of `key` in the current language.
QString text(QLatin1String key);

/// `name` on one line and without the ledger's separator: control characters, ";" and "%" become
/// "%XX". File names come from outside and may hold anything.
///
///     a;b<line feed>c  ->  a%3Bb%0Ac
QString printable(const QString& name);

/// The system's words for what the last system call failed of (errno).
QString systemError();

} // namespace intake
