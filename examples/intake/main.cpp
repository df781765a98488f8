// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "intakeconfigcontroller.h"
#include "orderhandler.h"
#include "service.h"
#include "settings.h"
#include "texts.h"

#include <kez/configuration.h>
#include <kez/exception.h>
#include <kez/identity.h>
#include <kez/log.h>
#include <kez/loggerconfigcontroller.h>

#include <QCoreApplication>
#include <QFileInfo>
#include <QTextStream>

#include <cstdlib>
#include <exception>
#include <memory>

using namespace Qt::StringLiterals;

namespace {

constexpr int UsageFault = 2;

const auto Version = QStringLiteral("1.0.0");

void tell(FILE* stream, const QString& line)
{
    QTextStream(stream) << line << Qt::endl;
}

/// The faults of the whole configuration, each once.
QStringList faultsOf(Config& config)
{
    LoggerConfigController logController;
    intake::IntakeConfigController ownController;
    config.isLegalConfiguration(&logController);
    config.isLegalConfiguration(&ownController);
    return logController.errors() + ownController.errors();
}

/// A legal configuration, or null after its faults were shown. Throws Exception.
std::shared_ptr<Config> loadConfiguration(const QString& path)
{
    const auto config = Config::load(path, Version);
    const auto properties = config->properties();
    intake::resolvePaths(*properties, QFileInfo(path).absolutePath());
    if (const QString lang = intake::trimmedValue(*properties, u"lang"_s); intake::isLanguage(lang))
        intake::startInLanguage(lang);

    const QStringList faults = faultsOf(*config);
    if (faults.isEmpty())
        return config;
    tell(stderr, intake::text("ConfigurationFaults"_L1).arg(path, QString::number(faults.size())));
    for (const QString& fault : faults)
        tell(stderr, u"  "_s + fault);
    return nullptr;
}

void openLog(Config& config)
{
    config.setLogger(config.getOrbuildFileSystemLogger());
    Log::initInstance(*config.logger());
    config.logBanner(config.logBannerTitle(), Version, config.displayPropertiesWithinBanner(),
                     Kez::defaultCopyright());
}

int serve(const QString& path)
{
    const auto config = loadConfiguration(path);
    if (!config)
        return EXIT_FAILURE;
    openLog(*config);
    intake::Service(*config).run();
    return EXIT_SUCCESS;
}

/// Does what the arguments ask for; the result is the exit code.
int run(const QStringList& arguments)
{
    intake::loadTexts();
    intake::registerOrderHandlers();
    if (arguments == QStringList{u"--help"_s}) {
        tell(stdout, intake::text("ServiceUsage"_L1));
        return EXIT_SUCCESS;
    }
    if (arguments.size() != 1 || arguments.first().isEmpty() ||
        arguments.first().startsWith(u'-')) {
        tell(stderr, intake::text("ServiceUsage"_L1));
        return UsageFault;
    }
    return serve(arguments.first());
}

int runOrTell(const QStringList& arguments)
{
    try {
        return run(arguments);
    } catch (Exception* thrown) { // NOLINT(misc-throw-by-value-catch-by-reference): LangBundle
        const std::unique_ptr<Exception> failure(thrown);
        tell(stderr, failure->detail());
    } catch (const Exception& failure) {
        tell(stderr, failure.detail());
    } catch (const std::exception& failure) {
        tell(stderr, QString::fromLocal8Bit(failure.what()));
    }
    return EXIT_FAILURE;
}

} // namespace

int main(int argc, char* argv[])
{
    const QCoreApplication application(argc, argv);
    return runOrTell(QCoreApplication::arguments().mid(1));
}
