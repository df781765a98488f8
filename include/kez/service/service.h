// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

/// The whole service kit in one header: what a long-running service needs beside the core.

// Files: handled, delivered, taken in
#include "arrivalgate.h"
#include "delivery.h"
#include "filerunner.h"
#include "outcome.h"

// Log: messages, formats, rings
#include "lineformatters.h"
#include "loggerbuilder.h"
#include "logringcheck.h"
#include "messagebridge.h"
#include "servicelog.h"

// Configuration
#include "configsection.h"
#include "configwatcher.h"
#include "levelname.h"
#include "loadconfig.h"
#include "savedproperties.h"
#include "sectionlogger.h"

// The frame of a service
#include "exitcodes.h"
#include "serviceapplication.h"
#include "servicenotifier.h"
#include "unixsignals.h"

// XML
#include "xmlwriter.h"
