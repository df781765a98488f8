// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "kez/properties.h"
#include "config/entries_p.h"
#include "config/propertiesreader_p.h"
#include "frame/ascii_p.h"
#include "frame/failure_p.h"
#include "frame/unshared_p.h"

#include <QFile>
#include <QStringEncoder>

#include <utility>

namespace {

[[noreturn]] void raiseNotFound(const char* signature, const QString& key)
{
    Failure::raise(signature, Failure::libraryMessage("PropertyNotFound", key));
}

[[noreturn]] void raiseDuplicate(const QString& key)
{
    Failure::raise("void Properties::insert(const QString&, const QString&)",
                   Failure::libraryMessage("DuplicateProperty", key));
}

constexpr const char* SaveSignature =
    "void Properties::saveProperties(const QString&, QMap<QString,QString>&, bool)";

QString lineOf(const QString& key, const QString& value)
{
    return key + QLatin1Char('=') + value;
}

/// Writes entries as lines in UTF-8. The file is unbuffered: it hands each line to the kernel.
class LineWriter {
public:
    explicit LineWriter(QFile& file) : _file(file) {}

    bool write(const QString& key, const QString& value)
    {
        if (!encodeAscii(key, value))
            _line = _encoder(lineOf(key, value) + QLatin1Char('\n'));
        return _file.write(_line) == _line.size();
    }

private:
    /// Needs neither the encoder nor new memory. False if the line is not ASCII.
    bool encodeAscii(const QString& key, const QString& value)
    {
        _line.resize(key.size() + 1 + value.size() + 1);
        char* const line = _line.data();
        char* const equals = line + key.size();
        *equals = '=';
        line[_line.size() - 1] = '\n';
        return putAscii(line, key) && putAscii(equals + 1, value);
    }

    QFile& _file;
    QStringEncoder _encoder{QStringEncoder::Utf8}; // half a surrogate pair becomes U+FFFD
    QByteArray _line;
};

void makeRoomFor(const QString& path, bool overwrite)
{
    if (!QFile::exists(path))
        return;
    if (!overwrite)
        Failure::raise(SaveSignature, Failure::libraryMessage("FileAlreadyExists", path));
    if (!QFile::remove(path))
        Failure::raise(SaveSignature, Failure::libraryMessage("CannotDeleteFile", path));
}

} // namespace

Properties::Properties() : _spMap(std::make_shared<Dictionnary>())
{}

Properties::Properties(const QMap<QString, QString>& map)
    : _spMap(std::make_shared<Dictionnary>(unshared(map)))
{}

Properties::Properties(const Properties& other) : Properties(*other._spMap)
{}

Properties& Properties::operator=(const Properties& other)
{
    if (this != &other)
        *_spMap = unshared(*other._spMap);
    return *this;
}

Properties::~Properties() = default;

std::shared_ptr<Properties> Properties::loadProperties(const QString& path, qint64 maxLineLength)
{
    Entries entries;
    readPropertiesFile(path, maxLineLength, "Properties Properties::loadProperties(const QString&)",
                       [&entries](QStringView key, QStringView value) {
                           if (!addEntry(entries, key, value).second)
                               raiseDuplicate(key.toString());
                       });
    auto properties = std::make_shared<Properties>();
    *properties->_spMap = Dictionnary(std::move(entries));
    return properties;
}

void Properties::saveProperties(const QString& path, const QMap<QString, QString>& map,
                                bool overwrite)
{
    makeRoomFor(path, overwrite);
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly | QIODevice::NewOnly | QIODevice::Unbuffered))
        Failure::raise(SaveSignature, Failure::libraryMessage("FileCreatingFailure", path));

    LineWriter writer(file);
    for (auto it = map.cbegin(); it != map.cend(); ++it) {
        if (!writer.write(it.key(), it.value())) {
            Failure::raise(SaveSignature, Failure::libraryMessage("CannotWriteLine",
                                                                  lineOf(it.key(), it.value())));
        }
    }
}

std::shared_ptr<Properties> Properties::toProperties(const QMap<QString, QString>& map)
{
    auto properties = std::make_shared<Properties>();
    properties->insert(map, false);
    return properties;
}

bool Properties::contains(const QString& key) const
{
    return _spMap->contains(key);
}

QString Properties::value(const QString& key) const
{
    const auto found = _spMap->constFind(key);
    if (found == _spMap->cend())
        raiseNotFound("QString Properties::value(const QString&)", key);
    return *found;
}

qsizetype Properties::size() const
{
    return _spMap->size();
}

bool Properties::empty() const
{
    return _spMap->isEmpty();
}

Properties::iterator Properties::begin()
{
    return _spMap->begin();
}

Properties::iterator Properties::end()
{
    return _spMap->end();
}

Properties::const_iterator Properties::begin() const
{
    return _spMap->cbegin();
}

Properties::const_iterator Properties::end() const
{
    return _spMap->cend();
}

Properties::key_iterator Properties::keyBegin() const
{
    return _spMap->keyBegin();
}

Properties::key_iterator Properties::keyEnd() const
{
    return _spMap->keyEnd();
}

std::shared_ptr<Dictionnary> Properties::toDictionnary() const
{
    return _spMap;
}

void Properties::saveProperties(const QString& path, bool overwrite) const
{
    saveProperties(path, *_spMap, overwrite);
}

QString Properties::setValue(const QString& key, const QString& value)
{
    const auto found = _spMap->find(key);
    if (found == _spMap->end())
        raiseNotFound("QString Properties::setValue(const QString&, const QString&)", key);
    const QString newValue = value; // it may be the entry's own, which exchange() moves from first
    return std::exchange(*found, newValue);
}

void Properties::insert(const QString& key, const QString& value, bool overwrite)
{
    if (!overwrite && _spMap->contains(key))
        raiseDuplicate(key);
    _spMap->insert(key, value);
}

void Properties::insert(const QMap<QString, QString>& map, bool overwrite)
{
    if (overwrite && &map == _spMap.get())
        return; // each value would replace itself
    for (auto it = map.cbegin(); it != map.cend(); ++it) {
        if (!overwrite && _spMap->contains(it.key()))
            Failure::raise("void Properties::insert(QMap<QString,QString>&)",
                           Failure::libraryMessage("PropertyAlreadyExists", it.key()));
        _spMap->insert(it.key(), it.value());
    }
}

QString Properties::remove(const QString& key)
{
    const auto found = _spMap->find(key);
    if (found == _spMap->end())
        raiseNotFound("QString Properties::remove(const QString&)", key);
    const QString value = *found;
    _spMap->erase(found);
    return value;
}

void Properties::clear()
{
    _spMap->clear();
}
