// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "kez/service/loggerbuilder.h"

#include "service/ringlogger_p.h"

namespace KezService {

std::shared_ptr<Logger> buildLogger(const Properties& properties, LogFormatter formatter)
{
    const RingLogger built = buildRingLogger(properties, formatter);
    built.report.logTo(*built.logger);
    return built.logger;
}

} // namespace KezService
