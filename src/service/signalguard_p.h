// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include "service/caughtexception_p.h"
#include "service/kittexts_p.h"

#include <kez/log.h>

#include <cxxabi.h>

namespace KezService {

/// Emits a signal from the runner's own thread. What a slot throws there is logged: it must not
/// keep the runner from the files that come next.
template <typename Emission>
void withSlots(Emission emission)
{
    try {
        emission();
    } catch (const abi::__forced_unwind&) {
        throw;
    } catch (...) {
        Log::getInstance()->critical(kitText("RunnerSlotThrew", shownName(caughtText())));
    }
}

} // namespace KezService
