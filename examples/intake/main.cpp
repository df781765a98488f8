// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "ledger.h"
#include "settings.h"
#include "texts.h"

#include <kez/log.h>
#include <kez/loggerconfigcontroller.h>
#include <kez/service/delivery.h>
#include <kez/service/exitcodes.h>
#include <kez/service/loadconfig.h>
#include <kez/service/messagebridge.h>
#include <kez/service/serviceapplication.h>
#include <kez/service/servicelog.h>
#include <kez/service/servicenotifier.h>
#include <kez/service/unixsignals.h>
#include <kez/translator.h>

#include <QCryptographicHash>
#include <QDir>
#include <QFileInfo>
#include <QTextStream>

using namespace intake;
using namespace KezService;
using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

namespace {

constexpr auto Patience = 10s; // with the files at hand, when all has to pause or to stop

/// Null if it has faults, which are told then.
std::shared_ptr<Config> configurationIn(const QString& path)
try {
    return loadConfig(path, u"1.0.0"_s, [&path] {
        std::vector<std::unique_ptr<IConfigController>> made;
        made.push_back(std::make_unique<IntakeConfigController>(QFileInfo(path).absolutePath()));
        made.push_back(std::make_unique<LoggerConfigController>());
        return made;
    });
} catch (const Exception& failure) {
    QTextStream(stderr) << failure.detail() << Qt::endl;
    return nullptr;
}

QByteArray digestOf(const QString& path)
{
    QFile file(path);
    QCryptographicHash hash(QCryptographicHash::Sha256);
    if (!file.open(QFile::ReadOnly) || !hash.addData(&file))
        throw Exception(text("CannotRead"_L1, printable(path), file.errorString()));
    return hash.result();
}

/// Keeps a copy of the file, unless an interrupted attempt has made it. If the archive has another
/// file of that name, the copy is named by the file's key.
Outcome keepCopy(const FileAtHand& file, const Delivery& archive)
{
    const QDir copies(archive.directory());
    const bool isTaken =
        copies.exists(file.name) && digestOf(copies.filePath(file.name)) != digestOf(file.path);
    const QString name = isTaken ? file.key : file.name;
    if (!copies.exists(name))
        archive.deliverFile(file.path, name);
    Log::getInstance()->info(isTaken ? text("ArchivedAs"_L1, printable(file.name), name)
                                     : text("Archived"_L1, printable(file.name)));
    return Outcome::done();
}

/// The translator has no lock: the texts are exchanged while nobody reads them.
void switchLanguage(FileRunner& runner)
{
    auto* const translator = Translator::getInstance();
    const QString lang = translator->defaultLang() == u"fr_FR" ? u"en_US"_s : u"fr_FR"_s;
    if (!runner.pause(Patience)) {
        Log::getInstance()->warning(text("LanguageStays"_L1));
        return;
    }
    translator->setDefaultLang(lang); // cannot fail: both are compiled in
    Log::getInstance()->info(text("LanguageSwitched"_L1, lang));
    runner.resume();
}

void logSummary(const RunnerProgress& progress, const Ledger& ledger)
{
    const ConsumerProgress& archive = progress.consumers.at(0);
    const ConsumerProgress& booking = progress.consumers.at(1);
    Log::getInstance()->info(text("WorkDone"_L1, momentText(QDateTime::currentDateTime()),
                                  countText(archive.done), countText(ledger.count()),
                                  countText(archive.quarantined + booking.quarantined)));
    const QMap<QString, qint64> totals = ledger.totals();
    QStringList amounts;
    for (auto total = totals.begin(); total != totals.end(); ++total)
        amounts += amountText(total.value(), total.key());
    if (!amounts.isEmpty())
        Log::getInstance()->info(text("TotalBooked"_L1, amounts.join(u" ; "_s)));
}

/// Works until a signal ends it; the result is the exit code.
int serve(const Settings& settings, UnixSignals& received, ServiceNotifier& notifier)
try {
    const Delivery archive(settings.archive);
    const auto ledger = std::make_shared<Ledger>(settings.ledger);
    const auto keep = [archive](const FileAtHand& file) { return keepCopy(file, archive); };
    const auto book = [ledger](const FileAtHand& file) { return ledger->book(file); };

    // A full disk must not send good orders to quarantine: there is no last attempt.
    const HandlerSettings untiring{.attempts = 0, .longestPause = 1min};
    FileRunner runner(settings.runner);
    runner.addConsumer(u"archive"_s, keep, untiring);
    runner.addConsumer(u"ledger"_s, book, untiring);
    runner.start();
    Log::getInstance()->info(text("Ready"_L1, settings.runner.spool));
    notifier.ready();

    QObject::connect(&received, &UnixSignals::hangUpReceived, [&] { switchLanguage(runner); });
    QObject::connect(&received, &UnixSignals::stopRequested, [&](const QString& signal) {
        Log::getInstance()->info(text("StopRequested"_L1, signal));
        notifier.stopping();
        const bool isClean = runner.stop(Patience).isClean();
        if (isClean)
            logSummary(runner.progress(), *ledger);
        Log::getInstance()->info(text("Stopped"_L1));
        QCoreApplication::exit(isClean ? ExitClean : ExitFailure);
    });
    received.listen();
    return QCoreApplication::exec();
} catch (const Exception& failure) {
    const QString reason = text("ServiceFailed"_L1, failure.detail());
    Log::getInstance()->critical(reason);
    throw Exception(reason);
}

} // namespace

int main(int argc, char* argv[])
try {
    const ServiceApplication application(argc, argv);
    UnixSignals received; // first: from now on, no request to stop is lost
    ServiceNotifier notifier;
    loadTexts();
    registerOrderHandlers();
    const QStringList arguments = QCoreApplication::arguments().mid(1);
    const bool isHelp = arguments == QStringList{u"--help"_s};
    const QString path = arguments.value(0);
    if (arguments.size() != 1 || path.isEmpty() || path.startsWith(u'-')) {
        QTextStream(isHelp ? stdout : stderr) << text("ServiceUsage"_L1) << Qt::endl;
        return isHelp ? ExitClean : ExitUsage;
    }
    const auto config = configurationIn(path);
    if (!config)
        return ExitConfiguration;
    openLog(*config);
    const MessageBridge bridge;
    return serve(Settings::of(*config->properties()), received, notifier);
} catch (const Exception& failure) {
    QTextStream(stderr) << failure.detail() << Qt::endl;
    return ExitUnavailable;
}
