// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "kez/service/loadconfig.h"

#include "service/caughtexception_p.h"
#include "service/configcheck_p.h"
#include "service/configfile_p.h"
#include "service/kittexts_p.h"

#include <cxxabi.h>
#include <optional>

namespace KezService {

namespace {

/// The text of what `action` throws, if it throws.
template <typename Action>
std::optional<QString> failureOf(Action action)
{
    try {
        action();
    } catch (const abi::__forced_unwind&) { // the thread is being cancelled
        throw;
    } catch (...) {
        return caughtText();
    }
    return std::nullopt;
}

QStringList faultsOf(Config& config, IConfigController& validator)
{
    const QString name = QString::fromLatin1(validator.metaObject()->className());
    bool isLegal = false;
    const auto failure = failureOf([&] { isLegal = config.isLegalConfiguration(&validator); });
    QStringList faults = validator.errors();
    if (failure)
        faults.append(kitText("ConfigCheckFailed", name, *failure));
    else if (!isLegal && faults.isEmpty())
        faults.append(kitText("ConfigCheckSilent", name));
    return faults;
}

} // namespace

CheckedConfig checkConfig(const Dictionnary& entries, const QString& version,
                          const ConfigValidators& validators)
{
    CheckedConfig checked{Config::load(Properties(entries), version), {}};
    std::vector<std::unique_ptr<IConfigController>> fresh;
    const auto failure = failureOf([&] {
        if (validators)
            fresh = validators();
    });
    if (failure)
        checked.faults.append(*failure);
    for (const auto& validator : fresh) {
        if (validator)
            checked.faults += faultsOf(*checked.config, *validator);
    }
    checked.faults.removeDuplicates();
    return checked;
}

void raiseConfigFaults(const QString& path, const QStringList& faults)
{
    QStringList lines;
    for (const QString& fault : faults)
        lines.append(kitText("ConfigFault", shownName(path), shownName(fault)));
    throw Exception(lines.join(QLatin1Char('\n')));
}

std::shared_ptr<Config> loadConfig(const QString& path, const QString& version,
                                   const ConfigValidators& validators, qint64 maxSize)
{
    const ConfigFile file = readConfigFile(path, maxSize);
    if (!file.fault.isEmpty())
        raiseConfigFaults(path, {file.fault});
    const CheckedConfig checked = checkConfig(file.entries, version, validators);
    if (!checked.faults.isEmpty())
        raiseConfigFaults(path, checked.faults);
    return checked.config;
}

} // namespace KezService
