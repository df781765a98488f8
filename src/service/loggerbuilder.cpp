// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "kez/service/loggerbuilder.h"

#include "config/loggerfromkeys_p.h"
#include "service/kittexts_p.h"
#include "service/ringofkeys_p.h"

namespace KezService {

std::shared_ptr<Logger> buildLogger(const Properties& properties, LogFormatter formatter)
{
    const RingReport report = checkRingOfKeys(properties);
    const std::shared_ptr<Logger> logger = LoggerFromKeys::build(properties, formatter);
    logger->disableTee();
    if (LoggerFromKeys::asksForTee(properties))
        logger->warning(kitText("BridgeTeeStaysOff"));
    report.logTo(*logger);
    return logger;
}

} // namespace KezService
