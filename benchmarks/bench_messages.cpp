// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

// Message texts by key, and the texts of failures, compared with Qt's and the C library's ways.

#include "frame/failure_p.h"
#include "harness/catalogues.h"
#include "support/bundledirectory.h"
#include "support/language.h"

#include <kez/translator.h>

#include <benchmark/benchmark.h>

#include <QCoreApplication>
#include <QDir>
#include <QTranslator>

#include <algorithm>
#include <array>
#include <clocale>
#include <cstdio>
#include <random>
#include <stdexcept>

#include <libintl.h>

namespace {

using Catalogues::Texts;

// --- the texts -----------------------------------------------------------------------------------

const QString Module = QStringLiteral("kez");
const QString English = QStringLiteral("en_US");

/// The library's own messages in English: the translator's only bundle.
Texts libraryTexts()
{
    useLanguage(English);
    const std::shared_ptr<LangBundle> bundle = Translator::getInstance()->bundle(Module, English);
    Texts texts;
    for (auto text = bundle->begin(); text != bundle->end(); ++text)
        texts.insert(text.key(), text.value());
    return texts;
}

Texts manyTexts(int count)
{
    Texts texts;
    for (int i = 0; i < count; ++i) {
        const QString key = QStringLiteral("MessageKey%1").arg(i, 6, 10, QLatin1Char('0'));
        texts.insert(key, QStringLiteral("Text of message %1: [%2]").arg(QString::number(i), key));
    }
    return texts;
}

/// The keys in an order that is always the same, but not that of any container. They share no
/// characters with those of the texts.
QStringList keysToLookUp(const Texts& texts)
{
    QStringList keys;
    for (auto text = texts.cbegin(); text != texts.cend(); ++text)
        keys.append(QString(text.key().constData(), text.key().size()));
    std::shuffle(keys.begin(), keys.end(), std::mt19937(4711));
    return keys;
}

/// A module of that many texts, which the translator knows as long as the process runs.
QString moduleOfMany(const Texts& texts)
{
    const QString module = QStringLiteral("many%1").arg(texts.size());
    QByteArray lines;
    for (auto text = texts.cbegin(); text != texts.cend(); ++text)
        lines += text.key().toUtf8() + '=' + text->toUtf8() + '\n';
    const BundleDirectory directory;
    directory.write(module, English, lines);
    Translator::getInstance()->insertBundle(directory.path(), module, English);
    return module;
}

// --- look-ups ------------------------------------------------------------------------------------

template <typename LookUp>
void forEachKey(benchmark::State& state, const QStringList& keys, LookUp lookUp)
{
    for (auto _ : state) {
        for (const QString& key : keys)
            benchmark::DoNotOptimize(lookUp(key));
    }
    state.SetItemsProcessed(state.iterations() * keys.size());
}

void oneArgument(benchmark::State& state)
{
    const Translator* const translator = Translator::getInstance();
    forEachKey(state, keysToLookUp(libraryTexts()),
               [&](const QString& key) { return translator->string(key); });
}

void twoArguments(benchmark::State& state)
{
    const Translator* const translator = Translator::getInstance();
    forEachKey(state, keysToLookUp(libraryTexts()),
               [&](const QString& key) { return translator->string(key, Module); });
}

void threeArguments(benchmark::State& state)
{
    const Translator* const translator = Translator::getInstance();
    forEachKey(state, keysToLookUp(libraryTexts()),
               [&](const QString& key) { return translator->string(key, Module, English); });
}

void map(benchmark::State& state)
{
    const Texts texts = libraryTexts();
    forEachKey(state, keysToLookUp(texts), [&](const QString& key) { return texts.value(key); });
}

void oneOfMany(benchmark::State& state)
{
    const Texts texts = manyTexts(static_cast<int>(state.range(0)));
    const QString module = moduleOfMany(texts);
    const Translator* const translator = Translator::getInstance();
    forEachKey(state, keysToLookUp(texts),
               [&](const QString& key) { return translator->string(key, module); });
}

void oneOfManyInMap(benchmark::State& state)
{
    const Texts texts = manyTexts(static_cast<int>(state.range(0)));
    forEachKey(state, keysToLookUp(texts), [&](const QString& key) { return texts.value(key); });
}

void loaded(benchmark::State& state)
{
    const Texts texts = manyTexts(static_cast<int>(state.range(0)));
    QByteArray lines;
    for (auto text = texts.cbegin(); text != texts.cend(); ++text)
        lines += text.key().toUtf8() + '=' + text->toUtf8() + '\n';
    const BundleDirectory directory;
    directory.write(Module, English, lines);
    for (auto _ : state)
        benchmark::DoNotOptimize(LangBundle::load(directory.path(), Module, English));
    state.SetItemsProcessed(state.iterations() * texts.size());
}

constexpr const char* Domain = "kezbench";

/// Gives gettext the library's messages under the same keys, with "%s" for a place marker.
bool prepareGettext(const QDir& directory)
{
    Texts texts = libraryTexts();
    for (QString& text : texts)
        text.replace(QStringLiteral("%1"), QStringLiteral("%s"));
    const QString place = directory.filePath(QStringLiteral("en_US/LC_MESSAGES"));
    QFile file(place + QStringLiteral("/kezbench.mo"));
    if (!QDir().mkpath(place) || !file.open(QIODevice::WriteOnly))
        return false;
    file.write(Catalogues::mo(texts));
    file.close();
    qputenv("LANGUAGE", "en_US"); // counts in every locale but "C"
    return setlocale(LC_MESSAGES, "C.UTF-8") != nullptr &&
           bindtextdomain(Domain, QFile::encodeName(directory.path()).constData()) != nullptr &&
           qstrcmp(dgettext(Domain, "FileNotReadable"), "File [%s] isn't readable") == 0;
}

void gettextTable(benchmark::State& state)
{
    const QTemporaryDir directory;
    if (!prepareGettext(QDir(directory.path())))
        return state.SkipWithError("gettext does not find its catalogue");
    QList<QByteArray> keys;
    for (const QString& key : keysToLookUp(libraryTexts()))
        keys.append(key.toUtf8());
    for (auto _ : state) {
        for (const QByteArray& key : std::as_const(keys))
            benchmark::DoNotOptimize(dgettext(Domain, key.constData()));
    }
    state.SetItemsProcessed(state.iterations() * keys.size());
}

void qtTranslator(benchmark::State& state)
{
    const QByteArray file = Catalogues::qm("kez", libraryTexts());
    QTranslator translator;
    if (!translator.load(reinterpret_cast<const uchar*>(file.constData()),
                         static_cast<int>(file.size())) ||
        !QCoreApplication::installTranslator(&translator) ||
        QCoreApplication::translate("kez", "Yes") != QLatin1String("yes"))
        return state.SkipWithError("QTranslator does not find its catalogue");
    QList<QByteArray> keys;
    for (const QString& key : keysToLookUp(libraryTexts()))
        keys.append(key.toUtf8());
    for (auto _ : state) {
        for (const QByteArray& key : std::as_const(keys))
            benchmark::DoNotOptimize(QCoreApplication::translate("kez", key.constData()));
    }
    state.SetItemsProcessed(state.iterations() * keys.size());
}

BENCHMARK(oneArgument)->Name("LookUp1/kez");
BENCHMARK(map)->Name("LookUp1/QMap");
BENCHMARK(gettextTable)->Name("LookUp1/gettext");
BENCHMARK(qtTranslator)->Name("LookUp1/QTranslator");
BENCHMARK(twoArguments)->Name("LookUp2/kez");
BENCHMARK(map)->Name("LookUp2/QMap");
BENCHMARK(threeArguments)->Name("LookUp3/kez");
BENCHMARK(map)->Name("LookUp3/QMap");
BENCHMARK(oneOfMany)->Name("LookUpOfMany/kez")->RangeMultiplier(10)->Range(1000, 100000);
BENCHMARK(oneOfManyInMap)->Name("LookUpOfMany/QMap")->RangeMultiplier(10)->Range(1000, 100000);
BENCHMARK(loaded)->Name("BundleLoad/kez")->RangeMultiplier(10)->Range(1000, 100000);

// --- failures ------------------------------------------------------------------------------------

constexpr const char* Signature = "void Config::load(const QString&)";

void failureText(benchmark::State& state)
{
    useLanguage(English);
    const QString file = QStringLiteral("/etc/intake/intake.properties");
    for (auto _ : state)
        benchmark::DoNotOptimize(
            Failure::text(Signature, Failure::message("FileNotReadable", file)));
}

// What fails is a function of its own, as it is in a library.

[[gnu::noinline]] void fail(const QString& file)
{
    Failure::raise(Signature, Failure::message("FileNotReadable", file));
}

void failureThrown(benchmark::State& state)
{
    useLanguage(English);
    const QString file = QStringLiteral("/etc/intake/intake.properties");
    for (auto _ : state) {
        try {
            fail(file);
        } catch (const Exception& e) {
            benchmark::DoNotOptimize(e.detail());
        }
    }
}

/// The same text by the C library's means.
using CText = std::array<char, 256>;

void complete(CText& text, const char* key, const char* file)
{
    const char* const format = dgettext(Domain, key); // prepareGettext() wrote it
    const int start = std::snprintf(text.data(), text.size(), "%s -> ", Signature);
    std::snprintf(text.data() + start, text.size() - static_cast<std::size_t>(start), format, file);
}

void gettextText(benchmark::State& state)
{
    const QTemporaryDir directory;
    if (!prepareGettext(QDir(directory.path())))
        return state.SkipWithError("gettext does not find its catalogue");
    for (auto _ : state) {
        CText text;
        complete(text, "FileNotReadable", "/etc/intake/intake.properties");
        benchmark::DoNotOptimize(text);
    }
}

[[gnu::noinline]] void failWithGettext(const char* key, const char* file)
{
    CText text;
    complete(text, key, file);
    throw std::runtime_error(text.data());
}

void gettextThrown(benchmark::State& state)
{
    const QTemporaryDir directory;
    if (!prepareGettext(QDir(directory.path())))
        return state.SkipWithError("gettext does not find its catalogue");
    for (auto _ : state) {
        try {
            failWithGettext("FileNotReadable", "/etc/intake/intake.properties");
        } catch (const std::runtime_error& e) {
            benchmark::DoNotOptimize(e.what());
        }
    }
}

[[gnu::noinline]] void failBarely(const std::runtime_error& failure)
{
    throw std::runtime_error(failure);
}

void bareThrow(benchmark::State& state)
{
    const std::runtime_error failure("a text that is there already");
    for (auto _ : state) {
        try {
            failBarely(failure);
        } catch (const std::runtime_error& e) {
            benchmark::DoNotOptimize(e.what());
        }
    }
}

BENCHMARK(failureText)->Name("FailureText/kez");
BENCHMARK(gettextText)->Name("FailureText/gettext_snprintf");
BENCHMARK(failureThrown)->Name("FailureThrown/kez");
BENCHMARK(gettextThrown)->Name("FailureThrown/runtime_error");
BENCHMARK(bareThrow)->Name("FailureThrown/limit_throw_catch");

} // namespace
