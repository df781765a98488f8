// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include <kez/exception.h>
#include <kez/properties.h>
#include <kez/service/savedproperties.h>

#include <QCoreApplication>
#include <QDir>
#include <QTextStream>

using namespace KezService;

namespace {

/// Changes one setting of a file that others may read at any moment.
bool setValue(const QString& path, const QString& key, const QString& value)
{
    QTextStream out(stdout);
    try {
        const auto properties = Properties::loadProperties(path);
        properties->insert(key, value, true);
        saveAtomically(path, *properties->toDictionnary());
        return true;
    } catch (const Exception& e) {
        out << e.detail() << Qt::endl;
        return false;
    }
}

} // namespace

int main(int argc, char* argv[])
{
    qputenv("LANG", "en_US.UTF-8"); // so that the text below is the same everywhere
    const QCoreApplication application(argc, argv);
    QTextStream out(stdout);

    // The operators' file lies elsewhere; the service knows a link to it.
    const QString real = "shop-2026.properties";
    const QString link = "shop.properties";
    saveAtomically(real, {{"db.host", "db1"}});
    QFile::setPermissions(real, QFile::ReadOwner | QFile::WriteOwner);
    QFile::link(real, link);

    setValue(link, "db.host", "db2");
    setValue(link, "motd", "two\nlines"); // refused

    QFile file(real);
    if (file.open(QIODevice::ReadOnly))
        out << file.readAll();
    const bool isPrivate = !(file.permissions() & (QFile::ReadGroup | QFile::ReadOther));
    out << "link: " << QFileInfo(link).isSymLink() << ", private: " << isPrivate << Qt::endl;
    out << QDir().entryList(QDir::Files | QDir::Hidden).join(' ') << Qt::endl;
    return 0;
}
