// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include "kez/service/logringcheck.h"

class Properties;

namespace KezService {

/// Checks the ring of the logger that the "log.*" keys describe, before it is built. Throws also if
/// the keys have a fault, as what builds the logger would: nothing is renamed then.
RingReport checkRingOfKeys(const Properties& properties);

} // namespace KezService
