// SPDX-FileCopyrightText: 2026 Vandrel
// SPDX-License-Identifier: MIT

#pragma once

#include "kez_global.h"

#include <QException>
#include <QString>

#include <memory>

/// The one exception type of the library: a complete, already translated text and, optionally, the
/// failure that caused it.
///
/// The library throws it by value, except where a function says "throws a pointer": there the
/// catcher owns and deletes the object.
///
/// `what()` is the standard exception's generic text, not the detail: read detail().
///
/// An exception that is thrown in a function of QtConcurrent, or given as an object to
/// QPromise::setException(), arrives as a plain QException without its detail, since clone() and
/// raise() are those of QException. To carry it to another thread, catch it and call
///
///     promise.setException(std::current_exception());
///
/// *Threads*: a built exception is read from any thread.
/// *Owns*: shares its parent with its copies.
/// *Fails*: never.
class KEZ_EXPORT Exception : public QException {
public:
    explicit Exception(const QString& detail, const std::shared_ptr<Exception>& parent = nullptr);
    Exception(const Exception& other);
    Exception& operator=(const Exception& other);
    ~Exception() override;

    /// The whole message, for example
    /// "QString Properties::value(const QString&) -> Property [a] does not exist".
    virtual QString detail() const;

    /// The failure behind this one, or an empty pointer.
    virtual std::shared_ptr<Exception> parent() const;

private:
    QString _detail;
    std::shared_ptr<Exception> _parent;
};
