// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "kez/iuidverifier.h"

IUidVerifier::IUidVerifier(QObject* parent) : QObject(parent)
{}

IUidVerifier::~IUidVerifier() = default;
