// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

// 1. Library frame
#include "exception.h"
#include "identity.h"
#include "initlib.h"
#include "kez_global.h"

// 2. Internationalisation
#include "langbundle.h"
#include "translator.h"

// 3. Configuration
#include "configuration.h"
#include "dictionnary.h"
#include "iconfigcontroller.h"
#include "properties.h"

// 4. Logging
#include "log.h"
#include "logger.h"
#include "loggerconfigcontroller.h"
#include "loggerlevel.h"

// 5. File queue
#include "ConsumerAncestor.h"
#include "FileEntry.h"
#include "FilesQueue.h"

// 6. Reflection
#include "metatype.h"
#include "metatypes.h"

// 7. XML
#include "simpledom.h"
#include "xmlelement.h"

// 8. Identifiers and randomness
#include "defaultuidverifier.h"
#include "iuidverifier.h"
#include "randomgenerator.h"
#include "uidgenerator.h"

// 9. Text and utilities
#include "datewatcher.h"
#include "filehelper.h"
#include "memory.h"
#include "regexprovider.h"
#include "text.h"
#include "timehelper.h"
#include "timestamphelper.h"
#include "urlhelper.h"
