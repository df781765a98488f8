// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#include "kez/exception.h"

Exception::Exception(const QString& detail, const std::shared_ptr<Exception>& parent)
    : _detail(detail), _parent(parent)
{}

Exception::Exception(const Exception& other) = default;

Exception& Exception::operator=(const Exception& other) = default;

Exception::~Exception() = default;

QString Exception::detail() const
{
    return _detail;
}

std::shared_ptr<Exception> Exception::parent() const
{
    return _parent;
}
