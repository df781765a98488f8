// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "kez/langbundle.h"
#include "frame/failure_p.h"
#include "frame/keyvalue_p.h"
#include "frame/unshared_p.h"
#include "i18n/bracketed_p.h"
#include "i18n/textindex_p.h"
#include "kez/exception.h"

#include <QFile>
#include <QFileInfo>

namespace {

QString bundleFileName(const QString& path, const QString& module, const QString& lang)
{
    return QStringLiteral("%1/%2_%3.lang").arg(path, module, lang);
}

// Throws a pointer: see the declaration of load().
[[noreturn]] void fail(const QString& message)
{
    // NOLINTNEXTLINE(misc-throw-by-value-catch-by-reference)
    throw new Exception(Failure::text("shared_ptr<LangBundle> LangBundle::load(const QString&, "
                                      "const QString&, const QString&)",
                                      message),
                        nullptr);
}

void openBundle(QFile& file)
{
    const QString message =
        Failure::completed(QStringLiteral("Le fichier du module de traduction [%1] n'existe pas ou "
                                          "ne peut pas être lu"),
                           file.fileName());
    const QFileInfo info(file.fileName());
    if (!info.exists() || !info.isFile() || !info.isReadable())
        fail(message);
    if (!file.open(QIODevice::ReadOnly | QIODevice::Text))
        fail(message + QStringLiteral(" - ") + file.errorString());
}

[[noreturn]] void failOnHeader(const QFile& file)
{
    fail(Failure::completed(QStringLiteral("En-tête de la ressource de langue [%1] invalide"),
                            file.fileName()) +
         QStringLiteral(" - ") + file.errorString());
}

void checkHeaderPart(const QFile& file, QStringView part, const QString& module,
                     const QString& lang)
{
    const qsizetype equals = part.lastIndexOf(QLatin1Char('='));
    if (equals < 1)
        failOnHeader(file);
    const QStringView name = part.first(equals);
    const QString value = part.sliced(equals + 1).toString();
    if (name == QLatin1String("module")) {
        if (value != module)
            fail(QStringLiteral("Nom de module attendu %1, lu dans le fichier : %2")
                     .arg(module, value));
    } else if (name == QLatin1String("lang")) {
        if (value != lang)
            fail(QStringLiteral("Nom de langue attendu %1, lu dans le fichier : %2")
                     .arg(lang, value));
    } else {
        failOnHeader(file);
    }
}

void checkHeader(QFile& file, const QString& module, const QString& lang)
{
    const QString header = QString::fromUtf8(file.readLine()).trimmed();
    const QStringList parts = header.split(QLatin1Char(';'), Qt::SkipEmptyParts);
    if (parts.size() != 2)
        failOnHeader(file);
    for (const QString& part : parts)
        checkHeaderPart(file, part, module, lang);
}

} // namespace

LangBundle::LangBundle(const QString& path, const QString& module, const QString& lang)
    : _path(path), _module(module), _lang(lang)
{}

LangBundle::LangBundle(const LangBundle& other)
    : _path(other._path),
      _module(other._module),
      _lang(other._lang),
      _texts(unshared(other._texts)),
      _index(std::make_unique<TextIndex>(_texts))
{}

LangBundle& LangBundle::operator=(const LangBundle& other)
{
    if (this == &other)
        return *this;
    LangBundle copy(other);
    _path = copy._path;
    _module = copy._module;
    _lang = copy._lang;
    _texts.swap(copy._texts);
    _index.swap(copy._index);
    return *this;
}

LangBundle::~LangBundle() = default;

std::shared_ptr<LangBundle> LangBundle::load(const QString& path, const QString& module,
                                             const QString& lang)
{
    QFile file(::bundleFileName(path, module, lang));
    openBundle(file);
    checkHeader(file, module, lang);

    auto bundle = std::make_shared<LangBundle>(path, module, lang);
    for (QByteArray line = file.readLine(); !line.isEmpty(); line = file.readLine())
        bundle->addLine(QString::fromUtf8(line));
    bundle->_index = std::make_unique<TextIndex>(bundle->_texts);
    return bundle;
}

QString LangBundle::path() const
{
    return _path;
}

QString LangBundle::module() const
{
    return _module;
}

QString LangBundle::lang() const
{
    return _lang;
}

QString LangBundle::bundleFileName() const
{
    return ::bundleFileName(_path, _module, _lang);
}

QString LangBundle::text(const QString& key) const
{
    const QString* const found = find(TextKey(key));
    return found ? *found : bracketed(key);
}

bool LangBundle::contains(const QString& key) const
{
    return find(TextKey(key)) != nullptr;
}

int LangBundle::size() const
{
    return static_cast<int>(_texts.size());
}

LangBundle::key_iterator LangBundle::keyBegin() const
{
    return _texts.keyBegin();
}

LangBundle::key_iterator LangBundle::keyEnd() const
{
    return _texts.keyEnd();
}

LangBundle::iterator LangBundle::begin()
{
    return _texts.begin();
}

LangBundle::iterator LangBundle::end()
{
    return _texts.end();
}

const QString* LangBundle::find(const TextKey& key) const
{
    return _index ? _index->find(key) : nullptr;
}

void LangBundle::addLine(QStringView line)
{
    line = line.trimmed();
    if (line.startsWith(QLatin1Char('#')))
        return;
    const auto pair = splitAtFirstEquals(line);
    if (pair && !pair->key.isEmpty())
        _texts.insert(pair->key.toString(), pair->value.toString());
}
