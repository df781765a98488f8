// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include <kez/exception.h>
#include <kez/log.h>
#include <kez/service/configwatcher.h>
#include <kez/service/savedproperties.h>

#include <QCoreApplication>
#include <QTextStream>

using namespace KezService;

/// What the service itself asks of its configuration.
class ShopController : public IConfigController {
public:
    bool isLegalConfiguration(Properties* properties) override
    {
        for (const QString key : {"poll.seconds", "orders.max"}) {
            if (!properties->contains(key) || properties->value(key).toInt() <= 0)
                insertError(key + " has to be a number above 0");
        }
        return errors().isEmpty();
    }
};

int main(int argc, char* argv[])
{
    const QCoreApplication application(argc, argv);
    QTextStream out(stdout);
    const QString file = "shop.properties";
    saveAtomically(file, {{"poll.seconds", "5"}, {"orders.max", "100"}});

    ConfigWatcher watcher(file, "1.0", validatorsOf<ShopController>());
    QObject::connect(&watcher, &ConfigWatcher::changed, [&](const auto& config) {
        out << "now: every " << config->value("poll.seconds") << " s" << Qt::endl;
        QCoreApplication::quit();
    });
    QObject::connect(&watcher, &ConfigWatcher::refused, [&](const QStringList& faults) {
        out << faults.join('\n') << Qt::endl;
        out << "still: every " << watcher.config()->value("poll.seconds") << " s" << Qt::endl;
        // The operator corrects the file.
        saveAtomically(file, {{"poll.seconds", "30"}, {"orders.max", "100"}});
    });
    try {
        const auto config = watcher.start();
        out << "start: every " << config->value("poll.seconds") << " s" << Qt::endl;
    } catch (const Exception& e) {
        out << e.detail() << Qt::endl;
        return 1;
    }
    Log::getInstance()->setFilter(LoggerLevel::error); // this program prints the news itself
    saveAtomically(file, {{"poll.seconds", "soon"}});
    return QCoreApplication::exec();
}
